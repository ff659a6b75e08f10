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

TEST(UnixSeconds, AreClampedAndRoundDown) {
  const UnixCase rows[] = {{"Epoch", JTime::kEpochOffset, 0, 0},
                           {"JustBefore", JTime::kEpochOffset - 1, -1, 999'999},
                           {"Zero", 0, -2147483648, 0},
                           {"BelowLowest", JTime::kLowestConvertible - 1, -2147483648, 0},
                           {"Highest", JTime::kHighestConvertible, 2147483647, 999'999},
                           {"AllOnes", kMax, 2147483647, 999'999}};
  for (const UnixCase& row : rows) {
    SCOPED_TRACE(row.name);
    std::uint32_t uMicroseconds = 77;
    EXPECT_EQ(us(row.uTime).toUnixSeconds(&uMicroseconds), row.iSeconds);
    EXPECT_EQ(uMicroseconds, row.uMicroseconds);
    EXPECT_EQ(us(row.uTime).toUnixSeconds(), row.iSeconds);
  }
}

struct MoveCase {
  const char* name;
  std::uint64_t uTime;
  std::int64_t iBy;
  std::uint64_t uAdded, uSubtracted;
};

TEST(TimeMoved, SaturatesAtBothEnds) {
  const MoveCase rows[] = {{"Small", 100, 30, 130, 70},
                           {"Negative", 100, -30, 70, 130},
                           {"NegativeBeyondZero", 100, -101, 0, 201},
                           {"LowestFromZero", 0, kLowest, 0, std::uint64_t{1} << 63},
                           {"HighestFromMax", kMax, kHighest, kMax, kMax - kHighest},
                           {"LowestFromMax", kMax, kLowest, kMax >> 1, kMax},
                           {"OneFromMax", kMax, 1, kMax, kMax - 1}};
  for (const MoveCase& row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(us(row.uTime).add(row.iBy), us(row.uAdded));
    EXPECT_EQ(us(row.uTime).subtract(row.iBy), us(row.uSubtracted));
  }
}

struct RoundCase {
  const char* name;
  std::uint64_t uTime, uInterval;
  std::uint64_t uUp, uDown, uNext, uPrevious;
};

TEST(TimeRounded, FindsTheMultipleThatItsNameSays) {
  const RoundCase rows[] = {{"Between", 1'500'000, 1'000'000, 2'000'000, 1'000'000, 2'000'000, 1'000'000},
                            {"OnAMultiple", 2'000'000, 1'000'000, 2'000'000, 2'000'000, 3'000'000, 1'000'000},
                            {"Zero", 0, 1'000'000, 0, 0, 1'000'000, 0},
                            {"NoInterval", 1'234'567, 0, 1'234'567, 1'234'567, 1'234'567, 1'234'567},
                            {"BelowTheFirst", 3, 10, 10, 0, 10, 0},
                            {"NearTheEnd", kMax - 1, 1'000'000, kMax, kMax - 551'615, kMax, kMax - 551'615}};
  for (const RoundCase& row : rows) {
    SCOPED_TRACE(row.name);
    const JTime interval = us(row.uInterval);
    EXPECT_EQ(us(row.uTime).roundUp(interval), us(row.uUp));
    EXPECT_EQ(us(row.uTime).roundDown(interval), us(row.uDown));
    EXPECT_EQ(us(row.uTime).nextMultiple(interval), us(row.uNext));
    EXPECT_EQ(us(row.uTime).previousMultiple(interval), us(row.uPrevious));
  }
}

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

TEST(DecimalText, ReadsAsScanfDoes) {
  const TextCase rows[] = {{"Plain", "12938313599000001", true, 12938313599000001},
                           {"Max", "18446744073709551615", true, kMax},
                           {"TooLarge", "99999999999999999999", true, kMax},
                           {"MinusOneIsTheOpenEnd", "-1", true, kMax},
                           {"BlanksAndTail", " 7x", true, 7},
                           {"Empty", "", false, 42},
                           {"NoNumber", "x7", false, 42},
                           {"NoText", nullptr, false, 42}};
  for (const TextCase& row : rows) {
    SCOPED_TRACE(row.name);
    JTime time = us(42);
    EXPECT_EQ(time.fromText(row.szText), row.bRead);
    EXPECT_EQ(time, us(row.uTime));
  }
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
