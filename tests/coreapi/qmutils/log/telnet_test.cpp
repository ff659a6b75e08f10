#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

#include "coreapi/qmutils/log/JTelnetOutput.h"
#include "coreapi/qmutils/socket/jtcpsocket.h"
#include "tests/coreapi/qmutils/log/log_test_support.h"
#include "tests/support/logcapture.h"

namespace {

using qm_test::makeRecord;

/// A TCP client without anything of the system.
class PlainClient {
 public:
  explicit PlainClient(std::uint16_t uPort) : m_iSocket(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(uPort);
    m_bConnected = connect(m_iSocket, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
  }
  ~PlainClient() { close(); }
  PlainClient(const PlainClient&) = delete;
  PlainClient& operator=(const PlainClient&) = delete;

  void close() {
    if (m_iSocket >= 0) {
      ::close(m_iSocket);
      m_iSocket = -1;
    }
  }

  bool isConnected() const { return m_bConnected; }
  void send(const std::string& sText) const { ::send(m_iSocket, sText.data(), sText.size(), MSG_NOSIGNAL); }

  /// Reads so many bytes, fewer at the end of the connection.
  std::string take(std::size_t uSize) const {
    std::string sText(uSize, '\0');
    const ssize_t iRead = recv(m_iSocket, sText.data(), uSize, MSG_WAITALL);
    sText.resize(iRead > 0 ? static_cast<std::size_t>(iRead) : 0);
    return sText;
  }

 private:
  int m_iSocket;
  bool m_bConnected = false;
};

/// Blocks until the output has so many clients.
void awaitClients(const JTelnetOutput& output, std::size_t uCount) {
  while (output.getClientCount() != uCount) {
    std::this_thread::yield();
  }
}

class LogTelnet : public qm_test::LogTest {};

TEST_F(LogTelnet, WritesEachLineToAllClientsOfThePort) {
  JTelnetOutput first("first", 0, 0, 0, "1:%m");
  JTelnetOutput second("second", 0, 0, 0, "2:%m\r\n");
  ASSERT_EQ(first.getPort(), second.getPort());
  EXPECT_EQ(first.JThread::getName(), "first [Log:Out:Formatted:Telnet port=0]");
  PlainClient one(first.getPort());
  PlainClient two(first.getPort());
  awaitClients(first, 2);
  one.send("\xFF\xFB\x03 whatever a client says");
  first.write(makeRecord("a\nb"));
  EXPECT_EQ(one.take(7), "1:a b\r\n");
  EXPECT_EQ(two.take(7), "1:a b\r\n");
  second.write(makeRecord("c"));
  EXPECT_EQ(one.take(5), "2:c\r\n");
  one.close();
  const PlainClient three(first.getPort());  // the server finds that the first one is gone
  const PlainClient four(first.getPort());
  awaitClients(first, 3);
  first.write(makeRecord("d"));
  EXPECT_EQ(two.take(10), "2:c\r\n1:d\r\n");
  EXPECT_EQ(three.take(5), "1:d\r\n");
  EXPECT_EQ(four.take(5), "1:d\r\n");
}

TEST_F(LogTelnet, GivesItsPortUpWhenNoOutputHasItAnyMore) {
  auto pOutput = std::make_unique<JTelnetOutput>("a", 0);
  const std::uint16_t uPort = pOutput->getPort();
  const PlainClient client(uPort);
  awaitClients(*pOutput, 1);
  JLog::deleteOutputs();
  EXPECT_TRUE(PlainClient(uPort).isConnected());
  pOutput.reset();
  JLog::deleteOutputs();
  EXPECT_EQ(client.take(1), "");
  EXPECT_FALSE(PlainClient(uPort).isConnected());
}

TEST_F(LogTelnet, DropsAClientThatTakesNothing) {
  JTelnetOutput output("a", 0, 0, 0, "%m", 10, 0, false);
  const PlainClient stuck(output.getPort());
  awaitClients(output, 1);
  while (output.getClientCount() != 0) {
    output.write(makeRecord(std::string(1 << 20, 'x')));
  }
  EXPECT_EQ(output.getLostCount(), 0U);
}

TEST_F(LogTelnet, TellsWhatKeepsItFromListening) {
  const qm_test::LogCapture log;
  const JTCPSocket taken(std::uint16_t{0});
  JTelnetOutput output("a", taken.getLocalPort(), 0, 0, nullptr, 10, 0, false);
  EXPECT_EQ(output.getPort(), 0);
  output.write(makeRecord("dropped"));
  EXPECT_EQ(output.getLostCount(), 0U);
  const qm_test::TestKey key({}, {{"TelnetInterfaceNumber", 1}});
  JTelnetOutput("b", key.get(), 10, 0, false);
  EXPECT_TRUE(log.has(qm_err::kLogError,
                      "Telnet Output logging not starting: missing \"TelnetPort\" entry in registry."));
  const auto messages = log.messages();
  EXPECT_EQ(std::count_if(messages.begin(), messages.end(),
                          [](const qm_test::LoggedMessage& message) {
                            return message.level == qm_err::kLogError &&
                                   message.text.starts_with(
                                       "Telnet Output logging not starting: the requested "
                                       "TCP port number could not be obtained: ");
                          }),
            1);
}

// ---------------------------------------------------------------------------------------------------------

TEST(LogInProcess, PassesLinesToWhoeverIsRegisteredAtThatTime) {
  const auto pFirst = std::make_shared<qm_test::JournalReceiver>();
  const auto pSecond = std::make_shared<qm_test::JournalReceiver>();
  JInProcessForwardOutput output("a",
                                 qm_test::TestKey({{"ReceiverID", "test"}, {"Format", "<%m>"}}, {}).get());
  JInProcessForwardOutput::setReceiver("test", pFirst);
  output.write(makeRecord("one\ntwo"));
  EXPECT_EQ(pFirst->lines.await(1).back(), "<one two>");
  JInProcessForwardOutput::setReceiver("test", pSecond);
  output.write(makeRecord("three"));
  EXPECT_EQ(pSecond->lines.await(1).back(), "<three>");
  JInProcessForwardOutput::setReceiver("test", nullptr);
  output.write(makeRecord("nobody's"));
  EXPECT_TRUE(output.stop(-1, true));
  EXPECT_EQ(pFirst->lines.items().size() + pSecond->lines.items().size(), 2U);

  const qm_test::LogCapture log;
  const qm_test::TestKey empty({}, {});
  const JInProcessForwardOutput without("b", empty.get());
  EXPECT_TRUE(log.has(qm_err::kLogError,
                      "In process output logging not starting: missing \"ReceiverID\" entry in registry."));
}

}  // namespace
