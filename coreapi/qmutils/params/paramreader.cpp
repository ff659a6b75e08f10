#include "coreapi/qmutils/params/paramreader.h"

#include <algorithm>
#include <charconv>
#include <limits>

#include "coreapi/platform/clocale.h"

namespace qm_utils {

namespace {

constexpr const char* kUnterminatedBlock = "unterminated binary block text";

}  // namespace

void ParamReader::fail(const char* szMessage) const {
  QM_THROW(JVariant::SyntaxError, std::string(m_sName), szMessage);
}

bool ParamReader::skipEmptyList() noexcept {
  m_pNext = skipBlanks(m_pNext);
  return at(m_pNext) == '\0' || at(m_pNext) == ')';
}

/// Goes from the end of a name to behind its "=", past blanks or anything wrong.
const char* ParamReader::finishName(const char* p) {
  p = skipBlanks(p);
  const bool bAssigned = at(p) == '=';
  if (!bAssigned || m_sName.empty()) {
    const std::string_view sRest = upToNul({m_sName.data(), leftFrom(m_sName.data())});
    QM_THROW(JVariant::SyntaxError, std::string(sRest),
             bAssigned ? "cannot parse missing parameter name" : "garbage instead of '='");
  }
  return p + 1;
}

bool ParamReader::startsWithInAnyCase(const char* p, std::string_view sLowerCase) const noexcept {
  const std::string_view sHere = std::string_view(p, leftFrom(p)).substr(0, sLowerCase.size());
  return std::equal(sHere.begin(), sHere.end(), sLowerCase.begin(), sLowerCase.end(),
                    [](char c, char lower) { return c == lower || c == lower - 'a' + 'A'; });
}

const char* ParamReader::readOther(const char* p) {
  const char c = at(p);
  if (c == '0' || c == '.' || c == '+' || c == '-') {
    return readNumber(p);
  }
  if (c == '[') {
    return at(p + 1) == '[' ? readCountedBlock(p + 2) : readHexadecimalBlock(p + 1);
  }
  if (startsWithInAnyCase(p, "ok")) {
    m_value = ParamValue::ofBool(true);
    return p + 2;
  }
  if (startsWithInAnyCase(p, "failed")) {
    m_value = ParamValue::ofBool(false);
    return p + 6;
  }
  fail("unknown parameter type");
}

const char* ParamReader::readNumber(const char* p) {
  const char* const pNumber = p;
  const bool bNegative = *p == '-';
  if (bNegative || *p == '+') {
    ++p;
  }
  const char* const pDigits = p;
  std::uint64_t uValue = 0;
  p = readDigits(p, uValue);
  if (at(p) == '.' || isExponent(at(p))) {
    return readDouble(pNumber);
  }
  if (at(pDigits) == '0') {
    p = readOctalOrHexadecimal(pDigits, uValue);
  }
  m_value = ParamValue::ofInteger(static_cast<std::int64_t>(bNegative ? 0 - uValue : uValue));
  return p;
}

const char* ParamReader::readOctalOrHexadecimal(const char* p, std::uint64_t& uValue) const noexcept {
  uValue = 0;
  if (at(p + 1) == 'x' || at(p + 1) == 'X') {
    for (p += 2; hexValue(at(p)) >= 0; ++p) {
      uValue = uValue << 4 | static_cast<std::uint64_t>(hexValue(*p));
    }
  } else {
    for (; isOctal(at(p)); ++p) {
      uValue = uValue << 3 | static_cast<std::uint64_t>(*p - '0');
    }
  }
  return p;
}

/// Converts as strtod does, which the text can't be given to: it needn't end in a NUL, and strtod knows no
/// "d". What lies outside the range of a double gives infinity or the nearest to zero, as there.
const char* ParamReader::readDouble(const char* p) {
  const char* const pNumber = *p == '+' ? p + 1 : p;
  double dValue = 0.0;
  const auto result = std::from_chars(pNumber, m_pEnd, dValue);
  if (result.ec == std::errc::invalid_argument) {
    m_value = ParamValue::ofDouble(0.0);
    return p;  // no digit at all: nothing is consumed
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
  m_value = ParamValue::ofDouble(dValue);
  return pEnd;
}

/// Reads a text of which the start is known to stand for itself.
const char* ParamReader::decodeQuoted(const char* p, const char* pPlainEnd) {
  m_sDecoded.assign(p, pPlainEnd);
  for (p = pPlainEnd; at(p) != '"';) {
    if (at(p) == '\0') {
      fail("unterminated quoted string");
    }
    if (*p == '\\') {
      p = decodeEscape(p + 1);
    } else {
      m_sDecoded.push_back(*p++);
    }
  }
  m_value = ParamValue::ofText(upToNul(m_sDecoded));
  return p + 1;
}

/// Decodes what stands behind a backslash, or takes that backslash as it is.
const char* ParamReader::decodeEscape(const char* p) {
  struct Escape {
    char written;
    char meant;
  };
  static constexpr Escape kEscapes[] = {{'r', '\r'}, {'n', '\n'},  {'t', '\t'},
                                        {'"', '"'},  {'\'', '\''}, {'\\', '\\'}};
  for (const Escape& escape : kEscapes) {
    if (escape.written == at(p)) {
      m_sDecoded.push_back(escape.meant);
      return p + 1;
    }
  }
  unsigned uByte = 0;
  if (at(p) == 'x' && hexValue(at(p + 1)) >= 0) {
    ++p;
    for (int i = 0; i < 2 && hexValue(at(p)) >= 0; ++i) {
      uByte = uByte << 4 | static_cast<unsigned>(hexValue(*p++));
    }
  } else if (at(p) == '0') {
    ++p;
    for (int i = 0; i < 3 && isOctal(at(p)); ++i) {
      uByte = uByte << 3 | static_cast<unsigned>(*p++ - '0');
    }
  } else {
    uByte = '\\';
  }
  m_sDecoded.push_back(static_cast<char>(uByte));
  return p;
}

/// Reads a block from behind its "[".
const char* ParamReader::readHexadecimalBlock(const char* p) {
  m_sDecoded.clear();
  for (; at(p) != ']'; ++p) {
    const int iHigh = hexValue(at(p));
    if (iHigh >= 0) {
      const int iLow = hexValue(at(p + 1));
      m_sDecoded.push_back(static_cast<char>(iLow >= 0 ? iHigh << 4 | iLow : iHigh));
      p += iLow >= 0 ? 1 : 0;
    } else if (at(p) == '\0') {
      fail(kUnterminatedBlock);
    } else if (*p != ':' && *p != '.' && *p != ',' && !isBlank(*p)) {
      fail("unexpected character");
    }
  }
  if (m_sDecoded.size() > std::numeric_limits<std::uint32_t>::max()) {
    fail(kUnterminatedBlock);  // more than a block can hold
  }
  m_value = ParamValue::ofBytes(m_sDecoded.data(), m_sDecoded.size(), JVariant::T_BINARY);
  return p + 1;
}

/// Reads a block from behind its "[[".
const char* ParamReader::readCountedBlock(const char* p) {
  std::uint32_t uCount = 0;
  const auto count = std::from_chars(p, m_pEnd, uCount);
  if (count.ec != std::errc() || at(count.ptr) != ']') {
    fail(kUnterminatedBlock);
  }
  p = count.ptr + 1;
  m_sDecoded.clear();
  for (; m_sDecoded.size() < uCount; ++p) {
    if (at(p) == '$') {
      ++p;
      m_sDecoded.push_back(decodeCounted(at(p)));
    } else if (at(p) == '\0') {
      fail(kUnterminatedBlock);
    } else {
      m_sDecoded.push_back(*p);
    }
  }
  if (at(p) != ']') {
    fail(kUnterminatedBlock);
  }
  m_value = ParamValue::ofBytes(m_sDecoded.data(), m_sDecoded.size(), JVariant::T_BLOB);
  return p + 1;
}

/// The byte that a character behind a "$" stands for.
char ParamReader::decodeCounted(char c) const {
  switch (c) {
    case '$':
      return '$';
    case '0':
      return '\0';
    case 'n':
      return '\n';
    case 'r':
      return '\r';
    default:
      fail(kUnterminatedBlock);
  }
}

}  // namespace qm_utils
