#include "coreapi/qmutils/socket/jtcpsocket.h"

#include "coreapi/platform/clock.h"
#include "coreapi/platform/socketcalls.h"
#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/socket/jiobufiterator.h"

namespace {

constexpr int kListenBacklog = 0x7FFFFFFF;

/// Accepted connections of the sockets that are made here are probed after 3 seconds of silence.
constexpr std::uint32_t kKeepAliveMilliseconds = 3000;

}  // namespace

JTCPSocket::JTCPSocket(std::uint32_t* pTraceMask, const std::string& sName)
    : JStreamSocket(pTraceMask, sName) {
  createHandle();
}

JTCPSocket::JTCPSocket(const JSockAddr& address, std::uint32_t* pTraceMask, const std::string& sName)
    : JTCPSocket(pTraceMask, sName) {
  connect(address);
}

JTCPSocket::JTCPSocket(std::uint16_t uPort, std::uint32_t* pTraceMask, const std::string& sName)
    : JTCPSocket(pTraceMask, sName) {
  bind(uPort);
  listen(kListenBacklog);
}

JTCPSocket::JTCPSocket(JSocketNumber handle, std::uint32_t* pTraceMask, const std::string& sName)
    : JStreamSocket(handle, pTraceMask, sName) {}

void JTCPSocket::createHandle() {
  m_keepAlive = {1, kKeepAliveMilliseconds, kKeepAliveMilliseconds};
  int iHandle = -1;
  const qm_platform::SocketError error = qm_platform::createSocket(qm_platform::SocketKind::kStream, iHandle);
  if (error != 0) {
    fail(error, "socket");
  }
  setHandle(iHandle);
  logLine(qm_err::kLogTraceNetwork, "Created TCP Socket '%d'", iHandle);
  control("setsockopt", qm_platform::setResetOnClose);
}

std::string JTCPSocket::getProtocol() const {
  return "tcp";
}

void JTCPSocket::bind(const JSockAddr& address) {
  control("setsockopt", qm_platform::setReuseAddress);
  JStreamSocket::bind(address);
}

void JTCPSocket::bind(std::uint16_t uPort) {
  bind(JInetAddr(0, uPort));
  logLine(qm_err::kLogTraceNetwork, "Bound TCP Socket '%d' to port '%d'", getHandle(), uPort);
}

std::uint16_t JTCPSocket::getLocalPort() const {
  return JInetAddr(*getLocalAddress()).getPort();
}

std::unique_ptr<JSocket> JTCPSocket::accept(std::unique_ptr<JSockAddr>* pPeer) {
  const int iConnection = acceptHandle(pPeer);
  return iConnection == -1 ? nullptr : std::make_unique<JTCPSocket>(JSocketNumber{iConnection});
}

void JTCPSocket::checkWriteTime(std::int64_t iStart, const char* szOperation) const {
  constexpr std::int64_t kNanosecondsPerMillisecond = 1'000'000;
  const std::int64_t iLimit = getWriteTimeout();
  if (iLimit >= 0 && qm_platform::steadyClockNanoseconds() - iStart > iLimit * kNanosecondsPerMillisecond) {
    logLine(qm_err::kLogError, "JTCPSocket::%s - throwing time out error...\n", szOperation);
    QM_THROW(JTimeoutError);
  }
}

std::size_t JTCPSocket::write(const void* pBuffer, std::size_t uLength) {
  const std::int64_t iStart = qm_platform::steadyClockNanoseconds();
  const auto* pNext = static_cast<const char*>(pBuffer);
  std::size_t uLeft = uLength;
  while (uLeft != 0) {
    const std::size_t uTaken = JStreamSocket::write(pNext, uLeft);
    pNext += uTaken;
    uLeft -= uTaken;
    if (uLeft != 0) {
      checkWriteTime(iStart, "write");
    }
  }
  return uLength;
}

std::size_t JTCPSocket::writev(const JIoBuf* pBuffers, std::size_t uCount) {
  JASSERT(uCount <= JIoBufIterator::kCapacity);
  std::uint64_t uTotal = 0;
  for (std::size_t i = 0; i < uCount; ++i) {
    uTotal += pBuffers[i].bufLength;
  }
  if (uCount > JIoBufIterator::kCapacity || uTotal == 0) {
    return 0;
  }
  const std::int64_t iStart = qm_platform::steadyClockNanoseconds();
  std::size_t uSum = JStreamSocket::writev(pBuffers, uCount);
  if (uSum == uTotal) {
    return uSum;  // most often, so that the iterator's copy isn't made
  }
  JIoBufIterator rest(pBuffers, uCount);
  rest.advance(uSum);
  while (rest.bufs_length() != 0) {
    checkWriteTime(iStart, "writev");
    const std::size_t uTaken = JStreamSocket::writev(rest.current(), rest.count());
    uSum += uTaken;
    rest.advance(uTaken);
  }
  return uSum;
}
