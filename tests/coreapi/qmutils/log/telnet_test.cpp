#include <gmock/gmock.h>
#include <thread>

#include "coreapi/qmutils/log/JTelnetOutput.h"
#include "coreapi/qmutils/socket/jtcpsocket.h"
#include "tests/coreapi/qmutils/log/log_test_support.h"
#include "tests/support/logcapture.h"
#include "tests/support/thrownby.h"

namespace {

using qm_test::makeRecord;
using qm_test::thrownBy;

/// A client of an output's port.
class PlainClient : public JTCPSocket {
 public:
  explicit PlainClient(std::uint16_t uPort) : JTCPSocket(JInetAddr("127.0.0.1", uPort)) {}

  /// Reads so many bytes, fewer at the end of the connection.
  std::string take(std::size_t uSize) {
    std::string sText(uSize, '\0');
    std::size_t uGot = 0;
    for (std::size_t uRead = 1; uRead != 0 && uGot < uSize; uGot += uRead) {
      uRead = read(&sText[uGot], uSize - uGot);
    }
    sText.resize(uGot);
    return sText;
  }
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
  one.write("\xFF\xFB\x03 whatever a client says", 26);
  first.write(makeRecord("a\nb"));
  EXPECT_EQ(one.take(7), "1:a b\r\n");
  EXPECT_EQ(two.take(7), "1:a b\r\n");
  second.write(makeRecord("c"));
  EXPECT_EQ(one.take(5), "2:c\r\n");
  one.close();
  PlainClient three(first.getPort());  // the server finds that the first one is gone
  PlainClient four(first.getPort());
  awaitClients(first, 3);
  first.write(makeRecord("d"));
  EXPECT_EQ(two.take(10), "2:c\r\n1:d\r\n");
  EXPECT_EQ(three.take(5), "1:d\r\n");
  EXPECT_EQ(four.take(5), "1:d\r\n");
}

TEST_F(LogTelnet, GivesItsPortUpWhenNoOutputHasItAnyMore) {
  auto pOutput = std::make_unique<JTelnetOutput>("a", 0);
  const std::uint16_t uPort = pOutput->getPort();
  PlainClient client(uPort);
  awaitClients(*pOutput, 1);
  JLog::deleteOutputs();
  EXPECT_EQ(thrownBy([&] { PlainClient second(uPort); }), "");
  pOutput.reset();
  JLog::deleteOutputs();
  EXPECT_EQ(client.take(1), "");
  EXPECT_NE(thrownBy([&] { PlainClient second(uPort); }), "");
}

TEST_F(LogTelnet, DropsAClientThatTakesNothing) {
  JTelnetOutput output("a", 0, 0, 0, "%m", 10, 0, false);
  PlainClient stuck(output.getPort());
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
