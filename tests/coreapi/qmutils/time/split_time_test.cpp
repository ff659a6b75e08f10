#include <climits>
#include <cstdint>
#include <gmock/gmock.h>
#include <string>

#include "coreapi/qmutils/time/calendar.h"
#include "coreapi/qmutils/time/jsplittime.h"

namespace {

struct FormCase {
  const char* name;
  JTime time;
  const char* szUS;
  const char* szISO;
  const char* szShort;
};

TEST(CalendarForm, IsTheNearestDateThatCanBeShown) {
  const FormCase rows[] = {
      {"Epoch", JTime::fromMicroseconds(JTime::kEpochOffset), "01/01/1970 00:00:00.000000UTC",
       "1970-01-01 00:00:00.000000 UTC", "00:00:00 01/01/1970"},
      {"Ordinary", JTime::fromMicroseconds(12938313599000001), "12/31/2010 23:59:59.000001UTC",
       "2010-12-31 23:59:59.000001 UTC", "23:59:59 12/31/2010"},
      {"LeapDay", JTime::fromUnixSeconds(951782400), "02/29/2000 00:00:00.000000UTC",
       "2000-02-29 00:00:00.000000 UTC", "00:00:00 02/29/2000"},
      {"OpenStart", JTime::zero(), "12/13/1901 20:45:52.000000UTC", "1901-12-13 20:45:52.000000 UTC",
       "20:45:52 12/13/1901"},
      {"OpenEnd", JTime::max(), "01/19/2038 03:14:07.551615UTC", "2038-01-19 03:14:07.551615 UTC",
       "03:14:07 01/19/2038"},
      {"OwnMicrosecondsBelowTheRange", JTime::fromMicroseconds(7), "12/13/1901 20:45:52.000007UTC",
       "1901-12-13 20:45:52.000007 UTC", "20:45:52 12/13/1901"}};
  for (const FormCase& row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(row.time.toUSFormat(), row.szUS);
    EXPECT_EQ(row.time.toISOFormat(), row.szISO);
    EXPECT_EQ(row.time.toShortFormat(), row.szShort);
  }
}

TEST(SplitTime, FormsAreCutToTheirBuffer) {
  char szBuf[11] = "##########";
  const JUTCSplitTime time(JTime::fromMicroseconds(12938313599000001));
  time.toUSFormat(szBuf, 5);
  EXPECT_STREQ(szBuf, "12/3");
  EXPECT_EQ(szBuf[5], '#');
  time.toISOFormat(szBuf, sizeof szBuf);
  EXPECT_STREQ(szBuf, "2010-12-31");
  time.toShortFormat(nullptr, 4);
  JTime::max().toUSFormat(szBuf, 0);
  EXPECT_STREQ(szBuf, "2010-12-31");
  EXPECT_EQ(JUTCSplitTime(("12/31/2010 23:59:59.000001" + std::string(100, 'Z')).c_str()).toUSFormat(),
            "12/31/2010 23:59:59.000001" + std::string(49 - 26, 'Z'));
}

struct ReadCase {
  const char* name;
  const char* szText;
  const char* szUS;  ///< what it reads as
};

TEST(CalendarText, ReadsByTheFormThatItsSeparatorsShow) {
  const ReadCase rows[] = {
      {"US", "12/31/2010 23:59:59.000001UTC", "12/31/2010 23:59:59.000001UTC"},
      {"USWithoutZeros", "1/2/2010 3:4:5.6", "01/02/2010 03:04:05.000006UTC"},
      {"USOtherZone", "01/02/2010 03:04:05.000006PST x", "01/02/2010 03:04:05.000006PST"},
      {"USWithoutFraction", "01/02/2010 03:04:05PST", "01/02/2010 03:04:05.000000UTC"},
      {"USDateAlone", "01/02/2010", "01/02/2010 00:00:00.000000UTC"},
      {"ISO", "2010-12-31 23:59:59.5 UTC", "12/31/2010 23:59:59.000005UTC"},
      {"ISOOtherZone", "2010-12-31 23:59:59.5 CET", "12/31/2010 23:59:59.000005CET"},
      {"Short", "23:59:59 12/31/2010", "12/31/2010 23:59:59.000000UTC"},
      {"ShortCut", "23:59:59 12", "12/01/1601 23:59:59.000000UTC"},
      {"DayBeyondTheMonth", "02/31/2011 00:00:00.0", "03/03/2011 00:00:00.000000UTC"},
      {"EightCharacters", "1/1/2010", "01/01/1601 00:00:00.000000UTC"},
      {"NineCharacters", "01/1/2010", "01/01/2010 00:00:00.000000UTC"},
      {"Nonsense", "nonsense here", "01/01/1601 00:00:00.000000UTC"},
      {"MicrosecondsBeyondASecond", "01/02/2010 03:04:05.5000007", "01/02/2010 03:04:05.000007UTC"},
      {"ManyDays", "01/1000000/2010 00:00:00.0", "11/28/4747 00:00:00.000000UTC"},
      {"BeforeAllTime", "01/01/1500 00:00:00.000009", "01/01/1601 00:00:00.000009UTC"},
      {"BehindAllTime", "01/01/4294967295 00:00:00.0", "01/19/586155 08:01:49.551615UTC"}};
  for (const ReadCase& row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(JUTCSplitTime(row.szText).toUSFormat(), row.szUS);
  }
}

TEST(SplitTime, NoNumbersOverflow) {
  for (const int iNumber : {INT_MIN, INT_MIN + 1, -1, 0, INT_MAX}) {
    const JTime utc = JUTCSplitTime(iNumber, iNumber, iNumber, iNumber, iNumber, iNumber, iNumber).getTime();
    const JTime local =
        JLocalSplitTime(iNumber, iNumber, iNumber, iNumber, iNumber, iNumber, iNumber).getTime();
    const JTime expected =
        iNumber > 0 ? JTime::max() : JTime::fromMicroseconds(static_cast<std::uint32_t>(iNumber) % 1'000'000);
    EXPECT_EQ(utc, expected) << iNumber;
    EXPECT_EQ(local, expected) << iNumber;
    JUTCSplitTime raw;
    raw.setFields({iNumber, iNumber, iNumber, iNumber, iNumber, iNumber, iNumber, iNumber});
    EXPECT_FALSE(raw.toUSFormat().empty());
  }
}

TEST(SplitTime, FieldsAndTimeFollowEachOther) {
  JUTCSplitTime time(12, 31, 2010, 23, 59, 59, 1);
  EXPECT_EQ(time.getTime().getMicroseconds(), 12938313599000001U);
  EXPECT_EQ(time.getFields().iWeekday, 5);
  EXPECT_EQ(time.getFields().iDayOfYear, 364);
  time.add(1'000'000);
  EXPECT_EQ(time.toUSFormat(), "01/01/2011 00:00:00.000001UTC");
  EXPECT_EQ(time.getFields().iDayOfYear, 0);
  time.nextMultiple(JTime(3600, 0));
  EXPECT_EQ(time.toShortFormat(), "01:00:00 01/01/2011");
  time.setTime(JTime::fromMicroseconds(12938313599000001));
  time.roundDown(JTime(60, 0));
  EXPECT_EQ(time.toShortFormat(), "23:59:00 12/31/2010");

  qm_utils::CalendarFields fields;
  fields.iMonth = 13;
  fields.iYear = 100;
  time.setTime(JTime::fromMicroseconds(JTime::kEpochOffset + 5));
  time.setFields(fields);
  time.fromFields();
  EXPECT_EQ(time.toUSFormat(), "02/01/2001 00:00:00.000005UTC");
  EXPECT_EQ(JUTCSplitTime().getTime(), JTime());
}

TEST(SplitTime, CalendarCountsEveryDayOfTwoCycles) {
  qm_utils::CalendarFields previous = qm_utils::calendarFromSeconds(-86400 * std::int64_t{146097} - 86400);
  for (std::int64_t day = -146097; day <= 146097; ++day) {
    const qm_utils::CalendarFields fields = qm_utils::calendarFromSeconds(day * 86400 + 86399);
    ASSERT_EQ(qm_utils::secondsFromCalendar(fields), day * 86400 + 86399);
    ASSERT_EQ(fields.iWeekday, (previous.iWeekday + 1) % 7);
    const bool bNextDay = fields.iDayOfMonth == previous.iDayOfMonth + 1 && fields.iMonth == previous.iMonth;
    const bool bNextMonth = fields.iDayOfMonth == 1 && fields.iMonth == (previous.iMonth + 1) % 12;
    ASSERT_TRUE(bNextDay || bNextMonth);
    ASSERT_EQ(fields.iDayOfYear, fields.iYear == previous.iYear ? previous.iDayOfYear + 1 : 0);
    previous = fields;
  }
}

}  // namespace
