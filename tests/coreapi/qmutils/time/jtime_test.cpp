#include "coreapi/qmutils/time/jtime.h"

#include <chrono>
#include <cstdint>
#include <gmock/gmock.h>
#include <limits>
#include <string>

#include "coreapi/platform/clock.h"

namespace {

constexpr std::uint64_t kMax = std::numeric_limits<std::uint64_t>::max();
constexpr std::int64_t kLowest = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t kHighest = std::numeric_limits<std::int64_t>::max();

JTime us(std::uint64_t uMicroseconds) {
  return JTime::fromMicroseconds(uMicroseconds);
}

static_assert(sizeof(JTime) == 8);
static_assert(JTime::kEpochOffset == 11644473600000000);
static_assert(JTime::kClockSetLimit == 12749011199999999);

TEST(Time, IsMadeOfSecondsMillisecondsAndTheUnixCount) {
  EXPECT_EQ(JTime().getMicroseconds(), 0U);
  EXPECT_EQ(JTime(3, 4).getMicroseconds(), 3'000'004U);
  EXPECT_EQ(JTime(kMax, 1), JTime::max());
  EXPECT_EQ(JTime(std::chrono::milliseconds(7)).getMicroseconds(), 7'000U);
  EXPECT_EQ(JTime(std::chrono::milliseconds(-1)), JTime());
  EXPECT_EQ(JTime::fromUnixSeconds(0).getMicroseconds(), JTime::kEpochOffset);
  EXPECT_EQ(JTime::fromUnixSeconds(-2147483648).getMicroseconds(), JTime::kLowestConvertible);
  EXPECT_EQ(JTime::fromUnixSeconds(2147483647).add(999'999).getMicroseconds(), JTime::kHighestConvertible);
  EXPECT_EQ(JTime::fromUnixSeconds(kLowest), JTime::zero());
  EXPECT_EQ(JTime::fromUnixSeconds(kHighest), JTime::max());
}

struct UnixCase {
  const char* name;
  std::uint64_t uTime;
  std::int64_t iSeconds;
  std::uint32_t uMicroseconds;
};

class UnixSeconds : public testing::TestWithParam<UnixCase> {};

TEST_P(UnixSeconds, AreClampedAndRoundDown) {
  std::uint32_t uMicroseconds = 77;
  EXPECT_EQ(us(GetParam().uTime).toUnixSeconds(&uMicroseconds), GetParam().iSeconds);
  EXPECT_EQ(uMicroseconds, GetParam().uMicroseconds);
  EXPECT_EQ(us(GetParam().uTime).toUnixSeconds(), GetParam().iSeconds);
}

INSTANTIATE_TEST_SUITE_P(Time, UnixSeconds,
                         testing::Values(UnixCase{"Epoch", JTime::kEpochOffset, 0, 0},
                                         UnixCase{"JustBefore", JTime::kEpochOffset - 1, -1, 999'999},
                                         UnixCase{"Zero", 0, -2147483648, 0},
                                         UnixCase{"BelowLowest", JTime::kLowestConvertible - 1, -2147483648,
                                                  0},
                                         UnixCase{"Highest", JTime::kHighestConvertible, 2147483647, 999'999},
                                         UnixCase{"AllOnes", kMax, 2147483647, 999'999}),
                         [](const auto& row) { return std::string(row.param.name); });

struct MoveCase {
  const char* name;
  std::uint64_t uTime;
  std::int64_t iBy;
  std::uint64_t uAdded, uSubtracted;
};

class Moving : public testing::TestWithParam<MoveCase> {};

TEST_P(Moving, SaturatesAtBothEnds) {
  const MoveCase& row = GetParam();
  EXPECT_EQ(us(row.uTime).add(row.iBy), us(row.uAdded));
  EXPECT_EQ(us(row.uTime).subtract(row.iBy), us(row.uSubtracted));
}

INSTANTIATE_TEST_SUITE_P(Time, Moving,
                         testing::Values(MoveCase{"Small", 100, 30, 130, 70},
                                         MoveCase{"Negative", 100, -30, 70, 130},
                                         MoveCase{"NegativeBeyondZero", 100, -101, 0, 201},
                                         MoveCase{"LowestFromZero", 0, kLowest, 0, std::uint64_t{1} << 63},
                                         MoveCase{"HighestFromMax", kMax, kHighest, kMax, kMax - kHighest},
                                         MoveCase{"LowestFromMax", kMax, kLowest, kMax >> 1, kMax},
                                         MoveCase{"OneFromMax", kMax, 1, kMax, kMax - 1}),
                         [](const auto& row) { return std::string(row.param.name); });

TEST(Time, DifferenceForRangeChecksWraps) {
  EXPECT_EQ(us(5).wrappingDifference(us(3)), 2U);
  EXPECT_EQ(us(3).wrappingDifference(us(5)), kMax - 1);
}

struct RoundCase {
  const char* name;
  std::uint64_t uTime, uInterval;
  std::uint64_t uUp, uDown, uNext, uPrevious;
};

class Rounding : public testing::TestWithParam<RoundCase> {};

TEST_P(Rounding, FindsTheMultipleThatItsNameSays) {
  const RoundCase& row = GetParam();
  const JTime interval = us(row.uInterval);
  EXPECT_EQ(us(row.uTime).roundUp(interval), us(row.uUp));
  EXPECT_EQ(us(row.uTime).roundDown(interval), us(row.uDown));
  EXPECT_EQ(us(row.uTime).nextMultiple(interval), us(row.uNext));
  EXPECT_EQ(us(row.uTime).previousMultiple(interval), us(row.uPrevious));
}

INSTANTIATE_TEST_SUITE_P(
    Time, Rounding,
    testing::Values(RoundCase{"Between", 1'500'000, 1'000'000, 2'000'000, 1'000'000, 2'000'000, 1'000'000},
                    RoundCase{"OnAMultiple", 2'000'000, 1'000'000, 2'000'000, 2'000'000, 3'000'000,
                              1'000'000},
                    RoundCase{"Zero", 0, 1'000'000, 0, 0, 1'000'000, 0},
                    RoundCase{"NoInterval", 1'234'567, 0, 1'234'567, 1'234'567, 1'234'567, 1'234'567},
                    RoundCase{"BelowTheFirst", 3, 10, 10, 0, 10, 0},
                    RoundCase{"NearTheEnd", kMax - 1, 1'000'000, kMax, kMax - 551'615, kMax, kMax - 551'615}),
    [](const auto& row) { return std::string(row.param.name); });

TEST(Time, SplitsAnInterval) {
  std::uint64_t uHours = 0, uMinutes = 0, uSeconds = 0, uMicroseconds = 0;
  const JTime interval(100 * 3600 + 2 * 60 + 3, 4);
  interval.split(&uHours, &uMinutes, &uSeconds, &uMicroseconds);
  EXPECT_THAT((std::array{uHours, uMinutes, uSeconds, uMicroseconds}), testing::ElementsAre(100, 2, 3, 4));
  interval.split(nullptr, &uMinutes, nullptr, nullptr);
  EXPECT_EQ(uMinutes, 6002U);
  JTime::max().split(nullptr, &uMinutes, &uSeconds, nullptr);
  EXPECT_EQ(uMinutes, 307445734561U);
}

struct TextCase {
  const char* name;
  const char* szText;
  bool bRead;
  std::uint64_t uTime;
};

class DecimalText : public testing::TestWithParam<TextCase> {};

TEST_P(DecimalText, ReadsAsScanfDoes) {
  JTime time = us(42);
  EXPECT_EQ(time.fromText(GetParam().szText), GetParam().bRead);
  EXPECT_EQ(time, us(GetParam().uTime));
}

INSTANTIATE_TEST_SUITE_P(Time, DecimalText,
                         testing::Values(TextCase{"Plain", "12938313599000001", true, 12938313599000001},
                                         TextCase{"Max", "18446744073709551615", true, kMax},
                                         TextCase{"TooLarge", "99999999999999999999", true, kMax},
                                         TextCase{"MinusOneIsTheOpenEnd", "-1", true, kMax},
                                         TextCase{"BlanksAndTail", " 7x", true, 7},
                                         TextCase{"Empty", "", false, 42},
                                         TextCase{"NoNumber", "x7", false, 42},
                                         TextCase{"NoText", nullptr, false, 42}),
                         [](const auto& row) { return std::string(row.param.name); });

TEST(Time, TextIsTheDecimalCount) {
  EXPECT_EQ(us(0).toText(), "0");
  EXPECT_EQ(JTime::max().toText(), "18446744073709551615");
}

TEST(Time, NowIsTheSystemsClock) {
  const std::int64_t iBefore = qm_platform::utcClockMicroseconds();
  const JTime now = JTime::now();
  const std::int64_t iAfter = qm_platform::utcClockMicroseconds();
  EXPECT_GE(now, JTime::fromUnixSeconds(0).add(iBefore));
  EXPECT_LE(now, JTime::fromUnixSeconds(0).add(iAfter));
  EXPECT_EQ(JTime::isClockSet(), now.getMicroseconds() > JTime::kClockSetLimit);
}

}  // namespace
