#include "coreapi/qmutils/socket/jsocket.h"

#include <algorithm>
#include <array>
#include <cstdarg>
#include <span>

#include "coreapi/platform/clock.h"
#include "coreapi/platform/netname.h"
#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/log/JLog.h"
#include "coreapi/qmutils/socket/jiobufiterator.h"

using qm_platform::SocketBuffer;
using qm_platform::SocketError;

namespace {

/// What every framing above a stream socket needs of a packet at least.
constexpr int kSmallestMTU = 24;

static_assert(JIoBufIterator::kCapacity == qm_platform::kMaxSocketBuffers);

/// The caller's array in the form of the platform, on the stack: a batch allocates nothing.
class BufferArray {
 public:
  BufferArray(const JIoBuf* pBuffers, std::size_t uCount, const char* szFunction) : m_uCount(uCount) {
    if (uCount > m_buffers.size()) {
      QM_THROW(JSysError, qm_platform::kSocketInvalidArgument | JSysError::kSocketClass, szFunction);
    }
    std::transform(pBuffers, pBuffers + uCount, m_buffers.begin(), [](const JIoBuf& buffer) {
      return SocketBuffer{buffer.pBuf, buffer.bufLength};
    });
  }

  std::span<const SocketBuffer> get() const noexcept { return {m_buffers.data(), m_uCount}; }

 private:
  std::array<SocketBuffer, qm_platform::kMaxSocketBuffers> m_buffers;
  std::size_t m_uCount;
};

}  // namespace

JSocket::JSocket(std::uint32_t* pTraceMask, const std::string& sName)
    : JTraceableObject(nameOr(sName, "JSocket"), pTraceMask) {}

JSocket::JSocket(JSocketNumber handle, std::uint32_t* pTraceMask, const std::string& sName)
    : JSocket(pTraceMask, sName) {
  setHandle(handle.iNumber);
}

std::string JSocket::nameOr(const std::string& sName, const char* szDefault) {
  return sName == kDefaultName ? szDefault : sName;
}

JSocket::~JSocket() {
  JSocket::close();
}

void JSocket::setHandle(int iHandle) noexcept {
  m_bDatagram = qm_platform::isDatagramSocket(iHandle);
  m_handle.reset(iHandle);
}

void JSocket::fail(SocketError error, const std::string& sFunction) {
  QM_THROW(JSysError, error | JSysError::kSocketClass, sFunction.c_str());
}

void JSocket::logLine(int iLevel, const char* szFormat, ...) const {
  va_list arguments;
  va_start(arguments, szFormat);
  JLog::logV(static_cast<std::uint32_t>(iLevel), static_cast<const JTraceableObject*>(this), szFormat,
             arguments);
  va_end(arguments);
}

std::uint32_t* JSocket::getTraceMask() const {
  return JTraceableObject::getTraceMask();
}

const std::string& JSocket::getName() const {
  return JTraceableObject::getName();
}

bool JSocket::isTraceEnabled(std::uint32_t uBits) const {
  return JTraceableObject::isTraceEnabled(uBits);
}

void JSocket::trace(const char* szFormat, ...) const {
  va_list arguments;
  va_start(arguments, szFormat);
  traceV(szFormat, arguments);
  va_end(arguments);
}

void JSocket::WaitLimit::wait(int iSocket, bool bToWrite) {
  constexpr std::int64_t kNanosecondsPerMillisecond = 1'000'000;
  std::int64_t iLeft = m_iMilliseconds;
  if (m_iMilliseconds >= 0) {
    const std::int64_t iNow = qm_platform::steadyClockNanoseconds();
    if (m_iDue == 0) {
      m_iDue = iNow + m_iMilliseconds * kNanosecondsPerMillisecond;
    }
    iLeft = std::max<std::int64_t>(0, m_iDue - iNow + kNanosecondsPerMillisecond - 1) /
            kNanosecondsPerMillisecond;
  }
  bool bReady = false;
  const SocketError error = qm_platform::waitForSocket(iSocket, bToWrite, iLeft, bReady);
  if (error != 0) {
    fail(error, "select");
  }
  if (!bReady) {
    QM_THROW(JTimeoutError);
  }
}

std::unique_ptr<JSockAddr> JSocket::getLocalAddress() const {
  qm_platform::SocketAddressBytes address;
  control("getsockname", [&](int iSocket) { return qm_platform::localAddress(iSocket, address); });
  return std::make_unique<JSockAddr>(address.bytes, address.size);
}

std::unique_ptr<JSockAddr> JSocket::getRemoteAddress() const {
  qm_platform::SocketAddressBytes address;
  control("getpeername", [&](int iSocket) { return qm_platform::remoteAddress(iSocket, address); });
  return std::make_unique<JSockAddr>(address.bytes, address.size);
}

void JSocket::setReadTimeout(std::int32_t iMilliseconds) {
  m_iReadTimeout = iMilliseconds;
}

std::int32_t JSocket::getReadTimeout() const {
  return m_iReadTimeout;
}

std::uint32_t JSocket::getMTU() const {
  int iBytes = 0;
  control("getsockopt", [&](int iSocket) { return qm_platform::largestPacket(iSocket, iBytes); });
  return static_cast<std::uint32_t>(std::max(iBytes, kSmallestMTU));
}

std::string JSocket::getProtocol() const {
  return {};
}

std::size_t JSocket::read(void* pBuffer, std::size_t uLength) {
  qm_platform::Received received;
  SocketError error = receiving(received, [&](int iSocket, bool bWait) {
    return qm_platform::receiveBytes(iSocket, pBuffer, uLength, bWait, m_bDatagram, received);
  });
  if (error == 0 && received.bTruncated) {
    error = qm_platform::kSocketMessageSize;
  }
  if (error != 0) {
    fail(error, "recv");
  }
  return received.uBytes;
}

std::size_t JSocket::readv(JIoBuf* pBuffers, std::size_t uCount) {
  const BufferArray buffers(pBuffers, uCount, "WSARecv");
  qm_platform::Received received;
  const SocketError error = receiving(received, [&](int iSocket, bool bWait) {
    return qm_platform::receive(iSocket, buffers.get(), bWait, 0, received, nullptr);
  });
  if (error == qm_platform::kSocketMessageSize || (error == 0 && received.bTruncated)) {
    QM_THROW(JBufferSizeError);
  }
  if (error != 0) {
    fail(error, "WSARecv");
  }
  return received.uBytes;
}

void JSocket::close() {
  const int iHandle = m_handle.close();
  if (iHandle != -1) {
    logLine(qm_err::kLogTraceNetwork, "Closed socket '%d'", iHandle);
  }
}

void JSocket::shutdownSide(bool bWrite) {
  int iHandle = -1;
  control("shutdown", [&](int iSocket) { return qm_platform::shutdownSocket(iHandle = iSocket, bWrite); });
  logLine(qm_err::kLogTraceNetwork, "Shut down socket '%d'", iHandle);
}

void JSocket::shutdownRead() {
  shutdownSide(false);
}

void JSocket::shutdownWrite() {
  shutdownSide(true);
}

void JSocket::setWriteTimeout(std::int32_t iMilliseconds) {
  m_iWriteTimeout = iMilliseconds;
  if (iMilliseconds == 0) {
    logLine(qm_err::kLogError,
            "WARNING: Write timeout set to 0 on socket '%d'. This is usually abnormal!!!\n", getHandle());
  } else {
    logLine(qm_err::kLogTraceNetwork, "Write timeout set to '%d' on socket '%d'", iMilliseconds, getHandle());
  }
}

std::int32_t JSocket::getWriteTimeout() const {
  return m_iWriteTimeout;
}

/// Sends once within the write time-out, by a call that also takes where to put the number of bytes.
template <typename Call>
std::size_t JSocket::sending(const char* szFunction, Call call) {
  std::size_t uSent = 0;
  const Use use(m_handle, Side::kWrite);
  const SocketError error = blocking(use, true, m_iWriteTimeout,
                                     [&](int iSocket, bool bWait) { return call(iSocket, bWait, uSent); });
  if (error != 0) {
    fail(error, szFunction);
  }
  return uSent;
}

std::size_t JSocket::write(const void* pBuffer, std::size_t uLength) {
  return sending("send", [&](int iSocket, bool bWait, std::size_t& uSent) {
    return qm_platform::sendBytes(iSocket, pBuffer, uLength, bWait, uSent);
  });
}

std::size_t JSocket::writev(const JIoBuf* pBuffers, std::size_t uCount) {
  const BufferArray buffers(pBuffers, uCount, "WSASend");
  return sending("WSASend", [&](int iSocket, bool bWait, std::size_t& uSent) {
    return qm_platform::send(iSocket, buffers.get(), bWait, 0, {}, uSent);
  });
}

void JSocket::getOption(int iLevel, int iName, void* pValue, int& iLength) const {
  control("getsockopt",
          [&](int iSocket) { return qm_platform::getSocketOption(iSocket, iLevel, iName, pValue, iLength); });
}

void JSocket::setOption(int iLevel, int iName, const void* pValue, int iLength) {
  control("setsockopt",
          [&](int iSocket) { return qm_platform::setSocketOption(iSocket, iLevel, iName, pValue, iLength); });
}

void JSocket::bind(const JSockAddr& address) {
  control("bind", [&](int iSocket) { return qm_platform::bindSocket(iSocket, address.getBytes()); });
}

void JSocket::setConnectTimeout(std::int32_t iMilliseconds) {
  m_iConnectTimeout = iMilliseconds;
  logLine(qm_err::kLogTraceNetwork, "Connect timeout set to '%d' on socket '%d'", iMilliseconds, getHandle());
}

std::int32_t JSocket::getConnectTimeout() const {
  return m_iConnectTimeout;
}

void JSocket::setAcceptTimeout(std::int32_t iMilliseconds) {
  m_iAcceptTimeout = iMilliseconds;
  logLine(qm_err::kLogTraceNetwork, "Accept timeout set to '%d' on socket '%d'", iMilliseconds, getHandle());
}

std::int32_t JSocket::getAcceptTimeout() const {
  return m_iAcceptTimeout;
}

std::string JSocket::getHostName() {
  return qm_platform::computerName();
}
