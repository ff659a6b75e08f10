#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <future>
#include <gmock/gmock.h>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "coreapi/platform/faultseam.h"
#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/params/jparams.h"
#include "coreapi/qmutils/rpc/jrpccontroller.h"
#include "tests/coreapi/qmutils/rpc/scriptserver.h"
#include "tests/support/journal.h"
#include "tests/support/logcapture.h"

namespace {

using qm_test::ScriptPeer;
using qm_test::ScriptServer;
using testing::ElementsAre;

constexpr std::int32_t kLong = 60000;

ScriptServer::Script answering(const std::string& sVersion = "4.2") {
  return [sVersion](ScriptPeer& peer) {
    peer.answerVersion(sVersion);
    peer.serve([](const std::string& sLine) {
      return sLine == "PING" ? std::string("PONG") : "OK line=\"" + sLine + "\"";
    });
  };
}

/// Keeps the events in order; each says whether its link was still the controller's.
class Host : public JRPCNotifyWithContext, public qm_test::Journal<std::string> {
 public:
  void linkUp(JRPCController* pContext) override { note(pContext, "up"); }
  void linkDown(JRPCController* pContext, JError* pError) override {
    note(pContext, "down: " + pError->getMessage());
  }

  /// Events from now on wait until this ends.
  std::unique_lock<std::mutex> hold() { return std::unique_lock(m_gate); }

 private:
  void note(JRPCController* pContext, const std::string& sEvent) {
    const std::lock_guard gate(m_gate);
    const JAutoLock link(pContext->getLock());
    add(sEvent + (pContext->getEventClient() != nullptr ? "" : " (gone)"));
  }

  std::mutex m_gate;
};

class CountingHook : public JRPCHook {
 public:
  bool intercept(JRPCClient& /*client*/, std::string_view /*sRequest*/, const JRPCVersion& /*version*/,
                 std::string& /*sAnswer*/) override {
    ++iSeen;
    return false;
  }
  int iSeen = 0;
};

TEST(RpcController, ANonBlockingConnectTellsItsOutcomeByAnEvent) {
  ScriptServer server({answering("4.3")});
  CountingHook hook;
  Host host;
  JRPCController controller(&host, server.port(), "127.0.0.1");
  controller.setHook(&hook);
  std::string sParams = "untouched";
  EXPECT_EQ(controller.getStatus(), 0);
  EXPECT_EQ(controller.setParams("a=1"), -1);
  EXPECT_EQ(controller.getParams(sParams), -1);
  EXPECT_EQ(sParams, "untouched");
  EXPECT_EQ(controller.connect(), 0);
  EXPECT_THAT(host.await(1), ElementsAre("up"));
  EXPECT_EQ(controller.getStatus(), 2);
  std::int32_t iMajor = -1;
  std::int32_t iMinor = -1;
  EXPECT_EQ(controller.getServerVersion(iMajor, iMinor), 0);
  EXPECT_EQ(iMajor * 100 + iMinor, 403);
  EXPECT_EQ(controller.setParams(" a=1 "), 0);
  EXPECT_EQ(controller.getParams(sParams), 0);
  EXPECT_EQ(sParams, "line=\"getParams(nop=0)\"");
  EXPECT_EQ(hook.iSeen, 2) << "every call from the link-up on";
  controller.disconnect();
  EXPECT_EQ(controller.getStatus(), 0);
  EXPECT_EQ(controller.getServerVersion(iMajor, iMinor), -1);
  EXPECT_EQ(iMajor, 0);

  controller.setPort(qm_test::closedPort());
  EXPECT_EQ(controller.connect(), 0);
  EXPECT_THAT(host.await(2).back(),
              testing::AllOf(testing::StartsWith("down: "), testing::HasSubstr("actively refused")));
  EXPECT_EQ(controller.getStatus(), 0);
}

TEST(RpcController, ABlockingConnectTellsItsOutcomeByItsResult) {
  const qm_test::LogCapture log;
  ScriptServer server({answering()});
  Host host;
  JRPCController controller(&host, server.port(), "127.0.0.1", 0, kLong, true);
  // The first connect starts the event thread.
  qm_platform::armFaults({static_cast<std::uint32_t>(qm_platform::Seam::kThread), 1,
                          qm_platform::FaultKind::kError, EAGAIN, false});
  EXPECT_EQ(controller.connect(), -1);
  EXPECT_TRUE(qm_platform::disarmFaults());
  CountingHook hook;
  controller.setHook(&hook);
  EXPECT_EQ(controller.connect(), 0);
  EXPECT_EQ(controller.getStatus(), 2);
  EXPECT_EQ(controller.setParams("a=1"), 0);
  EXPECT_EQ(hook.iSeen, 1);
  controller.setPort(qm_test::closedPort());
  EXPECT_EQ(controller.connect(), -1);
  EXPECT_EQ(controller.getStatus(), 0);
  controller.shutDown();
  EXPECT_THAT(host.items(), testing::IsEmpty());
}

/// Gives the events of a client to a controller as the client's thread does. It has made and lost a link.
class OpenController : public JRPCController {
 public:
  explicit OpenController(JRPCNotifyWithContext* pNotify)
      : JRPCController(pNotify, qm_test::closedPort(), "127.0.0.1", 0, kLong, true) {
    connect();
  }
  using JRPCController::linkDown;
};

TEST(RpcController, ALinkDownWithoutAnErrorCarriesATextOfItsOwn) {
  Host host;
  OpenController controller(&host);
  controller.linkDown(nullptr);
  EXPECT_THAT(host.await(1), ElementsAre("down: Unknown error (gone)"));
}

TEST(RpcController, AnEventThatWasQueuedBeforeItsLinkEndedKnowsThatItIsGone) {
  std::promise<void> secondAsked;
  std::promise<void> goOn;
  ScriptServer server({answering(), [&](ScriptPeer& peer) {
                         secondAsked.set_value();
                         goOn.get_future().wait();
                         answering()(peer);
                       }});
  Host host;
  JRPCController controller(&host, server.port(), "127.0.0.1", 0, kLong);
  auto held = host.hold();
  controller.connect();
  // A call can only be answered when the link is up and its event is posted or about to be.
  while (controller.getStatus() != 2) {
    std::this_thread::yield();
  }
  controller.connect();
  secondAsked.get_future().wait();
  held.unlock();
  EXPECT_THAT(host.await(1), ElementsAre("up (gone)"));
  goOn.set_value();
  EXPECT_THAT(host.await(2), ElementsAre("up (gone)", "up"));
  held = host.hold();
  controller.disconnect();
  held.unlock();
  controller.shutDown();
  EXPECT_EQ(host.items().size(), 2U);
}

/// A host that calls back into the controller from inside its events.
class Reconnecting : public JRPCNotifyWithContext {
 public:
  void linkUp(JRPCController* pContext) override {
    pContext->disconnect();
    if (++m_iUps == 20) {
      done.set_value();
    } else {
      pContext->connect();
    }
  }
  void linkDown(JRPCController* /*pContext*/, JError* /*pError*/) override {}

  std::promise<void> done;

 private:
  int m_iUps = 0;
};

TEST(RpcController, ItsEventsMayCallBackIn) {
  ScriptServer server({answering()});
  Reconnecting host;
  JRPCController controller(&host, server.port(), "127.0.0.1");
  controller.connect();
  host.done.get_future().wait();
}

// Cycles. Run under the thread sanitizer these are what proves the locking.

/// Treats each connection in another way: serves it, resets it at once, closes it after the request, stalls,
/// closes it in mid answer, answers nonsense, or floods it with a line that has no end.
void serveByMood(ScriptPeer& peer) {
  static std::atomic<unsigned> s_uMood{0};
  const auto answerOnce = [&peer](const std::string& sBytes) {
    peer.line();
    peer.send(sBytes);
  };
  switch (s_uMood++ % 7) {
    case 0:
      return peer.serve([](const std::string&) { return "OK RPCVersion=\"4.2\""; });
    case 1:
      return peer.resetOnClose();
    case 2:
      return answerOnce("");
    case 3:
      return peer.awaitEnd();
    case 4:
      return answerOnce("OK RPCVersion=\"4");
    case 5:
      return answerOnce("nonsense\r\n");
    default:
      return answerOnce(std::string(100'000, 'x'));
  }
}

/// What the process holds.
struct Holdings {
  std::size_t uDescriptors = 0;
  std::size_t uThreads = 0;
  std::size_t uKilobytes = 0;
};

Holdings holdings() {
  Holdings now;
  const auto count = [](const char* szPath) {
    return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(szPath), {}));
  };
  now.uDescriptors = count("/proc/self/fd");
  now.uThreads = count("/proc/self/task");
  std::ifstream status("/proc/self/status");
  for (std::string sWord; status >> sWord;) {
    if (sWord == "VmRSS:") {
      status >> now.uKilobytes;
    }
  }
  return now;
}

/// Looks where an event comes from, and keeps nothing.
class IdleHost : public JRPCNotifyWithContext {
 public:
  void linkUp(JRPCController* pContext) override { look(pContext); }
  void linkDown(JRPCController* pContext, JError* /*pError*/) override { look(pContext); }

 private:
  static void look(JRPCController* pContext) {
    const JAutoLock lock(pContext->getLock());
    const JRPCClient* const pClient = pContext->getEventClient();
    EXPECT_TRUE(pClient == nullptr || pClient == pContext->getClient());
  }
};

/// Connects and disconnects from several threads at once, at every phase of a connect, against a server of
/// all moods. It must end, leave nothing of a link, and leave the controller as good as new. With
/// QM_LINK_CYCLES in the environment there are that many cycles, the holdings are printed, and memory that
/// goes on growing is a failure, too.
TEST(RpcController, ThousandsOfConnectsAndDisconnectsFromManyThreadsLeaveNothing) {
  constexpr int kThreads = 3;
  constexpr int kRounds = 10;
  const char* const szCycles = std::getenv("QM_LINK_CYCLES");
  const int iCycles = (szCycles != nullptr ? std::atoi(szCycles) : 2100) / (kThreads * kRounds);
  ScriptServer server({serveByMood});
  IdleHost idle;
  JRPCController controller(&idle, server.port(), "127.0.0.1", 0, kLong);
  Holdings first;
  for (int iRound = 0; iRound < kRounds; ++iRound) {
    std::vector<std::thread> threads;
    for (int iThread = 0; iThread < kThreads; ++iThread) {
      threads.emplace_back([&, iThread] {
        for (int iCycle = 0; iCycle < iCycles; ++iCycle) {
          controller.connect();
          for (int iSpin = 0; iSpin < (iCycle * 7 + iThread * 13) % 40; ++iSpin) {
            controller.getStatus();
            std::this_thread::yield();
          }
          if (iCycle % 3 != 0) {
            controller.disconnect();
          }
        }
      });
    }
    for (std::thread& thread : threads) {
      thread.join();
    }
    controller.disconnect();
    EXPECT_EQ(controller.getStatus(), 0);
    EXPECT_EQ(controller.getClient(), nullptr);
    server.awaitIdle();
    Holdings now = holdings();
    first = iRound == 0 ? now : first;
    for (int iLook = 0; iLook < 1000 && now.uThreads > first.uThreads; ++iLook) {
      now = holdings();  // the system lists a thread for a moment longer than it lives
    }
    EXPECT_LE(now.uDescriptors, first.uDescriptors);
    EXPECT_LE(now.uThreads, first.uThreads);
    if (szCycles != nullptr) {
      std::printf("%6d cycles, %zu connections: %zu descriptors, %zu threads, %zu KiB\n",
                  (iRound + 1) * kThreads * iCycles, server.accepted(), now.uDescriptors, now.uThreads,
                  now.uKilobytes);
      EXPECT_LT(now.uKilobytes, first.uKilobytes + 2048);
    }
  }

  ScriptServer friendly({answering()});
  controller.setPort(friendly.port());
  Host host;
  controller.setNotify(&host);
  std::vector<std::string> events;
  controller.connect();
  do {
    events = host.await(events.size() + 1);
  } while (events.back() != "up");  // what was still queued is of links that are gone
  EXPECT_EQ(controller.setParams("a=1"), 0);
  controller.shutDown();
  EXPECT_EQ(controller.connect(), -1);
}

}  // namespace
