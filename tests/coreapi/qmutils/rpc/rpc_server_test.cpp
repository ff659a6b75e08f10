#include <atomic>
#include <future>
#include <gmock/gmock.h>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/params/jparams.h"
#include "coreapi/qmutils/rpc/jlineio.h"
#include "coreapi/qmutils/rpc/jrpcservice.h"
#include "coreapi/qmutils/socket/jtcpsocket.h"
#include "tests/coreapi/qmutils/rpc/scriptserver.h"
#include "tests/support/logcapture.h"
#include "tests/support/thrownby.h"

namespace {

using qm_test::RawClient;
using qm_test::thrownBy;

/// A service with a function for each way in which one can end.
class TestService : public JRPCService {
 public:
  TestService() : JRPCService(0, "Test") { start(); }
  explicit TestService(const JInetAddr& address) : JRPCService(address, "Test") { start(); }
  ~TestService() override { stop(); }

  bool dispatch(const std::string& sFunction, JParams& parameters, std::unique_ptr<JParams>& pAnswer,
                ConnectionId uConnection) override {
    if (sFunction == "echo") {
      pAnswer = std::make_unique<JParams>(parameters);
    } else if (sFunction == "empty") {
      pAnswer = std::make_unique<JParams>();
    } else if (sFunction == "quiet") {
      return true;
    } else if (sFunction == "fail") {
      QM_THROW(JTextError, "not\r\ntoday");
    } else if (sFunction == "throw") {
      throw std::runtime_error("out of luck");
    } else if (sFunction == "id") {
      pAnswer = std::make_unique<JParams>();
      pAnswer->add("id", uConnection);
    } else if (sFunction == "peer") {
      pAnswer = std::make_unique<JParams>();
      pAnswer->add("peer", getCurrentPeer()->toString());
    } else if (sFunction == "badname") {
      pAnswer = std::make_unique<JParams>();
      pAnswer->add("line\nbreak", 1);
    } else if (sFunction == "wait") {
      waiting.set_value();
      goOn.get_future().wait();
      pAnswer = std::make_unique<JParams>();
      pAnswer->add("done", true);
    } else if (sFunction == "big") {
      std::int32_t iSize = 0;
      parameters.get("size", iSize, true);
      pAnswer = std::make_unique<JParams>();
      pAnswer->add("x", std::string(static_cast<std::size_t>(iSize), 'x'));
    } else {
      return false;
    }
    return true;
  }

  void onConnectionOpened(ConnectionId /*uConnection*/) override { ++iOpened; }
  void onConnectionClosed(ConnectionId /*uConnection*/) override { ++iClosed; }

  std::atomic<int> iOpened{0};
  std::atomic<int> iClosed{0};
  std::promise<void> waiting;
  std::promise<void> goOn;
};

struct RequestCase {
  const char* name;
  std::string request;
  std::string answer;
};

TEST(RpcServer, AnswersEveryRequestAndServesOn) {
  const std::string sProtocol = "FAILED ProtocolError: ";
  const std::string sSyntax = sProtocol + "function name syntax error ";
  const std::string sMissing = sProtocol + "missing function name ";
  const std::string sLong = "missing" + std::string(600, 'x');
  TestService service;
  RawClient client(service.getPort());
  for (const RequestCase& row :
       {RequestCase{"List", " \techo (b=2, a=\"x\\r\\ny)\" ) \t", "OK a=\"x\\r\\ny)\", b=2"},
        RequestCase{"EmptyList", "empty()", "OK "},
        RequestCase{"Ping", "PING", "PONG"},
        RequestCase{"PingWithBlank", "PING ", sMissing + "'PING '"},
        RequestCase{"NoBracket", "echo", sMissing + "'echo'"},
        RequestCase{"DotInName", "a.b()", sMissing + "'a.b()'"},
        RequestCase{"NotClosed", "echo(a=1", sSyntax + "'echo(a=1'"},
        RequestCase{"OnlyOpened", "echo(", sSyntax + "'echo('"},
        RequestCase{"BehindTheBracket", "echo() x", sSyntax + "'echo() x'"},
        RequestCase{"EmptyLine", "", sSyntax + "''"},
        RequestCase{"OnlyBlanks", " \t", sSyntax + "' \t'"},
        RequestCase{"Nul", std::string("echo(a=1\0)", 10), sSyntax + "'echo(a=1'"},
        RequestCase{"Unknown", "what(a=1)", sProtocol + "unknown function 'what'"},
        RequestCase{"HighBytes", "gr\xC3\xBC\xC3\x9F()", sProtocol + "unknown function 'gr\xC3\xBC\xC3\x9F'"},
        RequestCase{"NoName", "(a=1)", sProtocol + "unknown function ''"},
        RequestCase{"BadList", "echo(a=)",
                    "FAILED SyntaxError for parameter: 'a' ('unknown parameter type')"},
        RequestCase{"Fails", "fail()", "FAILED not  today"},
        RequestCase{"Throws", "throw()", "FAILED out of luck"},
        RequestCase{"AnswerIsNoLine", "badname()",
                    "FAILED JLineIO can't send a line break or a NUL inside a line"},
        RequestCase{"LongMessage", sLong + "()",
                    (sProtocol + "unknown function '" + sLong).substr(0, 511)}}) {
    EXPECT_EQ(client.ask(row.request), row.answer) << row.name;
    EXPECT_EQ(client.ask("quiet()\r\nPING"), "PONG") << row.name << ", and a function without answer";
  }
}

TEST(RpcServer, EveryConnectionIsOpenedAndClosedOnceUnderAnIdOfItsOwn) {
  TestService service;
  std::set<std::string> ids;
  for (int iClient = 0; iClient < 50; ++iClient) {
    ids.insert(RawClient(service.getPort()).ask("id()"));
  }
  service.stop();
  EXPECT_EQ(ids.size(), 50U);
  EXPECT_EQ(service.iOpened, 50);
  EXPECT_EQ(service.iClosed, 50);
}

TEST(RpcServer, TellsWhoseRequestIsServed) {
  TestService service;
  RawClient first(service.getPort());
  RawClient second(service.getPort());
  for (RawClient* const pClient : {&first, &second, &first}) {
    EXPECT_EQ(pClient->ask("peer()"), "OK peer=\"" + pClient->socket().getLocalAddress()->toString() + "\"");
  }
  EXPECT_EQ(thrownBy([] { JRPCServer::getCurrentPeer(); }), "no request is being served here");
}

/// A client that closes its writing side still gets every answer that it is owed, even though it goes on
/// sending what nobody reads any more.
TEST(RpcServer, TheLastAnswerBeforeACloseReachesThePeer) {
  TestService service;
  const int iSize = 4 << 20;
  RawClient client(service.getPort());
  client.send("PING\r\nbig(size=" + std::to_string(iSize) + ")\r\n");
  client.socket().shutdownWrite();
  EXPECT_EQ(client.line(), "PONG");
  EXPECT_EQ(client.line().size(), static_cast<std::size_t>(iSize) + 7);
  EXPECT_EQ(client.line(), "(end)");
}

TEST(RpcServer, TakesARequestOfTheLimitAndEndsTheConnectionBeyondIt) {
  const qm_test::LogCapture log;
  TestService service;
  RawClient client(service.getPort());
  const std::string sText(JLineIO::kRequestLimit - 10, 'x');
  EXPECT_EQ(client.ask("echo(a=\"" + sText + "\")"), "OK a=\"" + sText + "\"");
  std::size_t uSent = 0;
  const std::string sError = thrownBy([&] {
    for (; uSent < 4 * JLineIO::kRequestLimit; uSent += sText.size()) {
      client.send(sText);
    }
  });
  EXPECT_NE(sError, "");
  EXPECT_EQ(client.line(), "(end)");
}

// The end of a service.

TEST(RpcServerStop, FinishesARunningRequestAndSendsItsAnswer) {
  TestService service;
  RawClient client(service.getPort());
  RawClient idle(service.getPort());
  EXPECT_EQ(idle.ask("PING"), "PONG");
  client.send("wait()\r\n");
  service.waiting.get_future().wait();
  std::thread stopper([&] { service.stop(); });
  EXPECT_EQ(idle.line(), "(end)");
  service.goOn.set_value();
  EXPECT_EQ(client.line(), "OK done=true");
  EXPECT_EQ(client.line(), "(end)");
  stopper.join();
}

TEST(RpcServerLimit, TakesNoMoreConnectionsThanItMay) {
  TestService service;
  service.setMostConnections(2);
  RawClient one(service.getPort());
  auto pTwo = std::make_unique<RawClient>(service.getPort());
  EXPECT_EQ(one.ask("PING") + pTwo->ask("PING"), "PONGPONG");
  EXPECT_EQ(RawClient(service.getPort()).line(), "(end)");
  pTwo.reset();
  while (service.getConnectionCount() > 1) {
    std::this_thread::yield();
  }
  EXPECT_EQ(RawClient(service.getPort()).ask("PING"), "PONG");
}

/// A client that never reads must not hold the server's end up.
TEST(RpcServerStop, LeavesAClientThatTakesNoAnswers) {
  TestService service;
  RawClient client(service.getPort());
  client.send("big(size=" + std::to_string(16 << 20) + ")\r\nPING\r\n");
  char cFirst = 0;
  client.socket().read(&cFirst, 1);  // the answer is under way now
  service.stop();
  EXPECT_EQ(service.getConnectionCount(), 0U);
}

/// The server closes first, so that its side of the connection is the one that winds down.
TEST(RpcServerStop, APortCanBeTakenAgainAtOnce) {
  JInetAddr address("127.0.0.1", 0);
  for (int iTurn = 0; iTurn < 3; ++iTurn) {
    TestService service(address);
    address.setPort(service.getPort());
    RawClient client(address.getPort());
    EXPECT_EQ(client.ask("PING"), "PONG");
    service.stop();
    EXPECT_EQ(client.line(), "(end)");
    client.socket().shutdownWrite();
  }
}

/// Clients come, ask and go, in order or by a reset, while the service ends in the middle of it.
TEST(RpcServerStop, AnyNumberOfClientsMayComeAndGoMeanwhile) {
  const qm_test::LogCapture log;
  for (int iTurn = 0; iTurn < 10; ++iTurn) {
    auto pService = std::make_unique<TestService>();
    const std::uint16_t uPort = pService->getPort();
    std::atomic<int> iAnswered{0};
    std::vector<std::thread> threads;
    for (int iThread = 0; iThread < 3; ++iThread) {
      threads.emplace_back([&] {
        const std::string sEnd = thrownBy([&] {
          for (;;) {
            RawClient client(uPort);
            std::string sAnswer;
            for (int iCall = 0; iCall < 5 && sAnswer != "(end)"; ++iCall) {
              sAnswer = client.ask("echo(a=1)");
              iAnswered += sAnswer == "OK a=1" ? 1 : 0;
            }
          }
        });
        EXPECT_NE(sEnd, "") << "refused: the service has ended";
      });
    }
    while (iAnswered < 50) {
      std::this_thread::yield();
    }
    pService.reset();
    for (std::thread& thread : threads) {
      thread.join();
    }
  }
}

}  // namespace
