#include <future>
#include <gmock/gmock.h>
#include <string>
#include <vector>

#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/error/jrpcerror.h"
#include "coreapi/qmutils/params/jparams.h"
#include "coreapi/qmutils/rpc/jrpc.h"
#include "tests/coreapi/qmutils/rpc/scriptserver.h"
#include "tests/support/journal.h"
#include "tests/support/thrownby.h"

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

JRPCClient::Settings inBackground(std::int32_t iPort) {
  JRPCClient::Settings settings = settingsFor(iPort);
  settings.bConnectNow = false;
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
  std::string oldAnswer;  ///< of the port of old servers, which is fixed; empty when nobody listens there
  JRPCVersion version;
};

TEST(RpcConnect, FindsOutTheServersVersionAndGoesOnWithoutOne) {
  const std::string sUnknown = "FAILED ProtocolError: unknown function 'getRPCVersion'";
  for (const VersionCase& row :
       {VersionCase{"Text", "OK RPCVersion=\"4.3\"", "", {4, 3}},
        VersionCase{"Number", "OK RPCVersion=4.2", "", {4, 2}}, VersionCase{"NoVersion", "OK ", "", {}},
        VersionCase{"NoFormOfOne", "OK RPCVersion=\"new\"", "", {}},
        VersionCase{"OldFourParts", sUnknown, "OK ProductVersion=\"2, 2, 6, 0\"", {2, 2}},
        VersionCase{"OldVersion", sUnknown, "OK ProductVersion=\"3.1\"", {3, 1}},
        VersionCase{"OldThreeParts", sUnknown, "OK ProductVersion=\"2, 2, 6\"", {}},
        VersionCase{"OldFailed", sUnknown, "FAILED what?", {}}, VersionCase{"NoOld", sUnknown, "", {}}}) {
    std::unique_ptr<ScriptServer> pOld;
    if (!row.oldAnswer.empty()) {
      pOld = std::make_unique<ScriptServer>(std::vector<ScriptServer::Script>{[&row](ScriptPeer& peer) {
                                              peer.expect("getVersionString(nop=0)");
                                              peer.send(row.oldAnswer + "\r\n");
                                              peer.awaitEnd();
                                            }},
                                            4001);
    }
    ScriptServer server({versioned(row.answer)});
    JRPCClient client(settingsFor(server.port()));
    EXPECT_TRUE(client.isConnected()) << row.name;
    EXPECT_EQ(client.getServerVersion(), row.version) << row.name;
    EXPECT_EQ(client.getRemoteName(), "127.0.0.1");
  }
}

TEST(RpcConnect, AFailureIsTheConstructorsUnlessTheClientRetries) {
  const auto expectFailure = [](JRPCClient::Settings settings, const std::string& sError) {
    EXPECT_THAT(thrownBy([&] { JRPCClient client(settings); }), HasSubstr(sError));
    settings.bRetry = true;
    JRPCClient client(settings);
    EXPECT_FALSE(client.isConnected()) << sError;
    EXPECT_EQ(thrownBy([&] { client.call("f", nullptr, kLong); }), "Connection Lost");
    EXPECT_EQ(thrownBy([&] { client.notify("f", nullptr); }), "Connection Lost");
  };
  expectFailure(settingsFor(qm_test::closedPort()), "actively refused");
  expectFailure(settingsFor(70000), "invalid port 70000");
  for (const char* szAnswer : {"nonsense", "OK x", "ok "}) {
    ScriptServer server({versioned(szAnswer)});
    expectFailure(settingsFor(server.port()), "");
  }
}

TEST(RpcTunnel, AsksToBePassedOnAndGoesOnWhenItIsRefused) {
  for (const char* szAnswer : {"OK ", "FAILED Service port does not exist"}) {
    ScriptServer tunnel({[szAnswer](ScriptPeer& peer) {
      peer.expect("redirect(servicePort=12345)");
      peer.send(std::string(szAnswer) + "\r\n");
      peer.answerVersion("4.3");
      peer.awaitEnd();
    }});
    auto settings = settingsFor(12345);
    settings.iTunnelPort = tunnel.port();
    JRPCClient client(settings);
    EXPECT_TRUE(client.isConnected()) << szAnswer;
    EXPECT_EQ(client.getServerVersion(), (JRPCVersion{4, 3})) << szAnswer;
  }
}

TEST(RpcTunnel, ARefusingTunnelFallsBackToThePortWithoutRedirect) {
  ScriptServer server({versioned("OK RPCVersion=\"4.2\"")});
  auto settings = settingsFor(server.port());
  settings.iTunnelPort = qm_test::closedPort();
  JRPCClient client(settings);
  EXPECT_EQ(client.getServerVersion(), (JRPCVersion{4, 2}));
  settings.iPort = 70000;  // the direct attempt fails in another way
  EXPECT_THAT(thrownBy([&] { JRPCClient failing(settings); }), HasSubstr("actively refused"))
      << "the first error is the caller's";
}

// The thread.

class Events : public JRPCNotify, public qm_test::Journal<std::string> {
 public:
  void linkUp() override { add("up"); }
  void linkDown(JError* pError) override { add("down: " + pError->getMessage()); }
};

TEST(RpcThread, ReportsALinkThatComesUpAndALinkThatCannot) {
  ScriptServer server({versioned("OK RPCVersion=\"4.2\"")});
  Events up;
  {
    JRPCClientNotify client(up, inBackground(server.port()));
    EXPECT_THAT(up.await(1), ElementsAre("up"));
    EXPECT_TRUE(client.isConnected());
  }
  { JRPCClientNotify client(up, settingsFor(server.port())); }
  EXPECT_THAT(up.items(), ElementsAre("up")) << "neither a connect in the constructor nor an end is an event";

  Events down;
  JRPCClientNotify client(down, inBackground(qm_test::closedPort()));
  EXPECT_THAT(down.await(1), ElementsAre(HasSubstr("actively refused")));
  EXPECT_FALSE(client.isConnected());
}

TEST(RpcThread, APingThatIsNotAnsweredByPongBreaksTheLink) {
  for (const char* szAnswer : {"pong\r\n", ""}) {
    ScriptServer server({[szAnswer](ScriptPeer& peer) {
      peer.answerVersion();
      peer.expect("PING");
      peer.send("PONG\r\n");
      peer.expect("PING");
      peer.send(szAnswer);
    }});
    auto settings = inBackground(server.port());
    settings.iPingPeriod = 1000;
    Events events;
    JRPCClientNotify client(events, settings);
    EXPECT_THAT(events.await(2), ElementsAre("up", "down: Connection Lost")) << szAnswer;
    EXPECT_FALSE(client.isConnected());
    EXPECT_EQ(client.getServerVersion(), JRPCVersion{});
  }
}

/// What it throws is reported, and changes nothing.
class ThrowingEvents : public Events {
 public:
  void linkUp() override {
    Events::linkUp();
    QM_THROW(JTextError, "linkUp is cross");
  }
};

TEST(RpcThread, ARetryingLinkComesBackWithANewConnection) {
  ScriptServer server({[](ScriptPeer& peer) {
                         peer.answerVersion("4.2");
                         peer.expect("f()");
                       },
                       [](ScriptPeer& peer) {
                         peer.answerVersion("4.3");
                         peer.serve([](const std::string&) { return "OK n=1"; });
                       }});
  auto settings = inBackground(server.port());
  settings.bRetry = true;
  ThrowingEvents events;
  JRPCClientNotify client(events, settings);
  EXPECT_THAT(events.await(1), ElementsAre("up"));
  EXPECT_EQ(thrownBy([&] { client.call("f", nullptr, kLong); }), "Connection Lost");
  EXPECT_THAT(events.await(3), ElementsAre("up", "down: Connection Lost", "up"));
  EXPECT_EQ(client.getServerVersion(), (JRPCVersion{4, 3}));
  std::int32_t iNumber = 0;
  client.call("f", nullptr, kLong)->get("n", iNumber);
  EXPECT_EQ(iNumber, 1);
}

// Shutting down must not wait for a time-out: each of these would hang for a minute.

TEST(RpcShutdown, InterruptsAConnectAPingAndACallThatTheServerDoesNotAnswer) {
  for (const char* szStall : {"getRPCVersion(nop=0)", "PING", "f()"}) {
    std::promise<void> asked;
    ScriptServer server({[&](ScriptPeer& peer) {
      for (std::string sLine = peer.line(); sLine != szStall; sLine = peer.line()) {
        peer.send("OK \r\n");
      }
      asked.set_value();
      peer.awaitEnd();
    }});
    auto settings = inBackground(server.port());
    settings.iConnectTimeout = kLong;
    settings.iPingPeriod = szStall == std::string("PING") ? 1000 : 0;
    Events events;
    JRPCClientNotify client(events, settings);
    std::thread caller([&] {
      if (szStall == std::string("f()")) {
        events.await(1);
        EXPECT_NE(thrownBy([&] { client.call("f", nullptr, -1); }), "");
      }
    });
    asked.get_future().wait();
    client.shutdown();
    caller.join();
    EXPECT_FALSE(client.isConnected());
    EXPECT_LE(events.items().size(), 1U) << szStall << ": who ends the link isn't told that it is down";
  }
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
    thrownBy([&] { fillers.back()->connect(JInetAddr("127.0.0.1", listener.getLocalPort())); });
  }
  auto settings = inBackground(listener.getLocalPort());
  settings.iConnectTimeout = kLong;
  Events events;
  JRPCClientNotify client(events, settings);
  client.shutdown();
}

}  // namespace
