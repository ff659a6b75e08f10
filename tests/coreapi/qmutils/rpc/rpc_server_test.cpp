#include <atomic>
#include <future>
#include <gmock/gmock.h>
#include <map>
#include <mutex>
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
#include "coreapi/qmutils/text/jtext.h"
#include "tests/support/logcapture.h"
#include "tests/support/tcpfaultproxy.h"

namespace {

using testing::HasSubstr;
using testing::StartsWith;

/// A line-wise client without any knowledge of the protocol.
class RawClient : public JLineIO {
 public:
  explicit RawClient(std::uint16_t uPort) : JLineIO(kAnswerLimit), m_socket(JInetAddr("127.0.0.1", uPort)) {
    setSocket(&m_socket, false);
  }

  void send(std::string_view sBytes) { m_socket.write(sBytes.data(), sBytes.size()); }

  /// The next line; "(end)" when the server has closed or the connection is gone.
  std::string line() {
    try {
      const auto sLine = readLine();
      return sLine ? std::string(*sLine) : "(end)";
    } catch (JError* pError) {
      const qm_err::CaughtError error(pError);
      return "(end)";
    }
  }

  std::string ask(std::string_view sLine) {
    send(std::string(sLine) + "\r\n");
    return line();
  }

  JTCPSocket& socket() { return m_socket; }

 private:
  JTCPSocket m_socket;
};

/// A service with a function for each way in which one can end.
class TestService : public JRPCService {
 public:
  explicit TestService(std::uint16_t uPort = 0) : JRPCService(uPort, "Test") { start(); }
  ~TestService() override { stop(); }

  bool dispatch(const std::string& sFunction, JParams& parameters, std::unique_ptr<JParams>& pAnswer,
                ConnectionId uConnection) override {
    if (sFunction == "echo") {
      pAnswer = std::make_unique<JParams>(parameters);
    } else if (sFunction == "empty") {
      pAnswer = std::make_unique<JParams>();
    } else if (sFunction == "quiet") {
      ++iQuiet;
    } else if (sFunction == "fail") {
      QM_THROW(JTextError, "not\r\ntoday");
    } else if (sFunction == "throw") {
      throw std::runtime_error("out of luck");
    } else if (sFunction == "id") {
      pAnswer = std::make_unique<JParams>();
      pAnswer->add("id", uConnection);
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

  std::atomic<int> iQuiet{0};
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

void PrintTo(const RequestCase& row, std::ostream* out) {
  *out << row.name;
}

class RpcServerRequest : public testing::TestWithParam<RequestCase> {};

TEST_P(RpcServerRequest, IsAnsweredAndTheConnectionServesOn) {
  TestService service;
  RawClient client(service.getPort());
  EXPECT_EQ(client.ask(GetParam().request), GetParam().answer);
  EXPECT_EQ(client.ask("PING"), "PONG");
}

INSTANTIATE_TEST_SUITE_P(
    Rpc, RpcServerRequest,
    testing::Values(
        RequestCase{"List", " echo (b=2, a=\"x\\r\\ny\" ) ", "OK a=\"x\\r\\ny\", b=2"},
        RequestCase{"EmptyList", "empty()", "OK "}, RequestCase{"Ping", "PING", "PONG"},
        RequestCase{"PingWithBlank", "PING ", "FAILED ProtocolError: missing function name 'PING '"},
        RequestCase{"NoBracket", "echo", "FAILED ProtocolError: missing function name 'echo'"},
        RequestCase{"NotClosed", "echo(a=1", "FAILED ProtocolError: function name syntax error 'echo(a=1'"},
        RequestCase{"EmptyLine", "", "FAILED ProtocolError: function name syntax error ''"},
        RequestCase{"Unknown", "what(a=1)", "FAILED ProtocolError: unknown function 'what'"},
        RequestCase{"BadList", "echo(a=)",
                    "FAILED SyntaxError for parameter: 'a' ('unknown parameter type')"},
        RequestCase{"Nul", std::string("echo(a=1\0)", 10),
                    "FAILED ProtocolError: function name syntax error 'echo(a=1'"},
        RequestCase{"Fails", "fail()", "FAILED not  today"},
        RequestCase{"Throws", "throw()", "FAILED out of luck"},
        RequestCase{"AnswerIsNoLine", "badname()",
                    "FAILED JLineIO can't send a line break or a NUL inside a line"},
        RequestCase{
            "LongMessage", "missing" + std::string(600, 'x') + "()",
            ("FAILED ProtocolError: unknown function 'missing" + std::string(600, 'x')).substr(0, 511)}));

TEST(RpcServer, AFunctionWithoutAnswerGivesNoLine) {
  TestService service;
  RawClient client(service.getPort());
  client.send("quiet()\r\n");
  EXPECT_EQ(client.ask("PING"), "PONG");
  EXPECT_EQ(service.iQuiet, 1);
}

TEST(RpcServer, PipelinedRequestsAreAnsweredInOrder) {
  TestService service;
  RawClient client(service.getPort());
  client.send("echo(a=1)\nPING\r\necho(a=2)\r\nech");
  EXPECT_EQ(client.line(), "OK a=1");
  EXPECT_EQ(client.line(), "PONG");
  EXPECT_EQ(client.line(), "OK a=2");
  EXPECT_EQ(client.ask("o(a=3)"), "OK a=3");
}

TEST(RpcServer, EachConnectionHasAnIdOfItsOwn) {
  TestService service;
  std::set<std::string> ids;
  for (int iClient = 0; iClient < 5; ++iClient) {
    RawClient client(service.getPort());
    const std::string sId = client.ask("id()");
    EXPECT_EQ(client.ask("id()"), sId);
    ids.insert(sId);
  }
  EXPECT_EQ(ids.size(), 5U);
}

TEST(RpcServer, ConnectionsAreOpenedAndClosedInPairs) {
  {
    TestService service;
    for (int iClient = 0; iClient < 50; ++iClient) {
      RawClient client(service.getPort());
      EXPECT_EQ(client.ask("PING"), "PONG");
    }
    service.stop();
    EXPECT_EQ(service.iOpened, 50);
    EXPECT_EQ(service.iClosed, 50);
    EXPECT_EQ(service.getConnectionCount(), 0U);
  }
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

TEST(RpcServer, AnOverlongRequestEndsTheConnectionAtTheLimit) {
  const qm_test::LogCapture log;
  TestService service;
  RawClient client(service.getPort());
  const std::string sPiece(1 << 20, 'x');
  std::size_t uSent = 0;
  try {
    for (; uSent < 4 * JLineIO::kRequestLimit; uSent += sPiece.size()) {
      client.send(sPiece);
    }
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
  }
  EXPECT_LT(uSent, 4 * JLineIO::kRequestLimit);
  EXPECT_EQ(client.line(), "(end)");
}

TEST(RpcServer, ARequestOfTheLimitIsServed) {
  TestService service;
  RawClient client(service.getPort());
  const std::string sText(JLineIO::kRequestLimit - 10, 'x');
  EXPECT_EQ(client.ask("echo(a=\"" + sText + "\")"), "OK a=\"" + sText + "\"");
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

TEST(RpcServerStop, APortCanBeTakenAgainAtOnce) {
  std::uint16_t uPort = 0;
  for (int iTurn = 0; iTurn < 3; ++iTurn) {
    TestService service(uPort);
    uPort = service.getPort();
    RawClient client(uPort);
    EXPECT_EQ(client.ask("PING"), "PONG");
    service.stop();
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
        try {
          for (;;) {
            RawClient client(uPort);
            for (int iCall = 0; iCall < 5; ++iCall) {
              const std::string sAnswer = client.ask("echo(a=1)");
              if (sAnswer == "(end)") {
                break;
              }
              EXPECT_EQ(sAnswer, "OK a=1");
              ++iAnswered;
            }
          }
        } catch (JError* pError) {
          const qm_err::CaughtError error(pError);  // refused: the service has ended
        }
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

TEST(RpcServerFault, ARequestCutAtAnyByteHurtsOnlyItsOwnConnection) {
  TestService service;
  qm_test::TcpFaultProxy proxy(service.getPort());
  for (const auto action : {qm_test::FaultRule::Action::kClose, qm_test::FaultRule::Action::kReset}) {
    for (std::uint64_t uByte = 0; uByte <= 22; ++uByte) {
      qm_test::FaultRule cut;
      cut.afterBytes = uByte;
      cut.action = action;
      proxy.setRules(cut, {});
      RawClient client(proxy.port());
      try {
        client.send("echo(a=1)\r\necho(a=2)\r\n");
      } catch (JError* pError) {
        const qm_err::CaughtError error(pError);
      }
      for (std::string sLine = client.line(); sLine != "(end)"; sLine = client.line()) {
        EXPECT_THAT(sLine, StartsWith("OK a="));
      }
    }
  }
  RawClient client(service.getPort());
  EXPECT_EQ(client.ask("PING"), "PONG");
}

}  // namespace
