#include "coreapi/qmutils/time/jtime.h"

#include <algorithm>
#include <cinttypes>

#include "coreapi/platform/clocale.h"
#include "coreapi/platform/clock.h"
#include "coreapi/qmutils/time/calendar.h"
#include "coreapi/qmutils/time/jsplittime.h"

namespace {

/// Writes a number that isn't negative with so many digits, zeros in front.
void writeDigits(char* szDigits, int iCount, int iNumber) noexcept {
  for (char* p = szDigits + iCount; p != szDigits; iNumber /= 10) {
    *--p = static_cast<char>('0' + iNumber % 10);
  }
}

}  // namespace

JTime JTime::now() noexcept {
  return JTime::fromMicroseconds(kEpochOffset).add(qm_platform::utcClockMicroseconds());
}

bool JTime::isClockSet() noexcept {
  return now().getMicroseconds() > kClockSetLimit;
}

std::int64_t JTime::toUnixSeconds(std::uint32_t* pMicroseconds) const noexcept {
  // The epoch is a whole number of seconds, so that dividing before shifting rounds toward minus infinity.
  const std::uint64_t uClamped = std::clamp(m_uMicroseconds, kLowestConvertible, kHighestConvertible);
  if (pMicroseconds != nullptr) {
    *pMicroseconds = static_cast<std::uint32_t>(uClamped % kMicrosecondsPerSecond);
  }
  return static_cast<std::int64_t>(uClamped / kMicrosecondsPerSecond) - kEpochSeconds;
}

JTime& JTime::add(std::int64_t iMicroseconds) noexcept {
  if (iMicroseconds >= 0) {
    m_uMicroseconds = saturatingSum(m_uMicroseconds, static_cast<std::uint64_t>(iMicroseconds));
  } else {
    m_uMicroseconds -= std::min(m_uMicroseconds, 0 - static_cast<std::uint64_t>(iMicroseconds));
  }
  return *this;
}

JTime& JTime::subtract(std::int64_t iMicroseconds) noexcept {
  if (iMicroseconds >= 0) {
    m_uMicroseconds -= std::min(m_uMicroseconds, static_cast<std::uint64_t>(iMicroseconds));
  } else {
    m_uMicroseconds = saturatingSum(m_uMicroseconds, 0 - static_cast<std::uint64_t>(iMicroseconds));
  }
  return *this;
}

JTime& JTime::roundUp(JTime interval) noexcept {
  const std::uint64_t uInterval = interval.m_uMicroseconds;
  if (uInterval != 0 && m_uMicroseconds % uInterval != 0) {
    nextMultiple(interval);
  }
  return *this;
}

JTime& JTime::roundDown(JTime interval) noexcept {
  if (interval.m_uMicroseconds != 0) {
    m_uMicroseconds -= m_uMicroseconds % interval.m_uMicroseconds;
  }
  return *this;
}

JTime& JTime::nextMultiple(JTime interval) noexcept {
  roundDown(interval);
  m_uMicroseconds = saturatingSum(m_uMicroseconds, interval.m_uMicroseconds);
  return *this;
}

JTime& JTime::previousMultiple(JTime interval) noexcept {
  if (interval.m_uMicroseconds != 0 && m_uMicroseconds != 0) {
    --m_uMicroseconds;
    roundDown(interval);
  }
  return *this;
}

void JTime::split(std::uint64_t* pHours, std::uint64_t* pMinutes, std::uint64_t* pSeconds,
                  std::uint64_t* pMicroseconds) const noexcept {
  const std::uint64_t uSeconds = m_uMicroseconds / kMicrosecondsPerSecond;
  const std::uint64_t uMinutes = uSeconds / 60;
  if (pHours != nullptr) {
    *pHours = uMinutes / 60;
  }
  if (pMinutes != nullptr) {
    *pMinutes = pHours != nullptr ? uMinutes % 60 : uMinutes;
  }
  if (pSeconds != nullptr) {
    *pSeconds = uSeconds % 60;
  }
  if (pMicroseconds != nullptr) {
    *pMicroseconds = m_uMicroseconds % kMicrosecondsPerSecond;
  }
}

std::string JTime::toText() const {
  return std::to_string(m_uMicroseconds);
}

bool JTime::fromText(const char* szText) noexcept {
  std::uint64_t uMicroseconds = 0;
  if (szText == nullptr || qm_platform::scanC(szText, "%" SCNu64, &uMicroseconds) != 1) {
    return false;
  }
  m_uMicroseconds = uMicroseconds;
  return true;
}

std::string JTime::toUSFormat() const {
  std::string sText;
  appendUSFormat(sText);
  return sText;
}

void JTime::appendUSFormat(std::string& sText) const {
  // All that 32-bit seconds hold has a year of four digits.
  const qm_utils::CalendarFields fields = qm_utils::calendarFromSeconds(toUnixSeconds());
  char szText[] = "00/00/0000 00:00:00.000000UTC";
  writeDigits(szText, 2, fields.iMonth + 1);
  writeDigits(szText + 3, 2, fields.iDayOfMonth);
  writeDigits(szText + 6, 4, fields.iYear + 1900);
  writeDigits(szText + 11, 2, fields.iHours);
  writeDigits(szText + 14, 2, fields.iMinutes);
  writeDigits(szText + 17, 2, fields.iSeconds);
  writeDigits(szText + 20, 6, static_cast<int>(m_uMicroseconds % kMicrosecondsPerSecond));
  sText.append(szText, sizeof szText - 1);
}

std::string JTime::toISOFormat() const {
  return JUTCSplitTime(*this).toISOFormat();
}

std::string JTime::toShortFormat() const {
  return JUTCSplitTime(*this).toShortFormat();
}

void JTime::toUSFormat(char* szBuf, std::size_t size) const {
  JUTCSplitTime(*this).toUSFormat(szBuf, size);
}

void JTime::toISOFormat(char* szBuf, std::size_t size) const {
  JUTCSplitTime(*this).toISOFormat(szBuf, size);
}

void JTime::toShortFormat(char* szBuf, std::size_t size) const {
  JUTCSplitTime(*this).toShortFormat(szBuf, size);
}
