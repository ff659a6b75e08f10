#pragma once

#include <charconv>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

#include "coreapi/qmutils/time/jtime.h"

namespace qm_storage {

/// Builds one row as a host gets it: Key=value,Key="value" without blanks. Texts stand in it as they are,
/// quotes included; dates are in the calendar form.
class RowText {
 public:
  /// `uExpected` is about the length that the row will have.
  explicit RowText(std::size_t uExpected) { m_sRow.reserve(uExpected); }

  RowText& text(std::string_view sKey, std::string_view sValue) {
    key(sKey);
    m_sRow.append(1, '"').append(sValue).append(1, '"');
    return *this;
  }

  RowText& date(std::string_view sKey, JTime time) {
    key(sKey);
    m_sRow.append(1, '"');
    time.appendUSFormat(m_sRow);
    m_sRow.append(1, '"');
    return *this;
  }

  RowText& number(std::string_view sKey, std::int32_t iValue) {
    key(sKey);
    char szNumber[16];
    m_sRow.append(szNumber, std::to_chars(szNumber, szNumber + sizeof szNumber, iValue).ptr);
    return *this;
  }

  std::string take() { return std::move(m_sRow); }

 private:
  void key(std::string_view sKey) {
    if (!m_sRow.empty()) {
      m_sRow.append(1, ',');
    }
    m_sRow.append(sKey).append(1, '=');
  }

  std::string m_sRow;
};

}  // namespace qm_storage
