#include "coreapi/qmutils/time/jsplittime.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/text/jtext.h"
#include "coreapi/qmutils/time/datescanner.h"
#include "coreapi/qmutils/time/timezone.h"

namespace {

/// Characters of a text form, at most.
constexpr std::size_t kLongestForm = 49;

/// A text that is no longer than this is no date.
constexpr std::size_t kTooShort = 8;

/// Wall times beyond these lie outside all times that a `JTime` holds, in every zone.
constexpr std::int64_t kSlack = 30 * 86400;
constexpr auto kEpochSeconds = static_cast<std::int64_t>(JTime::kEpochOffset / JTime::kMicrosecondsPerSecond);
constexpr std::int64_t kFirstWallSecond = -kEpochSeconds - kSlack;
constexpr std::int64_t kLastWallSecond =
    static_cast<std::int64_t>(JTime::max().getMicroseconds() / JTime::kMicrosecondsPerSecond) -
    kEpochSeconds + kSlack;

/// A number moved to another origin: months from 1 or from 0, years from 0 or from 1900.
int shifted(int iNumber, int iBy) noexcept {
  return static_cast<int>(std::clamp<std::int64_t>(
      std::int64_t{iNumber} + iBy, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()));
}

std::string cut(std::string sForm) {
  sForm.resize(std::min(sForm.size(), kLongestForm));
  return sForm;
}

/// The numbers of a text form, as they stand in it, and the text behind them.
struct TextFields {
  int iMonth = 1;
  int iDay = 1;
  int iYear = 1601;
  int iHour = 0;
  int iMinute = 0;
  int iSecond = 0;
  int iMicrosecond = 0;
  std::string sZone = "UTC";
};

TextFields readTextFields(const char* szText) {
  TextFields fields;
  qm_utils::DateScanner scanner(szText);
  if (szText[2] == ':') {
    scanner.number(fields.iHour).literal(':').number(fields.iMinute).literal(':').number(fields.iSecond);
    scanner.blanks().number(fields.iMonth).literal('/').number(fields.iDay).literal('/').number(fields.iYear);
    return fields;
  }
  if (szText[4] == '-') {
    scanner.number(fields.iYear).literal('-').number(fields.iMonth).literal('-').number(fields.iDay);
  } else {
    scanner.number(fields.iMonth).literal('/').number(fields.iDay).literal('/').number(fields.iYear);
  }
  scanner.blanks()
      .number(fields.iHour)
      .literal(':')
      .number(fields.iMinute)
      .literal(':')
      .number(fields.iSecond);
  scanner.literal('.').number(fields.iMicrosecond).word(fields.sZone);
  return fields;
}

}  // namespace

void JSplitTime::setTime(JTime time) {
  m_time = time;
  toFields();
}

void JSplitTime::setNow() {
  setTime(JTime::now());
}

void JSplitTime::add(std::int64_t iMicroseconds) {
  m_time.add(iMicroseconds);
  toFields();
}

void JSplitTime::subtract(std::int64_t iMicroseconds) {
  m_time.subtract(iMicroseconds);
  toFields();
}

void JSplitTime::roundUp(JTime interval) {
  m_time.roundUp(interval);
  toFields();
}

void JSplitTime::roundDown(JTime interval) {
  m_time.roundDown(interval);
  toFields();
}

void JSplitTime::nextMultiple(JTime interval) {
  m_time.nextMultiple(interval);
  toFields();
}

void JSplitTime::previousMultiple(JTime interval) {
  m_time.previousMultiple(interval);
  toFields();
}

std::string JSplitTime::toUSFormat() const {
  return cut(qm_utils::format("%02d/%02d/%04d %02d:%02d:%02d.%06d%s", shifted(m_fields.iMonth, 1),
                              m_fields.iDayOfMonth, shifted(m_fields.iYear, 1900), m_fields.iHours,
                              m_fields.iMinutes, m_fields.iSeconds, microseconds(), m_sZone.c_str()));
}

std::string JSplitTime::toISOFormat() const {
  return cut(qm_utils::format("%04u-%02u-%02u %02u:%02u:%02u.%06u %s", shifted(m_fields.iYear, 1900),
                              shifted(m_fields.iMonth, 1), m_fields.iDayOfMonth, m_fields.iHours,
                              m_fields.iMinutes, m_fields.iSeconds, microseconds(), m_sZone.c_str()));
}

std::string JSplitTime::toShortFormat() const {
  return cut(qm_utils::format("%02u:%02u:%02u %02u/%02u/%04u", m_fields.iHours, m_fields.iMinutes,
                              m_fields.iSeconds, shifted(m_fields.iMonth, 1), m_fields.iDayOfMonth,
                              shifted(m_fields.iYear, 1900)));
}

void JSplitTime::toUSFormat(char* szBuf, std::size_t size) const {
  qm_err::copyText(szBuf, size, toUSFormat());
}

void JSplitTime::toISOFormat(char* szBuf, std::size_t size) const {
  qm_err::copyText(szBuf, size, toISOFormat());
}

void JSplitTime::toShortFormat(char* szBuf, std::size_t size) const {
  qm_err::copyText(szBuf, size, toShortFormat());
}

void JSplitTime::readText(const char* szText) {
  TextFields fields;
  if (szText != nullptr && std::strlen(szText) > kTooShort) {
    fields = readTextFields(szText);
  }
  storeFields(fields.iMonth, fields.iDay, fields.iYear, fields.iHour, fields.iMinute, fields.iSecond,
              fields.iMicrosecond);
  m_sZone = fields.sZone;
}

void JSplitTime::storeFields(int iMonth, int iDay, int iYear, int iHour, int iMinute, int iSecond,
                             int iMicrosecond) {
  m_fields.iMonth = shifted(iMonth, -1);
  m_fields.iDayOfMonth = iDay;
  m_fields.iYear = shifted(iYear, -1900);
  m_fields.iHours = iHour;
  m_fields.iMinutes = iMinute;
  m_fields.iSeconds = iSecond;
  m_time = JTime::fromMicroseconds(static_cast<std::uint32_t>(iMicrosecond));
}

std::int64_t JSplitTime::storeSeconds(std::int64_t iSeconds) noexcept {
  m_time = JTime::fromUnixSeconds(iSeconds).add(microseconds());
  return static_cast<std::int64_t>(m_time.getMicroseconds() / JTime::kMicrosecondsPerSecond) - kEpochSeconds;
}

int JSplitTime::microseconds() const noexcept {
  return static_cast<int>(m_time.getMicroseconds() % JTime::kMicrosecondsPerSecond);
}

JUTCSplitTime::JUTCSplitTime() : JUTCSplitTime(JTime()) {}

JUTCSplitTime::JUTCSplitTime(JTime time) : JSplitTime(time) {
  toFields();
}

JUTCSplitTime::JUTCSplitTime(const char* szText) {
  readText(szText);
  fromFields();
}

JUTCSplitTime::JUTCSplitTime(int iMonth, int iDay, int iYear, int iHour, int iMinute, int iSecond,
                             int iMicrosecond) {
  storeFields(iMonth, iDay, iYear, iHour, iMinute, iSecond, iMicrosecond);
  fromFields();
}

void JUTCSplitTime::toFields() {
  m_fields = qm_utils::calendarFromSeconds(m_time.toUnixSeconds());
  m_iDaylight = 0;
  m_sZone = "UTC";
}

void JUTCSplitTime::fromFields() {
  m_fields = qm_utils::calendarFromSeconds(storeSeconds(qm_utils::secondsFromCalendar(m_fields)));
  m_iDaylight = 0;
}

JLocalSplitTime::JLocalSplitTime(const std::string& sZoneName)
    : m_pOwnRules(sZoneName.empty() ? nullptr : qm_utils::zoneRulesByName(sZoneName)) {}

JLocalSplitTime::JLocalSplitTime() : JLocalSplitTime(JTime()) {}

JLocalSplitTime::JLocalSplitTime(JTime time, const std::string& sZoneName) : JLocalSplitTime(sZoneName) {
  m_time = time;
  toFields();
}

JLocalSplitTime::JLocalSplitTime(const char* szText, const std::string& sZoneName)
    : JLocalSplitTime(sZoneName) {
  readText(szText);
  fromFields();
}

JLocalSplitTime::JLocalSplitTime(int iMonth, int iDay, int iYear, int iHour, int iMinute, int iSecond,
                                 int iMicrosecond, const std::string& sZoneName)
    : JLocalSplitTime(sZoneName) {
  storeFields(iMonth, iDay, iYear, iHour, iMinute, iSecond, iMicrosecond);
  fromFields();
}

std::shared_ptr<const qm_utils::ZoneRules> JLocalSplitTime::rules() const {
  return m_pOwnRules ? m_pOwnRules : qm_utils::localZoneRules();
}

void JLocalSplitTime::toFields() {
  const qm_utils::LocalInstant instant = rules()->at(m_time.toUnixSeconds());
  m_fields = qm_utils::calendarFromSeconds(instant.iWallSeconds);
  m_iDaylight = instant.bDaylight ? 1 : 0;
  m_sZone = qm_utils::withSignSwapped(instant.sAbbreviation);
}

void JLocalSplitTime::fromFields() {
  m_iDaylight = -1;
  const auto pRules = rules();
  const std::int64_t iWall =
      std::clamp(qm_utils::secondsFromCalendar(m_fields), kFirstWallSecond, kLastWallSecond);
  const qm_utils::LocalInstant instant = pRules->at(storeSeconds(pRules->toUnixSeconds(iWall)));
  m_fields = qm_utils::calendarFromSeconds(instant.iWallSeconds);
  m_iDaylight = instant.bDaylight ? 1 : 0;
}
