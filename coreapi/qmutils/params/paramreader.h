#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "coreapi/qmutils/params/paramvalue.h"

namespace qm_utils {

/// Reads the text of a parameter list, one parameter after the other:
///
///     list   = parameter *( "," parameter )
///     parameter = name "=" value
///     name   = 1*( letter / digit / "_" / "[" / "]" / "." / "-" / byte from 0x80 up )
///     value  = "true" / "false" / "ok" / "failed" / number / quoted / hex / counted
///     quoted = DQUOTE *( byte / escape ) DQUOTE
///     hex    = "[" *( digits and ":" "." "," blanks between bytes ) "]"
///     counted = "[[" count "]" bytes escaped with "$" "]"
///
/// Blanks, which are spaces and tabs, may stand around names and values. The text ends at its first NUL or
/// where the view ends. Nothing is copied but what has to be decoded.
///
///     ParamReader reader(sText);
///     do {
///       const std::string_view sName = reader.readName();
///       const ParamValue value = reader.readValue();
///     } while (reader.readComma());
class ParamReader {
 public:
  /// The text must outlive the reader and what it has returned.
  explicit ParamReader(std::string_view sText) noexcept
      : m_pStart(sText.data()), m_pNext(m_pStart), m_pEnd(m_pStart + sText.size()) {}

  /// Skips blanks; whether an empty list stands there, which a ")" or the end of the text ends.
  bool skipEmptyList() noexcept;

  /// Reads a name and its "=". Throws JVariant::SyntaxError.
  std::string_view readName();

  /// How many bytes the name read last shares with the one before it.
  std::size_t sharedWithPrevious() const noexcept { return m_sharedWithPrevious; }

  /// Reads the value behind a name. What it points at is good until the next call, or as long as the text.
  /// Throws JVariant::SyntaxError.
  ParamValue readValue();

  /// Skips blanks and steps over a comma; whether there was one, so that one more parameter must follow.
  bool readComma() noexcept;

  /// Characters consumed since the start of the text.
  std::size_t offset() const noexcept { return static_cast<std::size_t>(m_pNext - m_pStart); }

 private:
  char at(const char* p) const noexcept { return p < m_pEnd ? *p : '\0'; }
  std::size_t left() const noexcept { return static_cast<std::size_t>(m_pEnd - m_pNext); }

  void skipBlanks() noexcept;
  bool skipWord(std::string_view sWord) noexcept;
  bool skipWordInAnyCase(std::string_view sLowerCase) noexcept;

  ParamValue readNumber();
  ParamValue readDouble();
  std::uint64_t readOctalOrHexadecimal() noexcept;
  ParamValue readQuoted();
  ParamValue decodeQuoted(const char* pEscape);
  void decodeEscape();
  ParamValue readHexadecimalBlock();
  ParamValue readCountedBlock();

  [[noreturn]] void fail(const char* szMessage) const;

  const char* m_pStart;
  const char* m_pNext;
  const char* m_pEnd;
  std::string_view m_sName;
  std::size_t m_sharedWithPrevious = 0;
  std::string m_sDecoded;  ///< the value read last, when it couldn't stay where it lies
};

/// How many bytes two texts share from their start.
std::size_t sharedLength(std::string_view sLeft, std::string_view sRight) noexcept;

}  // namespace qm_utils
