#include "coreapi/qmstream/qmtpkt.h"

#include <cstring>
#include <utility>

#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/socket/jiobufarray.h"

namespace qm_stream {

namespace {

constexpr std::uint32_t kHeaderSize = TPKT::kSize;

/// Both ends log under this name.
constexpr const char* kNamePrefix = "OTPKTSocket::";

/// Shortens the buffer in which a frame of `uSize` bytes ends, and returns how many buffers the frame takes.
/// Buffers with less room than that stay as they are.
std::size_t limitTo(JIoBuf* pBuffers, std::size_t uCount, std::uint32_t uSize) {
  for (std::size_t i = 0; i < uCount; ++i) {
    if (pBuffers[i].bufLength >= uSize) {
      pBuffers[i].bufLength = uSize;
      return i + 1;
    }
    uSize -= pBuffers[i].bufLength;
  }
  return uCount;
}

}  // namespace

OTPKTSocket::OTPKTSocket(std::unique_ptr<JOSocket> pInner)
    : OFrameSocket(std::move(pInner), kNamePrefix, kHeaderSize,
                   "invalid params given to OTPKTSocket constructor") {}

OTPKTSocket::~OTPKTSocket() {
  endStream(TPKT().data());
}

std::string OTPKTSocket::getProtocol() const {
  return "qmtpkt";
}

std::size_t OTPKTSocket::writev(const JIoBuf* pBuffers, std::size_t uCount) {
  std::uint64_t uSum = 0;
  for (std::size_t i = 0; i < uCount; ++i) {
    uSum += pBuffers[i].bufLength;
  }
  if (uSum > kMaxFrameSize) {
    QM_THROW(JBufferSizeError);
  }
  TPKT header(static_cast<std::uint32_t>(uSum));
  JIoBufArray frame;
  frame.append(header.data(), kHeaderSize);
  if (!frame.append(pBuffers, uCount)) {
    QM_THROW(JBufferSizeError);
  }
  return send(frame.data(), frame.size(), kHeaderSize + uSum);
}

ITPKTSocket::ITPKTSocket(std::unique_ptr<JISocket> pInner, std::uint32_t* pTraceMask)
    : IFrameSocket(std::move(pInner), kNamePrefix, kHeaderSize, pTraceMask,
                   "invalid params given to ITPKTSocket constructor") {}

std::string ITPKTSocket::getProtocol() const {
  return "qmtpkt";
}

std::uint32_t ITPKTSocket::parseHeader() const {
  TPKT header;
  std::memcpy(header.data(), getHeader(), kHeaderSize);
  if (header.getVersion() != TPKT::kCurrentVersion) {
    QM_THROW(JTextError, "invalid QMTPKT version!");
  }
  return header.getLength();
}

std::size_t ITPKTSocket::readv(JIoBuf* pBuffers, std::size_t uCount) {
  const std::uint32_t uLength = getNextFrameSize();
  if (uLength != 0) {
    takePayload(pBuffers, limitTo(pBuffers, uCount, uLength), 0, uLength);
  }
  return uLength;
}

}  // namespace qm_stream
