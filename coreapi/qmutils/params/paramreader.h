#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include "coreapi/qmutils/params/paramscan.h"
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
///       reader.readParameter();
///       use(reader.name(), reader.value());
///     } while (reader.hasMore());
class ParamReader {
 public:
  /// The text must outlive the reader and what it has returned.
  explicit ParamReader(std::string_view sText) noexcept
      : m_pStart(sText.data()), m_pNext(m_pStart), m_pEnd(m_pStart + sText.size()) {}

  /// Skips blanks; whether an empty list stands there, which a ")" or the end of the text ends.
  bool skipEmptyList() noexcept;

  /// Reads a parameter, and the comma behind it, if there is one. Throws JVariant::SyntaxError.
  void readParameter();

  /// Whether a comma stood behind the parameter read last, so that one more must follow.
  bool hasMore() const noexcept { return m_bMore; }

  /// The name of the parameter read last, where it lies in the text.
  std::string_view name() const noexcept { return m_sName; }

  /// How many bytes that name shares with the one before it.
  std::size_t sharedWithPrevious() const noexcept { return m_shared; }

  /// Whether that name stands behind the one before it in the order of names.
  bool followsPrevious() const noexcept { return m_bFollows; }

  /// The value of the parameter read last. What it points at is good until the next one is read.
  const ParamValue& value() const noexcept { return m_value; }

  /// Characters consumed since the start of the text.
  std::size_t offset() const noexcept { return static_cast<std::size_t>(m_pNext - m_pStart); }

 private:
  /// How far ahead of the parameter that is read memory is asked for.
  static constexpr std::size_t kLookAhead = 1536;

  // These take where to read on from, and return where they have stopped; values go into m_value.

  char at(const char* p) const noexcept { return p < m_pEnd ? *p : '\0'; }
  std::size_t leftFrom(const char* p) const noexcept { return static_cast<std::size_t>(m_pEnd - p); }

  const char* skipBlanks(const char* p) const noexcept;
  const char* skipName(const char* p) const noexcept;
  template <std::size_t Size>
  bool startsWith(const char* p, const char (&szWord)[Size]) const noexcept;
  bool startsWithInAnyCase(const char* p, std::string_view sLowerCase) const noexcept;
  const char* readDigits(const char* p, std::uint64_t& uValue) const noexcept;

  const char* readName(const char* p);
  const char* finishName(const char* p);
  const char* readValue(const char* p);
  const char* readDecimal(const char* p);
  const char* readQuoted(const char* p);
  const char* readOther(const char* p);
  const char* readNumber(const char* p);
  const char* readDouble(const char* p);
  const char* readOctalOrHexadecimal(const char* p, std::uint64_t& uValue) const noexcept;
  const char* decodeQuoted(const char* p, const char* pPlainEnd);
  const char* decodeEscape(const char* p);
  const char* readHexadecimalBlock(const char* p);
  const char* readCountedBlock(const char* p);
  char decodeCounted(char c) const;

  [[noreturn]] void fail(const char* szMessage) const;

  const char* m_pStart;
  const char* m_pNext;
  const char* m_pEnd;
  std::string_view m_sName;
  std::size_t m_shared = 0;
  bool m_bFollows = false;
  bool m_bMore = false;
  ParamValue m_value;
  std::string m_sDecoded;  ///< the value read last, when it couldn't stay where it lies
};

// What a list of a million parameters consists of is read right here, for the compiler to fold into the loop
// that reads them.

inline const char* ParamReader::skipBlanks(const char* p) const noexcept {
  while (p < m_pEnd && isBlank(*p)) {
    ++p;
  }
  return p;
}

inline void ParamReader::readParameter() {
  // A page further on the processor doesn't know yet that the text goes on; asking early hides the wait.
  if (leftFrom(m_pNext) > kLookAhead) {
    prefetch(m_pNext + kLookAhead);
    prefetch(m_pNext + kLookAhead - kCacheLine);
  }
  const char* p = skipBlanks(readValue(skipBlanks(readName(skipBlanks(m_pNext)))));
  m_bMore = at(p) == ',';
  m_pNext = m_bMore ? p + 1 : p;
}

/// The end of a run of name characters.
inline const char* ParamReader::skipName(const char* p) const noexcept {
  while (p < m_pEnd && isNameCharacter(*p)) {
    ++p;
  }
  return p;
}

/// Reads a name and its "=".
inline const char* ParamReader::readName(const char* p) {
  const char* const pName = p;
  // What is the same as in the name before needs no second look: rows of an answer share most of it.
  m_shared = sharedLength({pName, leftFrom(pName)}, m_sName);
  p = skipName(p + m_shared);
  const std::string_view sName(pName, static_cast<std::size_t>(p - pName));
  m_bFollows = m_shared < sName.size() &&
               (m_shared == m_sName.size() ||
                static_cast<unsigned char>(sName[m_shared]) > static_cast<unsigned char>(m_sName[m_shared]));
  m_sName = sName;
  return at(p) == '=' && !sName.empty() ? p + 1 : finishName(p);
}

inline const char* ParamReader::readValue(const char* p) {
  const char c = at(p);
  if (c >= '1' && c <= '9') {
    return readDecimal(p);
  }
  if (c == '"') {
    return readQuoted(p + 1);
  }
  const bool bTrue = startsWith(p, "true");
  if (bTrue || startsWith(p, "false")) {
    m_value = ParamValue::ofBool(bTrue);
    return p + (bTrue ? 4 : 5);
  }
  return readOther(p);
}

template <std::size_t Size>
inline bool ParamReader::startsWith(const char* p, const char (&szWord)[Size]) const noexcept {
  constexpr std::size_t kLength = Size - 1;
  return leftFrom(p) >= kLength && std::memcmp(p, szWord, kLength) == 0;
}

/// Adds digits to a value, which wraps; returns the end of the digits.
inline const char* ParamReader::readDigits(const char* p, std::uint64_t& uValue) const noexcept {
  for (; leftFrom(p) >= sizeof(Eight) && areDigits(loadEight(p)); p += sizeof(Eight)) {
    uValue = uValue * 100'000'000 + digitsToNumber(loadEight(p));
  }
  for (; p < m_pEnd && isDigit(*p); ++p) {
    uValue = uValue * 10 + static_cast<std::uint64_t>(*p - '0');
  }
  return p;
}

/// Reads a number that starts with another digit than 0.
inline const char* ParamReader::readDecimal(const char* p) {
  const char* const pNumber = p;
  std::uint64_t uValue = 0;
  p = readDigits(p, uValue);
  if (at(p) == '.') {
    // Up to 15 digits and the power of ten are exact as doubles, so that one division rounds as it must.
    constexpr std::ptrdiff_t kMaxLength = 16;
    static constexpr double kPowersOfTen[] = {1e0, 1e1, 1e2,  1e3,  1e4,  1e5,  1e6, 1e7,
                                              1e8, 1e9, 1e10, 1e11, 1e12, 1e13, 1e14};
    const char* const pFraction = p + 1;
    p = readDigits(pFraction, uValue);
    if (p - pNumber > kMaxLength || isExponent(at(p))) {
      return readDouble(pNumber);
    }
    m_value = ParamValue::ofDouble(static_cast<double>(uValue) / kPowersOfTen[p - pFraction]);
    return p;
  }
  if (isExponent(at(p))) {
    return readDouble(pNumber);
  }
  m_value = ParamValue::ofInteger(static_cast<std::int64_t>(uValue));
  return p;
}

/// Reads a text from behind its opening quote.
inline const char* ParamReader::readQuoted(const char* p) {
  const char* const pText = p;
  for (; leftFrom(p) >= sizeof(Eight); p += sizeof(Eight)) {
    const Eight here = loadEight(p);
    const Eight special =
        markZeros(here ^ eightTimes('"')) | markZeros(here ^ eightTimes('\\')) | markZeros(here);
    if (special != 0) {
      p += firstMark(special);
      break;
    }
  }
  if (at(p) != '"') {
    return decodeQuoted(pText, p);
  }
  m_value = ParamValue::ofText({pText, static_cast<std::size_t>(p - pText)});
  return p + 1;
}

}  // namespace qm_utils
