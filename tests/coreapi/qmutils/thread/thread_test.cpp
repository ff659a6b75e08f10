#include <algorithm>
#include <atomic>
#include <cerrno>
#include <gmock/gmock.h>
#include <stdexcept>
#include <sys/resource.h>

#include "coreapi/qmutils/error/jlasterror.h"
#include "coreapi/qmutils/text/jtext.h"
#include "coreapi/qmutils/thread/jthread.h"
#include "coreapi/qmutils/thread/jthreadlocalstorage.h"
#include "coreapi/qmutils/thread/jwaitable.h"
#include "tests/coreapi/qmutils/thread/threadhelp.h"
#include "tests/support/logcapture.h"
#include "tests/support/withoutlog.h"

namespace {

[[maybe_unused]] const auto* const g_pWithoutLog = testing::AddGlobalTestEnvironment(new qm_test::WithoutLog);

using qm_test::Crew;
using qm_test::LogCapture;
using qm_test::systemFailureOf;
using qm_test::Task;
using qm_test::untilAsleep;
using qm_utils::format;
using testing::SizeIs;

bool isListed(const JThread* pThread) {
  const auto list = JThread::getThreadList();
  return std::any_of(list.begin(), list.end(), [&](const auto& info) { return info.pThread == pThread; });
}

TEST(Thread, RunsThroughItsStatesAndTellsItsStartAndEnd) {
  const LogCapture log;
  JFlag go(false);
  std::string sRecord;
  Task task([&] {
    go.wait();
    EXPECT_EQ(task.getState(), 5);
    EXPECT_EQ(JThread::getCurrentThread(), &task);
    EXPECT_EQ(JThread::getCurrentThreadId(), task.getThreadId());
    int iFirst = 0;
    int iSecond = 0;
    std::string sDescription;
    qm_err::getLastError(sRecord, iFirst, iSecond, sDescription);
  });
  EXPECT_TRUE(task.isFinished());
  task.stop();
  EXPECT_EQ(task.getState(), 0);
  for (const char* szName : {"task", ""}) {  // and once more, without a name
    task.setName(szName);
    task.start();
    const auto uHandle = static_cast<unsigned>(reinterpret_cast<std::uintptr_t>(task.getHandle()));
    const unsigned uId = task.getThreadId();
    const std::string sWho = *szName != '\0' ? " ('task')" : "";
    EXPECT_TRUE(log.has(3, format("The thread 0x%x%s has started with handle %d (0x%x).\r\n", uId,
                                  sWho.c_str(), static_cast<int>(uHandle), uHandle)));
    EXPECT_FALSE(task.isFinished());
    EXPECT_FALSE(task.wait(0));
    go.set();
    task.wait();
    EXPECT_EQ(task.getState(), 2);
    EXPECT_TRUE(isListed(&task));
    EXPECT_TRUE(task.isFinished());
    EXPECT_FALSE(isListed(&task));
    EXPECT_EQ(task.getState(), 1);
    EXPECT_EQ(task.getHandle(), nullptr);
    EXPECT_TRUE(log.has(3, format("The thread 0x%x ('%s') terminated normally.", uId, szName)));
  }
  EXPECT_EQ(sRecord, "Uninitialized");  // a last-error record of its own
  EXPECT_EQ(JThread::getCurrentThread(), nullptr);
  EXPECT_EQ(systemFailureOf([] { JThread::exitThread(); }),
            "exitThread is not allowed on a thread that JThread hasn't started");
}

TEST(Thread, EveryEndIsOrderlyAndFailuresAreTold) {
  const std::pair<const char*, std::function<void()>> rows[] = {
      {"error : lost", [] { QM_THROW(JTextError, "lost"); }},
      {"string exception : gone", [] { throw "gone"; }},
      {"error : odd", [] { throw std::runtime_error("odd"); }},
      {"error : unknown exception", [] { throw 7; }},
      {nullptr, [] { JThread::exitThread(); }},
  };
  for (const auto& [szText, end] : rows) {
    const LogCapture log;
    std::atomic<bool> bUnwound{false};
    struct Scope {
      std::atomic<bool>& m_bUnwound;
      ~Scope() { m_bUnwound = true; }
    };
    Task task([&, end = end] {
      const Scope scope{bUnwound};
      end();
    });
    task.start();
    task.stop();
    EXPECT_TRUE(bUnwound);
    EXPECT_EQ(task.getState(), 1);
    EXPECT_FALSE(isListed(&task));
    EXPECT_THAT(log.messages(), SizeIs(szText != nullptr ? 2 : 1));  // the start is told as well
    EXPECT_EQ(szText != nullptr,
              log.has(11, format("The thread 0x%x ('task') terminated due to uncaught %s\n",
                                 task.getThreadId(), szText != nullptr ? szText : "")));
  }
}

TEST(Thread, StartsSuspendedAndStaysSoOnDemand) {
  std::atomic<bool> bRan{false};
  Task task([&] { bRan = true; });
  task.start(0, JThread::StartOption::kLeaveSuspended);
  EXPECT_EQ(task.getState(), 3);
  EXPECT_NE(task.getThreadId(), 0U);
  EXPECT_FALSE(isListed(&task));
  EXPECT_FALSE(task.wait(1));
  EXPECT_FALSE(bRan);
  task.resume();
  task.stop();
  EXPECT_TRUE(bRan);
}

TEST(Thread, SuspensionTakesEffectAtTheNextWait) {
  JFlag go(false);
  JSemaphore done(0, 3);
  Task task([&] {
    for (int i = 0; i < 2; ++i) {
      go.wait();
      done.release(1);
    }
  });
  task.start();
  untilAsleep(task);
  task.suspend();
  task.suspend();
  EXPECT_EQ(task.getState(), 4);
  go.set();
  done.wait();  // the wait that it was in went on
  go.set();
  untilAsleep(task);
  EXPECT_TRUE(go.wait(0));  // the next one doesn't
  task.resume();
  EXPECT_EQ(task.getState(), 5);
  task.resume();
  go.set();
  task.stop();
  EXPECT_EQ(systemFailureOf([&] { task.suspend(); }), "SuspendThread: 3");
  EXPECT_EQ(systemFailureOf([&] { task.resume(); }), "ResumeThread: 3");
  EXPECT_EQ(task.getState(), 1);
}

TEST(Thread, DeletesItselfOnExitWhateverEndsIt) {
  struct Mortal : JThread {
    Mortal(JSemaphore& gone, int iRound) : JThread("mortal"), m_gone(gone), m_iRound(iRound) {}
    ~Mortal() override {
      EXPECT_EQ(getState(), 1);
      EXPECT_EQ(getCurrentThread(), nullptr);
      EXPECT_FALSE(isListed(this));
      m_gone.release(1);
    }
    void run() override {
      if (m_iRound % 2 == 0) {
        QM_THROW(JTextError, "lost");
      }
    }
    JSemaphore& m_gone;
    int m_iRound;
  };
  JSemaphore gone(0, 500);
  for (int i = 0; i < 500; ++i) {
    (new Mortal(gone, i))->start(i % 3 == 0 ? -1 : 0, true);
  }
  for (int i = 0; i < 500; ++i) {
    gone.wait();
  }

  JThread::start([](void* pGone) { static_cast<JSemaphore*>(pGone)->release(1); }, &gone);
  gone.wait();
}

TEST(Thread, RefusesToStartTwiceOrToWaitForItself) {
  const LogCapture log;
  JFlag go(false);
  std::atomic<int> runs{0};
  Task task([&] {
    ++runs;
    EXPECT_EQ(systemFailureOf([&] { task.stop(); }), "WaitForSingleObject: 35");  // EDEADLK
    go.wait();
  });
  task.start();
  task.start();
  EXPECT_TRUE(log.has(11, "ASSERTION FAILED (bStopped)"));
  go.set();
  task.wait();
  task.start();  // the one before has ended by itself
  go.set();
  task.stop();
  EXPECT_EQ(runs, 2);
}

TEST(Thread, FailedStartLeavesNothingBehind) {
  const char* thrown[] = {"CreateThread: 11", "SetThreadPriority: 11", "ResumeThread: 11"};
  for (std::uint64_t nth = 1; nth <= 3; ++nth) {
    std::atomic<int> runs{0};
    Task task([&] { ++runs; });
    {
      const qm_test::ThreadFault fault(nth, EAGAIN);
      EXPECT_EQ(systemFailureOf([&] { task.start(-1); }), thrown[nth - 1]);
    }
    EXPECT_EQ(task.getState(), 0);
    EXPECT_EQ(task.getThreadId(), 0U);
    EXPECT_EQ(task.getHandle(), nullptr);
    task.start();
    task.stop();
    EXPECT_EQ(runs, 1);
  }
}

TEST(Thread, ShowsItsNameInTheListAndToTheSystem) {
  const std::pair<const char*, const char*> rows[] = {
      {"JRPCController (JThreadedQueue<JRPCEventMsg>)", "JRPCController "},
      {"fourteen bytes\xC3\xA9", "fourteen bytes"},
      {"thirteen here\xC3\xA9 and more", "thirteen here\xC3\xA9"},
  };
  for (const auto& [szName, szShown] : rows) {
    JFlag go(true);
    Task task([&] { go.wait(); }, szName);
    for (const bool bLater : {false, true}) {
      go.reset();
      task.setName(bLater ? "before" : szName);
      task.start();
      untilAsleep(task);
      task.setName(szName);
      std::ifstream file("/proc/self/task/" + std::to_string(task.getThreadId()) + "/comm");
      std::string sShown;
      std::getline(file, sShown);
      EXPECT_EQ(sShown, szShown);
      const auto list = JThread::getThreadList();
      ASSERT_THAT(list, SizeIs(1));
      EXPECT_EQ(list[0].sName, szName);
      EXPECT_EQ(list[0].uThreadId, task.getThreadId());
      EXPECT_EQ(list[0].handle, task.getHandle());
      EXPECT_EQ(list[0].pThread, &task);
      EXPECT_FALSE(list[0].bDeleteOnExit);
      go.set();
      task.stop();
    }
  }
}

TEST(Thread, PrioritiesAndAffinityReachTheSystem) {
  JFlag go(true);
  Task task([&] {
    JThread::setCurrentPriority(-2);
    EXPECT_EQ(JThread::getCurrentPriority(), -2);
    go.wait();
  });
  go.reset();
  task.start(-1);
  untilAsleep(task);
  const int iOwnNice = getpriority(PRIO_PROCESS, 0);
  EXPECT_EQ(getpriority(PRIO_PROCESS, task.getThreadId()), std::min(iOwnNice + 10, 19));
  EXPECT_EQ(task.getPriority(), -2);
  task.setPriority(15);  // granted or not, no failure
  EXPECT_EQ(task.getPriority(), 15);
  EXPECT_EQ(JThread::getCurrentPriority(), 0);
  task.setAffinity(0xFFFFFFFF);
  EXPECT_EQ(systemFailureOf([&] { task.setAffinity(0); }), "SetThreadAffinityMask(0x0): 22");
  EXPECT_EQ(systemFailureOf([&] { JThread::setCurrentAffinity(0); }), "SetThreadAffinityMask(0x0): 22");
  go.set();
  task.stop();
  EXPECT_EQ(systemFailureOf([&] { task.setPriority(1); }), "SetThreadPriority: 3");
  EXPECT_EQ(systemFailureOf([&] { task.setAffinity(0xF0); }), "SetThreadAffinityMask(0xf0): 3");
  EXPECT_EQ(task.getPriority(), 0);
}

TEST(Thread, ManyComeAndGoWhileTheListIsRead) {
  std::atomic<bool> bEnd{false};
  std::atomic<int> runs{0};
  Crew reader({[&] {
    while (!bEnd) {
      for (const auto& info : JThread::getThreadList()) {
        EXPECT_NE(info.uThreadId, 0U);
      }
    }
  }});
  for (int i = 0; i < 200; ++i) {
    Crew crew({[&] { ++runs; }, [&] { ++runs; }});
    Task polled([&] { ++runs; });
    polled.start();
    polled.setName("renamed");
    while (!polled.isFinished()) {
      std::this_thread::yield();
    }
  }
  bEnd = true;
  reader.stop();
  EXPECT_EQ(runs, 600);
}

TEST(ThreadLocalStorage, HoldsAValueForEachThreadStartingAtNull) {
  int iMine = 0;
  int iOther = 0;
  for (int round = 0; round < 2; ++round) {  // the second round uses the slot again
    JThreadLocalStorage slot;
    EXPECT_EQ(slot.getValue(), nullptr);
    slot.setValue(&iMine);
    Crew({[&] {
      EXPECT_EQ(slot.getValue(), nullptr);
      slot.setValue(&iOther);
      EXPECT_EQ(slot.getValue(), &iOther);
    }}).stop();
    EXPECT_EQ(slot.getValue(), &iMine);
  }
}

TEST(ThreadLocalStorage, WithoutASlotIsInvalidAndSaysSo) {
  const LogCapture log;
  std::vector<std::unique_ptr<JThreadLocalStorage>> all;
  do {
    all.push_back(std::make_unique<JThreadLocalStorage>());
  } while (all.back()->isValid());
  EXPECT_THAT(all, SizeIs(4097));
  EXPECT_TRUE(log.has(9, "Maximum TLS indexes reached!"));
  EXPECT_EQ(systemFailureOf([&] { all.back()->getValue(); }), "cannot get TLS value...");
  EXPECT_TRUE(log.has(11, "ASSERTION FAILED (ERROR_SUCCESS==error)"));
  EXPECT_TRUE(log.has(11, format("Cannot get TLS value for thread %x (%u)!", JThread::getCurrentThreadId(),
                                 unsigned{EINVAL})));
  EXPECT_EQ(systemFailureOf([&] { all.back()->setValue(nullptr); }), "TlsSetValue: 22");
  all.clear();
  EXPECT_TRUE(JThreadLocalStorage().isValid());
}

}  // namespace
