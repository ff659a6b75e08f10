#include "coreapi/qmutils/params/paramreader.h"

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <cstring>
#include <limits>

#include "coreapi/platform/byteorder.h"
#include "coreapi/platform/clocale.h"

namespace qm_utils {

namespace {

constexpr const char* kUnterminatedBlock = "unterminated binary block text";

constexpr std::array<bool, 256> kNameCharacters = [] {
  std::array<bool, 256> is{};
  for (unsigned c = 0; c < is.size(); ++c) {
    is[c] = (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_' ||
            c == '[' || c == ']' || c == '.' || c == '-' || c >= 0x80;
  }
  return is;
}();

bool isNameCharacter(char c) noexcept {
  return kNameCharacters[static_cast<unsigned char>(c)];
}

bool isBlank(char c) noexcept {
  return c == ' ' || c == '\t';
}

bool isDigit(char c) noexcept {
  return c >= '0' && c <= '9';
}

bool isOctal(char c) noexcept {
  return c >= '0' && c <= '7';
}

/// The value of a hexadecimal digit, -1 for any other character.
int hexValue(char c) noexcept {
  if (isDigit(c)) {
    return c - '0';
  }
  if (c >= 'a' && c <= 'f') {
    return c - 'a' + 10;
  }
  return c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
}

bool isExponent(char c) noexcept {
  return c == 'e' || c == 'E' || c == 'd' || c == 'D';
}

}  // namespace

std::size_t sharedLength(std::string_view sLeft, std::string_view sRight) noexcept {
  const std::size_t limit = std::min(sLeft.size(), sRight.size());
  std::size_t shared = 0;
  for (; shared + sizeof(std::uint64_t) <= limit; shared += sizeof(std::uint64_t)) {
    const std::uint64_t uDifference =
        qm_platform::readLE64(sLeft.data() + shared) ^ qm_platform::readLE64(sRight.data() + shared);
    if (uDifference != 0) {
      return shared + static_cast<std::size_t>(std::countr_zero(uDifference)) / 8;
    }
  }
  while (shared < limit && sLeft[shared] == sRight[shared]) {
    ++shared;
  }
  return shared;
}

void ParamReader::fail(const char* szMessage) const {
  QM_THROW(JVariant::SyntaxError, std::string(m_sName), szMessage);
}

void ParamReader::skipBlanks() noexcept {
  while (m_pNext < m_pEnd && isBlank(*m_pNext)) {
    ++m_pNext;
  }
}

bool ParamReader::skipEmptyList() noexcept {
  skipBlanks();
  return at(m_pNext) == '\0' || *m_pNext == ')';
}

bool ParamReader::readComma() noexcept {
  skipBlanks();
  if (at(m_pNext) != ',') {
    return false;
  }
  ++m_pNext;
  return true;
}

std::string_view ParamReader::readName() {
  skipBlanks();
  const char* const pName = m_pNext;
  // What is the same as in the name before needs no second look: rows of an answer share most of it.
  m_sharedWithPrevious = sharedLength({pName, left()}, m_sName);
  m_pNext += m_sharedWithPrevious;
  while (m_pNext < m_pEnd && isNameCharacter(*m_pNext)) {
    ++m_pNext;
  }
  m_sName = {pName, static_cast<std::size_t>(m_pNext - pName)};
  skipBlanks();
  const bool bAssigned = at(m_pNext) == '=';
  if (!bAssigned || m_sName.empty()) {
    const std::string_view sRest = upToNul({pName, static_cast<std::size_t>(m_pEnd - pName)});
    QM_THROW(JVariant::SyntaxError, std::string(sRest),
             bAssigned ? "cannot parse missing parameter name" : "garbage instead of '='");
  }
  ++m_pNext;
  return m_sName;
}

bool ParamReader::skipWord(std::string_view sWord) noexcept {
  if (std::string_view(m_pNext, left()).substr(0, sWord.size()) != sWord) {
    return false;
  }
  m_pNext += sWord.size();
  return true;
}

bool ParamReader::skipWordInAnyCase(std::string_view sLowerCase) noexcept {
  const std::string_view sHere = std::string_view(m_pNext, left()).substr(0, sLowerCase.size());
  if (!std::equal(sHere.begin(), sHere.end(), sLowerCase.begin(), sLowerCase.end(),
                  [](char c, char lower) { return c == lower || c == lower - 'a' + 'A'; })) {
    return false;
  }
  m_pNext += sLowerCase.size();
  return true;
}

ParamValue ParamReader::readValue() {
  skipBlanks();
  const char c = at(m_pNext);
  if (isDigit(c) || c == '.' || c == '+' || c == '-') {
    return readNumber();
  }
  if (c == '"') {
    return readQuoted();
  }
  if (c == '[') {
    return at(m_pNext + 1) == '[' ? readCountedBlock() : readHexadecimalBlock();
  }
  if (skipWord("true") || skipWordInAnyCase("ok")) {
    return ParamValue::ofBool(true);
  }
  if (skipWord("false") || skipWordInAnyCase("failed")) {
    return ParamValue::ofBool(false);
  }
  fail("unknown parameter type");
}

ParamValue ParamReader::readNumber() {
  const char* p = m_pNext;
  const bool bNegative = *p == '-';
  if (bNegative || *p == '+') {
    ++p;
  }
  const char* const pDigits = p;
  std::uint64_t uValue = 0;
  for (; p < m_pEnd && isDigit(*p); ++p) {
    uValue = uValue * 10 + static_cast<std::uint64_t>(*p - '0');
  }
  if (at(p) == '.' || isExponent(at(p))) {
    return readDouble();
  }
  m_pNext = p;
  if (at(pDigits) == '0') {
    m_pNext = pDigits;
    uValue = readOctalOrHexadecimal();
  }
  return ParamValue::ofInteger(static_cast<std::int64_t>(bNegative ? 0 - uValue : uValue));
}

std::uint64_t ParamReader::readOctalOrHexadecimal() noexcept {
  std::uint64_t uValue = 0;
  if (at(m_pNext + 1) == 'x' || at(m_pNext + 1) == 'X') {
    for (m_pNext += 2; hexValue(at(m_pNext)) >= 0; ++m_pNext) {
      uValue = uValue << 4 | static_cast<std::uint64_t>(hexValue(*m_pNext));
    }
  } else {
    for (; isOctal(at(m_pNext)); ++m_pNext) {
      uValue = uValue << 3 | static_cast<std::uint64_t>(*m_pNext - '0');
    }
  }
  return uValue;
}

/// Converts as strtod does, which the text can't be given to: it needn't end in a NUL, and strtod knows no
/// "d". What lies outside the range of a double gives infinity or the nearest to zero, as there.
ParamValue ParamReader::readDouble() {
  const char* const pNumber = *m_pNext == '+' ? m_pNext + 1 : m_pNext;
  double dValue = 0.0;
  auto result = std::from_chars(pNumber, m_pEnd, dValue);
  if (result.ec == std::errc::invalid_argument) {
    return ParamValue::ofDouble(0.0);  // no digit at all: nothing is consumed
  }
  const char* pEnd = result.ptr;
  const bool bForeignExponent =
      (at(pEnd) == 'd' || at(pEnd) == 'D') && std::none_of(pNumber, pEnd, isExponent);
  if (bForeignExponent || result.ec == std::errc::result_out_of_range) {
    std::string sNumber(pNumber, pEnd);
    if (bForeignExponent) {
      const char* pExponent = pEnd + 1;
      pExponent += at(pExponent) == '+' || at(pExponent) == '-' ? 1 : 0;
      while (isDigit(at(pExponent))) {
        ++pExponent;
      }
      sNumber.append(1, 'e').append(pEnd + 1, pExponent);
    }
    const char* pStop = nullptr;
    dValue = qm_platform::toDoubleC(sNumber.c_str(), &pStop);
    pEnd = pNumber + (pStop - sNumber.c_str());
  }
  m_pNext = pEnd;
  return ParamValue::ofDouble(dValue);
}

ParamValue ParamReader::readQuoted() {
  ++m_pNext;
  const auto* const pQuote = static_cast<const char*>(std::memchr(m_pNext, '"', left()));
  if (pQuote == nullptr) {
    fail("unterminated quoted string");
  }
  const std::string_view sPlain(m_pNext, static_cast<std::size_t>(pQuote - m_pNext));
  const std::size_t special = sPlain.find('\\');
  if (sPlain.substr(0, special).find('\0') != std::string_view::npos) {
    fail("unterminated quoted string");
  }
  if (special != std::string_view::npos) {
    return decodeQuoted(m_pNext + special);
  }
  m_pNext = pQuote + 1;
  return ParamValue::ofText(sPlain);
}

ParamValue ParamReader::decodeQuoted(const char* pEscape) {
  m_sDecoded.assign(m_pNext, pEscape);
  for (m_pNext = pEscape; at(m_pNext) != '"';) {
    if (at(m_pNext) == '\0') {
      fail("unterminated quoted string");
    }
    if (*m_pNext == '\\') {
      decodeEscape();
    } else {
      m_sDecoded.push_back(*m_pNext++);
    }
  }
  ++m_pNext;
  return ParamValue::ofText(upToNul(m_sDecoded));
}

/// Decodes what stands behind a backslash, or takes the backslash as it is.
void ParamReader::decodeEscape() {
  struct Escape {
    char written;
    char meant;
  };
  static constexpr Escape kEscapes[] = {{'r', '\r'}, {'n', '\n'},  {'t', '\t'},
                                        {'"', '"'},  {'\'', '\''}, {'\\', '\\'}};
  const char c = at(m_pNext + 1);
  for (const Escape& escape : kEscapes) {
    if (escape.written == c) {
      m_sDecoded.push_back(escape.meant);
      m_pNext += 2;
      return;
    }
  }
  unsigned uByte = 0;
  if (c == 'x' && hexValue(at(m_pNext + 2)) >= 0) {
    m_pNext += 2;
    for (int i = 0; i < 2 && hexValue(at(m_pNext)) >= 0; ++i) {
      uByte = uByte << 4 | static_cast<unsigned>(hexValue(*m_pNext++));
    }
    m_sDecoded.push_back(static_cast<char>(uByte));
  } else if (c == '0') {
    m_pNext += 2;
    for (int i = 0; i < 3 && isOctal(at(m_pNext)); ++i) {
      uByte = uByte << 3 | static_cast<unsigned>(*m_pNext++ - '0');
    }
    m_sDecoded.push_back(static_cast<char>(uByte));
  } else {
    m_sDecoded.push_back('\\');
    ++m_pNext;
  }
}

ParamValue ParamReader::readHexadecimalBlock() {
  m_sDecoded.clear();
  for (++m_pNext; at(m_pNext) != ']';) {
    const char c = at(m_pNext++);
    const int iHigh = hexValue(c);
    if (iHigh >= 0) {
      const int iLow = hexValue(at(m_pNext));
      m_pNext += iLow >= 0 ? 1 : 0;
      m_sDecoded.push_back(static_cast<char>(iLow >= 0 ? iHigh << 4 | iLow : iHigh));
    } else if (c == '\0') {
      fail(kUnterminatedBlock);
    } else if (c != ':' && c != '.' && c != ',' && !isBlank(c)) {
      fail("unexpected character");
    }
  }
  ++m_pNext;
  if (m_sDecoded.size() > std::numeric_limits<std::uint32_t>::max()) {
    fail(kUnterminatedBlock);  // more than a block can hold
  }
  return ParamValue::ofBytes(m_sDecoded.data(), m_sDecoded.size(), JVariant::T_BINARY);
}

ParamValue ParamReader::readCountedBlock() {
  m_pNext += 2;
  std::uint32_t uCount = 0;
  const auto count = std::from_chars(m_pNext, m_pEnd, uCount);
  if (count.ec != std::errc() || at(count.ptr) != ']') {
    fail(kUnterminatedBlock);
  }
  m_pNext = count.ptr + 1;
  if (uCount > left()) {
    fail(kUnterminatedBlock);
  }
  m_sDecoded.clear();
  while (m_sDecoded.size() < uCount) {
    char c = at(m_pNext++);
    if (c == '$') {
      switch (at(m_pNext++)) {
        case '$':
          break;
        case '0':
          c = '\0';
          break;
        case 'n':
          c = '\n';
          break;
        case 'r':
          c = '\r';
          break;
        default:
          fail(kUnterminatedBlock);
      }
    } else if (c == '\0') {
      fail(kUnterminatedBlock);
    }
    m_sDecoded.push_back(c);
  }
  if (at(m_pNext) != ']') {
    fail(kUnterminatedBlock);
  }
  ++m_pNext;
  return ParamValue::ofBytes(m_sDecoded.data(), m_sDecoded.size(), JVariant::T_BLOB);
}

}  // namespace qm_utils
