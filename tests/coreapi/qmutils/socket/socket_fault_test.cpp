#include <cerrno>

#include "coreapi/platform/faultseam.h"
#include "coreapi/qmutils/socket/judpsocket.h"
#include "tests/coreapi/qmutils/socket/socket_test_support.h"

namespace {

using qm_platform::FaultKind;
using qm_test::LogLines;
using qm_test::loopback;
using qm_test::openDescriptors;
using qm_test::thrownBy;

constexpr auto kSocketSeam = static_cast<std::uint32_t>(qm_platform::Seam::kSocket);

/// One of everything, over the loopback. Returns what came through.
std::string converse() {
  std::string sGot;
  char buffer[16];
  const auto read = [&](JISocket& socket, std::size_t uBytes) {
    while (uBytes != 0) {
      const std::size_t uRead = socket.read(buffer, std::min(uBytes, sizeof buffer));
      if (uRead == 0) {
        return;
      }
      sGot.append(buffer, uRead);
      uBytes -= uRead;
    }
  };
  qm_test::Connection connection;
  connection.client.setConnectTimeout(60'000);
  connection.client.setReadTimeout(60'000);
  connection.pServer->setWriteTimeout(60'000);
  connection.client.write("question", 8);
  read(*connection.pServer, 8);
  const JIoBuf answer[] = {{const_cast<char*>("ans"), 3}, {const_cast<char*>("wer"), 3}};
  connection.pServer->writev(answer, 2);
  read(connection.client, 6);
  connection.client.shutdownWrite();
  connection.client.getLocalAddress();

  JUDPSocket receiver(std::uint16_t{0});
  JUDPSocket sender;
  sender.connect(loopback(receiver.getLocalPort()));
  sender.write("d", 1);
  receiver.setReadTimeout(60'000);
  read(receiver, 1);
  JIPMulticastSocket group(JInetAddr("239.255.77.8", 0), true, true, loopback(0));
  group.getMTU();
  return sGot;
}

TEST(SocketFaults, AreSurvivedOrReportedAtEveryCall) {
  struct {
    const char* name;
    FaultKind kind;
    int error;
    bool survived;
  } const rows[] = {
      {"interrupted", FaultKind::kInterrupt, 0, true},
      {"one byte at a time", FaultKind::kShort, 0, true},
      {"out of buffers", FaultKind::kError, ENOBUFS, false},
      {"connection reset", FaultKind::kError, ECONNRESET, false},
  };
  LogLines log;
  const std::ptrdiff_t iDescriptors = openDescriptors();
  for (const auto& row : rows) {
    std::uint64_t uCall = 0;
    bool bFired = true;
    while (bFired) {
      SCOPED_TRACE(row.name + std::string(" at call ") + std::to_string(++uCall));
      qm_platform::armFaults({kSocketSeam, uCall, row.kind, row.error, false});
      std::string sGot;
      const std::string sError = thrownBy([&] { sGot = converse(); });
      bFired = qm_platform::disarmFaults();
      if (row.survived || !bFired) {
        EXPECT_EQ(sError, "");
      }
      if (sError == "") {
        EXPECT_EQ(sGot, "questionanswerd");
      }
      ASSERT_EQ(openDescriptors(), iDescriptors);
    }
    EXPECT_GT(uCall, 30U) << row.name;
  }
}

TEST(SocketFaults, DoNotFailAnAcceptThatCannotProbe) {
  LogLines log;
  JTCPSocket listener(std::uint16_t{0});
  JTCPSocket client;
  client.connect(loopback(listener.getLocalPort()));
  // Behind accept and the linger setting comes the first setting of the probes.
  qm_platform::armFaults({kSocketSeam, 3, FaultKind::kError, EINVAL, false});
  const auto pServer = listener.accept();
  EXPECT_TRUE(qm_platform::disarmFaults());
  ASSERT_NE(pServer, nullptr);
  const auto lines = log.all();
  EXPECT_TRUE(std::any_of(lines.begin(), lines.end(), [](const std::string& sLine) {
    return sLine.starts_with("11 Couldn't set keepalive value on client socket '");
  }));
}

TEST(SocketFaults, OfConnectingAreLogged) {
  LogLines log;
  const JTCPSocket listener(std::uint16_t{0});
  JTCPSocket client;
  const std::string sHandle = std::to_string(client.getHandle());
  qm_platform::armFaults({kSocketSeam, 1, FaultKind::kError, EINVAL, false});
  const std::string sError = thrownBy([&] { client.connect(loopback(9)); });
  EXPECT_TRUE(qm_platform::disarmFaults());
  EXPECT_EQ(sError,
            "system call error at function 'ioctlsocket(FIONBIO)' : An invalid argument was supplied");
  EXPECT_EQ(log.count(11, "Failed to put socket '" + sHandle + "' into non-blocking mode: " + sError), 1);
  qm_platform::armFaults({kSocketSeam, 1, FaultKind::kError, EINVAL, true});
  EXPECT_NE(thrownBy([&] { client.listen(5); }), "");
  qm_platform::disarmFaults();
  EXPECT_EQ(log.count(11, "Could not listen on socket '" + sHandle + "' with backlog '5'"), 1);
}

}  // namespace
