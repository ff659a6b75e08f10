#include "coreapi/qmci/bitstream.h"

#include <algorithm>
#include <cstring>
#include <exception>
#include <memory>

#include "coreapi/platform/byteorder.h"
#include "coreapi/platform/largeblock.h"
#include "coreapi/qmci/asserted.h"

namespace qm_ci {

namespace layout = bitstream_layout;
using qm_platform::readLE32;
using qm_platform::writeLE16;
using qm_platform::writeLE32;
using qm_platform::writeLE64;

namespace {

/// `dwFormatVersion` of a fresh record, and of one whose format was chosen later.
constexpr std::uint32_t kFreshFormatVersion = 1;
constexpr std::uint32_t kChosenFormatVersion = 0x10000;

/// `ullFrameNumber` of a record that was reset.
constexpr std::uint64_t kNoFrameNumber = 0xFFFFFFFF;

/// The least block in which `setFormat` makes a linear record.
constexpr std::uint32_t kLeastLinear = 64;

/// What a format asks of a new record.
struct Allocation {
  std::uint64_t uSize;       ///< bytes of the block
  std::uint64_t uCleared;    ///< of these, set to zero
  std::uint64_t uDataStart;  ///< where the cursor starts
  std::uint32_t uHeaderLength;
};

/// Sizes for `n` elements and `m` bytes of data. They can't overflow: both are 32-bit numbers.
Allocation allocationFor(std::uint32_t dwFormat, std::uint64_t m, std::uint64_t n) {
  switch (dwFormat) {
    case QMCI_FMT_PACKET:
      if (!JASSERTED(n >= 1)) {
        QM_THROW(JTextError, "allocated size smaller than header");
      }
      // The three words behind the header size leave room for the end of asPacket[n] and m bytes.
      return {m + (3 * n + 18) * 4, layout::packetData(n), layout::packetData(n), layout::kHeaderSize};
    case QMCI_FMT_SUBSTREAM:
      return {m + 8 * n + 64, layout::substreamData(std::max<std::uint64_t>(n, 1)), layout::substreamData(n),
              layout::kHeaderSize};
    case QMCI_FMT_LINEAR:
      return {m + 64, 56, layout::kLinearData, layout::kHeaderSize};
    case QMCI_FMT_CHUNK:
      return {m + 80, layout::kChunkData, layout::kChunkData, layout::kHeaderSize};
    case QMCI_FMT_NONE:
      if (m < layout::kHeaderSize) {
        QM_THROW(JTextError, "allocated size smaller than header");
      }
      return {m, m, 0, 0};
    default:
      QM_THROW(JTextError, "unknwon format");
  }
}

void writeFreshVersions(QMCIBitstream* psRecord) noexcept {
  writeLE32(psRecord + layout::kVersion, kBitstreamVersion);
  writeLE32(psRecord + layout::kFormatVersion, kFreshFormatVersion);
}

}  // namespace

Bitstream::~Bitstream() {
  release();
}

/// Leaves the object without a record, and frees the record if it is the object's.
void Bitstream::release() noexcept {
  const bool bOwner = m_bOwner;
  const QMCIBitstream* psRecord = detach();
  if (bOwner) {
    delete[] psRecord;
  }
}

QMCIBitstream* Bitstream::detach() noexcept {
  QMCIBitstream* psRecord = m_psCIStream;
  m_psCIStream = nullptr;
  m_psConstCIStream = nullptr;
  m_uBlockSize = 0;
  m_bOwner = false;
  m_uCursor = 0;
  m_dwAllocatedPacket = 0;
  std::fill(m_externalOfElement.begin(), m_externalOfElement.end(), External{});
  return psRecord;
}

/// Makes room for as many external packets as the table has elements, so that adding them never allocates.
void Bitstream::reserveExternals(std::uint32_t uCount) {
  std::fill(m_externalOfElement.begin(), m_externalOfElement.end(), External{});
  if (uCount > m_externalOfElement.size()) {
    try {
      m_externalOfElement.resize(uCount);
    } catch (const std::exception&) {
      QM_THROW(JTextError, "out of memory");
    }
  }
  m_externals = m_externalOfElement;
}

void Bitstream::setMaxSize(std::uint32_t uSize, std::uint32_t dwFormat, std::uint32_t uCount) {
  release();
  const Allocation allocation = allocationFor(dwFormat, uSize, uCount);
  if (allocation.uSize >= layout::kExternalPlace) {
    QM_THROW(JTextError, "out of memory");
  }
  if (dwFormat == QMCI_FMT_PACKET || dwFormat == QMCI_FMT_NONE) {
    // A block without format is made a packet record later, of as many packets as it can hold.
    reserveExternals(static_cast<std::uint32_t>(
        std::min<std::uint64_t>(uCount, allocation.uSize / layout::kPacketElementSize)));
  }
  std::unique_ptr<std::uint8_t[]> pBlock = qm_platform::tryAllocate(allocation.uSize);
  if (pBlock == nullptr) {
    QM_THROW(JTextError, "out of memory");
  }
  std::memset(pBlock.get(), 0, allocation.uCleared);
  writeFreshVersions(pBlock.get());
  const auto uAllocated = static_cast<std::uint32_t>(allocation.uSize);
  writeLE32(pBlock.get() + layout::kAllocatedSize, uAllocated);
  writeLE32(pBlock.get() + layout::kHeaderLength, allocation.uHeaderLength);
  writeLE32(pBlock.get() + layout::kFormat, dwFormat);
  if (dwFormat == QMCI_FMT_CHUNK) {
    writeLE32(pBlock.get() + layout::kChunkParameter, uCount);
  }
  m_psCIStream = pBlock.release();
  m_psConstCIStream = m_psCIStream;
  m_uBlockSize = uAllocated;
  m_bOwner = true;
  m_uCursor = static_cast<std::uint32_t>(allocation.uDataStart);
  m_dwAllocatedPacket = uCount;
}

void Bitstream::attach(void* pBlock, std::uint32_t uAllocatedSize) noexcept {
  release();
  if (pBlock == nullptr) {
    return;
  }
  if (!asserted(uAllocatedSize >= m_uMinQMCIBitstreamSize, "uAllocatedSize >= sizeof(QMCIBitstream)")) {
    std::memset(pBlock, 0, uAllocatedSize);
    return;
  }
  m_psCIStream = static_cast<QMCIBitstream*>(pBlock);
  m_psConstCIStream = m_psCIStream;
  // Places of packets are 31-bit numbers; what lies further is left unused.
  m_uBlockSize = std::min(uAllocatedSize, layout::kExternalPlace - 1);
  writeLE32(m_psCIStream + layout::kAllocatedSize, m_uBlockSize);
  reset();
}

void Bitstream::setTimestamp(std::uint64_t ullTimeStamp) noexcept {
  if (JASSERTED(m_psCIStream)) {
    writeLE64(m_psCIStream + layout::kTimeStamp, ullTimeStamp);
  }
}

void Bitstream::setPictureType(std::uint16_t wPictureType) noexcept {
  if (JASSERTED(m_psCIStream)) {
    writeLE16(m_psCIStream + layout::kPictureType, wPictureType);
  }
}

void Bitstream::setAccessFlags(std::uint16_t wAccessFlags) noexcept {
  if (JASSERTED(m_psCIStream)) {
    writeLE16(m_psCIStream + layout::kAccessFlags, wAccessFlags);
  }
}

void Bitstream::setVersion(std::uint32_t dwVersion) noexcept {
  if (JASSERTED(m_psCIStream)) {
    writeLE32(m_psCIStream + layout::kVersion, dwVersion);
  }
}

void Bitstream::setFormatVersion(std::uint32_t dwFormatVersion) noexcept {
  if (JASSERTED(m_psCIStream)) {
    writeLE32(m_psCIStream + layout::kFormatVersion, dwFormatVersion);
  }
}

void Bitstream::setHeaderLength(std::uint32_t dwHeaderLength) noexcept {
  if (JASSERTED(m_psCIStream)) {
    writeLE32(m_psCIStream + layout::kHeaderLength, dwHeaderLength);
  }
}

void Bitstream::setFrameNumber(std::uint64_t ullFrameNumber) noexcept {
  if (JASSERTED(m_psCIStream)) {
    writeLE64(m_psCIStream + layout::kFrameNumber, ullFrameNumber);
  }
}

void Bitstream::setDecoderPipe(std::uint32_t dwDecoderPipe) noexcept {
  if (JASSERTED(m_psCIStream)) {
    writeLE32(m_psCIStream + layout::kDecoderPipe, dwDecoderPipe);
  }
}

void Bitstream::setFrameExtra(std::uint32_t dwFrameExtra) noexcept {
  if (JASSERTED(m_psCIStream)) {
    writeLE32(m_psCIStream + layout::kFrameExtra, dwFrameExtra);
  }
}

void Bitstream::setAllocatedSize(std::uint32_t dwAllocatedSize) noexcept {
  if (JASSERTED(m_psCIStream) && JASSERTED(dwAllocatedSize <= m_uBlockSize)) {
    writeLE32(m_psCIStream + layout::kAllocatedSize, dwAllocatedSize);
  }
}

void Bitstream::reset() noexcept {
  if (!JASSERTED(m_psCIStream)) {
    return;
  }
  const std::uint32_t dwAllocatedSize = readLE32(m_psCIStream + layout::kAllocatedSize);
  std::memset(m_psCIStream, 0, layout::kHeaderSize);
  writeFreshVersions(m_psCIStream);
  writeLE32(m_psCIStream + layout::kFormat, QMCI_FMT_NONE);
  writeLE32(m_psCIStream + layout::kAllocatedSize, dwAllocatedSize);
  writeLE32(m_psCIStream + layout::kHeaderLength, layout::kHeaderSize);
  writeLE64(m_psCIStream + layout::kFrameNumber, kNoFrameNumber);
}

bool Bitstream::setFormat(std::uint32_t dwFormat, std::uint32_t uCount) {
  if (!JASSERTED(m_psCIStream)) {
    return false;
  }
  writeLE32(m_psCIStream + layout::kFormat, dwFormat);
  const std::uint32_t uSize = getAllocatedSize();
  std::uint64_t uDataStart = 0;
  switch (dwFormat) {
    case QMCI_FMT_LINEAR:
      if (uSize < kLeastLinear) {
        return false;
      }
      uDataStart = layout::kLinearData;
      writeLE32(m_psCIStream + layout::kFormatVersion, kChosenFormatVersion);
      break;
    case QMCI_FMT_SUBSTREAM:
      uDataStart = layout::substreamData(uCount);
      if (uSize < uDataStart) {
        return false;
      }
      writeLE32(m_psCIStream + layout::kFormatVersion, kChosenFormatVersion);
      break;
    case QMCI_FMT_PACKET:
      uDataStart = layout::packetData(uCount);
      if (!JASSERTED(uCount >= 1) || uSize < uDataStart) {
        return false;
      }
      reserveExternals(uCount);
      break;
    default:
      return true;
  }
  writeLE32(m_psCIStream + layout::kHeaderLength, layout::kHeaderSize);
  if (dwFormat != QMCI_FMT_LINEAR) {
    writeLE32(m_psCIStream + layout::kCount, 0);
    m_dwAllocatedPacket = uCount;
  }
  m_uCursor = static_cast<std::uint32_t>(uDataStart);
  return true;
}

bool Bitstream::copyHeader(const ConstBitstream& other) noexcept {
  const QMCIBitstream* psOther = other.getConstQMCIBitstreamPtr();
  if (!JASSERTED(m_psCIStream) || !JASSERTED(psOther) || getAllocatedSize() < other.getHeaderLength()) {
    return false;
  }
  const std::uint32_t dwAllocatedSize = readLE32(m_psCIStream + layout::kAllocatedSize);
  const std::uint32_t uLength = std::min(other.getHeaderLength(), layout::kHeaderSize);
  std::memmove(m_psCIStream, psOther, uLength);
  std::memset(m_psCIStream + uLength, 0, layout::kHeaderSize - uLength);
  if (getHeaderLength() > layout::kHeaderSize) {
    writeLE32(m_psCIStream + layout::kHeaderLength, layout::kHeaderSize);
  }
  writeLE32(m_psCIStream + layout::kVersion, kBitstreamVersion);
  writeLE32(m_psCIStream + layout::kAllocatedSize, dwAllocatedSize);
  return true;
}

/// Number of the table's first free element; -1 when there is none.
int Bitstream::nextElement() const noexcept {
  if (!JASSERTED(m_psCIStream) || !isPacketFormat()) {
    return -1;
  }
  const int nPackets = getNbPackets();
  const bool bTableFits = m_dwAllocatedPacket <= m_externals.size() &&
                          layout::packetData(m_dwAllocatedPacket) <= getAllocatedSize();
  if (!asserted(nPackets >= 0 && bTableFits && static_cast<std::uint32_t>(nPackets) < m_dwAllocatedPacket,
                "pPacketData->dwNumPackets<m_dwAllocatedPacket")) {
    return -1;
  }
  return nPackets;
}

/// Bytes from the cursor to the end of the record; -1 when the cursor isn't in a packet record's data area,
/// as after a header that turned another format into packets.
std::int64_t Bitstream::roomAtCursor() const noexcept {
  const std::uint32_t uEnd = getAllocatedSize();
  return m_uCursor >= layout::packetData(m_dwAllocatedPacket) && m_uCursor <= uEnd
             ? std::int64_t{uEnd} - m_uCursor
             : -1;
}

void Bitstream::writeElement(int i, std::uint32_t uPlace, std::uint32_t nLength,
                             std::uint32_t dwGroup) noexcept {
  QMCIBitstream* pElement = m_psCIStream + elementAt(i);
  writeLE32(pElement, uPlace);
  writeLE32(pElement + 4, nLength);
  writeLE32(pElement + 8, dwGroup);
}

/// Makes element `i` an external packet; there is an entry of the list for each element.
void Bitstream::writeExternal(int i, const void* pBuf, std::uint32_t nLength,
                              std::uint32_t dwGroup) noexcept {
  m_externalOfElement[static_cast<std::size_t>(i)] = {static_cast<const std::uint8_t*>(pBuf), nLength};
  writeElement(i, layout::kExternalPlace + static_cast<std::uint32_t>(i), nLength, dwGroup);
}

bool Bitstream::addExternalPacket(const void* pBuf, std::uint32_t nLength, std::uint32_t dwGroup) noexcept {
  if (!JASSERTED(isDataExternal(pBuf))) {
    return false;
  }
  const int iElement = nextElement();
  if (iElement < 0) {
    return false;
  }
  writeExternal(iElement, pBuf, nLength, dwGroup);
  writeLE32(m_psCIStream + layout::kCount, static_cast<std::uint32_t>(iElement) + 1);
  return true;
}

bool Bitstream::setPacket(const void* pBuf, std::uint32_t nLength, int iIdx) noexcept {
  if (!isPacketFormat() || !JASSERTED(isDataExternal(pBuf)) ||
      !JASSERTED(iIdx >= 0 && iIdx < getNbPackets()) ||
      !JASSERTED(static_cast<std::size_t>(iIdx) < m_externals.size())) {
    return false;
  }
  writeExternal(iIdx, pBuf, nLength, readLE32(m_psCIStream + elementAt(iIdx) + 8));
  return true;
}

bool Bitstream::setPacketData(const void* pBuf, std::uint32_t nLength, std::uint32_t dwGroup) noexcept {
  if (!asserted(pBuf == nullptr || isDataExternal(pBuf), "pBuf==0 || isDataExternal(pBuf)")) {
    return false;
  }
  const int iElement = nextElement();
  if (iElement < 0 || nLength > roomAtCursor()) {
    return false;
  }
  if (pBuf != nullptr) {
    std::memmove(m_psCIStream + m_uCursor, pBuf, nLength);
  }
  writeElement(iElement, m_uCursor, nLength, dwGroup);
  writeLE32(m_psCIStream + layout::kCount, static_cast<std::uint32_t>(iElement) + 1);
  m_uCursor += nLength;
  return true;
}

PacketSpace Bitstream::allocNextPacket() noexcept {
  const int iElement = nextElement();
  const std::int64_t iRoom = iElement >= 0 ? roomAtCursor() : -1;
  if (!asserted(iRoom > 0, "NULL!=sRet.pBuf")) {
    return {};
  }
  const PacketSpace space{m_psCIStream + m_uCursor, static_cast<std::uint32_t>(iRoom)};
  writeElement(iElement, m_uCursor, space.nLength, 0);
  writeLE32(m_psCIStream + layout::kCount, static_cast<std::uint32_t>(iElement) + 1);
  m_uCursor += space.nLength;
  return space;
}

bool Bitstream::setPacketLength(std::uint32_t nLength, int iIdx) noexcept {
  if (!isPacketFormat()) {
    return false;
  }
  const int nPackets = getNbPackets();
  if (iIdx < 0) {
    iIdx = nPackets - 1;
  }
  if (!asserted(iIdx >= 0, "iIdx>=0") || iIdx >= nPackets || nLength > getFreeSpace(iIdx)) {
    return false;
  }
  writeLE32(m_psCIStream + elementAt(iIdx) + 4, nLength);
  if (iIdx == nPackets - 1) {
    m_uCursor = placeOf(iIdx) + nLength;
  }
  return true;
}

bool Bitstream::popPacket() noexcept {
  if (!isPacketFormat()) {
    return false;
  }
  const int nPackets = getNbPackets();
  if (!asserted(nPackets > 0, "pPacketData->dwNumPackets>0")) {
    return false;
  }
  writeLE32(m_psCIStream + layout::kCount, static_cast<std::uint32_t>(nPackets) - 1);
  setCursorBehindLastPacket(nPackets - 1);
  return true;
}

/// The cursor goes behind the last of the first `nPackets` packets that lies inside the record.
void Bitstream::setCursorBehindLastPacket(int nPackets) noexcept {
  for (int i = nPackets - 1; i >= 0; --i) {
    if (isInternal(i)) {
      const Packet packet = getPacket(i);
      m_uCursor = packet.pBuf != nullptr
                      ? static_cast<std::uint32_t>(packet.pBuf - m_psCIStream) + packet.nLength
                      : getAllocatedSize();
      return;
    }
  }
  m_uCursor = static_cast<std::uint32_t>(
      std::min<std::uint64_t>(layout::packetData(m_dwAllocatedPacket), getAllocatedSize()));
}

bool Bitstream::splitGroup(std::uint32_t dwGroup, Bitstream& rest) {
  if (!isPacketFormat() || !JASSERTED(&rest != this)) {
    return false;
  }
  const int nPackets = getNbPackets();
  int iEnd = 0;
  while (iEnd < nPackets && getPacket(iEnd).dwGroup != dwGroup) {
    ++iEnd;
  }
  iEnd += getPacketCountInGroup(dwGroup);
  if (iEnd >= nPackets) {
    return false;
  }
  std::uint64_t uInside = 0;
  for (int i = iEnd; i < nPackets; ++i) {
    uInside += isInternal(i) ? getPacketLength(i) : 0;
  }
  // Packets that lie over each other would multiply.
  if (!JASSERTED(uInside <= getAllocatedSize())) {
    return false;
  }
  rest.setMaxSize(static_cast<std::uint32_t>(uInside), QMCI_FMT_PACKET,
                  static_cast<std::uint32_t>(nPackets - iEnd));
  rest.copyHeader(*this);
  writeLE32(rest.m_psCIStream + layout::kFormat, QMCI_FMT_PACKET);
  writeLE32(rest.m_psCIStream + layout::kHeaderLength, layout::kHeaderSize);
  for (int i = iEnd; i < nPackets; ++i) {
    const Packet packet = getPacket(i);
    if (isInternal(i)) {
      rest.setPacketData(packet.pBuf, packet.nLength, packet.dwGroup);
    } else {
      rest.addExternalPacket(packet.pBuf, packet.nLength, packet.dwGroup);
    }
  }
  writeLE32(m_psCIStream + layout::kCount, static_cast<std::uint32_t>(iEnd));
  setCursorBehindLastPacket(iEnd);
  return true;
}

}  // namespace qm_ci
