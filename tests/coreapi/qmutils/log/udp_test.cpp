#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <sys/file.h>
#include <unistd.h>

#include "coreapi/qmutils/log/JLogMsgUdpInput.h"
#include "coreapi/qmutils/log/JLogMsgUdpOutput.h"
#include "coreapi/qmutils/socket/judpsocket.h"
#include "tests/coreapi/qmutils/log/log_test_support.h"
#include "tests/support/udpfaultproxy.h"

namespace {

using qm_test::makeRecord;
using qm_test::messagesOf;
using testing::ElementsAre;

constexpr int kBuffer = 1000;

/// Records that an input forwards come to a journal.
class LogUdp : public qm_test::LogTest {
 protected:
  LogUdp() { JLog::addLogOutput(std::make_unique<qm_test::JournalOutput>(m_pJournal)); }

  static JLogMsgUdpOutput makeOutput(std::uint16_t uPort) {
    return {"out", "127.0.0.1", uPort, kBuffer, 10, 0, false};
  }

  const std::shared_ptr<qm_test::Journal<JLog::Msg>> m_pJournal =
      std::make_shared<qm_test::Journal<JLog::Msg>>();
};

TEST_F(LogUdp, CarriesWholeRecordsAndCutsWhatIsTooLong) {
  JLogMsgUdpInput input("in", 0, kBuffer);
  JLogMsgUdpOutput output("out", "127.0.0.1", input.getPort(), kBuffer, 10, 0, true);
  const std::string sPort = std::to_string(input.getPort());
  EXPECT_EQ(output.JThread::getName(), "out [Log:Out:Msg:Udp to 127.0.0.1:" + sPort + "]");
  JLog::Msg record = qm_test::fullRecord();
  record.sMessage += '\n';
  output.write(record);
  EXPECT_EQ(m_pJournal->await(1)[0], record);
  output.write(makeRecord(std::string(kBuffer, 'x')));
  // level, time, process, thread, line with their headers, and the header of the message
  EXPECT_EQ(m_pJournal->await(2)[1].sMessage, std::string(kBuffer - 9 - 13 - 9 - 9 - 9 - 5, 'x'));
  EXPECT_TRUE(output.stop(-1, true));
}

TEST_F(LogUdp, FaultsOnTheWayCostNothingButWhatTheyHit) {
  const struct {
    const char* name;
    qm_test::UdpFault faults[6];
    std::vector<std::string> messages;  ///< of the records 0 to 5, as they arrive
  } rows[] = {
      {"drop", {{0, 0}, {1, 0}, {0, 0}, {1, 0}, {0, 0}, {1, 0}}, {"1", "3", "5"}},
      {"duplicate",
       {{1, 0}, {3, 0}, {1, 0}, {1, 0}, {1, 0}, {1, 0}},
       {"0", "1", "1", "1", "2", "3", "4", "5"}},
      {"delay", {{1, 3}, {1, 0}, {1, 0}, {1, 0}, {1, 0}, {1, 0}}, {"1", "2", "3", "0", "4", "5"}},
      {"black hole", {{1, 0}, {1, 0}, {0, 0}, {0, 0}, {0, 0}, {0, 0}}, {"0", "1"}},
  };
  std::vector<std::string> expected;
  const JLogMsgUdpInput input("in", 0, kBuffer);
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    qm_test::UdpFaultProxy proxy(input.getPort(), [&row](std::size_t i) { return row.faults[i]; });
    JLogMsgUdpOutput output = makeOutput(proxy.port());
    for (int i = 0; i < 6; ++i) {
      output.write(makeRecord(std::to_string(i)));
    }
    EXPECT_EQ(output.getLostCount(), 0U);
    proxy.await(6);
    makeOutput(input.getPort()).write(makeRecord("end"));  // past the proxy, and behind all that it passed on
    expected.insert(expected.end(), row.messages.begin(), row.messages.end());
    expected.emplace_back("end");
    EXPECT_EQ(messagesOf(m_pJournal->await(expected.size())), expected);
  }
}

TEST_F(LogUdp, WhatIsNoRecordHoldsNobodyUp) {
  const JLogMsgUdpInput input("in", 0, kBuffer);
  JUDPSocket sender;
  sender.connect(JInetAddr("127.0.0.1", input.getPort()));
  for (const std::size_t uSize :
       {std::size_t{0}, std::size_t{1}, std::size_t{kBuffer + 2}, std::size_t{60000}}) {
    const std::string sBytes(uSize, 'm');
    sender.write(sBytes.data(), sBytes.size());
  }
  makeOutput(input.getPort()).write(makeRecord("good"));
  EXPECT_THAT(messagesOf(m_pJournal->await(1)), ElementsAre("good"));
}

TEST_F(LogUdp, ReceiverThatComesLateGetsTheFirstRecordBehindItsStart) {
  const std::uint16_t uPort = JLogMsgUdpInput("gone", 0, kBuffer, false).getPort();
  JLogMsgUdpOutput output = makeOutput(uPort);
  output.write(makeRecord("goes nowhere"));
  output.write(makeRecord("goes nowhere either"));
  const JLogMsgUdpInput input("in", uPort, kBuffer);
  output.write(makeRecord("arrives"));
  EXPECT_THAT(messagesOf(m_pJournal->await(1)), ElementsAre("arrives"));
}

// ---------------------------------------------------------------------------------------------------------

/// The one port of the machine's master: held by one test at a time, whoever runs it.
class LogMaster : public LogUdp {
 protected:
  LogMaster()
      : m_iLock(::open((std::filesystem::temp_directory_path() / "qm_log_master.lock").c_str(),
                       O_RDWR | O_CREAT | O_CLOEXEC, 0666)) {
    flock(m_iLock, LOCK_EX);
  }
  ~LogMaster() override {
    JLog::configure(0);
    ::close(m_iLock);
  }

  static std::vector<std::uint8_t> takeDatagram(JUDPSocket& socket) {
    std::vector<std::uint8_t> bytes(JLog::kMasterBuffer);
    bytes.resize(socket.read(bytes.data(), bytes.size()));
    return bytes;
  }

 private:
  const int m_iLock;
};

TEST_F(LogMaster, SlaveSendsItsRecordsAndTheOrderToReload) {
  JUDPSocket master(JLog::kMasterPort);
  master.setReadTimeout(60'000);
  JLog::configure(JLog::kSlave);
  JLog::log(qm_err::kLogInfo, "from a slave");
  JLog::reload();
  std::vector<std::string> messages;
  while (messages.size() < 2) {
    JLog::Msg record;
    const std::vector<std::uint8_t> bytes = takeDatagram(master);
    ASSERT_TRUE(JLog::Msg::deserialise(bytes.data(), bytes.size(), record));
    if (record.uLevel == qm_err::kLogInfo || record.uLevel == qm_err::kLogNone) {
      messages.push_back(record.sMessage);
    }
  }
  EXPECT_THAT(messages, ElementsAre("from a slave", "RELOAD_CONFIG"));
}

TEST_F(LogMaster, TakesRecordsAndReadsItsConfigurationAgainFromTheFile) {
  const auto pReceiver = std::make_shared<qm_test::JournalReceiver>();
  JInProcessForwardOutput::setReceiver("master", pReceiver);
  const std::string sFile = std::string(std::getenv("QM_SYSTEM_DIR")) + "/software.reg";
  const std::string sText =
      "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Quelmarin\\Log\\a]\nLogType=\"InProcess\"\nReceiverID=\"master\"\n"
      "Format=\"%w:%m\"\n";
  JLog::init(JLog::kMaster | JLog::kRegistry);
  JLogMsgUdpOutput slave("slave", "127.0.0.1", JLog::kMasterPort, JLog::kMasterBuffer, 10, 0, false);
  std::filesystem::create_directories(std::getenv("QM_SYSTEM_DIR"));
  std::ofstream(sFile) << sText;
  slave.write(makeRecord("RELOAD_CONFIG", qm_err::kLogNone));
  EXPECT_THAT(pReceiver->lines.await(1), ElementsAre("INFO:---- LOG CONFIGURATION RELOADED ----"));
  slave.write(makeRecord("from a slave", qm_err::kLogWarning));
  EXPECT_EQ(pReceiver->lines.await(2).back(), "WARNING:from a slave");

  std::ofstream(sFile) << sText << "damage\n";
  slave.write(makeRecord("RELOAD_CONFIG", qm_err::kLogNone));
  EXPECT_THAT(
      pReceiver->lines.await(4),
      ElementsAre(testing::_, testing::_, "ERROR:The configuration file can't be read: missing = for damage ",
                  "INFO:---- LOG CONFIGURATION RELOADED ----"));
  std::filesystem::remove(sFile);
  JSystemRegistryKey::reload();
  JLog::configure(0);
  const JUDPSocket free(JLog::kMasterPort);
  JInProcessForwardOutput::setReceiver("master", nullptr);
}

}  // namespace
