#include <atomic>
#include <fstream>
#include <functional>
#include <sys/socket.h>
#include <thread>

#include "coreapi/platform/process.h"
#include "coreapi/qmutils/socket/judpsocket.h"
#include "tests/coreapi/qmutils/socket/socket_test_support.h"

namespace {

using qm_test::Connection;
using qm_test::Failure;
using qm_test::failureOf;
using qm_test::LogLines;
using qm_test::loopback;

constexpr int kRounds = 2000;

/// Waits until a thread, by its number, has gone to sleep in a call.
void waitUntilAsleep(std::uint32_t uThread) {
  const std::string sPath = "/proc/self/task/" + std::to_string(uThread) + "/stat";
  for (;;) {
    std::ifstream file(sPath);
    std::string sStat;
    std::getline(file, sStat);
    if (const std::size_t uName = sStat.rfind(')'); uName != std::string::npos && sStat[uName + 2] == 'S') {
      return;
    }
    std::this_thread::yield();
  }
}

/// Brings a close together with a call that another thread is about to make: a little later in each round, so
/// that it meets the call before, at and in its wait; and in every fifth one when that thread sleeps.
void meet(int iRound, const std::atomic<std::uint32_t>& thread) {
  while (thread == 0) {
    std::this_thread::yield();
  }
  if (iRound % 5 == 0) {
    waitUntilAsleep(thread);
    return;
  }
  for (std::atomic<int> iStep = 0; iStep < iRound * 5; ++iStep) {
  }
}

/// Runs a blocking call on a thread of its own and closes the socket from this one. Returns how the call
/// ended.
Failure closeUnder(int iRound, JSocket& socket, const std::function<void()>& call) {
  std::atomic<std::uint32_t> number{0};
  Failure failure;
  std::thread thread([&] {
    number = qm_platform::threadId();
    failure = failureOf(call);
  });
  meet(iRound, number);
  socket.close();
  thread.join();
  return failure;
}

/// The call was in the socket when it closed, or began after that.
void expectCancelled(const Failure& failure, const char* szFunction) {
  EXPECT_TRUE(failure == (Failure{10004, szFunction}) || failure == (Failure{10038, szFunction}))
      << failure.first << ' ' << failure.second;
}

TEST(ClosingASocket, EndsABlockedReadForCertain) {
  LogLines log;
  const std::int32_t timeouts[] = {-1, 600'000};
  for (int iRound = 0; iRound < kRounds; ++iRound) {
    Connection connection;
    char buffer[16];
    JIoBuf vector{buffer, sizeof buffer};
    JSocket& socket = iRound % 4 < 2 ? connection.client : *connection.pServer;
    socket.setReadTimeout(timeouts[iRound % 2]);
    if (iRound % 3 != 0) {
      expectCancelled(closeUnder(iRound, socket, [&] { socket.read(buffer, sizeof buffer); }), "recv");
    } else {
      expectCancelled(closeUnder(iRound, socket, [&] { socket.readv(&vector, 1); }), "WSARecv");
    }
  }
}

TEST(ClosingASocket, EndsABlockedDatagramReadForCertain) {
  LogLines log;
  for (int iRound = 0; iRound < kRounds; ++iRound) {
    JUDPSocket socket(std::uint16_t{0});
    if (iRound % 2 == 0) {
      socket.connect(loopback(9));
    }
    socket.setReadTimeout(iRound % 4 < 2 ? -1 : 600'000);
    char buffer[16];
    expectCancelled(closeUnder(iRound, socket, [&] { socket.recvfrom(buffer, sizeof buffer, 0); }),
                    "recvfrom");
  }
}

TEST(ClosingASocket, CancelsABlockedAcceptWithoutAnError) {
  LogLines log;
  int iCancelled = 0;
  for (int iRound = 0; iRound < kRounds; ++iRound) {
    JTCPSocket listener(std::uint16_t{0});
    listener.setAcceptTimeout(iRound % 2 == 0 ? -1 : 600'000);
    std::unique_ptr<JSocket> pConnection;
    const Failure failure = closeUnder(iRound, listener, [&] { pConnection = listener.accept(); });
    EXPECT_EQ(pConnection, nullptr);
    if (failure.second == "") {
      ++iCancelled;
    } else {
      EXPECT_EQ(failure, (Failure{10038, "accept"})) << "the accept began after the close";
    }
  }
  EXPECT_EQ(log.count(18, "accept connection canceled"), iCancelled);
  EXPECT_GT(iCancelled, 0);
}

TEST(ClosingASocket, EndsABlockedWriteForCertain) {
  LogLines log;
  const std::string sBlock(std::size_t{8} << 20, 'x');
  for (int iRound = 0; iRound < kRounds / 20; ++iRound) {
    Connection connection;
    connection.client.setWriteTimeout(iRound % 2 == 0 ? -1 : 600'000);
    expectCancelled(closeUnder(iRound * 20, connection.client,
                               [&] {
                                 for (;;) {
                                   connection.client.write(sBlock.data(), sBlock.size());
                                 }
                               }),
                    "send");
  }
}

TEST(ClosingASocket, EndsAConnectThatNobodyAnswers) {
  LogLines log;
  JTCPSocket listener;
  listener.bind(std::uint16_t{0});
  listener.listen(0);
  const JInetAddr address = loopback(listener.getLocalPort());
  std::vector<std::unique_ptr<JTCPSocket>> queue;
  while (queue.empty() || queue.back()->getConnectTimeout() != 1) {
    queue.push_back(std::make_unique<JTCPSocket>());
    queue.back()->setConnectTimeout(0);
    if (failureOf([&] { queue.back()->connect(address); }).second != "") {
      queue.back()->setConnectTimeout(1);  // the queue is full
    }
  }
  for (int iRound = 0; iRound < kRounds; ++iRound) {
    JTCPSocket client;
    client.setConnectTimeout(iRound % 2 == 0 ? -1 : 600'000);
    const Failure failure = closeUnder(iRound, client, [&] { client.connect(address); });
    EXPECT_TRUE(failure.first == 10004 || failure.first == 10038) << failure.first << failure.second;
  }
}

/// A number that was closed goes to the next socket that anybody opens. A thread that is still inside a call
/// on the old one must never touch that.
TEST(ClosingASocket, KeepsItsNumberFromOthersUntilTheLastCallHasLeft) {
  LogLines log;
  for (int iRound = 0; iRound < kRounds; ++iRound) {
    Connection connection;
    std::atomic<std::uint32_t> number{0};
    std::atomic<std::size_t> uRead{0};
    std::thread reader([&] {
      char buffer[16];
      number = qm_platform::threadId();
      failureOf([&] {
        for (;;) {
          uRead += connection.client.read(buffer, sizeof buffer);
        }
      });
    });
    meet(iRound, number);
    connection.client.close();
    int pair[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair), 0);
    JSocket left(JSocketNumber{pair[0]});
    JSocket right(JSocketNumber{pair[1]});
    left.write("left", 4);
    right.write("right", 5);
    reader.join();
    EXPECT_EQ(uRead, 0U);
    char buffer[16];
    left.setReadTimeout(0);
    right.setReadTimeout(0);
    EXPECT_EQ(left.read(buffer, sizeof buffer), 5U);
    EXPECT_EQ(right.read(buffer, sizeof buffer), 4U);
  }
}

}  // namespace
