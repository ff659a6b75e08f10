#include <array>
#include <atomic>
#include <cerrno>
#include <gmock/gmock.h>

#include "coreapi/qmutils/thread/jwaitable.h"
#include "tests/coreapi/qmutils/thread/threadhelp.h"

namespace {

using qm_test::Crew;
using qm_test::systemFailureOf;
using qm_test::Task;
using qm_test::untilAsleep;

TEST(Flag, AutoResetClearsWithOneWaitAndManualResetStays) {
  JFlag once(false, true, "once");
  EXPECT_EQ(once.getName(), "once");
  EXPECT_TRUE(once.wait(0));
  EXPECT_FALSE(once.wait(0));
  once.set();
  once.set();
  EXPECT_TRUE(once.wait(-1));
  EXPECT_FALSE(once.wait(0));

  JFlag lasting(true);
  EXPECT_FALSE(lasting.wait(1));
  const auto waitForIt = [&] { lasting.wait(); };
  Crew crew({waitForIt, waitForIt, waitForIt, waitForIt, waitForIt, waitForIt});
  lasting.set();
  crew.stop();
  EXPECT_TRUE(lasting.wait(0));
  lasting.reset();
  EXPECT_FALSE(lasting.wait(0));
}

/// Four threads sleep on an object, and each signal lets one of them through.
void letsOneOfManyThrough(const JWaitableObject& object, int iRounds,
                          const std::function<void(int)>& signal) {
  JFlag end(true);
  JSemaphore passed(0, iRounds);
  std::atomic<int> passes{0};
  const auto body = [&] {
    const JWaitForMultipleObjects any(object, end);
    while (any.wait() == 0) {
      ++passes;
      passed.release(1);
    }
  };
  Crew crew({body, body, body, body});
  for (int i = 1; i <= iRounds; ++i) {
    signal(i);
    passed.wait();
    ASSERT_EQ(passes, i);
  }
  end.set();
  crew.stop();
  EXPECT_EQ(passes, iRounds);
}

TEST(Wait, AutoResetLetsExactlyOneOfManyThrough) {
  JFlag flag(false);
  letsOneOfManyThrough(flag, 3000, [&](int) { flag.set(); });
  JWaitableTimer timer;
  letsOneOfManyThrough(timer, 500, [&](int i) { timer.start(JTime(0, i % 2 == 0 ? 0 : 200)); });
}

TEST(Flag, MayBeDestroyedAsSoonAsItsWaitReturns) {
  std::atomic<JFlag*> pShared{nullptr};
  Task setter([&] {
    for (int i = 0; i < 3000; ++i) {
      JFlag* pFlag = nullptr;
      while ((pFlag = pShared.exchange(nullptr)) == nullptr) {
        std::this_thread::yield();
      }
      pFlag->set();
    }
  });
  setter.start();
  for (int i = 0; i < 3000; ++i) {
    auto pFlag = std::make_unique<JFlag>(i % 2 == 0);
    pShared = pFlag.get();
    pFlag->wait();
  }
}

TEST(Semaphore, ReleaseAddsAllOrNothing) {
  const struct {
    int initial;
    int maximum;
    int count;
    const char* thrown;  ///< 22 is EINVAL, 75 EOVERFLOW
    int left;            ///< units afterwards
  } rows[] = {
      {1, 4, 3, "", 4},
      {1, 4, 4, "ReleaseSemaphore: 75", 1},
      {2, 2, 1, "ReleaseSemaphore: 75", 2},
      {1, 2, 0, "ReleaseSemaphore: 22", 1},
      {1, 2, -1, "ReleaseSemaphore: 22", 1},
      {1, 0x7FFFFFFF, 0x7FFFFFFF, "ReleaseSemaphore: 75", 1},
  };
  for (const auto& row : rows) {
    JSemaphore semaphore(row.initial, row.maximum);
    EXPECT_EQ(systemFailureOf([&] { EXPECT_EQ(semaphore.release(row.count), row.initial); }), row.thrown);
    for (int i = 0; i < row.left; ++i) {
      EXPECT_TRUE(semaphore.wait(0));
    }
    EXPECT_FALSE(semaphore.wait(0));
  }
}

/// Two producers, three consumers that sleep on both semaphores in either order. A unit that is counted twice
/// fails the sum; a wake-up that gets lost leaves a consumer asleep for ever.
TEST(Semaphore, UnitsAreConservedUnderLoad) {
  constexpr int kUnits = 6000;
  JSemaphore first(0, 5);
  JSemaphore second(0, kUnits);
  JFlag end(true);
  JSemaphore consumed(0, 2 * kUnits);
  std::array<std::atomic<int>, 2> counts{};
  const auto consume = [&](bool bSwapped) {
    const JWaitForMultipleObjects any(bSwapped ? second : first, bSwapped ? first : second, end);
    for (std::size_t index = any.wait(); index != 2; index = any.wait()) {
      ++counts[bSwapped ? 1 - index : index];
      consumed.release(1);
    }
  };
  const auto produceFirst = [&] {
    for (int i = 0; i < kUnits;) {
      if (systemFailureOf([&] { first.release(1); }).empty()) {
        ++i;
      } else {
        std::this_thread::yield();
      }
    }
  };
  const auto produceSecond = [&] {
    for (int i = 0; i < kUnits; i += 3) {
      second.release(3);
    }
  };
  Crew crew({[&] { consume(false); }, [&] { consume(true); }, [&] { consume(false); }, produceFirst,
             produceSecond});
  for (int i = 0; i < 2 * kUnits; ++i) {
    consumed.wait();
  }
  end.set();
  crew.stop();
  EXPECT_EQ(counts[0], kUnits);
  EXPECT_EQ(counts[1], kUnits);
  EXPECT_FALSE(first.wait(0));
  EXPECT_FALSE(second.wait(0));
}

TEST(WaitForAny, TakesTheLowestIndexAndNothingElse) {
  std::vector<std::unique_ptr<JFlag>> flags;
  std::vector<JWaitableObject*> objects;
  for (int i = 0; i < 80; ++i) {
    flags.push_back(std::make_unique<JFlag>(false, i % 3 != 0));
    objects.push_back(flags.back().get());
  }
  const JWaitForMultipleObjects any(objects);
  for (std::size_t i = 0; i < flags.size(); ++i) {
    if (i % 3 != 0) {
      EXPECT_EQ(any.wait(), i);
    }
  }
  std::size_t index = 99;
  Task task([&] { index = any.wait(); });
  task.start();
  untilAsleep(task);
  flags[70]->set();
  task.stop();
  EXPECT_EQ(index, 70U);
}

TEST(WaitForAny, TakesAnObjectThatStandsInItTwiceOnce) {
  JSemaphore semaphore(2, 2);
  JFlag flag(false);
  const JWaitForMultipleObjects any(flag, semaphore, semaphore, flag);
  EXPECT_EQ(any.wait(), 1U);
  EXPECT_EQ(any.wait(), 1U);
  Task task([&] { EXPECT_EQ(any.wait(), 0U); });
  task.start();
  untilAsleep(task);
  flag.set();
  task.stop();
  EXPECT_FALSE(flag.wait(0));
}

/// The first sleeper in the line takes something else instead, or can't take for want of the other object.
TEST(Wait, SignalThatTheFirstSleeperLeavesReachesTheNext) {
  for (int round = 0; round < 100; ++round) {
    const bool bAll = round % 10 == 0;
    JFlag other(false);
    JFlag wanted(false);
    JFlag reached(false);
    std::size_t index = 99;
    Task first([&] { index = JWaitForMultipleObjects(other, wanted, bAll).wait(); });
    first.start();
    untilAsleep(first);
    Task second([&] {
      wanted.wait();
      reached.set();
    });
    second.start();
    untilAsleep(second);
    wanted.set();
    if (!bAll) {
      other.set();
      first.stop();
      if (index == 1) {  // it was quick and took the first one
        wanted.set();
      }
    }
    const bool bReached = reached.wait(20000);
    EXPECT_TRUE(bReached) << round;
    if (!bReached) {
      wanted.reset();
    }
    wanted.set();
    other.set();
  }
}

TEST(WaitForAll, TakesNothingUntilItCanTakeEverything) {
  JFlag first(false);
  JFlag second(false);
  JSemaphore third(0, 2);
  const JWaitForMultipleObjects all(first, second, third, first, true);
  Task task([&] { EXPECT_EQ(all.wait(), 0U); });
  task.start();
  untilAsleep(task);
  first.set();
  third.release(2);
  untilAsleep(task);
  EXPECT_TRUE(first.wait(0));  // still there for others
  second.set();
  untilAsleep(task);
  EXPECT_TRUE(second.wait(0));
  second.set();
  first.set();
  task.stop();
  EXPECT_FALSE(first.wait(0));
  EXPECT_FALSE(second.wait(0));
  EXPECT_TRUE(third.wait(0));
  EXPECT_FALSE(third.wait(0));
}

/// Five at a round table, each of whom needs the forks on both sides, named in either order. Taken one after
/// the other, the forks would soon be one in each hand.
TEST(WaitForAll, IsAtomicUnderLoad) {
  constexpr std::size_t kSeats = 5;
  std::array<std::unique_ptr<JFlag>, kSeats> forks;
  std::array<std::atomic<int>, kSeats> users{};
  std::vector<std::function<void()>> bodies;
  for (auto& pFork : forks) {
    pFork = std::make_unique<JFlag>(false, true);
  }
  for (std::size_t seat = 0; seat < kSeats; ++seat) {
    bodies.emplace_back([&, seat] {
      const std::size_t next = (seat + 1) % kSeats;
      const JWaitForMultipleObjects both(*forks[seat], *forks[next], true);
      for (int i = 0; i < 2000; ++i) {
        both.wait();
        EXPECT_EQ(++users[seat], 1);
        EXPECT_EQ(++users[next], 1);
        --users[seat];
        --users[next];
        forks[seat]->set();
        forks[next]->set();
      }
    });
  }
  Crew(bodies).stop();
}

TEST(WaitForMultipleObjects, EndsWithAThreadThatHasDeletedItself) {
  struct Mortal : JThread {
    explicit Mortal(std::atomic<bool>& bGone) : m_bGone(bGone) {}
    ~Mortal() override { m_bGone = true; }
    std::atomic<bool>& m_bGone;
  };
  for (int i = 0; i < 300; ++i) {
    std::atomic<bool> bGone{false};
    JFlag never(false);
    auto* pThread = new Mortal(bGone);
    pThread->start(0, true, JThread::StartOption::kLeaveSuspended);
    const JWaitForMultipleObjects any(never, *pThread);
    const JWaitForMultipleObjects all(*pThread, never, true);
    pThread->resume();
    EXPECT_EQ(any.wait(), 1U);
    EXPECT_TRUE(bGone);
    never.set();
    EXPECT_EQ(all.wait(), 0U);
  }
}

TEST(Wait, FailuresNameTheFunctionAndTakeNothing) {
  JThread notStarted;
  JFlag flag(false, true);
  JFlag other(false);
  JSemaphore semaphore(1, 1);
  const JWaitForMultipleObjects any(other, flag);
  const JWaitForMultipleObjects all(semaphore, flag, true);
  const struct {
    const char* thrown;
    bool fault;
    std::function<void()> call;
  } rows[] = {
      {"empty vector!", false, [] { JWaitForMultipleObjects(std::vector<JWaitableObject*>{}); }},
      {"Unexpected null pointer: 'JWaitableObject'", false,
       [] { JWaitForMultipleObjects(std::vector<JWaitableObject*>{nullptr}); }},
      {"WaitForMultipleObjects: 22", false, [&] { JWaitForMultipleObjects(flag, notStarted).wait(); }},
      {"WaitForSingleObject: 22", false, [&] { notStarted.wait(0); }},
      {"CreateSemaphore: 22", false, [] { JSemaphore(0, 0); }},
      {"CreateSemaphore: 22", false, [] { JSemaphore(-1, 1); }},
      {"CreateSemaphore: 22", false, [] { JSemaphore(2, 1); }},
      {"CreateEvent: 24", true, [] { JFlag(true); }},
      {"CreateSemaphore: 24", true, [] { JSemaphore(0, 1); }},
      {"CreateWaitableTimer: 24", true, [] { JWaitableTimer(); }},
      {"WaitForSingleObject: 24", true, [&] { flag.wait(0); }},
      {"WaitForSingleObject: 24", true, [&] { flag.wait(); }},
      {"WaitForMultipleObjects: 24", true, [&] { any.wait(); }},
      {"WaitForMultipleObjects: 24", true, [&] { all.wait(); }},
  };
  for (const auto& row : rows) {
    const qm_test::ThreadFault fault(row.fault ? 1 : 0, EMFILE);
    EXPECT_EQ(systemFailureOf(row.call), row.thrown);
  }
  EXPECT_EQ(all.wait(), 0U);
}

}  // namespace
