#pragma once

#include <charconv>
#include <cstdint>
#include <string>
#include <string_view>
#include <system_error>

#include "coreapi/platform/clocale.h"

/// Numbers in XML texts, whatever the host's locale. Private to this folder.
namespace qm_xml {

inline constexpr std::string_view kBlanks = " \t\r\n\v\f";

/// A text without the white space around it.
inline std::string_view trimmed(std::string_view text) noexcept {
  const std::size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) {
    return {};
  }
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

/// Scans an integer at the start of a text, with an optional sign. Returns the characters used, 0 when there
/// is none or the type can't hold it.
template <typename Integer>
std::size_t scanInteger(std::string_view text, Integer& out, int iBase = 10) noexcept {
  const std::size_t sign = !text.empty() && text.front() == '+' ? 1 : 0;
  const char* pFirst = text.data() + sign;
  const char* pEnd = text.data() + text.size();
  if (sign == 1 && pFirst != pEnd && *pFirst == '-') {
    return 0;
  }
  Integer value = 0;
  const auto result = std::from_chars(pFirst, pEnd, value, iBase);
  if (result.ec != std::errc()) {
    return 0;
  }
  out = value;
  return static_cast<std::size_t>(result.ptr - text.data());
}

/// Scans a real number at the start of a text. Returns the characters used, 0 when there is none.
inline std::size_t scanDouble(const std::string& sText, double& dOut) noexcept {
  const char* pEnd = nullptr;
  const double dValue = qm_platform::toDoubleC(sText.c_str(), &pEnd);
  if (pEnd != sText.c_str()) {
    dOut = dValue;
  }
  return static_cast<std::size_t>(pEnd - sText.c_str());
}

/// The shortest text that reads back as the same number.
template <typename Number>
std::string numberText(Number value) {
  char text[64];
  return std::string(text, std::to_chars(text, text + sizeof text, value).ptr);
}

}  // namespace qm_xml
