#include <gmock/gmock.h>
#include <random>
#include <string>

#include "coreapi/qmutils/time/ntpdate.h"

namespace {

constexpr std::uint64_t kHour = 3'600'000'000;
constexpr std::uint64_t kEpoch = JTime::kEpochOffset;
constexpr std::uint64_t kMarch2011 = 12943584000000000;  // 03/03/2011

struct DateCase {
  const char* name;
  const char* szText;
  std::uint64_t uTime;  ///< 0 when it isn't valid
};

TEST(NtpDates, AreTakenOrRefused) {
  const DateCase rows[] = {
      {"Ordinary", "12/31/2010 23:59:59.000001UTC", 12938313599000001},
      {"WithoutSuffix", "12/31/2010 23:59:59.000001", 12938313599000001},
      {"AnySuffix", "12/31/2010 23:59:59.000001PST and so on", 12938313599000001},
      {"NoLeadingZeros", "1/2/2010 3:4:5.6", 12906875045000006},
      {"SpaceAnywhere", "  1/ 2/ 2010   3: 4: 5. 6", 12906875045000006},
      {"Signs", "+1/+2/+2010 +3:4:5.6", 12906875045000006},
      {"First", "01/01/1970 00:00:00.000000UTC", kEpoch},
      {"Last", "01/19/2038 03:14:07.999999UTC", JTime::kHighestConvertible},
      {"DayBeyondTheMonth", "02/31/2011 00:00:00.000000", kMarch2011},
      {"LastDayOf2037", "12/31/2037 23:00:00.000000", kEpoch + 2145913200ULL * 1'000'000},
      {"AfterTheLast", "01/19/2038 03:14:08.000000UTC", 0},
      {"LaterDayOf2038", "01/20/2038 00:00:00.000000UTC", 0},
      {"LaterMonthOf2038", "02/01/2038 00:00:00.000000UTC", 0},
      {"BeforeTheFirst", "12/31/1969 23:59:59.000000", 0},
      {"YearAbove", "01/01/2039 00:00:00.0", 0},
      {"MonthZero", "0/1/2010 0:0:0.0", 0},
      {"MonthAbove", "13/1/2010 0:0:0.0", 0},
      {"DayZero", "1/0/2010 0:0:0.0", 0},
      {"DayAbove", "1/32/2010 0:0:0.0", 0},
      {"HourAbove", "1/1/2010 24:0:0.0", 0},
      {"MinuteAbove", "1/1/2010 0:60:0.0", 0},
      {"SecondAbove", "1/1/2010 0:0:60.0", 0},
      {"SecondBelow", "1/1/2010 0:0:-1.0", 0},
      {"MicrosecondAbove", "1/1/2010 0:0:0.1000000", 0},
      {"MinusZero", "1/1/2010 -0:0:0.0", kEpoch + 350640 * kHour},
      {"WithoutFraction", "01/02/2010 03:04:05", 0},
      {"EmptyFraction", "01/02/2010 03:04:05.", 0},
      {"FractionIsAComma", "01/02/2010 03:04:05,5", 0},
      {"ISO", "2010-01-02 03:04:05.6 UTC", 0},
      {"SpaceBeforeSlash", "1 /2/2010 3:4:5.6", 0},
      {"Empty", "", 0},
      {"NoText", nullptr, 0},
      {"WrapsTo32Bits", "4294967297/2/2010 3:4:5.6", 0},
      {"WrapsTo64Bits", "18446744073709551617/2/2010 3:4:5.6", 0}};
  for (const DateCase& row : rows) {
    SCOPED_TRACE(row.name);
    JTime time = JTime::max();
    EXPECT_EQ(qm_utils::parseNtpDate(row.szText, time), row.uTime != 0);
    EXPECT_EQ(time.getMicroseconds(), row.uTime);
  }
}

TEST(NtpDates, WriteOnlyTimesOfTheValidRange) {
  std::string sText = "before";
  qm_utils::formatNtpDate(JTime::fromMicroseconds(12938313599000001), sText);
  EXPECT_EQ(sText, "12/31/2010 23:59:59.000001UTC");
  for (const JTime time : {JTime(), JTime::fromMicroseconds(kEpoch - 1), JTime::max(),
                           JTime::fromMicroseconds(JTime::kHighestConvertible + 1)}) {
    sText = "before";
    qm_utils::formatNtpDate(time, sText);
    EXPECT_EQ(sText, "");
    sText = "before";
    qm_utils::formatLocalNtpDate(time, sText);
    EXPECT_EQ(sText, "");
  }
}

TEST(NtpDates, ComeBackAsTheyWereWritten) {
  std::mt19937_64 random(20110303);
  for (int round = 0; round < 20'000; ++round) {
    const JTime time = JTime::fromMicroseconds(kEpoch + random() % (JTime::kHighestConvertible - kEpoch + 1));
    std::string sText;
    JTime back;
    qm_utils::formatNtpDate(time, sText);
    ASSERT_TRUE(qm_utils::parseNtpDate(sText.c_str(), back));
    ASSERT_EQ(back, time) << sText;
    ASSERT_EQ(time.toUSFormat(), sText);
  }
}

TEST(NtpDates, EndsOfOpenQueriesAreTheseTexts) {
  JTime first, last;
  EXPECT_TRUE(qm_utils::parseNtpDate("01/01/1970 00:00:00.000000UTC", first));
  EXPECT_TRUE(qm_utils::parseNtpDate("01/19/2038 03:14:07.551615UTC", last));
  EXPECT_EQ(JTime::firstQueryTime(), first);
  EXPECT_EQ(JTime::lastQueryTime(), last);
}

}  // namespace
