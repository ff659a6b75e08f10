#include "coreapi/qmstream/qmrcpy30.h"

#include <cstring>
#include <utility>

#include "coreapi/qmci/asserted.h"
#include "coreapi/qmci/bitstream.h"
#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/socket/jiobufarray.h"

namespace qm_stream {

namespace {

constexpr std::uint32_t kHeaderSize = RemoteCopyFrameHeader::kSize;

/// Both ends give this text.
constexpr const char* kInvalidParams = "invalid params given to ORCPYSocket30 constructor";

template <typename Socket>
bool isTcp(const Socket* poSocket) {
  return qm_ci::asserted(poSocket != nullptr && poSocket->getProtocol() == "tcp",
                         "std::string(poSocket->getProtocol())==\"tcp\"");
}

RemoteCopyFrameHeader headerOf(const qm_ci::ConstBitstream& oBitstream, std::uint32_t dwFrameSize) {
  RemoteCopyFrameHeader header;
  header.setTimeStamp(oBitstream.getTimestamp());
  header.setFrameNumber(oBitstream.getFrameNumber());
  header.setFrameSize(dwFrameSize);
  header.setAccessPoint(qm_ci::isAccessPoint(oBitstream.getAccessFlags()));
  header.setBit30(false);
  header.setAuthentication(qm_ci::getFrameKind(oBitstream.getPictureType()) ==
                           qm_ci::kFrameKindAuthentication);
  return header;
}

}  // namespace

ORCPYSocket30::ORCPYSocket30(std::unique_ptr<JOSocket> pInner)
    : OFrameSocket(std::move(pInner), "ORCPYSocket30::", kHeaderSize, kInvalidParams) {}

ORCPYSocket30::~ORCPYSocket30() {
  endStream(RemoteCopyFrameHeader().data());
}

std::string ORCPYSocket30::getProtocol() const {
  return "qmrcpy30";
}

std::size_t ORCPYSocket30::writev(const JIoBuf* pBuffers, std::size_t uCount) {
  if (!qm_ci::asserted(uCount != 0 && pBuffers->bufLength >= qm_ci::ConstBitstream::m_uMinQMCIBitstreamSize,
                       "pBufs->bufLength>=qm_ci::Bitstream::m_uMinQMCIBitstreamSize")) {
    QM_THROW(JBufferSizeError);
  }
  std::uint64_t uSum = 0;
  for (std::size_t i = 0; i < uCount; ++i) {
    uSum += pBuffers[i].bufLength;
  }
  const qm_ci::ConstBitstream oBitstream(static_cast<const QMCIBitstream*>(pBuffers->pBuf),
                                         pBuffers->bufLength);
  qm_ci::asserted(oBitstream.getFormat() == qm_ci::QMCI_FMT_PACKET,
                  "oBitstream.getFormat()==QMCI_FMT_PACKET");
  const std::uint16_t wKind = qm_ci::getFrameKind(oBitstream.getPictureType());
  if (wKind != 0 && wKind != qm_ci::kFrameKindAuthentication) {
    return 0;
  }
  const std::uint32_t dwHeaderLength = oBitstream.getHeaderLength();
  if (dwHeaderLength > pBuffers->bufLength || uSum - dwHeaderLength > kMaxFrameSize) {
    QM_THROW(JBufferSizeError);
  }
  const auto dwFrameSize = static_cast<std::uint32_t>(uSum - dwHeaderLength);
  RemoteCopyFrameHeader header = headerOf(oBitstream, dwFrameSize);
  JIoBufArray frame;
  frame.append(header.data(), kHeaderSize);
  if (dwHeaderLength != pBuffers->bufLength) {
    frame.append(static_cast<std::uint8_t*>(pBuffers->pBuf) + dwHeaderLength,
                 pBuffers->bufLength - dwHeaderLength);
  }
  if (!frame.append(pBuffers + 1, uCount - 1)) {
    QM_THROW(JBufferSizeError);
  }
  return send(frame.data(), frame.size(), std::uint64_t{kHeaderSize} + dwFrameSize);
}

IRCPYSocket30::IRCPYSocket30(std::unique_ptr<JISocket> pInner, std::uint32_t* pTraceMask)
    : IFrameSocket(std::move(pInner), "IRCPYSocket30::", kHeaderSize, pTraceMask, kInvalidParams) {}

std::string IRCPYSocket30::getProtocol() const {
  return "qmrcpy30";
}

std::uint32_t IRCPYSocket30::parseHeader() const {
  RemoteCopyFrameHeader header;
  std::memcpy(header.data(), getHeader(), kHeaderSize);
  return header.getFrameSize();
}

std::size_t IRCPYSocket30::readv(JIoBuf* pBuffers, std::size_t uCount) {
  if (!qm_ci::asserted(uCount != 0 && pBuffers->bufLength >= kHeaderSize,
                       "pBufs->bufLength>=sizeof(RemoteCopyFrameHeader)")) {
    QM_THROW(JBufferSizeError);
  }
  const std::uint32_t dwFrameSize = getNextFrameSize();
  std::memcpy(pBuffers->pBuf, getHeader(), kHeaderSize);
  if (dwFrameSize != 0) {
    takePayload(pBuffers, uCount, kHeaderSize, dwFrameSize);
  }
  return std::size_t{dwFrameSize} + kHeaderSize;
}

std::unique_ptr<OFrameSocket> createORCPYSocket30(std::unique_ptr<JOSocket> pInner) {
  return isTcp(pInner.get()) ? std::make_unique<ORCPYSocket30>(std::move(pInner)) : nullptr;
}

std::unique_ptr<IFrameSocket> createIRCPYSocket30(std::unique_ptr<JISocket> pInner,
                                                  std::uint32_t* pTraceMask) {
  return isTcp(pInner.get()) ? std::make_unique<IRCPYSocket30>(std::move(pInner), pTraceMask) : nullptr;
}

}  // namespace qm_stream
