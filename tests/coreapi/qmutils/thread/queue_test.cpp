#include <cerrno>
#include <gmock/gmock.h>

#include "coreapi/qmutils/text/jtext.h"
#include "coreapi/qmutils/thread/jrunnable.h"
#include "coreapi/qmutils/thread/jthreadedqueue.h"
#include "tests/coreapi/qmutils/thread/threadhelp.h"
#include "tests/support/logcapture.h"

namespace {

using qm_test::LogCapture;
using qm_test::systemFailureOf;
using qm_test::ThreadFault;
using qm_utils::format;
using testing::ElementsAre;

/// Keeps what it processes. Message 0 reports that it is being processed and waits for `go`; a negative one
/// throws.
class TestQueue : public JThreadedQueue<std::unique_ptr<int>> {
 public:
  TestQueue() : JThreadedQueue("queue") {}
  ~TestQueue() override { stop(false); }

  void process(std::unique_ptr<int> pMessage) override {
    processed.push_back(*pMessage);
    if (*pMessage == 0) {
      entered.set();
      go.wait();
    } else if (*pMessage < 0) {
      QM_THROW(JTextError, "bad message");
    }
  }

  void put(int iMessage) { post(std::make_unique<int>(iMessage)); }
  void putAndEnter() {
    put(0);
    entered.wait();
  }
  void wakeForNothing() { m_timer.cancelAndSignal(); }

  JFlag entered{false};
  JFlag go{false};
  std::vector<int> processed;  ///< the queue's thread's until it has stopped
};

TEST(ThreadedQueue, FullQueueThrowsAndStaysAsItWas) {
  TestQueue queue;
  queue.start(0, 2);
  queue.putAndEnter();
  queue.put(1);
  queue.put(2);
  EXPECT_EQ(systemFailureOf([&] { queue.put(3); }), "ReleaseSemaphore: 75");
  queue.start(0, 100);  // started already
  EXPECT_EQ(systemFailureOf([&] { queue.put(4); }), "ReleaseSemaphore: 75");
  queue.go.set();
  queue.stop(true);
  EXPECT_THAT(queue.processed, ElementsAre(0, 1, 2));
}

TEST(ThreadedQueue, StopWinsOverQueuedMessagesAndHandlesThemOnDemand) {
  for (const bool bProcessRest : {false, true}) {
    TestQueue queue;
    queue.start(0, 10);
    queue.putAndEnter();
    queue.put(1);
    queue.put(2);
    qm_test::Task stopper([&] { queue.stop(bProcessRest); });
    stopper.start();
    qm_test::untilAsleep(stopper);  // the stop is asked for while 1 and 2 are queued
    queue.put(3);
    queue.go.set();
    stopper.stop();
    EXPECT_EQ(queue.processed, bProcessRest ? (std::vector{0, 1, 2, 3}) : std::vector{0});
  }
}

TEST(ThreadedQueue, MessagesBeforeStartAndAfterStopAreLost) {
  TestQueue queue;
  queue.put(1);
  queue.stop(true);
  queue.start(0, 1);
  queue.wakeForNothing();
  queue.stop(true);
  queue.put(2);
  queue.start(0, 1);
  queue.put(3);
  queue.stop(true);
  EXPECT_THAT(queue.processed, ElementsAre(3));
}

TEST(ThreadedQueue, StartsAfreshAfterAFailure) {
  const LogCapture log;
  TestQueue queue;
  EXPECT_EQ(systemFailureOf([&] { queue.start(0, 0); }), "CreateSemaphore: 22");
  {
    const ThreadFault fault(2, EAGAIN);
    EXPECT_EQ(systemFailureOf([&] { queue.start(0, 1); }), "CreateThread: 11");
  }
  queue.put(1);  // not started
  queue.start(0, 5);
  queue.put(-1);
  queue.wait();
  EXPECT_TRUE(log.has(11, format("The thread 0x%x ('queue') terminated due to uncaught error : bad message\n",
                                 queue.getThreadId())));
  queue.put(2);
  queue.stop(true);
  queue.start(0, 5);
  queue.put(3);
  queue.stop(true);
  EXPECT_THAT(queue.processed, ElementsAre(-1, 3));
}

TEST(ThreadedQueue, EveryMessageOfManyPostersIsHandledOnceInOrder) {
  constexpr int kMessages = 4000;
  struct Collector : JThreadedQueue<std::pair<int, int>> {
    ~Collector() override { stop(false); }
    void process(std::pair<int, int> message) override { EXPECT_EQ(next[message.first]++, message.second); }
    int next[3] = {};
  } queue;
  queue.start(0, 64);
  const auto body = [&](int iPoster) {
    for (int i = 0; i < kMessages;) {
      if (systemFailureOf([&] { queue.post({iPoster, i}); }).empty()) {
        ++i;
      } else {
        std::this_thread::yield();
      }
    }
  };
  qm_test::Crew({[&] { body(0); }, [&] { body(1); }, [&] { body(2); }}).stop();
  queue.stop(true);
  EXPECT_THAT(queue.next, ElementsAre(kMessages, kMessages, kMessages));
}

/// Notes its steps, of its turns only the last ten. Fails in the step that is named.
class TestRunnable : public qm_utils::Runnable {
 public:
  explicit TestRunnable(bool bDeleteOnExit, int iTurns, const char* szFails = "")
      : Runnable("runner", bDeleteOnExit), m_iTurns(iTurns), m_sFails(szFails) {}

  void onThreadStart() override { note("start"); }
  bool onThreadLoop() override {
    turned.set();
    if (m_iTurns <= 10) {
      note("loop");
    }
    return --m_iTurns > 0;
  }
  void onThreadStop() override { note("stop"); }

  JFlag turned{false};
  std::vector<std::string> steps;  ///< the thread's until it has ended

 private:
  void note(const char* szStep) {
    steps.emplace_back(szStep);
    if (m_sFails == szStep) {
      QM_THROW(JTextError, "%s failed", szStep);
    }
  }

  int m_iTurns;
  std::string m_sFails;
};

TEST(Runnable, TakesTurnsUntilItIsStoppedOrHasNoMore) {
  for (const bool bDeleteOnExit : {false, true}) {
    TestRunnable endless(bDeleteOnExit, 0x7FFFFFFF);
    endless.stop();
    for (int i = 0; i < 50; ++i) {
      endless.steps.clear();
      endless.start(i % 2 == 0 ? 0 : -1);
      endless.turned.wait();
      endless.stop();
      EXPECT_THAT(endless.steps, ElementsAre("start", "stop"));
      EXPECT_EQ(endless.getHandle(), nullptr);
      endless.turned.wait(0);
    }
    TestRunnable one(bDeleteOnExit, 1);
    one.start();
    one.turned.wait();
    one.stop();
    EXPECT_THAT(one.steps, ElementsAre("start", "loop", "stop"));
  }
}

TEST(Runnable, WithoutAStopStaysStartedThoughItsLoopHasEnded) {
  const LogCapture log;
  const auto assertions = [&] {
    const auto all = log.messages();
    return std::count_if(all.begin(), all.end(), [](const auto& message) {
      return message.level == 11 && message.text == "ASSERTION FAILED (m_iThExit==1)";
    });
  };
  {
    TestRunnable runner(false, 2);
    EXPECT_EQ(systemFailureOf([&] { runner.wait(0); }), "WaitForSingleObject: 22");
    {
      const ThreadFault fault(2, EAGAIN);
      EXPECT_EQ(systemFailureOf([&] { runner.start(); }), "ResumeThread: 11");
    }
    runner.start();
    runner.wait();
    EXPECT_TRUE(runner.wait(0));
    EXPECT_EQ(assertions(), 0);
    runner.start();
    EXPECT_EQ(assertions(), 1);
    EXPECT_THAT(runner.steps, ElementsAre("start", "loop", "loop", "stop"));
  }
  EXPECT_EQ(assertions(), 2);
}

TEST(Runnable, AnErrorIsToldAndEndsTheThreadThere) {
  const std::pair<const char*, std::vector<std::string>> rows[] = {
      {"start", {"start"}}, {"loop", {"start", "loop"}}, {"stop", {"start", "loop", "stop"}}};
  for (const auto& [szFails, steps] : rows) {
    const LogCapture log;
    TestRunnable runner(false, 1, szFails);
    runner.start();
    runner.wait();
    const auto list = JThread::getThreadList();
    runner.stop();
    ASSERT_EQ(list.size(), 1U);
    EXPECT_EQ(runner.steps, steps);
    EXPECT_TRUE(log.has(10, std::string(szFails) + " failed"));
    EXPECT_TRUE(log.has(11, format("The thread 0x%x ('runner') has just quit on error: '%s failed'.",
                                   list[0].uThreadId, szFails)));
  }
}

}  // namespace
