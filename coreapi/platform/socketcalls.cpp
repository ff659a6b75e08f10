#include "coreapi/platform/socketcalls.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstring>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>
#include <utility>

#include "coreapi/platform/clock.h"
#include "coreapi/platform/faultseam.h"

namespace qm_platform {

namespace {

// An array of ours is handed to the system as an array of its own, without a copy.
static_assert(sizeof(SocketBuffer) == sizeof(iovec) && alignof(SocketBuffer) == alignof(iovec));
static_assert(offsetof(SocketBuffer, pData) == offsetof(iovec, iov_base));
static_assert(offsetof(SocketBuffer, uSize) == offsetof(iovec, iov_len));
static_assert(sizeof(sockaddr_in) == kSocketAddressSize);

/// Runs a system call that gives -1 and `errno` on failure, as often as it is interrupted.
template <typename Call>
SocketError run(Call call) noexcept {
  for (;;) {
    const Fault fault = takeFault(Seam::kSocket);
    int error = fault.error;
    if (fault.kind == FaultKind::kNone || fault.kind == FaultKind::kShort) {
      if (call(fault.kind == FaultKind::kShort) != -1) {
        return 0;
      }
      error = errno;
    }
    if (error != EINTR) {
      return socketErrorFromErrno(error);
    }
  }
}

sockaddr_storage toSystem(std::span<const std::uint8_t> address) noexcept {
  sockaddr_storage system{};
  if (!address.empty()) {
    std::memcpy(&system, address.data(), std::min(address.size(), sizeof system));
  }
  return system;
}

void fromSystem(const sockaddr_storage& system, socklen_t length, SocketAddressBytes& address) noexcept {
  address.size = std::min<std::size_t>(length, sizeof address.bytes);
  std::memcpy(address.bytes, &system, address.size);
}

socklen_t lengthOf(std::span<const std::uint8_t> address) noexcept {
  return static_cast<socklen_t>(std::min(address.size(), sizeof(sockaddr_storage)));
}

template <typename T>
SocketError setOption(int iSocket, int iLevel, int iName, const T& value) noexcept {
  return setSocketOption(iSocket, iLevel, iName, &value, sizeof value);
}

/// The header of a message over `buffers`, or over the first byte of them.
msghdr messageOver(std::span<const SocketBuffer> buffers, bool bShort, SocketBuffer& first) noexcept {
  msghdr message{};
  if (bShort && !buffers.empty()) {
    first = {buffers.front().pData, std::min<std::size_t>(buffers.front().uSize, 1)};
    buffers = {&first, 1};
  }
  message.msg_iov = reinterpret_cast<iovec*>(const_cast<SocketBuffer*>(buffers.data()));
  message.msg_iovlen = buffers.size();
  return message;
}

template <typename Name>
SocketError readAddress(SocketAddressBytes& address, Name name) noexcept {
  sockaddr_storage system{};
  socklen_t length = sizeof system;
  const SocketError error = run([&](bool) { return name(reinterpret_cast<sockaddr*>(&system), &length); });
  if (error == 0) {
    fromSystem(system, length, address);
  }
  return error;
}

}  // namespace

SocketError createSocket(SocketKind kind, int& iSocket) noexcept {
  const int iType = kind == SocketKind::kStream ? SOCK_STREAM : SOCK_DGRAM;
  iSocket = -1;
  return run([&](bool) { return iSocket = ::socket(AF_INET, iType | SOCK_CLOEXEC, 0); });
}

SocketError duplicateSocket(int iSocket, int& iDuplicate) noexcept {
  iDuplicate = -1;
  return run([&](bool) { return iDuplicate = ::fcntl(iSocket, F_DUPFD_CLOEXEC, 0); });
}

SocketError bindSocket(int iSocket, std::span<const std::uint8_t> address) noexcept {
  const sockaddr_storage system = toSystem(address);
  return run(
      [&](bool) { return ::bind(iSocket, reinterpret_cast<const sockaddr*>(&system), lengthOf(address)); });
}

SocketError listenSocket(int iSocket, int iBacklog) noexcept {
  const SocketError error = setNonBlocking(iSocket, true);
  return error != 0 ? error : run([&](bool) { return ::listen(iSocket, iBacklog); });
}

SocketError acceptConnection(int iListener, int& iConnection, SocketAddressBytes& peer) noexcept {
  iConnection = -1;
  sockaddr_storage system{};
  socklen_t length = sizeof system;
  SocketError error = run([&](bool) {
    return iConnection = ::accept4(iListener, reinterpret_cast<sockaddr*>(&system), &length, SOCK_CLOEXEC);
  });
  if (error != 0) {
    return error;
  }
  fromSystem(system, length, peer);
  // The system hands the listener's linger setting down. A connection that was accepted isn't reset by its
  // close: the last answer must reach the peer.
  error = setOption(iConnection, SOL_SOCKET, SO_LINGER, linger{0, 0});
  if (error != 0) {
    ::close(std::exchange(iConnection, -1));
  }
  return error;
}

SocketError connectSocket(int iSocket, std::span<const std::uint8_t> address, bool& bPending) noexcept {
  const sockaddr_storage system = toSystem(address);
  bPending = false;
  return run([&](bool) {
    const int iResult = ::connect(iSocket, reinterpret_cast<const sockaddr*>(&system), lengthOf(address));
    // An interrupted connect goes on in the background as well.
    bPending = iResult == -1 && (errno == EINPROGRESS || errno == EINTR);
    return bPending ? 0 : iResult;
  });
}

SocketError setNonBlocking(int iSocket, bool bNonBlocking) noexcept {
  return run([&](bool) {
    const int iFlags = ::fcntl(iSocket, F_GETFL);
    if (iFlags == -1) {
      return -1;
    }
    return ::fcntl(iSocket, F_SETFL, bNonBlocking ? iFlags | O_NONBLOCK : iFlags & ~O_NONBLOCK);
  });
}

bool isDatagramSocket(int iSocket) noexcept {
  int iType = 0;
  int iLength = sizeof iType;
  return getSocketOption(iSocket, SOL_SOCKET, SO_TYPE, &iType, iLength) == 0 && iType == SOCK_DGRAM;
}

SocketError receiveBytes(int iSocket, void* pBuffer, std::size_t uLength, bool bWait, bool bDatagram,
                         Received& received) noexcept {
  // For a datagram this flag gives its whole length; on a stream it would throw bytes away.
  const int iFlags = (bWait ? 0 : MSG_DONTWAIT) | (bDatagram ? MSG_TRUNC : 0);
  ssize_t count = 0;
  const SocketError error = run([&](bool bShort) {
    return count = ::recv(iSocket, pBuffer, bShort ? std::min<std::size_t>(uLength, 1) : uLength, iFlags);
  });
  if (error == 0) {
    received.bTruncated = static_cast<std::size_t>(count) > uLength;
    received.uBytes = std::min(static_cast<std::size_t>(count), uLength);
  }
  return error;
}

SocketError sendBytes(int iSocket, const void* pBuffer, std::size_t uLength, bool bWait,
                      std::size_t& uSent) noexcept {
  const int iFlags = MSG_NOSIGNAL | (bWait ? 0 : MSG_DONTWAIT);
  ssize_t count = 0;
  const SocketError error = run([&](bool bShort) {
    return count = ::send(iSocket, pBuffer, bShort ? std::min<std::size_t>(uLength, 1) : uLength, iFlags);
  });
  uSent = error == 0 ? static_cast<std::size_t>(count) : 0;
  return error;
}

SocketError receive(int iSocket, std::span<const SocketBuffer> buffers, bool bWait, int iFlags,
                    Received& received, SocketAddressBytes* from) noexcept {
  sockaddr_storage system;
  msghdr message{};
  ssize_t count = 0;
  const SocketError error = run([&](bool bShort) {
    SocketBuffer first{};
    message = messageOver(buffers, bShort, first);
    if (from != nullptr) {
      message.msg_name = &system;
      message.msg_namelen = sizeof system;
    }
    return count = ::recvmsg(iSocket, &message, iFlags | (bWait ? 0 : MSG_DONTWAIT));
  });
  if (error != 0) {
    return error;
  }
  received.uBytes = static_cast<std::size_t>(count);
  received.bTruncated = (message.msg_flags & MSG_TRUNC) != 0;
  if (from != nullptr) {
    fromSystem(system, message.msg_namelen, *from);
  }
  return 0;
}

SocketError send(int iSocket, std::span<const SocketBuffer> buffers, bool bWait, int iFlags,
                 std::span<const std::uint8_t> to, std::size_t& uSent) noexcept {
  sockaddr_storage system;
  if (!to.empty()) {
    system = toSystem(to);
  }
  ssize_t count = 0;
  const SocketError error = run([&](bool bShort) {
    SocketBuffer first{};
    msghdr message = messageOver(buffers, bShort, first);
    if (!to.empty()) {
      message.msg_name = &system;
      message.msg_namelen = lengthOf(to);
    }
    return count = ::sendmsg(iSocket, &message, iFlags | MSG_NOSIGNAL | (bWait ? 0 : MSG_DONTWAIT));
  });
  uSent = error == 0 ? static_cast<std::size_t>(count) : 0;
  return error;
}

SocketError waitForSocket(int iSocket, bool bToWrite, std::int64_t iMilliseconds, bool& bReady) noexcept {
  constexpr std::int64_t kNanosecondsPerMillisecond = 1'000'000;
  const std::int64_t iDue =
      iMilliseconds < 0 ? 0 : steadyClockNanoseconds() + iMilliseconds * kNanosecondsPerMillisecond;
  pollfd entry{iSocket, static_cast<short>(bToWrite ? POLLOUT : POLLIN), 0};
  std::int64_t iLeft = iMilliseconds;
  int iCount = 0;
  const SocketError error = run([&](bool) {
    iCount =
        ::poll(&entry, 1, iMilliseconds < 0 ? -1 : static_cast<int>(std::min<std::int64_t>(iLeft, INT_MAX)));
    if (iCount == -1 && errno == EINTR && iMilliseconds >= 0) {
      // Rounded up, so that the wait never ends early.
      iLeft = std::max<std::int64_t>(0, iDue - steadyClockNanoseconds() + kNanosecondsPerMillisecond - 1) /
              kNanosecondsPerMillisecond;
      errno = EINTR;
    }
    return iCount;
  });
  bReady = iCount > 0;
  return error;
}

SocketError shutdownSocket(int iSocket, bool bWrite) noexcept {
  return run([&](bool) { return ::shutdown(iSocket, bWrite ? SHUT_WR : SHUT_RD); });
}

SocketError getSocketOption(int iSocket, int iLevel, int iName, void* pValue, int& iLength) noexcept {
  auto length = static_cast<socklen_t>(std::max(iLength, 0));
  const SocketError error = run([&](bool) { return ::getsockopt(iSocket, iLevel, iName, pValue, &length); });
  iLength = static_cast<int>(length);
  return error;
}

SocketError setSocketOption(int iSocket, int iLevel, int iName, const void* pValue, int iLength) noexcept {
  const auto length = static_cast<socklen_t>(std::max(iLength, 0));
  return run([&](bool) { return ::setsockopt(iSocket, iLevel, iName, pValue, length); });
}

SocketError localAddress(int iSocket, SocketAddressBytes& address) noexcept {
  return readAddress(
      address, [&](sockaddr* pName, socklen_t* pLength) { return ::getsockname(iSocket, pName, pLength); });
}

SocketError remoteAddress(int iSocket, SocketAddressBytes& address) noexcept {
  return readAddress(
      address, [&](sockaddr* pName, socklen_t* pLength) { return ::getpeername(iSocket, pName, pLength); });
}

SocketError takeSocketError(int iSocket) noexcept {
  int iError = 0;
  int iLength = sizeof iError;
  const SocketError error = getSocketOption(iSocket, SOL_SOCKET, SO_ERROR, &iError, iLength);
  return error != 0 ? error : socketErrorFromErrno(iError);
}

SocketError setResetOnClose(int iSocket) noexcept {
  return setOption(iSocket, SOL_SOCKET, SO_LINGER, linger{1, 0});
}

SocketError setSendOnClose(int iSocket) noexcept {
  return setOption(iSocket, SOL_SOCKET, SO_LINGER, linger{0, 0});
}

SocketError setReuseAddress(int iSocket) noexcept {
  return setOption(iSocket, SOL_SOCKET, SO_REUSEADDR, 1);
}

SocketError setBroadcast(int iSocket) noexcept {
  return setOption(iSocket, SOL_SOCKET, SO_BROADCAST, 1);
}

SocketError setPrecedence(int iSocket, int iPrecedence) noexcept {
  constexpr int kHighest = 7;
  constexpr int kShift = 5;
  if (iPrecedence < 0 || iPrecedence > kHighest) {
    return kSocketInvalidArgument;
  }
  return setOption(iSocket, IPPROTO_IP, IP_TOS, iPrecedence << kShift);
}

SocketError setSendBuffer(int iSocket, int iBytes) noexcept {
  return setOption(iSocket, SOL_SOCKET, SO_SNDBUF, iBytes);
}

SocketError setReceiveBuffer(int iSocket, int iBytes) noexcept {
  return setOption(iSocket, SOL_SOCKET, SO_RCVBUF, iBytes);
}

SocketError setKeepAlive(int iSocket, bool bEnable, std::uint32_t uTime, std::uint32_t uInterval) noexcept {
  constexpr auto toSeconds = [](std::uint32_t uMilliseconds) {
    return static_cast<int>(std::max<std::uint32_t>(uMilliseconds / 1000 + (uMilliseconds % 1000 != 0), 1));
  };
  SocketError error = setOption(iSocket, SOL_SOCKET, SO_KEEPALIVE, bEnable ? 1 : 0);
  if (error == 0) {
    error = setOption(iSocket, IPPROTO_TCP, TCP_KEEPIDLE, toSeconds(uTime));
  }
  if (error == 0) {
    error = setOption(iSocket, IPPROTO_TCP, TCP_KEEPINTVL, toSeconds(uInterval));
  }
  return error;
}

SocketError largestPacket(int iSocket, int& iBytes) noexcept {
  if (isDatagramSocket(iSocket)) {
    iBytes = kLargestDatagram;
    return 0;
  }
  int iLength = sizeof iBytes;
  return getSocketOption(iSocket, IPPROTO_TCP, TCP_MAXSEG, &iBytes, iLength);
}

SocketError joinGroup(int iSocket, std::uint32_t uGroup, std::uint32_t uInterface) noexcept {
  const SocketError error = setOption(iSocket, IPPROTO_IP, IP_MULTICAST_ALL, 0);
  return error != 0 ? error
                    : setOption(iSocket, IPPROTO_IP, IP_ADD_MEMBERSHIP, ip_mreq{{uGroup}, {uInterface}});
}

SocketError setGroupInterface(int iSocket, std::uint32_t uInterface) noexcept {
  return setOption(iSocket, IPPROTO_IP, IP_MULTICAST_IF, in_addr{uInterface});
}

SocketError setGroupLoopback(int iSocket, bool bEnable) noexcept {
  return setOption(iSocket, IPPROTO_IP, IP_MULTICAST_LOOP, bEnable ? 1 : 0);
}

SocketError setGroupTTL(int iSocket, int iHops) noexcept {
  return setOption(iSocket, IPPROTO_IP, IP_MULTICAST_TTL, iHops);
}

}  // namespace qm_platform
