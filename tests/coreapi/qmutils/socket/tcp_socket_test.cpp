#include <array>
#include <cstring>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <thread>

#include "coreapi/qmutils/socket/jiobufiterator.h"
#include "tests/coreapi/qmutils/socket/socket_test_support.h"

namespace {

using qm_test::Connection;
using qm_test::Failure;
using qm_test::failureOf;
using qm_test::LogLines;
using qm_test::loopback;
using qm_test::readAll;
using qm_test::thrownBy;

/// Bytes that are all different from their neighbours.
std::string pattern(std::size_t uSize) {
  std::string sBytes(uSize, '\0');
  for (std::size_t i = 0; i < uSize; ++i) {
    sBytes[i] = static_cast<char>(i * 31 + i / 251);
  }
  return sBytes;
}

/// Sends what a connection can take without a reader, and how much that was.
std::size_t fill(JSocket& socket) {
  const std::string sBlock(65536, 'x');
  socket.setWriteTimeout(0);
  std::size_t uSum = 0;
  try {
    for (;;) {
      uSum += socket.JSocket::write(sBlock.data(), sBlock.size());
    }
  } catch (JTimeoutError* pError) {
    const qm_err::CaughtError error(pError);
  }
  return uSum;
}

TEST(TCPSocket, TimesOutWhenNothingComes) {
  Connection connection;
  char buffer[8];
  JIoBuf scattered{buffer, sizeof buffer};
  for (const std::int32_t iTimeout : {0, 5}) {
    connection.client.setReadTimeout(iTimeout);
    EXPECT_EQ(thrownBy([&] { connection.client.read(buffer, sizeof buffer); }), "Time out!");
    EXPECT_EQ(thrownBy([&] { connection.client.readv(&scattered, 1); }), "Time out!");
    connection.listener.setAcceptTimeout(iTimeout);
    EXPECT_EQ(thrownBy([&] { connection.listener.accept(); }), "Time out!");
  }
  EXPECT_EQ(connection.client.readNoThrow(buffer, sizeof buffer), -1);
  connection.pServer->write("data", 4);
  connection.client.setReadTimeout(10'000);
  EXPECT_EQ(connection.client.read(buffer, sizeof buffer), 4U);
}

TEST(TCPSocket, SendsTheLastAnswerBeforeAnAcceptedConnectionCloses) {
  Connection connection;
  const std::string sAnswer = pattern(std::size_t{4} << 20);
  std::thread server([&] {
    connection.pServer->write(sAnswer.data(), sAnswer.size());
    connection.pServer->close();
  });
  EXPECT_TRUE(readAll(connection.client) == sAnswer);
  server.join();
}

TEST(TCPSocket, ResetsTheConnectionWhenItsMakerCloses) {
  Connection connection;
  fill(connection.client);
  connection.client.close();
  EXPECT_EQ(failureOf([&] { readAll(*connection.pServer); }), (Failure{10054, "recv"}));
  EXPECT_EQ(failureOf([&] {
              connection.pServer->write("x", 1);
              connection.pServer->write("x", 1);
            }),
            (Failure{10054, "send"}))
      << "and no signal ends the process";
}

TEST(TCPSocket, WritesEverythingThroughASmallWindow) {
  Connection connection;
  const std::string sFirst = pattern(3'000'000);
  const std::string sSecond = pattern(70'000);
  std::vector<JIoBuf> buffers;
  for (std::size_t i = 0; i < JIoBufIterator::kCapacity - 1; ++i) {
    buffers.push_back({const_cast<char*>(sSecond.data()) + i, static_cast<std::uint32_t>(i % 7)});
  }
  buffers.push_back({const_cast<char*>(sFirst.data()), static_cast<std::uint32_t>(sFirst.size())});
  std::string sExpected = sFirst;
  for (const JIoBuf& buffer : buffers) {
    sExpected.append(static_cast<const char*>(buffer.pBuf), buffer.bufLength);
  }
  for (const std::int32_t iTimeout : {-1, 60'000}) {
    std::string sGot;
    std::thread reader([&] {
      char buffer[8192];
      while (sGot.size() < sExpected.size()) {
        sGot.append(buffer, connection.pServer->read(buffer, sizeof buffer));
      }
    });
    connection.client.setWriteTimeout(iTimeout);
    EXPECT_EQ(connection.client.write(sFirst.data(), sFirst.size()), sFirst.size());
    EXPECT_EQ(connection.client.writev(buffers.data(), buffers.size()), sExpected.size() - sFirst.size());
    reader.join();
    EXPECT_TRUE(sGot == sExpected);
  }
}

TEST(TCPSocket, GivesUpAWriteThatTheReaderDoesNotTake) {
  LogLines log;
  Connection connection;
  fill(connection.client);
  connection.client.setWriteTimeout(1);
  JIoBuf buffer{const_cast<char*>("x"), 1};
  EXPECT_EQ(thrownBy([&] { connection.client.write("x", 1); }), "Time out!");
  EXPECT_EQ(thrownBy([&] { connection.client.writev(&buffer, 1); }), "Time out!");
  EXPECT_EQ(connection.client.writeNoThrow("x", 1), -1);
  EXPECT_EQ(
      log.count(11, "WARNING: Write timeout set to 0 on socket '" +
                        std::to_string(connection.client.getHandle()) + "'. This is usually abnormal!!!\n"),
      1);

  std::thread slowReader([&] {
    char bytes[65536];
    connection.pServer->setReadTimeout(60'000);
    while (connection.pServer->readNoThrow(bytes, sizeof bytes) > 0) {
    }
  });
  const std::string sHuge(std::size_t{256} << 20, 'x');
  EXPECT_EQ(thrownBy([&] { connection.client.write(sHuge.data(), sHuge.size()); }), "Time out!")
      << "the limit holds for the whole of a write that goes on";
  connection.client.close();
  slowReader.join();
}

TEST(TCPSocket, ScattersAndGathersInOneGo) {
  Connection connection;
  std::array<char, 3> first{};
  std::array<char, 5> second{};
  JIoBuf in[] = {{first.data(), 3}, {nullptr, 0}, {second.data(), 5}};
  const JIoBuf out[] = {{const_cast<char*>("ab"), 2}, {const_cast<char*>("cdefg"), 5}};
  EXPECT_EQ(connection.client.writev(out, 2), 7U);
  EXPECT_EQ(connection.pServer->readv(in, 3), 7U);
  EXPECT_EQ(std::string(first.begin(), first.end()) + second.data(), "abcdefg");

  std::vector<JIoBuf> many(513, out[0]);
  EXPECT_EQ(connection.client.writev(many.data(), many.size()), 0U);
  EXPECT_EQ(failureOf([&] { connection.client.readv(many.data(), many.size()); }),
            (Failure{10022, "WSARecv"}));
}

TEST(TCPSocket, ReportsHowAConnectFailed) {
  LogLines log;
  std::uint16_t uClosedPort = 0;
  {
    const JTCPSocket listener(std::uint16_t{0});
    uClosedPort = listener.getLocalPort();
  }
  for (const std::int32_t iTimeout : {-1, 10'000}) {
    JTCPSocket client;
    client.setConnectTimeout(iTimeout);
    const std::string sHandle = std::to_string(client.getHandle());
    const std::string sPeer = "127.0.0.1:" + std::to_string(uClosedPort);
    EXPECT_EQ(failureOf([&] { client.connect(loopback(uClosedPort)); }), (Failure{10061, "WSAConnect"}));
    EXPECT_GE(log.count(18, "Connecting socket '" + sHandle + "' to '" + sPeer + "' with timeout '" +
                                std::to_string(iTimeout) + "'"),
              1);
    EXPECT_GE(log.count(11, "Failed to connect socket '" + sHandle + "' to '" + sPeer +
                                "': system call error at function 'WSAConnect' : No connection could be made "
                                "because the target machine actively refused it"),
              1);
  }
  EXPECT_EQ(failureOf([&] { JTCPSocket().connect(JInetAddr()); }).second, "WSAConnect");
}

TEST(TCPSocket, FailsUnderTheNameOfTheCall) {
  Connection connection;
  JTCPSocket second;
  const std::uint16_t uTaken = connection.listener.getLocalPort();
  EXPECT_EQ(failureOf([&] {
              second.bind(uTaken);
              second.listen(1);
            }).first,
            10048U);
  EXPECT_EQ(failureOf([&] { JTCPSocket().getRemoteAddress(); }), (Failure{10057, "getpeername"}));
  EXPECT_EQ(failureOf([&] { JTCPSocket().shutdownRead(); }), (Failure{10057, "shutdown"}));
  EXPECT_EQ(failureOf([&] { second.setOption(12345, 1, "", 0); }), (Failure{10042, "setsockopt"}));

  connection.client.close();
  char buffer[1];
  JIoBuf vector{buffer, 1};
  EXPECT_EQ(connection.client.getHandle(), -1);
  EXPECT_EQ(failureOf([&] { connection.client.read(buffer, 1); }), (Failure{10038, "recv"}));
  EXPECT_EQ(failureOf([&] { connection.client.readv(&vector, 1); }), (Failure{10038, "WSARecv"}));
  EXPECT_EQ(failureOf([&] { connection.client.write(buffer, 1); }), (Failure{10038, "send"}));
  EXPECT_EQ(failureOf([&] { connection.client.writev(&vector, 1); }), (Failure{10038, "WSASend"}));
  EXPECT_EQ(failureOf([&] { connection.client.getLocalAddress(); }), (Failure{10038, "getsockname"}));
  EXPECT_EQ(failureOf([&] { connection.client.listen(1); }), (Failure{10038, "listen"}));
  EXPECT_EQ(failureOf([&] { connection.client.accept(); }), (Failure{10038, "accept"}));
}

TEST(TCPSocket, LogsItsLife) {
  LogLines log;
  std::uint32_t uQuiet = 0;
  JTCPSocket silent(&uQuiet, "silent");
  ASSERT_EQ(log.all(), std::vector<std::string>()) << "the mask word keeps its lines back";

  JTCPSocket listener(std::uint16_t{0});
  const std::string sListener = std::to_string(listener.getHandle());
  silent.connect(loopback(listener.getLocalPort()));
  std::unique_ptr<JSockAddr> pPeer;
  const auto pServer = listener.accept(&pPeer);
  EXPECT_EQ(*pPeer, *silent.getLocalAddress());
  const auto* pTcp = dynamic_cast<JTCPSocket*>(pServer.get());
  ASSERT_NE(pTcp, nullptr);
  EXPECT_GE(pTcp->getMTU(), 536U);
  int iProbe = 0;
  int iLength = sizeof iProbe;
  pTcp->getOption(IPPROTO_TCP, TCP_KEEPIDLE, &iProbe, iLength);
  EXPECT_EQ(iProbe, 3);
  const std::string sServer = std::to_string(pTcp->getHandle());
  pServer->setWriteTimeout(7);
  pServer->shutdownWrite();
  pServer->close();
  pServer->close();
  EXPECT_EQ(log.all(),
            (std::vector<std::string>{
                "18 Created TCP Socket '" + sListener + "'",
                "18 Bound TCP Socket '" + sListener + "' to port '0'",
                "18 Listening on socket '" + sListener + "' with backlog '2147483647'",
                "18 Accepted connection on TCP socket '" + sServer + "' from '" + pPeer->toString() + "'",
                "18 Keepalive on client socket '" + sServer + "' set to time=3000, interval=3000",
                "18 Write timeout set to '7' on socket '" + sServer + "'",
                "18 Shut down socket '" + sServer + "'",
                "18 Closed socket '" + sServer + "'",
            }));
}

TEST(TCPSocket, TellsHowAnAsynchronousWriteEnded) {
  struct Notify : JSocketAsyncIONotify {
    void onComplete(std::size_t uBytes) override { uDone += uBytes; }
    void onError() override { ++iErrors; }
    std::size_t uDone = 0;
    int iErrors = 0;
  } notify;
  LogLines log;
  Connection connection;
  JOSocket& out = connection.client;
  const JIoBuf buffer{const_cast<char*>("abc"), 3};
  out.write("ab", 2, &notify);
  out.writev(&buffer, 1, &notify);
  EXPECT_EQ(notify.uDone, 5U);
  connection.client.close();
  out.write("ab", 2, &notify);
  out.writev(&buffer, 1, nullptr);
  EXPECT_EQ(notify.iErrors, 1);
  EXPECT_EQ(log.count(10,
                      "system call error at function 'send' : An operation was attempted on something "
                      "that is not a socket"),
            1);
}

TEST(IoBufIterator, WalksACopyOfTheBuffers) {
  char bytes[16];
  const std::vector<JIoBuf> buffers = {{bytes, 3}, {bytes + 3, 0}, {bytes + 3, 5}, {bytes + 8, 8}};
  JIoBufIterator rest(buffers.data(), buffers.size());
  EXPECT_EQ(rest.bufs_length(), 16U);
  rest.limit(16);
  EXPECT_EQ(rest.count(), 4U);
  rest.advance(4);
  EXPECT_EQ(rest.count(), 2U);
  EXPECT_EQ(rest.current()->pBuf, bytes + 4);
  EXPECT_EQ(rest.current()->bufLength, 4U);
  rest.limit(4);
  EXPECT_EQ(rest.count(), 1U);
  EXPECT_EQ(rest.bufs_length(), 4U);
  rest.advance(100);
  EXPECT_EQ(rest.count(), 0U);
  EXPECT_EQ(rest.bufs_length(), 0U);
  EXPECT_EQ(buffers[2].bufLength, 5U);
  const std::vector<JIoBuf> many(513, buffers[0]);
  EXPECT_EQ(JIoBufIterator(many.data(), 513).count(), 0U);
  EXPECT_EQ(JIoBufIterator(many.data(), 512).bufs_length(), 1536U);
  JIoBufIterator none(buffers.data(), buffers.size());
  none.limit(0);
  EXPECT_EQ(none.count(), 0U);
}

}  // namespace
