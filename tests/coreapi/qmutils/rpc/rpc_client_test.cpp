#include <atomic>
#include <future>
#include <gmock/gmock.h>
#include <string>
#include <vector>

#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/error/jrpcerror.h"
#include "coreapi/qmutils/params/jparams.h"
#include "coreapi/qmutils/params/jvariant.h"
#include "coreapi/qmutils/rpc/jrpc.h"
#include "coreapi/qmutils/socket/jsockaddr.h"
#include "tests/coreapi/qmutils/rpc/scriptserver.h"
#include "tests/coreapi/qmutils/rpc/thrownby.h"
#include "tests/support/logcapture.h"
#include "tests/support/tcpfaultproxy.h"

// Calls over a connection, against servers of a few lines.

namespace {

using qm_test::ScriptPeer;
using qm_test::ScriptServer;
using qm_test::thrownBy;
using testing::HasSubstr;

constexpr std::int32_t kForever = -1;
constexpr std::int32_t kShort = 50;

/// A client on a connection of its own to a port, without thread, retry or connect sequence.
std::unique_ptr<JRPCClient> attach(std::uint16_t uPort) {
  return std::make_unique<JRPCClient>(std::make_unique<JTCPSocket>(JInetAddr("127.0.0.1", uPort)));
}

std::string call(JRPCClient& client, const char* szName, std::int32_t iTimeout = kForever) {
  std::string sAnswer;
  client.call(szName, std::string_view(), sAnswer, iTimeout);
  return sAnswer;
}

TEST(RpcCall, SendsEveryFormOfParametersAndGivesEveryFormOfAnswer) {
  ScriptServer server({[](ScriptPeer& peer) {
    peer.expect("f(Params=\"a=1\", Fps=25)");
    peer.send("OK b=2, a=1\r\n");
    peer.expect("f(Params=\"a=1\", Fps=25)");
    peer.send("OK b=2, a=1\r\n");
    peer.expect("g( x = 1 )");
    peer.send("OK \n");
    peer.expect("g( x = 1 )");
    peer.send("OK \n");
    peer.expect("h(Fps=25,Fps=25)");
    peer.send("OK c=3\r\n");
    peer.expect("h(Fps=25,Fps=25)");
    peer.send("OK c=3\r\n");
    peer.awaitEnd();
  }});
  const auto pClient = attach(server.port());
  JVariant fps("Fps", 25);
  JVariant params("Params", "a=1");
  const JVariant& head = fps.link(params);
  std::string sText;
  pClient->call("f", &head, kForever)->toText(sText);
  EXPECT_EQ(sText, "a=1, b=2");
  pClient->call("f", &head, sText, kForever);
  EXPECT_EQ(sText, "b=2, a=1") << "as the server wrote it";
  EXPECT_TRUE(pClient->call("g", " x = 1 ", kForever)->isEmpty());
  pClient->call("g", " x = 1 ", sText, kForever);
  EXPECT_EQ(sText, "");
  const std::vector<const JVariant*> chains = {&fps, &fps};
  pClient->call("h", chains, kForever)->toText(sText);
  EXPECT_EQ(sText, "c=3");
  pClient->call("h", chains, sText, kForever);
  EXPECT_EQ(sText, "c=3");
}

TEST(RpcCall, AnswersInPiecesAndInOneSegmentAreTheSame) {
  ScriptServer server({[](ScriptPeer& peer) {
    peer.line();
    for (const char cByte : std::string("OK a=1\r\n")) {
      peer.send({&cByte, 1});
    }
    peer.line();
    peer.send("OK a=2\r\nOK a=3\r\n");
    peer.awaitEnd();
  }});
  const auto pClient = attach(server.port());
  EXPECT_EQ(call(*pClient, "f"), "a=1");
  EXPECT_EQ(call(*pClient, "f"), "a=2");
  EXPECT_EQ(call(*pClient, "f"), "a=3");
}

struct FailureCase {
  const char* name;
  std::string answer;
  const char* error;
};

void PrintTo(const FailureCase& row, std::ostream* out) {
  *out << row.name;
}

class RpcCallFailure : public testing::TestWithParam<FailureCase> {};

TEST_P(RpcCallFailure, IsTheCallersAndLeavesTheLinkGood) {
  ScriptServer server({[](ScriptPeer& peer) {
    peer.line();
    peer.send(GetParam().answer + "\r\n");
    peer.expect("g()");
    peer.send("OK a=1\r\n");
    peer.awaitEnd();
  }});
  const auto pClient = attach(server.port());
  EXPECT_THAT(thrownBy([&] { pClient->call("f", nullptr, kForever); }), GetParam().error);
  EXPECT_TRUE(pClient->isConnected());
  EXPECT_EQ(call(*pClient, "g"), "a=1");
}

INSTANTIATE_TEST_SUITE_P(
    Rpc, RpcCallFailure,
    testing::Values(FailureCase{"Failed", "FAILED no such source", "FAILED no such source"},
                    FailureCase{"NoBlank", "OK", "ProtocolError: f '???'"},
                    FailureCase{"Empty", "", "ProtocolError: f '???'"},
                    FailureCase{"Nul", std::string("OK a=\0", 6), "ProtocolError: f '???'"},
                    FailureCase{"NoList", "OK a",
                                "SyntaxError for parameter: 'a' ('garbage instead of "
                                "'='')"}));

TEST(RpcCall, ATextThatBreaksTheLineIsNeverSent) {
  ScriptServer server({[](ScriptPeer& peer) {
    peer.expect("g()");
    peer.send("OK \r\n");
    peer.awaitEnd();
  }});
  const auto pClient = attach(server.port());
  for (const std::string_view sText :
       {std::string_view("a=1)\r\nerase("), std::string_view("a=\n"), std::string_view("a=\0", 3)}) {
    EXPECT_THAT(thrownBy([&] { pClient->call("setParams", sText, kForever); }), HasSubstr("line break"));
  }
  EXPECT_EQ(call(*pClient, "g"), "");
}

TEST(RpcCall, APeerThatClosesInMidAnswerIsAProtocolError) {
  for (const char* szHalf : {"", "OK a=1", "OK a=1\r"}) {
    ScriptServer server({[szHalf](ScriptPeer& peer) {
      peer.line();
      peer.send(szHalf);
    }});
    const auto pClient = attach(server.port());
    EXPECT_EQ(thrownBy([&] { call(*pClient, "f"); }), "ProtocolError: f '???'");
  }
}

TEST(RpcCall, AnUnconnectedClientSendsNothing) {
  JRPCClient::Settings settings;
  settings.bStartThread = false;
  JRPCClient client(settings);
  EXPECT_EQ(thrownBy([&] { call(client, "f"); }), "Connection Lost");
  EXPECT_EQ(thrownBy([&] { client.notify("f", nullptr); }), "Connection Lost");
}

/// The server answers each request late, when the next two have been sent.
TEST(RpcTimeout, ALateAnswerIsNeverTakenForAnothers) {
  std::promise<void> secondSent;
  ScriptServer server({[&](ScriptPeer& peer) {
    peer.expect("first()");
    peer.expect("second()");
    peer.send("OK n=1\r\nOK ");
    peer.expect("third()");
    peer.send("n=2\r\nOK n=3\r\n");
    peer.expect("fourth()");
    peer.send("OK n=4\r\n");
    peer.awaitEnd();
  }});
  const auto pClient = attach(server.port());
  EXPECT_EQ(thrownBy([&] { call(*pClient, "first", kShort); }), "Time out!");
  EXPECT_TRUE(pClient->isConnected());
  EXPECT_EQ(thrownBy([&] { call(*pClient, "second", kShort); }), "Time out!");
  EXPECT_EQ(call(*pClient, "third"), "n=3");
  EXPECT_EQ(call(*pClient, "fourth"), "n=4");
}

TEST(RpcTimeout, AFailedLateAnswerIsDroppedToo) {
  ScriptServer server({[](ScriptPeer& peer) {
    peer.expect("first()");
    peer.expect("second()");
    peer.send("FAILED late\r\nOK n=2\r\n");
    peer.awaitEnd();
  }});
  const auto pClient = attach(server.port());
  EXPECT_EQ(thrownBy([&] { call(*pClient, "first", kShort); }), "Time out!");
  EXPECT_EQ(call(*pClient, "second"), "n=2");
}

TEST(RpcTimeout, BoundsTheWaitForAnAnswerThatDrips) {
  ScriptServer server({[](ScriptPeer& peer) {
    peer.serve([](const std::string&) { return "OK " + std::string(1U << 20, ' '); });
  }});
  qm_test::TcpFaultProxy proxy(server.port());
  qm_test::FaultRule drip;
  drip.chunk = 1;
  drip.delay = std::chrono::milliseconds(5);
  proxy.setRules({}, drip);
  const auto pClient = attach(proxy.port());
  EXPECT_EQ(thrownBy([&] { call(*pClient, "f", 4 * kShort); }), "Time out!");
}

TEST(RpcTimeout, ALongAnswerThatKeepsComingIsTakenWhole) {
  const std::string sLong(16 * JLineIO::kRenewalBytes, 'x');
  ScriptServer server(
      {[&](ScriptPeer& peer) { peer.serve([&](const std::string&) { return "OK a=\"" + sLong + "\""; }); }});
  qm_test::TcpFaultProxy proxy(server.port());
  qm_test::FaultRule slow;
  slow.chunk = JLineIO::kRenewalBytes;
  slow.delay = std::chrono::milliseconds(25);
  proxy.setRules({}, slow);
  const auto pClient = attach(proxy.port());
  std::string sText;
  pClient->call("f", nullptr, 300)->get("a", sText);
  EXPECT_EQ(sText, sLong);
}

TEST(RpcNotify, AnAnswerThatMustNotBeIsNotTakenForTheNextCalls) {
  ScriptServer server({[](ScriptPeer& peer) {
    peer.expect("gone(a=1)");
    peer.send("FAILED unknown\r\n");
    peer.expect("PING");
    peer.send("PONG\r\n");
    peer.expect("f()");
    peer.send("OK n=1\r\n");
    peer.expect("quiet(a=1)");
    peer.expect("PING");
    peer.send("PONG\r\n");
    peer.expect("g()");
    peer.send("OK n=2\r\n");
    peer.awaitEnd();
  }});
  const auto pClient = attach(server.port());
  const JVariant one("a", 1);
  pClient->notify("gone", &one);
  EXPECT_EQ(call(*pClient, "f"), "n=1");
  pClient->notify("quiet", &one);
  EXPECT_EQ(call(*pClient, "g"), "n=2");
}

/// A request that went out in part must not become the beginning of the next one.
TEST(RpcWrite, AfterAHalfSentRequestNothingFollowsOnTheSameStream) {
  std::promise<std::string> received;
  std::promise<void> written;
  ScriptServer server({[&](ScriptPeer& peer) {
    written.get_future().wait();
    std::string sAll;
    char bytes[65536];
    for (std::size_t uRead = 1; uRead != 0;) {
      uRead = peer.getSocket()->read(bytes, sizeof bytes);
      sAll.append(bytes, uRead);
    }
    received.set_value(sAll);
  }});
  auto pSocket = std::make_unique<JTCPSocket>(JInetAddr("127.0.0.1", server.port()));
  pSocket->setWriteTimeout(kShort);
  JRPCClient client(std::move(pSocket));
  const std::string sHuge(64U << 20, 'x');
  EXPECT_EQ(thrownBy([&] { client.call("huge", sHuge, kForever); }), "Time out!");
  EXPECT_NE(thrownBy([&] { call(client, "erase", kForever); }), "");
  written.set_value();
  const std::string sAll = received.get_future().get();
  EXPECT_TRUE(sAll.starts_with("huge(xxx"));
  EXPECT_EQ(sAll.find("erase"), std::string::npos);
}

class RecordingHook : public JRPCHook {
 public:
  bool intercept(JRPCClient& /*client*/, std::string_view sRequest, const JRPCVersion& /*version*/,
                 std::string& sAnswer) override {
    m_sSeen.append(sRequest).append(";");
    if (sRequest.starts_with("mine")) {
      sAnswer = "OK hooked=true";
      return true;
    }
    return false;
  }

  std::string m_sSeen;
};

TEST(RpcHook, SeesEveryCallAndMayAnswerIt) {
  ScriptServer server({[](ScriptPeer& peer) {
    peer.serve([](const std::string& sLine) { return "OK line=\"" + sLine + "\""; });
  }});
  const auto pClient = attach(server.port());
  RecordingHook hook;
  pClient->setRPCHook(&hook);
  EXPECT_EQ(call(*pClient, "mine"), "hooked=true");
  EXPECT_EQ(call(*pClient, "other"), "line=\"other()\"");
  pClient->setRPCHook(nullptr);
  EXPECT_EQ(call(*pClient, "mine"), "line=\"mine()\"");
  EXPECT_EQ(hook.m_sSeen, "mine();other();");
}

TEST(RpcCall, CallsOfManyThreadsGetTheirOwnAnswers) {
  ScriptServer server({[](ScriptPeer& peer) {
    peer.serve([](const std::string& sLine) { return "OK " + sLine.substr(2, sLine.size() - 3); });
  }});
  const auto pClient = attach(server.port());
  std::vector<std::thread> threads;
  std::atomic<int> iRight{0};
  for (int iThread = 0; iThread < 4; ++iThread) {
    threads.emplace_back([&, iThread] {
      for (int iCall = 0; iCall < 250; ++iCall) {
        const JVariant mark("m", iThread * 1000 + iCall);
        std::int32_t iMark = -1;
        pClient->call("f", &mark, kForever)->get("m", iMark);
        iRight += iMark == iThread * 1000 + iCall ? 1 : 0;
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(iRight, 1000);
}

/// The connection breaks at every byte of a conversation, in both ways; the caller always gets an error or
/// the whole answer, and never a wrong one.
TEST(RpcFault, AConversationCutAtAnyByteGivesAnErrorOrTheRightAnswer) {
  ScriptServer server({[](ScriptPeer& peer) {
    peer.serve([](const std::string& sLine) { return "OK line=\"" + sLine + "\""; });
  }});
  qm_test::TcpFaultProxy proxy(server.port());
  for (const auto action : {qm_test::FaultRule::Action::kClose, qm_test::FaultRule::Action::kReset}) {
    for (std::uint64_t uByte = 0; uByte <= 40; ++uByte) {
      qm_test::FaultRule cut;
      cut.afterBytes = uByte / 2;
      cut.action = action;
      proxy.setRules(uByte % 2 == 0 ? cut : qm_test::FaultRule{},
                     uByte % 2 == 1 ? cut : qm_test::FaultRule{});
      const auto pClient = attach(proxy.port());
      for (const char* szName : {"a", "b"}) {
        std::string sAnswer;
        const std::string sError =
            thrownBy([&] { pClient->call(szName, std::string_view(), sAnswer, 5000); });
        EXPECT_NE(sError, "Time out!");
        if (sError.empty()) {
          EXPECT_EQ(sAnswer, "line=\"" + std::string(szName) + "()\"");
        }
      }
    }
  }
}

}  // namespace
