// What the socket classes cost over the bare system calls, in 64 KiB blocks over a loopback connection. One
// thread fills the connection and empties it again, block by block, and only the call in question is timed:
// so neither side waits for the other, and what else the machine does touches both alike. A ratio of 0.97
// means 3% on top.
//
//   read, readv            ours against recv and recvmsg
//   write, writev          ours against send and sendmsg
//   the same, timed        with a time-out set, which the bare calls don't have

#include <array>
#include <ctime>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <sys/socket.h>
#include <sys/uio.h>
#include <vector>

#include "bench/support/compare.h"
#include "coreapi/qmutils/log/JLog.h"
#include "coreapi/qmutils/socket/jtcpsocket.h"

namespace {

constexpr std::size_t kBlock = 65536;
constexpr std::size_t kBlocks = 2000;
constexpr int kPairs = 41;
constexpr double kGoal = 0.97;
constexpr std::size_t kBuffers = 16;  // of a scattered or gathered block

/// A connection and two blocks to work on.
struct Pair {
  Pair() {
    client.connect(JInetAddr("127.0.0.1", listener.getLocalPort()));
    pServer = listener.accept();
    for (std::size_t i = 0; i < kBuffers; ++i) {
      constexpr std::size_t kPart = kBlock / kBuffers;
      ours[i] = {block.data() + i * kPart, kPart};
      bare[i] = {block.data() + i * kPart, kPart};
    }
  }

  JTCPSocket listener{std::uint16_t{0}};
  JTCPSocket client;
  std::unique_ptr<JSocket> pServer;
  std::vector<char> block = std::vector<char>(kBlock);
  std::array<JIoBuf, kBuffers> ours;
  std::array<iovec, kBuffers> bare;
};

using Step = std::function<std::size_t()>;

/// Processor time of this thread in nanoseconds.
std::int64_t threadTime() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return std::int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

/// Moves one block through the connection again and again, and returns the seconds that `timed` took of that.
/// Each step returns the bytes that it moved; the reader's is repeated until the block is through.
double run(const Step& write, const Step& read, const Step& timed) {
  std::int64_t iTaken = 0;
  const auto step = [&](const Step& move) {
    if (&move != &timed) {
      return move();
    }
    const std::int64_t iStart = threadTime();
    const std::size_t uMoved = move();
    iTaken += threadTime() - iStart;
    return uMoved;
  };
  for (std::size_t i = 0; i < kBlocks; ++i) {
    for (std::size_t uLeft = step(write); uLeft != 0;) {
      uLeft -= step(read);
    }
  }
  return static_cast<double>(iTaken) * 1e-9;
}

std::size_t bareSend(int iSocket, std::span<const iovec> buffers) {
  msghdr message{};
  message.msg_iov = const_cast<iovec*>(buffers.data());
  message.msg_iovlen = buffers.size();
  return static_cast<std::size_t>(sendmsg(iSocket, &message, MSG_NOSIGNAL));
}

std::size_t bareReceive(int iSocket, std::span<const iovec> buffers) {
  msghdr message{};
  message.msg_iov = const_cast<iovec*>(buffers.data());
  message.msg_iovlen = buffers.size();
  return static_cast<std::size_t>(recvmsg(iSocket, &message, 0));
}

void compareAll(Pair& pair, const std::string& sName) {
  const int iReader = pair.pServer->getHandle();
  const int iWriter = pair.client.getHandle();
  const Step bareWrite = [&] {
    return static_cast<std::size_t>(send(iWriter, pair.block.data(), kBlock, MSG_NOSIGNAL));
  };
  const Step bareRead = [&] { return static_cast<std::size_t>(recv(iReader, pair.block.data(), kBlock, 0)); };
  const Step bareWritev = [&] { return bareSend(iWriter, pair.bare); };
  const Step bareReadv = [&] { return bareReceive(iReader, pair.bare); };
  const Step read = [&] { return pair.pServer->read(pair.block.data(), kBlock); };
  const Step readv = [&] { return pair.pServer->readv(pair.ours.data(), kBuffers); };
  const Step write = [&] { return pair.client.write(pair.block.data(), kBlock); };
  const Step writev = [&] { return pair.client.writev(pair.ours.data(), kBuffers); };

  const auto compareReads = [&](const char* szCall, const char* szPeer, const Step& ours, const Step& peer) {
    qm_bench::compare(
        {szCall + sName, szPeer, kGoal, kPairs}, [&] { return run(bareWrite, ours, ours); },
        [&] { return run(bareWrite, peer, peer); });
  };
  const auto compareWrites = [&](const char* szCall, const char* szPeer, const Step& ours, const Step& peer) {
    qm_bench::compare(
        {szCall + sName, szPeer, kGoal, kPairs}, [&] { return run(ours, bareRead, ours); },
        [&] { return run(peer, bareRead, peer); });
  };
  compareReads("read", "recv", read, bareRead);
  compareReads("readv", "recvmsg", readv, bareReadv);
  compareWrites("write", "send", write, bareWrite);
  compareWrites("writev", "sendmsg", writev, bareWritev);
}

}  // namespace

int main() {
  JLog::init();
  JLog::deleteOutputs();
  Pair pair;
  compareAll(pair, " 64 KiB");
  pair.pServer->setReadTimeout(60'000);
  pair.client.setWriteTimeout(60'000);
  compareAll(pair, " 64 KiB, timed");
}
