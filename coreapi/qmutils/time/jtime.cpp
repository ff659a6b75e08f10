#include "coreapi/qmutils/time/jtime.h"

#include <algorithm>
#include <cinttypes>

#include "coreapi/platform/clocale.h"
#include "coreapi/platform/clock.h"
#include "coreapi/qmutils/time/jsplittime.h"

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
  return JUTCSplitTime(*this).toUSFormat();
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
