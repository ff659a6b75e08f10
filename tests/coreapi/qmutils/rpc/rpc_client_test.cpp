#include <atomic>
#include <future>
#include <gmock/gmock.h>
#include <string>
#include <tuple>
#include <vector>

#include "coreapi/qmutils/error/jrpcerror.h"
#include "coreapi/qmutils/params/jparams.h"
#include "coreapi/qmutils/params/jvariant.h"
#include "coreapi/qmutils/rpc/jrpc.h"
#include "coreapi/qmutils/socket/jsockaddr.h"
#include "tests/coreapi/qmutils/rpc/scriptserver.h"
#include "tests/support/tcpfaultproxy.h"
#include "tests/support/thrownby.h"

// Calls over a connection, against servers of a few lines.

namespace {

using qm_test::ScriptPeer;
using qm_test::ScriptServer;
using qm_test::thrownBy;

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
    for (const char* szLine : {"f(Params=\"a=1\\r\\n\", Fps=25)", "g( x = 1 )", "h(Fps=25,,Fps=25)", "i()"}) {
      peer.expect(szLine);
      peer.send("OK b=2, a=1\r\n");
      peer.expect(szLine);
      peer.send("OK b=2, a=1\n");
    }
    peer.awaitEnd();
  }});
  const auto pClient = attach(server.port());
  JVariant fps("Fps", 25);
  JVariant params("Params", "a=1\r\n", &fps);
  const std::vector<const JVariant*> chains = {&fps, nullptr, &fps};
  const JVariant* const pNone = nullptr;
  const auto forms = std::make_tuple(std::pair("f", static_cast<const JVariant*>(&params)),
                                     std::pair("g", std::string_view(" x = 1 ")), std::pair("h", chains),
                                     std::pair("i", pNone));
  const auto check = [&](const auto& form) {
    std::string sText;
    pClient->call(form.first, form.second, kForever)->toText(sText);
    EXPECT_EQ(sText, "a=1, b=2") << form.first;
    pClient->call(form.first, form.second, sText, kForever);
    EXPECT_EQ(sText, "b=2, a=1") << form.first << " as the server wrote it";
  };
  std::apply([&](const auto&... form) { (check(form), ...); }, forms);
}

struct FailureCase {
  const char* name;
  std::string answer;
  const char* error;
};

TEST(RpcCall, AFailureIsTheCallersAndLeavesTheLinkGood) {
  const char* const szOutOfForm = "ProtocolError: f '???'";
  for (const FailureCase& row :
       {FailureCase{"Failed", "FAILED no such source", "FAILED no such source"},
        FailureCase{"FailedEmpty", "FAILED ", "FAILED "}, FailureCase{"FailedNoBlank", "FAILED", szOutOfForm},
        FailureCase{"NoBlank", "OK", szOutOfForm}, FailureCase{"Empty", "", szOutOfForm},
        FailureCase{"LowerCase", "ok a=1", szOutOfForm}, FailureCase{"Pong", "PONG", szOutOfForm},
        FailureCase{"Nul", std::string("OK a=\0", 6), szOutOfForm},
        FailureCase{"NoList", "OK a", "SyntaxError for parameter: 'a' ('garbage instead of '='')"}}) {
    ScriptServer server({[&row](ScriptPeer& peer) {
      peer.line();
      peer.send(row.answer + "\r\n");
      peer.expect("g()");
      peer.send("OK \r\n");
      peer.awaitEnd();
    }});
    const auto pClient = attach(server.port());
    EXPECT_EQ(thrownBy([&] { pClient->call("f", nullptr, kForever); }), row.error) << row.name;
    EXPECT_TRUE(pClient->isConnected());
    EXPECT_EQ(call(*pClient, "g"), "") << row.name;
  }
}

TEST(RpcCall, ATextThatBreaksTheLineIsNeverSent) {
  ScriptServer server({[](ScriptPeer& peer) {
    peer.expect("g()");
    peer.send("OK \r\n");
    peer.awaitEnd();
  }});
  const auto pClient = attach(server.port());
  for (const std::string_view sText :
       {std::string_view("a=1)\r\nerase("), std::string_view("a=\n"), std::string_view("a=\0", 3)}) {
    EXPECT_THAT(thrownBy([&] { pClient->call("setParams", sText, kForever); }),
                testing::HasSubstr("line break"));
  }
  EXPECT_EQ(call(*pClient, "g"), "");
}

/// The server answers each request late, when the next two have been sent.
TEST(RpcTimeout, ALateAnswerIsNeverTakenForAnothers) {
  ScriptServer server({[&](ScriptPeer& peer) {
    peer.expect("first()");
    peer.expect("second()");
    peer.send("FAILED late\r\nOK ");
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

/// A server that sends all but a PONG behind a notification must not hold the caller.
TEST(RpcNotify, AServerThatHasLostThePlaceEndsTheStream) {
  ScriptServer server({[](ScriptPeer& peer) {
    peer.line();
    for (;;) {
      peer.send("OK n=1\r\n");
    }
  }});
  const auto pClient = attach(server.port());
  pClient->notify("gone", nullptr);
  EXPECT_EQ(thrownBy([&] { call(*pClient, "f"); }), "ProtocolError: pong '???'");
  EXPECT_NE(thrownBy([&] { call(*pClient, "f"); }), "");
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

/// Answers some requests itself, and asks the server on its own for others.
class RecordingHook : public JRPCHook {
 public:
  bool intercept(JRPCClient& client, std::string_view sRequest, const JRPCVersion& /*version*/,
                 std::string& sAnswer) override {
    m_sSeen.append(sRequest).append(";");
    if (sRequest == "asks()") {
      EXPECT_EQ(call(client, "nested"), "line=\"nested()\"");
    }
    sAnswer = "OK hooked=true";
    return sRequest.starts_with("mine");
  }

  std::string m_sSeen;
};

TEST(RpcHook, SeesEveryRequestAndMayAnswerItOrCallItself) {
  ScriptServer server({[](ScriptPeer& peer) {
    peer.serve([](const std::string& sLine) { return "OK line=\"" + sLine + "\""; });
  }});
  const auto pClient = attach(server.port());
  RecordingHook hook;
  pClient->setRPCHook(&hook);
  EXPECT_EQ(call(*pClient, "mine"), "hooked=true");
  pClient->notify("mine", nullptr);
  EXPECT_EQ(call(*pClient, "asks"), "line=\"asks()\"");
  pClient->setRPCHook(nullptr);
  EXPECT_EQ(call(*pClient, "mine"), "line=\"mine()\"");
  EXPECT_EQ(hook.m_sSeen, "mine();mine();asks();nested();");
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
        EXPECT_EQ(sAnswer, sError.empty() ? "line=\"" + std::string(szName) + "()\"" : "");
        EXPECT_TRUE(sError.empty() || sError == "ProtocolError: " + std::string(szName) + " '???'" ||
                    sError.starts_with("system call error at function"))
            << sError;
      }
    }
  }
}

}  // namespace
