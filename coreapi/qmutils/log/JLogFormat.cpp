#include "coreapi/qmutils/log/JLogFormat.h"

#include <charconv>

#include "coreapi/qmutils/text/jtext.h"
#include "coreapi/qmutils/time/jsplittime.h"

namespace {

constexpr std::string_view kLetters = "cdfhilmptuw";
constexpr std::uint64_t kMicrosecondsPerMillisecond = 1000;

char lowerCase(char c) noexcept {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

/// Replaces the two escapes.
std::string unescaped(std::string_view sPattern) {
  std::string sResult;
  for (std::size_t i = 0; i < sPattern.size(); ++i) {
    const char next = i + 1 < sPattern.size() ? sPattern[i + 1] : '\0';
    if (sPattern[i] == '\\' && (next == 'n' || next == 't')) {
      sResult += next == 'n' ? '\n' : '\t';
      ++i;
    } else {
      sResult += sPattern[i];
    }
  }
  return sResult;
}

void appendDecimal(std::uint32_t uValue, std::string& sOut) {
  char szDigits[10];
  const auto end = std::to_chars(szDigits, szDigits + sizeof szDigits, uValue).ptr;
  sOut.append(szDigits, end);
}

/// "0x" and eight hexadecimal digits.
void appendHex(std::uint32_t uValue, std::string& sOut) {
  static constexpr char kDigits[] = "0123456789abcdef";
  char szText[10] = {'0', 'x'};
  for (int i = 9; i >= 2; --i, uValue >>= 4) {
    szText[i] = kDigits[uValue & 0xF];
  }
  sOut.append(szText, sizeof szText);
}

/// Three digits.
void appendMilliseconds(std::uint32_t uMilliseconds, std::string& sOut) {
  const char szDigits[3] = {static_cast<char>('0' + uMilliseconds / 100),
                            static_cast<char>('0' + uMilliseconds / 10 % 10),
                            static_cast<char>('0' + uMilliseconds % 10)};
  sOut.append(szDigits, sizeof szDigits);
}

}  // namespace

JLogFormat::JLogFormat(std::string_view sPattern) {
  const std::string sText = unescaped(sPattern);
  std::string sLiteral;
  for (std::size_t i = 0; i < sText.size(); ++i) {
    const char letter = sText[i] == '%' && i + 1 < sText.size() ? lowerCase(sText[i + 1]) : '\0';
    if (letter == '%') {
      sLiteral += sText[i++];
    } else if (letter != '\0' && kLetters.find(letter) != std::string_view::npos) {
      m_pieces.push_back({'\0', std::move(sLiteral)});
      m_pieces.push_back({letter, {}});
      sLiteral.clear();
      ++i;
    } else {
      sLiteral += sText[i];
    }
  }
  m_pieces.push_back({'\0', std::move(sLiteral)});
}

void JLogFormat::expand(const JLog::Msg& record, std::string_view sMessage, std::string& sOut) {
  for (const Piece& piece : m_pieces) {
    switch (piece.letter) {
      case 'c':
        sOut += record.sClass;
        break;
      case 'd':
        appendTime(record.time, sOut);
        break;
      case 'f':
        sOut += record.sFile;
        break;
      case 'h':
        sOut += record.sHost;
        break;
      case 'i':
        sOut += record.sInstance;
        break;
      case 'l':
        appendDecimal(record.uLine, sOut);
        break;
      case 'm':
        sOut += sMessage;
        break;
      case 'p':
        appendDecimal(record.uProcessId, sOut);
        break;
      case 't':
        appendHex(record.uThreadId, sOut);
        break;
      case 'u':
        sOut += record.sUnit;
        break;
      case 'w':
        sOut += JLog::getShortLevelName(record.uLevel);
        break;
      default:
        sOut += piece.sText;
        break;
    }
  }
}

void JLogFormat::appendTime(JTime time, std::string& sOut) {
  const std::uint64_t uSecond = time.getMicroseconds() / JTime::kMicrosecondsPerSecond;
  if (!m_bHasSecond || uSecond != m_uSecond) {
    const JLocalSplitTime local(time);
    const qm_utils::CalendarFields& fields = local.getFields();
    m_sSecond = qm_utils::format("%02d/%02d/%04d %02d:%02d:%02d.", fields.iMonth + 1, fields.iDayOfMonth,
                                 fields.iYear + 1900, fields.iHours, fields.iMinutes, fields.iSeconds);
    m_uSecond = uSecond;
    m_bHasSecond = true;
  }
  sOut += m_sSecond;
  const std::uint64_t uMicroseconds = time.getMicroseconds() % JTime::kMicrosecondsPerSecond;
  appendMilliseconds(static_cast<std::uint32_t>(uMicroseconds / kMicrosecondsPerMillisecond), sOut);
}
