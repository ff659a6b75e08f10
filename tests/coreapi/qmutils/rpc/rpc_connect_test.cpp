#include <condition_variable>
#include <future>
#include <gmock/gmock.h>
#include <mutex>
#include <string>
#include <vector>

#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/error/jrpcerror.h"
#include "coreapi/qmutils/params/jparams.h"
#include "coreapi/qmutils/rpc/jrpc.h"
#include "tests/coreapi/qmutils/rpc/scriptserver.h"
#include "tests/coreapi/qmutils/rpc/thrownby.h"
#include "tests/support/logcapture.h"

// The connect sequence, and the client's thread.

namespace {

using qm_test::ScriptPeer;
using qm_test::ScriptServer;
using qm_test::thrownBy;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr std::int32_t kLong = 60000;

JRPCClient::Settings settingsFor(std::int32_t iPort) {
  JRPCClient::Settings settings;
  settings.sHost = "127.0.0.1";
  settings.iPort = iPort;
  settings.bConnectNow = true;
  settings.bStartThread = false;
  settings.iPingPeriod = 0;
  return settings;
}

ScriptServer::Script versioned(const std::string& sAnswer) {
  return [sAnswer](ScriptPeer& peer) {
    peer.expect("getRPCVersion(nop=0)");
    peer.send(sAnswer + "\r\n");
    peer.awaitEnd();
  };
}

struct VersionCase {
  const char* name;
  std::string answer;
  JRPCVersion version;
};

TEST(RpcConnect, FindsOutTheServersVersion) {
  for (const VersionCase& row :
       {VersionCase{"Text", "OK RPCVersion=\"4.3\"", {4, 3}},
        VersionCase{"Number", "OK RPCVersion=4.2", {4, 2}}, VersionCase{"NoVersion", "OK ", {0, 0}},
        VersionCase{"NoFormOfOne", "OK RPCVersion=\"new\"", {0, 0}}}) {
    ScriptServer server({versioned(row.answer)});
    JRPCClient client(settingsFor(server.port()));
    EXPECT_TRUE(client.isConnected()) << row.name;
    EXPECT_EQ(client.getServerVersion(), row.version) << row.name;
    EXPECT_EQ(client.getRemoteName(), "127.0.0.1");
  }
}

struct OldServerCase {
  const char* name;
  const char* answer;
  JRPCVersion version;
};

/// The one test that uses the port of old servers, which is fixed.
TEST(RpcConnect, AsksOldServersOnTheirOwnPortAndGoesOnWithoutAVersionWhenThereIsNone) {
  for (const OldServerCase& row :
       {OldServerCase{"FourParts", "OK ProductVersion=\"2, 2, 6, 0\"", {2, 2}},
        OldServerCase{"Version", "OK ProductVersion=\"3.1\"", {3, 1}},
        OldServerCase{"ThreeParts", "OK ProductVersion=\"2, 2, 6\"", {0, 0}},
        OldServerCase{"Failed", "FAILED what?", {0, 0}}, OldServerCase{"Nothing", "OK ", {0, 0}}}) {
    ScriptServer old({[&row](ScriptPeer& peer) {
                       peer.expect("getVersionString(nop=0)");
                       peer.send(std::string(row.answer) + "\r\n");
                       peer.awaitEnd();
                     }},
                     4001);
    ScriptServer server({versioned("FAILED ProtocolError: unknown function 'getRPCVersion'")});
    JRPCClient client(settingsFor(server.port()));
    EXPECT_TRUE(client.isConnected()) << row.name;
    EXPECT_EQ(client.getServerVersion(), row.version) << row.name;
  }
  ScriptServer server({versioned("FAILED unknown")});
  JRPCClient client(settingsFor(server.port()));
  EXPECT_TRUE(client.isConnected());
  EXPECT_EQ(client.getServerVersion(), JRPCVersion{});
}

TEST(RpcConnect, AskingForTheVersionFailsTheConnectUnlessTheServerSaysFailed) {
  for (const char* szAnswer : {"nonsense", "OK x", "ok "}) {
    ScriptServer server({versioned(szAnswer)});
    auto settings = settingsFor(server.port());
    EXPECT_NE(thrownBy([&] { JRPCClient client(settings); }), "") << szAnswer;
    settings.bRetry = true;
    JRPCClient client(settings);
    EXPECT_FALSE(client.isConnected()) << szAnswer;
  }
}

TEST(RpcConnect, ARefusedConnectionIsTheConstructorsErrorUnlessItRetries) {
  auto settings = settingsFor(qm_test::closedPort());
  EXPECT_THAT(thrownBy([&] { JRPCClient client(settings); }), HasSubstr("actively refused"));
  settings.bRetry = true;
  JRPCClient client(settings);
  EXPECT_FALSE(client.isConnected());
  settings.iPort = 70000;
  EXPECT_EQ(thrownBy([&] {
              settings.bRetry = false;
              JRPCClient other(settings);
            }),
            "invalid port 70000");
}

TEST(RpcTunnel, AsksToBePassedOn) {
  ScriptServer tunnel({[](ScriptPeer& peer) {
    peer.expect("redirect(servicePort=12345)");
    peer.send("OK \r\n");
    peer.answerVersion("4.3");
    peer.awaitEnd();
  }});
  auto settings = settingsFor(12345);
  settings.iTunnelPort = tunnel.port();
  JRPCClient client(settings);
  EXPECT_EQ(client.getServerVersion(), (JRPCVersion{4, 3}));
}

TEST(RpcTunnel, ARefusedRedirectGoesOn) {
  ScriptServer tunnel({[](ScriptPeer& peer) {
    peer.expect("redirect(servicePort=12345)");
    peer.send("FAILED Service port does not exist\r\n");
    peer.answerVersion("4.3");
    peer.awaitEnd();
  }});
  auto settings = settingsFor(12345);
  settings.iTunnelPort = tunnel.port();
  JRPCClient client(settings);
  EXPECT_TRUE(client.isConnected());
}

TEST(RpcTunnel, ARefusingTunnelFallsBackToThePortWithoutRedirect) {
  ScriptServer server({versioned("OK RPCVersion=\"4.2\"")});
  auto settings = settingsFor(server.port());
  settings.iTunnelPort = qm_test::closedPort();
  JRPCClient client(settings);
  EXPECT_EQ(client.getServerVersion(), (JRPCVersion{4, 2}));
}

TEST(RpcTunnel, WhenBothRefuseTheFirstErrorIsTheCallers) {
  auto settings = settingsFor(70000);  // the direct attempt fails in another way
  settings.iTunnelPort = qm_test::closedPort();
  EXPECT_THAT(thrownBy([&] { JRPCClient client(settings); }), HasSubstr("actively refused"));
}

// The thread.

/// Keeps the events in order, and lets a test wait for so many.
class Events : public JRPCNotify {
 public:
  void linkUp() override { add("up"); }
  void linkDown(JError* pError) override { add("down: " + pError->getMessage()); }

  std::vector<std::string> waitFor(std::size_t uCount) {
    std::unique_lock lock(m_mutex);
    m_changed.wait(lock, [&] { return m_events.size() >= uCount; });
    return m_events;
  }

  std::vector<std::string> sofar() { return waitFor(0); }

 private:
  void add(const std::string& sEvent) {
    const std::lock_guard lock(m_mutex);
    m_events.push_back(sEvent);
    m_changed.notify_all();
  }

  std::mutex m_mutex;
  std::condition_variable m_changed;
  std::vector<std::string> m_events;
};

TEST(RpcThread, ReportsALinkThatComesUpAndALinkThatCannot) {
  ScriptServer server({versioned("OK RPCVersion=\"4.2\"")});
  auto settings = settingsFor(server.port());
  settings.bConnectNow = false;
  Events up;
  {
    JRPCClientNotify client(up, settings);
    EXPECT_THAT(up.waitFor(1), ElementsAre("up"));
    EXPECT_TRUE(client.isConnected());
  }
  EXPECT_THAT(up.sofar(), ElementsAre("up")) << "who ends the link isn't told that it is down";

  settings.iPort = qm_test::closedPort();
  Events down;
  JRPCClientNotify client(down, settings);
  EXPECT_THAT(down.waitFor(1), ElementsAre(HasSubstr("actively refused")));
  EXPECT_FALSE(client.isConnected());
}

TEST(RpcThread, AConnectInTheConstructorIsNoEvent) {
  ScriptServer server({versioned("OK RPCVersion=\"4.2\"")});
  Events events;
  { JRPCClientNotify client(events, settingsFor(server.port())); }
  EXPECT_THAT(events.sofar(), testing::IsEmpty());
}

struct PingCase {
  const char* name;
  const char* answer;
};

TEST(RpcThread, APingThatIsNotAnsweredByPongBreaksTheLink) {
  for (const PingCase& row : {PingCase{"LowerCase", "pong\r\n"}, PingCase{"Closed", ""}}) {
    ScriptServer server({[&row](ScriptPeer& peer) {
      peer.answerVersion();
      peer.expect("PING");
      peer.send("PONG\r\n");
      peer.expect("PING");
      peer.send(row.answer);
    }});
    auto settings = settingsFor(server.port());
    settings.bConnectNow = false;
    settings.iPingPeriod = 1000;
    Events events;
    JRPCClientNotify client(events, settings);
    EXPECT_THAT(events.waitFor(2), ElementsAre("up", "down: Connection Lost")) << row.name;
    EXPECT_FALSE(client.isConnected());
    EXPECT_EQ(client.getServerVersion(), JRPCVersion{});
  }
}

TEST(RpcThread, ARetryingLinkComesBackWithANewConnection) {
  ScriptServer server({[](ScriptPeer& peer) {
                         peer.answerVersion("4.2");
                         peer.expect("f()");
                       },
                       [](ScriptPeer& peer) {
                         peer.answerVersion("4.3");
                         peer.serve([](const std::string&) { return "OK n=1"; });
                       }});
  auto settings = settingsFor(server.port());
  settings.bConnectNow = false;
  settings.bRetry = true;
  Events events;
  JRPCClientNotify client(events, settings);
  EXPECT_THAT(events.waitFor(1), ElementsAre("up"));
  EXPECT_EQ(thrownBy([&] { client.call("f", nullptr, kLong); }), "Connection Lost");
  EXPECT_THAT(events.waitFor(3), ElementsAre("up", "down: Connection Lost", "up"));
  EXPECT_EQ(client.getServerVersion(), (JRPCVersion{4, 3}));
  std::int32_t iNumber = 0;
  client.call("f", nullptr, kLong)->get("n", iNumber);
  EXPECT_EQ(iNumber, 1);
}

class ThrowingEvents : public Events {
 public:
  void linkUp() override {
    Events::linkUp();
    QM_THROW(JTextError, "linkUp is cross");
  }
};

TEST(RpcThread, AnErrorOfTheReceiverIsReportedAndTheLinkStays) {
  ScriptServer server({[](ScriptPeer& peer) {
    peer.answerVersion();
    peer.serve([](const std::string&) { return "OK "; });
  }});
  auto settings = settingsFor(server.port());
  settings.bConnectNow = false;
  ThrowingEvents events;
  JRPCClientNotify client(events, settings);
  events.waitFor(1);
  EXPECT_TRUE(client.call("f", nullptr, kLong)->isEmpty());
}

// Shutting down must not wait for a time-out: each of these would hang for a minute.

TEST(RpcShutdown, InterruptsAConnectThatTheServerDoesNotAnswer) {
  std::promise<void> asked;
  ScriptServer server({[&](ScriptPeer& peer) {
    peer.expect("getRPCVersion(nop=0)");
    asked.set_value();
    peer.awaitEnd();
  }});
  auto settings = settingsFor(server.port());
  settings.bConnectNow = false;
  settings.iConnectTimeout = kLong;
  Events events;
  JRPCClientNotify client(events, settings);
  asked.get_future().wait();
  client.shutdown();
  EXPECT_THAT(events.sofar(), testing::IsEmpty());
}

TEST(RpcShutdown, InterruptsATcpConnectToAListenerThatIsFull) {
  // A listener with a full queue lets further connections hang.
  JTCPSocket listener;
  listener.bind(0);
  listener.listen(0);
  std::vector<std::unique_ptr<JTCPSocket>> fillers;
  for (int iFiller = 0; iFiller < 4; ++iFiller) {
    fillers.push_back(std::make_unique<JTCPSocket>());
    fillers.back()->setConnectTimeout(20);
    try {
      fillers.back()->connect(JInetAddr("127.0.0.1", listener.getLocalPort()));
    } catch (JError* pError) {
      const qm_err::CaughtError error(pError);
    }
  }
  auto settings = settingsFor(listener.getLocalPort());
  settings.bConnectNow = false;
  settings.iConnectTimeout = kLong;
  Events events;
  JRPCClientNotify client(events, settings);
  client.shutdown();
}

TEST(RpcShutdown, InterruptsAPing) {
  std::promise<void> pinged;
  ScriptServer server({[&](ScriptPeer& peer) {
    peer.answerVersion();
    peer.expect("PING");
    pinged.set_value();
    peer.awaitEnd();
  }});
  auto settings = settingsFor(server.port());
  settings.bConnectNow = false;
  settings.iPingPeriod = 1000;
  Events events;
  JRPCClientNotify client(events, settings);
  pinged.get_future().wait();
  client.shutdown();
  EXPECT_THAT(events.sofar(), ElementsAre("up"));
  EXPECT_FALSE(client.isConnected());
}

TEST(RpcShutdown, InterruptsACallOfAnotherThread) {
  std::promise<void> asked;
  ScriptServer server({[&](ScriptPeer& peer) {
    peer.answerVersion();
    peer.expect("f()");
    asked.set_value();
    peer.awaitEnd();
  }});
  JRPCClient client(settingsFor(server.port()));
  std::thread caller([&] { EXPECT_NE(thrownBy([&] { client.call("f", nullptr, -1); }), ""); });
  asked.get_future().wait();
  client.shutdown();
  caller.join();
}

}  // namespace
