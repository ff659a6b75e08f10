#include "coreapi/qmstream/oframesocket.h"

#include <cstdarg>
#include <exception>
#include <utility>

#include "coreapi/platform/clock.h"
#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/socket/jiobufarray.h"

namespace qm_stream {

namespace {

std::string nameOf(const JOSocket* pInner, const char* szPrefix) {
  return pInner != nullptr ? szPrefix + pInner->getName() : szPrefix;
}

}  // namespace

OFrameSocket::OFrameSocket(std::unique_ptr<JOSocket> pInner, const char* szNamePrefix,
                           std::uint32_t uHeaderSize, const char* szError)
    : JTraceableObject(nameOf(pInner.get(), szNamePrefix)),
      m_pInner(std::move(pInner)),
      m_uHeaderSize(uHeaderSize) {
  if (m_pInner == nullptr || m_pInner->getMTU() < uHeaderSize) {
    QM_THROW(JTextError, "%s", szError);
  }
}

OFrameSocket::~OFrameSocket() = default;

std::uint32_t* OFrameSocket::getTraceMask() const {
  return JTraceableObject::getTraceMask();
}

const std::string& OFrameSocket::getName() const {
  return JTraceableObject::getName();
}

bool OFrameSocket::isTraceEnabled(std::uint32_t uBits) const {
  return JTraceableObject::isTraceEnabled(uBits);
}

void OFrameSocket::trace(const char* szFormat, ...) const {
  va_list arguments;
  va_start(arguments, szFormat);
  traceV(szFormat, arguments);
  va_end(arguments);
}

std::unique_ptr<JSockAddr> OFrameSocket::getLocalAddress() const {
  return m_pInner->getLocalAddress();
}

std::unique_ptr<JSockAddr> OFrameSocket::getRemoteAddress() const {
  return m_pInner->getRemoteAddress();
}

void OFrameSocket::setWriteTimeout(std::int32_t iMilliseconds) {
  m_pInner->setWriteTimeout(iMilliseconds);
}

std::int32_t OFrameSocket::getWriteTimeout() const {
  return m_pInner->getWriteTimeout();
}

const JTime& OFrameSocket::getTimeOrigin() const {
  return m_pInner->getTimeOrigin();
}

std::uint32_t OFrameSocket::getMTU() const {
  return m_pInner->getMTU() - m_uHeaderSize;
}

std::uint32_t OFrameSocket::getHeaderSize() const {
  return m_uHeaderSize;
}

void OFrameSocket::shutdownWrite() {}

std::size_t OFrameSocket::write(const void* pBuffer, std::size_t uLength) {
  if (uLength > UINT32_MAX) {
    QM_THROW(JBufferSizeError);
  }
  const JIoBuf buffer{const_cast<void*>(pBuffer), static_cast<std::uint32_t>(uLength)};
  return writev(&buffer, 1);
}

std::size_t OFrameSocket::send(const JIoBuf* pBuffers, std::size_t uCount, std::uint64_t uTotal) {
  if (!std::exchange(m_bWhole, false)) {
    QM_THROW(JTextError, "the stream has been broken off");
  }
  if (m_bGathering && uTotal <= kGatheredFrame) {
    if (m_kept.size() + uTotal > kGatheredBytes) {
      sendBehindKept(nullptr, 0);
    }
    for (std::size_t i = 0; i < uCount; ++i) {
      const auto* const pBytes = static_cast<const std::uint8_t*>(pBuffers[i].pBuf);
      m_kept.insert(m_kept.end(), pBytes, pBytes + pBuffers[i].bufLength);
    }
    m_bWhole = true;
    return static_cast<std::size_t>(uTotal);
  }
  const std::size_t uTaken = sendBehindKept(pBuffers, uCount);
  m_bWhole = uTaken == uTotal;
  return uTaken;
}

void OFrameSocket::gatherSmallFrames() {
  m_kept.reserve(kGatheredBytes);
  m_bGathering = true;
}

void OFrameSocket::flush() {
  if (!std::exchange(m_bWhole, false)) {
    QM_THROW(JTextError, "the stream has been broken off");
  }
  sendBehindKept(nullptr, 0);
  m_bWhole = true;
}

/// Sends what is kept and a frame behind it. Returns how much of the frame the connection took.
std::size_t OFrameSocket::sendBehindKept(const JIoBuf* pBuffers, std::size_t uCount) {
  const std::size_t uKept = m_kept.size();
  if (uKept == 0) {
    return uCount != 0 ? m_pInner->writev(pBuffers, uCount) : 0;
  }
  JIoBufArray all;
  all.append(m_kept.data(), static_cast<std::uint32_t>(uKept));
  if (!all.append(pBuffers, uCount)) {
    QM_THROW(JBufferSizeError);
  }
  const std::size_t uTaken = m_pInner->writev(all.data(), all.size());
  if (uTaken < uKept) {
    QM_THROW(JTextError, "the connection took %zu bytes of %zu", uTaken, uKept);
  }
  m_kept.clear();
  return uTaken - uKept;
}

void OFrameSocket::endStream(const void* pMarker) noexcept {
  if (!m_bWhole) {
    return;
  }
  try {
    if (m_kept.empty()) {
      m_pInner->write(pMarker, m_uHeaderSize);
    } else {
      const JIoBuf marker{const_cast<void*>(pMarker), m_uHeaderSize};
      sendBehindKept(&marker, 1);
    }
    m_pInner->shutdownWrite();
    waitForReader();
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    JCATCH_LOG(error.get());
  } catch (const std::exception&) {
    // Without memory the stream ends without its marker.
  }
}

/// Waits until the connection's other end has closed it or broken it off.
void OFrameSocket::waitForReader() noexcept {
  auto* const pInput = dynamic_cast<JISocket*>(m_pInner.get());
  if (pInput == nullptr) {
    return;  // nothing tells when it is read
  }
  constexpr std::int64_t kNanosecondsPerMillisecond = 1'000'000;
  const std::int64_t iDue =
      qm_platform::steadyClockNanoseconds() + kEndWaitMilliseconds * kNanosecondsPerMillisecond;
  char dropped[256];
  for (;;) {
    const std::int64_t iLeft = iDue - qm_platform::steadyClockNanoseconds();
    if (iLeft <= 0) {
      qm_err::log(qm_err::kLogWarning, "%s: the reader hasn't closed the connection within %d ms",
                  getName().c_str(), kEndWaitMilliseconds);
      return;
    }
    pInput->setReadTimeout(static_cast<std::int32_t>(iLeft / kNanosecondsPerMillisecond + 1));
    const std::int64_t iRead = pInput->readNoThrow(dropped, sizeof dropped);
    if (iRead == 0 || (iRead < 0 && qm_platform::steadyClockNanoseconds() < iDue)) {
      return;
    }
  }
}

}  // namespace qm_stream
