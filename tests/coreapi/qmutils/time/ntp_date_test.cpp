#include <array>
#include <gmock/gmock.h>
#include <random>
#include <string>

#include "coreapi/qmutils/time/ntpdate.h"

namespace {

using testing::ElementsAre;

struct DateCase {
  const char* name;
  const char* szText;
  std::uint64_t uTime;  ///< 0 when it isn't valid
};

class NtpDate : public testing::TestWithParam<DateCase> {};

TEST_P(NtpDate, IsTakenOrRefused) {
  JTime time = JTime::max();
  EXPECT_EQ(qm_utils::parseNtpDate(GetParam().szText, time), GetParam().uTime != 0);
  EXPECT_EQ(time.getMicroseconds(), GetParam().uTime);
}

constexpr std::uint64_t kHour = 3'600'000'000;
constexpr std::uint64_t kEpoch = JTime::kEpochOffset;
constexpr std::uint64_t kMarch2011 = 12943584000000000;  // 03/03/2011

INSTANTIATE_TEST_SUITE_P(
    Host, NtpDate,
    testing::Values(
        DateCase{"Ordinary", "12/31/2010 23:59:59.000001UTC", 12938313599000001},
        DateCase{"WithoutSuffix", "12/31/2010 23:59:59.000001", 12938313599000001},
        DateCase{"AnySuffix", "12/31/2010 23:59:59.000001PST and so on", 12938313599000001},
        DateCase{"NoLeadingZeros", "1/2/2010 3:4:5.6", 12906875045000006},
        DateCase{"SpaceAnywhere", "  1/ 2/ 2010   3: 4: 5. 6", 12906875045000006},
        DateCase{"Signs", "+1/+2/+2010 +3:4:5.6", 12906875045000006},
        DateCase{"First", "01/01/1970 00:00:00.000000UTC", kEpoch},
        DateCase{"Last", "01/19/2038 03:14:07.999999UTC", JTime::kHighestConvertible},
        DateCase{"DayBeyondTheMonth", "02/31/2011 00:00:00.000000", kMarch2011},
        DateCase{"LastDayOf2037", "12/31/2037 23:00:00.000000", kEpoch + 2145913200ULL * 1'000'000},
        DateCase{"AfterTheLast", "01/19/2038 03:14:08.000000UTC", 0},
        DateCase{"LaterDayOf2038", "01/20/2038 00:00:00.000000UTC", 0},
        DateCase{"LaterMonthOf2038", "02/01/2038 00:00:00.000000UTC", 0},
        DateCase{"BeforeTheFirst", "12/31/1969 23:59:59.000000", 0},
        DateCase{"YearAbove", "01/01/2039 00:00:00.0", 0}, DateCase{"MonthZero", "0/1/2010 0:0:0.0", 0},
        DateCase{"MonthAbove", "13/1/2010 0:0:0.0", 0}, DateCase{"DayZero", "1/0/2010 0:0:0.0", 0},
        DateCase{"DayAbove", "1/32/2010 0:0:0.0", 0}, DateCase{"HourAbove", "1/1/2010 24:0:0.0", 0},
        DateCase{"MinuteAbove", "1/1/2010 0:60:0.0", 0}, DateCase{"SecondAbove", "1/1/2010 0:0:60.0", 0},
        DateCase{"SecondBelow", "1/1/2010 0:0:-1.0", 0},
        DateCase{"MicrosecondAbove", "1/1/2010 0:0:0.1000000", 0},
        DateCase{"MinusZero", "1/1/2010 -0:0:0.0", kEpoch + 350640 * kHour},
        DateCase{"WithoutFraction", "01/02/2010 03:04:05", 0},
        DateCase{"EmptyFraction", "01/02/2010 03:04:05.", 0},
        DateCase{"FractionIsAComma", "01/02/2010 03:04:05,5", 0},
        DateCase{"ISO", "2010-01-02 03:04:05.6 UTC", 0}, DateCase{"SpaceBeforeSlash", "1 /2/2010 3:4:5.6", 0},
        DateCase{"Empty", "", 0}, DateCase{"NoText", nullptr, 0},
        DateCase{"WrapsTo32Bits", "4294967297/2/2010 3:4:5.6", 0},
        DateCase{"WrapsTo64Bits", "18446744073709551617/2/2010 3:4:5.6", 0}),
    [](const auto& row) { return std::string(row.param.name); });

TEST(NtpDates, GiveTheirSevenNumbers) {
  std::array<int, 7> n{};
  EXPECT_TRUE(qm_utils::isValidNtpDate("12/31/2010 23:59:58.7UTC", n[0], n[1], n[2], n[3], n[4], n[5], n[6]));
  EXPECT_THAT(n, ElementsAre(12, 31, 2010, 23, 59, 58, 7));
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
