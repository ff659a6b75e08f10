#include <atomic>
#include <condition_variable>
#include <future>
#include <gmock/gmock.h>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/params/jparams.h"
#include "coreapi/qmutils/rpc/jrpccontroller.h"
#include "tests/coreapi/qmutils/rpc/scriptserver.h"
#include "tests/support/logcapture.h"

namespace {

using qm_test::ScriptPeer;
using qm_test::ScriptServer;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

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
class Host : public JRPCNotifyWithContext {
 public:
  void linkUp(JRPCController* pContext) override { add(pContext, "up"); }
  void linkDown(JRPCController* pContext, JError* pError) override {
    add(pContext, "down: " + pError->getMessage());
  }

  std::vector<std::string> waitFor(std::size_t uCount) {
    std::unique_lock lock(m_mutex);
    m_changed.wait(lock, [&] { return m_events.size() >= uCount; });
    return m_events;
  }
  std::vector<std::string> sofar() { return waitFor(0); }

  /// Events from now on wait until this ends.
  std::unique_lock<std::mutex> hold() { return std::unique_lock(m_gate); }

 private:
  void add(JRPCController* pContext, const std::string& sEvent) {
    const std::lock_guard gate(m_gate);
    const JAutoLock link(pContext->getLock());
    const JRPCClient* const pClient = pContext->getEventClient();
    const std::lock_guard lock(m_mutex);
    m_events.push_back(sEvent + (pClient != nullptr ? "" : " (gone)"));
    m_changed.notify_all();
  }

  std::mutex m_gate;
  std::mutex m_mutex;
  std::condition_variable m_changed;
  std::vector<std::string> m_events;
};

TEST(RpcController, ANonBlockingConnectTellsItsOutcomeByAnEvent) {
  ScriptServer server({answering("4.3")});
  Host host;
  JRPCController controller(&host, server.port(), "127.0.0.1");
  EXPECT_EQ(controller.getStatus(), 0);
  EXPECT_EQ(controller.connect(), 0);
  EXPECT_THAT(host.waitFor(1), ElementsAre("up"));
  EXPECT_EQ(controller.getStatus(), 2);
  std::int32_t iMajor = -1;
  std::int32_t iMinor = -1;
  EXPECT_EQ(controller.getServerVersion(iMajor, iMinor), 0);
  EXPECT_EQ(iMajor, 4);
  EXPECT_EQ(iMinor, 3);
  controller.disconnect();
  EXPECT_EQ(controller.getStatus(), 0);
  EXPECT_EQ(controller.getServerVersion(iMajor, iMinor), -1);
  EXPECT_EQ(iMajor, 0);

  controller.setPort(qm_test::closedPort());
  EXPECT_EQ(controller.connect(), 0);
  EXPECT_THAT(host.waitFor(2).back(), AllOf(StartsWith("down: "), HasSubstr("actively refused")));
  EXPECT_EQ(controller.getStatus(), 0);
}

TEST(RpcController, ABlockingConnectTellsItsOutcomeByItsResult) {
  const qm_test::LogCapture log;
  ScriptServer server({answering()});
  Host host;
  JRPCController controller(&host, server.port(), "127.0.0.1", 0, kLong, true);
  EXPECT_EQ(controller.connect(), 0);
  EXPECT_EQ(controller.getStatus(), 2);
  controller.setPort(qm_test::closedPort());
  EXPECT_EQ(controller.connect(), -1);
  EXPECT_EQ(controller.getStatus(), 0);
  controller.shutDown();
  EXPECT_THAT(host.sofar(), IsEmpty());
}

TEST(RpcController, ParametersGoToTheServerAsTheyAre) {
  ScriptServer server({answering()});
  JRPCController controller(nullptr, server.port(), "127.0.0.1", 0, kLong, true);
  std::string sParams = "untouched";
  EXPECT_EQ(controller.setParams("a=1"), -1);
  EXPECT_EQ(controller.getParams(sParams), -1);
  EXPECT_EQ(sParams, "untouched");
  ASSERT_EQ(controller.connect(), 0);
  EXPECT_EQ(controller.setParams(" a=1 "), 0);
  EXPECT_EQ(controller.getParams(sParams), 0);
  EXPECT_EQ(sParams, "line=\"getParams(nop=0)\"");
}

TEST(RpcController, ALostLinkIsTold) {
  ScriptServer server({[](ScriptPeer& peer) { peer.answerVersion(); }});
  Host host;
  JRPCController controller(&host, server.port(), "127.0.0.1");
  controller.connect();
  // The ping that finds it comes after five seconds.
  EXPECT_THAT(host.waitFor(2), ElementsAre("up", "down: Connection Lost"));
  EXPECT_EQ(controller.getStatus(), 0);
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
  EXPECT_THAT(host.waitFor(1), ElementsAre("down: Unknown error (gone)"));
}

TEST(RpcController, AFullQueueRefusesAnEventAndKeepsTheOthers) {
  Host host;
  OpenController controller(&host);
  auto held = host.hold();
  int iPosted = 0;
  try {
    for (; iPosted < 2 * JRPCController::kMaxEvents; ++iPosted) {
      controller.linkDown(nullptr);
    }
    FAIL() << "no limit";
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    EXPECT_THAT(error->getMessage(), HasSubstr("ReleaseSemaphore"));
  }
  held.unlock();
  EXPECT_EQ(host.waitFor(static_cast<std::size_t>(iPosted)).size(), static_cast<std::size_t>(iPosted));
  EXPECT_GE(iPosted, JRPCController::kMaxEvents);
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
  EXPECT_THAT(host.waitFor(1), ElementsAre("up (gone)"));
  goOn.set_value();
  EXPECT_THAT(host.waitFor(2), ElementsAre("up (gone)", "up"));
  held = host.hold();
  controller.disconnect();
  held.unlock();
  controller.shutDown();
  EXPECT_EQ(host.sofar().size(), 2U);
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

class CountingHook : public JRPCHook {
 public:
  bool intercept(JRPCClient& /*client*/, std::string_view /*sRequest*/, const JRPCVersion& /*version*/,
                 std::string& /*sAnswer*/) override {
    ++iSeen;
    return false;
  }
  std::atomic<int> iSeen{0};
};

TEST(RpcController, TheHookSeesCallsFromTheLinkUpOn) {
  ScriptServer server({answering()});
  CountingHook hook;
  Host host;
  JRPCController controller(&host, server.port(), "127.0.0.1");
  controller.setHook(&hook);
  for (const bool bBlocking : {false, true}) {
    hook.iSeen = 0;
    controller.setBlocking(bBlocking);
    controller.connect();
    host.waitFor(1);
    EXPECT_EQ(controller.setParams("a=1"), 0);
    EXPECT_EQ(hook.iSeen, 1);
  }
}

// Cycles. Run under the thread sanitizer these are what proves the locking.

/// A server that treats each connection in another way: serves it, resets it at once, closes it after the
/// request, stalls, closes it in mid answer, or answers nonsense.
std::vector<ScriptServer::Script> moods(std::size_t uCount) {
  const std::vector<ScriptServer::Script> kinds = {[](ScriptPeer& peer) {
                                                     peer.serve([](const std::string& sLine) {
                                                       return sLine == "PING" ? "PONG"
                                                                              : "OK RPCVersion=\"4.2\"";
                                                     });
                                                   },
                                                   [](ScriptPeer& peer) { peer.resetOnClose(); },
                                                   [](ScriptPeer& peer) { peer.line(); },
                                                   [](ScriptPeer& peer) { peer.awaitEnd(); },
                                                   [](ScriptPeer& peer) {
                                                     peer.line();
                                                     peer.send("OK RPCVersion=\"4");
                                                   },
                                                   [](ScriptPeer& peer) {
                                                     peer.line();
                                                     peer.send("nonsense\r\n");
                                                   }};
  std::vector<ScriptServer::Script> scripts;
  for (std::size_t uScript = 0; uScript < uCount; ++uScript) {
    scripts.push_back(kinds[uScript % kinds.size()]);
  }
  return scripts;
}

/// Connects and disconnects from several threads at once, at every phase of a connect, against a server of
/// all moods. It must end, leave nothing of a link, and leave the controller as good as new.
TEST(RpcController, ThousandsOfConnectsAndDisconnectsFromManyThreadsEnd) {
  constexpr int kThreads = 3;
  constexpr int kCycles = 700;
  const qm_test::LogCapture log;
  ScriptServer server(moods(kThreads * kCycles * 2));
  Host host;
  JRPCController controller(&host, server.port(), "127.0.0.1", 0, kLong);
  std::vector<std::thread> threads;
  for (int iThread = 0; iThread < kThreads; ++iThread) {
    threads.emplace_back([&, iThread] {
      for (int iCycle = 0; iCycle < kCycles; ++iCycle) {
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

  ScriptServer friendly({answering()});
  controller.setPort(friendly.port());
  std::vector<std::string> events = host.sofar();
  controller.connect();
  do {
    events = host.waitFor(events.size() + 1);
  } while (events.back() != "up");  // what was still queued is of links that are gone
  EXPECT_EQ(controller.setParams("a=1"), 0);
  EXPECT_EQ(controller.getStatus(), 2);
  controller.shutDown();
  EXPECT_EQ(controller.connect(), -1);
}

}  // namespace
