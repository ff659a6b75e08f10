#include "coreapi/qmutils/params/paramwriter.h"

#include <algorithm>
#include <cstring>

#include "coreapi/qmutils/params/paramscan.h"

namespace qm_utils {

namespace {

constexpr char kHexDigits[] = "0123456789ABCDEF";

/// What a byte becomes in a text: the character behind the escape character, 0 when it stands as it is.
using EscapeTable = std::array<char, 256>;

/// In a quoted string; "x" is followed by two hexadecimal digits.
constexpr EscapeTable kQuotedEscapes = [] {
  EscapeTable escapes{};
  std::fill_n(escapes.begin(), 0x20, 'x');
  escapes['\r'] = 'r';
  escapes['\n'] = 'n';
  escapes['\t'] = 't';
  escapes['"'] = '"';
  escapes['\\'] = '\\';
  return escapes;
}();

/// In a counted block.
constexpr EscapeTable kCountedEscapes = [] {
  EscapeTable escapes{};
  escapes['\0'] = '0';
  escapes['\n'] = 'n';
  escapes['\r'] = 'r';
  escapes['$'] = '$';
  return escapes;
}();

char escapeOf(const EscapeTable& escapes, char c) noexcept {
  return escapes[static_cast<unsigned char>(c)];
}

std::size_t countEscaped(const EscapeTable& escapes, std::string_view sBytes) noexcept {
  return static_cast<std::size_t>(
      std::count_if(sBytes.begin(), sBytes.end(), [&](char c) { return escapeOf(escapes, c) != 0; }));
}

/// The longest start of some bytes that stands as it is.
std::string_view plainStart(const EscapeTable& escapes, std::string_view sBytes) noexcept {
  const auto plainEnd =
      std::find_if(sBytes.begin(), sBytes.end(), [&](char c) { return escapeOf(escapes, c) != 0; });
  return sBytes.substr(0, static_cast<std::size_t>(plainEnd - sBytes.begin()));
}

/// Whether one of eight characters may need an escape in a quoted string.
bool mayNeedQuotedEscape(Eight eight) noexcept {
  const Eight control = (eight - eightTimes(0x20)) & ~eight & eightTimes('\x80');
  return (control | markZeros(eight ^ eightTimes('"')) | markZeros(eight ^ eightTimes('\\'))) != 0;
}

/// The longest start of a text that stands in a quoted string as it is.
std::string_view plainQuotedStart(std::string_view sText) noexcept {
  std::size_t plain = 0;
  while (sText.size() - plain >= sizeof(Eight) && !mayNeedQuotedEscape(loadEight(sText.data() + plain))) {
    plain += sizeof(Eight);
  }
  return sText.substr(0, plain + plainStart(kQuotedEscapes, sText.substr(plain)).size());
}

/// A bound of a text's length in a quoted string, without the quotes.
std::size_t quotedBound(std::string_view sText) noexcept {
  const std::string_view sRest = sText.substr(plainQuotedStart(sText).size());
  return sText.size() + 3 * countEscaped(kQuotedEscapes, sRest);
}

}  // namespace

void ParamWriter::handOn(std::string_view sText) {
  if (m_pString != nullptr) {
    m_pString->append(sText);
  } else {
    std::memcpy(m_szOut + m_handedOn, sText.data(), sText.size());
  }
  m_handedOn += sText.size();
}

std::size_t ParamWriter::finish() {
  if (m_used > 0) {
    handOn({m_piece.data(), m_used});
    m_used = 0;
  }
  return m_handedOn;
}

void ParamWriter::writePair(char cFirst, char cSecond) {
  char* const pPair = makeRoom(2);
  pPair[0] = cFirst;
  pPair[1] = cSecond;
}

void ParamWriter::writeParameter(std::string_view sNameStart, std::string_view sNameEnd,
                                 const ParamValue& value) {
  if (value.type == JVariant::T_EMPTY) {
    return;
  }
  writeText(sNameStart);
  writeText(sNameEnd);
  *makeRoom(1) = '=';
  switch (value.type) {
    case JVariant::T_BINARY:
      return writeHexadecimalBlock(value.bytes());
    case JVariant::T_BOOL:
      return writeText(value.integer != 0 ? "true" : "false");
    case JVariant::T_INT: {
      char* const pText = makeRoom(kMaxIntegerText);
      m_used = static_cast<std::size_t>(writeInteger(pText, value.integer) - m_piece.data());
      return;
    }
    case JVariant::T_DOUBLE: {
      char* const pText = makeRoom(kMaxDoubleText);
      m_used = static_cast<std::size_t>(writeDouble(pText, value.number) - m_piece.data());
      return;
    }
    case JVariant::T_STRING:
      return writeQuoted(value.bytes());
    case JVariant::T_BLOB:
      return writeCountedBlock(value.bytes());
    case JVariant::T_EMPTY:
      return;
  }
}

void ParamWriter::writeQuoted(std::string_view sText) {
  *makeRoom(1) = '"';
  while (!sText.empty()) {
    const std::string_view sPlain = plainQuotedStart(sText);
    writeText(sPlain);
    sText.remove_prefix(sPlain.size());
    if (!sText.empty()) {
      const char c = sText[0];
      const char cEscape = escapeOf(kQuotedEscapes, c);
      writePair('\\', cEscape);
      if (cEscape == 'x') {
        writePair(kHexDigits[c >> 4], kHexDigits[c & 0xF]);
      }
      sText.remove_prefix(1);
    }
  }
  *makeRoom(1) = '"';
}

void ParamWriter::writeHexadecimalBlock(std::string_view sBytes) {
  *makeRoom(1) = '[';
  for (const char c : sBytes) {
    const auto uByte = static_cast<unsigned char>(c);
    writePair(kHexDigits[uByte >> 4], kHexDigits[uByte & 0xF]);
  }
  *makeRoom(1) = ']';
}

void ParamWriter::writeCountedBlock(std::string_view sBytes) {
  char szSize[kMaxIntegerText];
  writeText("[[");
  writeText({szSize, writeInteger(szSize, static_cast<std::int64_t>(sBytes.size()))});
  *makeRoom(1) = ']';
  while (!sBytes.empty()) {
    const std::string_view sPlain = plainStart(kCountedEscapes, sBytes);
    writeText(sPlain);
    sBytes.remove_prefix(sPlain.size());
    if (!sBytes.empty()) {
      writePair('$', escapeOf(kCountedEscapes, sBytes[0]));
      sBytes.remove_prefix(1);
    }
  }
  *makeRoom(1) = ']';
}

std::size_t maxTextLength(std::size_t nameLength, const ParamValue& value) noexcept {
  const std::size_t assigned = nameLength + 2;
  switch (value.type) {
    case JVariant::T_BINARY:
      return assigned + 2 * value.size + 2;
    case JVariant::T_BOOL:
      return assigned + (value.integer != 0 ? 4 : 5);
    case JVariant::T_INT:
      return assigned + 20;
    case JVariant::T_DOUBLE:
      return assigned + 32;
    case JVariant::T_STRING:
      return assigned + 2 + quotedBound(value.bytes());
    case JVariant::T_BLOB:
      return assigned + 14 + value.size + countEscaped(kCountedEscapes, value.bytes());
    case JVariant::T_EMPTY:
      return 1;
  }
  return 0;
}

}  // namespace qm_utils
