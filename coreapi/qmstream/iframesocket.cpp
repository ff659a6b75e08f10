#include "coreapi/qmstream/iframesocket.h"

#include <cstdarg>
#include <utility>

#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/socket/jiobufarray.h"

namespace qm_stream {

namespace {

std::string nameOf(const JISocket* pInner, const char* szPrefix) {
  return pInner != nullptr ? szPrefix + pInner->getName() : szPrefix;
}

std::unique_ptr<JISocket> checked(std::unique_ptr<JISocket> pInner, std::uint32_t uHeaderSize,
                                  const char* szError) {
  if (pInner == nullptr || pInner->getMTU() < uHeaderSize) {
    QM_THROW(JTextError, "%s", szError);
  }
  return pInner;
}

}  // namespace

IFrameSocket::IFrameSocket(std::unique_ptr<JISocket> pInner, const char* szNamePrefix,
                           std::uint32_t uHeaderSize, std::uint32_t* pTraceMask, const char* szError)
    : JTraceableObject(nameOf(pInner.get(), szNamePrefix), pTraceMask),
      m_pInner(checked(std::move(pInner), uHeaderSize, szError)),
      m_uHeaderSize(uHeaderSize),
      m_ahead(*m_pInner, uHeaderSize) {}

IFrameSocket::~IFrameSocket() = default;

std::uint32_t* IFrameSocket::getTraceMask() const {
  return JTraceableObject::getTraceMask();
}

const std::string& IFrameSocket::getName() const {
  return JTraceableObject::getName();
}

bool IFrameSocket::isTraceEnabled(std::uint32_t uBits) const {
  return JTraceableObject::isTraceEnabled(uBits);
}

void IFrameSocket::trace(const char* szFormat, ...) const {
  va_list arguments;
  va_start(arguments, szFormat);
  traceV(szFormat, arguments);
  va_end(arguments);
}

std::unique_ptr<JSockAddr> IFrameSocket::getLocalAddress() const {
  return m_pInner->getLocalAddress();
}

std::unique_ptr<JSockAddr> IFrameSocket::getRemoteAddress() const {
  return m_pInner->getRemoteAddress();
}

void IFrameSocket::setReadTimeout(std::int32_t iMilliseconds) {
  m_pInner->setReadTimeout(iMilliseconds);
}

std::int32_t IFrameSocket::getReadTimeout() const {
  return m_pInner->getReadTimeout();
}

const JTime& IFrameSocket::getTimeOrigin() const {
  return m_pInner->getTimeOrigin();
}

std::uint32_t IFrameSocket::getMTU() const {
  return m_pInner->getMTU() - m_uHeaderSize;
}

void IFrameSocket::close() {
  m_pInner->close();
}

void IFrameSocket::shutdownRead() {
  m_pInner->shutdownRead();
}

std::size_t IFrameSocket::read(void* pBuffer, std::size_t uLength) {
  if (uLength > UINT32_MAX) {
    uLength = UINT32_MAX;  // far above what a frame may have
  }
  JIoBuf buffer{pBuffer, static_cast<std::uint32_t>(uLength)};
  return readv(&buffer, 1);
}

std::uint32_t IFrameSocket::getNextFrameSize() {
  if (m_bLost) {
    QM_THROW(JTextError, "an earlier read failed inside a frame");
  }
  if (m_uHeaderFilled != m_uHeaderSize) {
    m_ahead.readHeader(m_header.data(), m_uHeaderFilled);
  }
  const std::uint32_t uSize = parseHeader();
  if (uSize > kMaxFrameSize) {
    QM_THROW(JTextError, "frame of %u bytes is larger than %u", uSize, kMaxFrameSize);
  }
  return uSize;
}

void IFrameSocket::takePayload(const JIoBuf* pBuffers, std::size_t uCount, std::uint32_t uOffset,
                               std::uint32_t uSize) {
  std::uint64_t uRoom = 0;
  for (std::size_t i = 0; i < uCount && uCount <= JIoBufArray::kCapacity; ++i) {
    uRoom += pBuffers[i].bufLength;
  }
  if (uRoom < std::uint64_t{uOffset} + uSize) {
    QM_THROW(JBufferSizeError);
  }
  m_uHeaderFilled = 0;
  m_bLost = true;
  m_ahead.readPayload(pBuffers, uCount, uOffset, uSize);
  m_bLost = false;
}

}  // namespace qm_stream
