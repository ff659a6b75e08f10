#include <chrono>
#include <gtest/gtest.h>

#include "coreapi/qmutils/thread/jwaitable.h"
#include "tests/coreapi/qmutils/thread/threadhelp.h"

namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

const JTime kHour(3600, 0);

TEST(WaitableTimer, ComesDueNoSoonerThanAskedAndAgainAtEachPeriod) {
  JWaitableTimer timer;
  const auto start = Clock::now();
  timer.start(JTime(0, 15000));
  timer.wait();
  EXPECT_GE(Clock::now() - start, milliseconds(15));
  EXPECT_FALSE(timer.wait(2));  // a time-out too lasts at least as long as asked; there is no period yet
  EXPECT_GE(Clock::now() - start, milliseconds(17));

  timer.setPeriod(JTime(0, 5999));
  EXPECT_EQ(timer.getPeriod(), JTime(0, 5000));
  const auto again = Clock::now();
  timer.start(JTime(0, 5000));
  for (int i = 1; i <= 4; ++i) {
    timer.wait();
    EXPECT_GE(Clock::now() - again, milliseconds(5 * i));
  }
}

TEST(WaitableTimer, CancelsKeepTakeOrGiveTheSignal) {
  JWaitableTimer timer;
  JWaitableTimer later;
  timer.setPeriod(kHour);
  timer.start(JTime(0, 1000));
  later.start(JTime(0, 3000));
  later.wait();
  timer.cancel();  // it has come due, though nobody has looked
  EXPECT_TRUE(timer.wait(0));

  timer.start(JTime());
  timer.cancelAndClear();
  EXPECT_FALSE(timer.wait(0));

  timer.cancelAndSignal();
  EXPECT_TRUE(timer.wait(0));
  EXPECT_FALSE(timer.wait(0));
  EXPECT_EQ(timer.getPeriod(), kHour);

  timer.start(JTime());
  timer.start(kHour);  // a start clears
  EXPECT_FALSE(timer.wait(0));
  timer.start(JTime::max());
  EXPECT_FALSE(timer.wait(1));

  JWaitableTimer manual(true);
  manual.start(JTime());
  EXPECT_TRUE(manual.wait(0));
  manual.cancelAndClear();
  EXPECT_TRUE(manual.wait(0));
}

TEST(WaitableTimer, SleepersFollowAStartThatComesLater) {
  JWaitableTimer timer;
  JFlag never(false);
  for (const bool bStarted : {false, true}) {
    if (bStarted) {
      timer.start(kHour);
    }
    std::size_t index = 99;
    qm_test::Task task([&] { index = JWaitForMultipleObjects(never, timer).wait(); });
    task.start();
    qm_test::untilAsleep(task);
    timer.start(JTime(0, 1000));
    task.stop();
    EXPECT_EQ(index, 1U);
  }
}

/// One waits for the timer and for a second one that is far off, and so turns due times into signals that it
/// can't take; the other one, asleep on the same timer, must get each of them.
TEST(WaitableTimer, SignalsReachASleeperBesideAWaitForAll) {
  constexpr int kRounds = 500;
  JWaitableTimer timer;
  JWaitableTimer far;
  JSemaphore passed(0, 1);
  far.start(kHour);
  const auto wantBoth = [&] { JWaitForMultipleObjects(timer, far, true).wait(); };
  const auto wantOne = [&] {
    for (int i = 0; i < kRounds; ++i) {
      timer.wait();
      passed.release(1);
    }
  };
  qm_test::Crew crew({wantBoth, wantOne});
  for (int i = 0; i < kRounds; ++i) {
    timer.start(JTime(0, 100));
    passed.wait();
  }
  const auto start = Clock::now();
  timer.start(JTime(0, 10000));
  far.start(JTime());
  crew.stop();
  EXPECT_GE(Clock::now() - start, milliseconds(10));
  EXPECT_FALSE(far.wait(0));
  EXPECT_FALSE(timer.wait(0));
}

}  // namespace
