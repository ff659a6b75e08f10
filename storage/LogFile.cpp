#include "storage/LogFile.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <memory>
#include <utility>

#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/socket/jfilesocket.h"
#include "coreapi/qmutils/text/jtext.h"
#include "coreapi/qmutils/time/calendar.h"
#include "coreapi/qmutils/time/jsplittime.h"
#include "storage/fileread.h"

namespace {

constexpr std::size_t kReadSize = 64 * 1024;

/// The last count that has a year of four digits: 9999-12-31 23:59:59.999999 UTC.
constexpr std::uint64_t kLastFourDigitYear = JTime::kEpochOffset + 253'402'300'799'999'999;

/// Null when there is no such file.
std::unique_ptr<JFileSocket> openForReading(const std::string& sName, LogFile::Leftovers leftovers) {
  checkNoPipe(sName);
  try {
    return leftovers == LogFile::Leftovers::kRemove
               ? JFileSocket::OpenReadWithRollBack(sName)
               : std::make_unique<JFileSocket>(sName, JFileSocket::kRead, true);
  } catch (JSysError* pError) {
    qm_err::CaughtError error(pError);
    if (pError->getCode() != ENOENT) {
      error.rethrow();
    }
    return nullptr;
  }
}

std::string_view withoutReturn(std::string_view sLine) noexcept {
  return sLine.substr(0, sLine.size() - (sLine.ends_with('\r') ? 1 : 0));
}

std::string readAll(JFileSocket& file) {
  std::string sContent;
  std::array<char, kReadSize> block;
  while (const std::size_t uRead = file.read(block.data(), block.size())) {
    sContent.append(block.data(), uRead);
  }
  return sContent;
}

/// Hands on the lines of a text. A last line needs no end.
void splitLines(std::string_view sContent, const LogFile::TakeLine& takeLine) {
  while (!sContent.empty()) {
    const std::size_t end = std::min(sContent.find('\n'), sContent.size());
    takeLine(withoutReturn(sContent.substr(0, end)));
    sContent.remove_prefix(std::min(end + 1, sContent.size()));
  }
}

bool fits(char c, char cSeparator) noexcept {
  return c != '\n' && c != '\r' && c != '\0' && c != cSeparator;
}

}  // namespace

void LogFile::read(const std::string& sName, const TakeLine& takeLine, Leftovers leftovers) {
  m_sName = sName;
  m_bReplaceable = false;
  m_sStored.reset();
  if (const std::unique_ptr<JFileSocket> pFile = openForReading(sName, leftovers)) {
    std::string sContent = readAll(*pFile);
    splitLines(sContent, takeLine);
    m_sStored = std::move(sContent);
  }
  m_bReplaceable = true;
}

void LogFile::checkReplaceable() const {
  if (!m_bReplaceable) {
    QM_THROW(JTextError, "\"%s\" wasn't read to its end, so it isn't written", m_sName.c_str());
  }
}

void LogFile::replace(const std::string& sContent) {
  if (m_sName.empty()) {
    return;
  }
  checkReplaceable();
  if (std::exchange(m_sStored, std::nullopt) == sContent) {
    return;
  }
  JFileSocket::ReplaceWithRollBack(m_sName,
                                   [&](JOSocket& file) { file.write(sContent.data(), sContent.size()); });
}

void LogFile::forEachLine(const std::string& sName, const TakeLine& takeLine) {
  splitLines(readAll(*JFileSocket::OpenReadWithRollBack(sName)), takeLine);
}

void qm_storage::appendLogDate(std::string& sLine, JTime time) {
  const std::uint64_t uMicroseconds = time.getMicroseconds();
  if (uMicroseconds > kLastFourDigitYear) {
    time.appendUSFormat(sLine);
    return;
  }
  constexpr auto kEpochSeconds =
      static_cast<std::int64_t>(JTime::kEpochOffset / JTime::kMicrosecondsPerSecond);
  const auto iSeconds = static_cast<std::int64_t>(uMicroseconds / JTime::kMicrosecondsPerSecond);
  const qm_utils::CalendarFields fields = qm_utils::calendarFromSeconds(iSeconds - kEpochSeconds);
  sLine += qm_utils::format("%02d/%02d/%04d %02d:%02d:%02d.%06dUTC", fields.iMonth + 1, fields.iDayOfMonth,
                            fields.iYear + 1900, fields.iHours, fields.iMinutes, fields.iSeconds,
                            static_cast<int>(uMicroseconds % JTime::kMicrosecondsPerSecond));
}

JTime qm_storage::readLogDate(std::string_view sField) {
  return JUTCSplitTime(std::string(sField).c_str()).getTime();
}

bool qm_storage::fitsInLine(std::string_view sText, char cSeparator) noexcept {
  return std::all_of(sText.begin(), sText.end(), [cSeparator](char c) { return fits(c, cSeparator); });
}

void qm_storage::appendLogText(std::string& sLine, std::string_view sText, std::size_t uMaxSize,
                               char cSeparator) {
  if (sText.size() > uMaxSize) {
    std::size_t end = uMaxSize;
    while (end > 0 && (static_cast<unsigned char>(sText[end]) & 0xC0) == 0x80) {
      --end;
    }
    sText = sText.substr(0, end);
  }
  std::transform(sText.begin(), sText.end(), std::back_inserter(sLine),
                 [cSeparator](char c) { return fits(c, cSeparator) ? c : ' '; });
}
