#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

#include "coreapi/qmutils/params/growingbytes.h"
#include "coreapi/qmutils/params/paramvalue.h"

namespace qm_utils {

/// Writes the text form of parameters. What is written never holds a raw CR, LF or NUL, whatever the values
/// hold. Text is gathered in a small piece that stays in the cache, and handed on when that is full.
class ParamWriter {
 public:
  /// Appends to a string.
  explicit ParamWriter(std::string& sOut) noexcept : m_pString(&sOut) {}

  /// Writes into a buffer that is large enough; see maxTextLength.
  explicit ParamWriter(char* szOut) noexcept : m_szOut(szOut) {}

  ParamWriter(const ParamWriter&) = delete;
  ParamWriter& operator=(const ParamWriter&) = delete;

  void writeText(std::string_view sText) {
    if (sText.size() > m_piece.size()) {
      finish();
      handOn(sText);
    } else {
      copyFew(makeRoom(sText.size()), sText.data(), sText.size());
    }
  }

  /// A name that comes in two parts, "=" and the value; nothing at all for a `T_EMPTY`.
  void writeParameter(std::string_view sNameStart, std::string_view sNameEnd, const ParamValue& value);

  /// Hands on what is gathered. Returns the number of characters written in all. To be called at the end.
  std::size_t finish();

 private:
  /// Room for a few bytes, which count as written.
  char* makeRoom(std::size_t size) {
    if (size > m_piece.size() - m_used) {
      finish();
    }
    char* const pRoom = m_piece.data() + m_used;
    m_used += size;
    return pRoom;
  }

  void handOn(std::string_view sText);
  void writePair(char cFirst, char cSecond);
  void writeQuoted(std::string_view sText);
  void writeHexadecimalBlock(std::string_view sBytes);
  void writeCountedBlock(std::string_view sBytes);

  std::string* m_pString = nullptr;
  char* m_szOut = nullptr;
  std::size_t m_handedOn = 0;
  std::size_t m_used = 0;
  std::array<char, 16 * 1024> m_piece;
};

/// A bound of what writeParameter writes for a name of this length and this value.
std::size_t maxTextLength(std::size_t nameLength, const ParamValue& value) noexcept;

}  // namespace qm_utils
