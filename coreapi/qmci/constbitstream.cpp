#include <algorithm>
#include <optional>

#include "coreapi/platform/byteorder.h"
#include "coreapi/qmci/asserted.h"
#include "coreapi/qmci/bitstream.h"

namespace qm_ci {

namespace layout = bitstream_layout;
using qm_platform::readLE16;
using qm_platform::readLE32;
using qm_platform::readLE64;

ConstBitstream::ConstBitstream(const QMCIBitstream* psRecord, std::uint32_t uSize) noexcept {
  if (psRecord != nullptr &&
      asserted(uSize >= m_uMinQMCIBitstreamSize, "uAllocatedSize >= sizeof(QMCIBitstream)")) {
    m_psConstCIStream = psRecord;
    m_uBlockSize = uSize;
  }
}

std::uint64_t ConstBitstream::getTimestamp() const noexcept {
  return m_psConstCIStream != nullptr ? readLE64(m_psConstCIStream + layout::kTimeStamp) : 0;
}

std::uint16_t ConstBitstream::getPictureType() const noexcept {
  return m_psConstCIStream != nullptr ? readLE16(m_psConstCIStream + layout::kPictureType) : 0;
}

std::uint16_t ConstBitstream::getAccessFlags() const noexcept {
  return m_psConstCIStream != nullptr ? readLE16(m_psConstCIStream + layout::kAccessFlags) : 0;
}

std::uint32_t ConstBitstream::getFormat() const noexcept {
  return m_psConstCIStream != nullptr ? readLE32(m_psConstCIStream + layout::kFormat) : 0;
}

std::uint32_t ConstBitstream::getVersion() const noexcept {
  return m_psConstCIStream != nullptr ? readLE32(m_psConstCIStream + layout::kVersion) : 0;
}

std::uint32_t ConstBitstream::getFormatVersion() const noexcept {
  return m_psConstCIStream != nullptr ? readLE32(m_psConstCIStream + layout::kFormatVersion) : 0;
}

std::uint32_t ConstBitstream::getHeaderLength() const noexcept {
  return m_psConstCIStream != nullptr ? readLE32(m_psConstCIStream + layout::kHeaderLength) : 0;
}

std::uint64_t ConstBitstream::getFrameNumber() const noexcept {
  return m_psConstCIStream != nullptr ? readLE64(m_psConstCIStream + layout::kFrameNumber) : 0;
}

std::uint32_t ConstBitstream::getDecoderPipe() const noexcept {
  return m_psConstCIStream != nullptr ? readLE32(m_psConstCIStream + layout::kDecoderPipe) : 0;
}

std::uint32_t ConstBitstream::getFrameExtra() const noexcept {
  return m_psConstCIStream != nullptr ? readLE32(m_psConstCIStream + layout::kFrameExtra) : 0;
}

std::uint32_t ConstBitstream::getAllocatedSize() const noexcept {
  return m_psConstCIStream != nullptr
             ? std::min(readLE32(m_psConstCIStream + layout::kAllocatedSize), m_uBlockSize)
             : 0;
}

bool ConstBitstream::isPacketFormat() const noexcept {
  return asserted(getFormat() == QMCI_FMT_PACKET, "m_psConstCIStream->dwFormat==QMCI_FMT_PACKET");
}

/// Whether the record is of a format and its block holds the start of the table.
bool ConstBitstream::hasTable(std::uint32_t dwFormat) const noexcept {
  return getFormat() == dwFormat && getAllocatedSize() >= layout::kElements;
}

int ConstBitstream::getNbPackets() const noexcept {
  const std::uint32_t dwFormat = getFormat();
  if (!asserted(dwFormat == QMCI_FMT_PACKET || dwFormat == QMCI_FMT_SUBSTREAM,
                "m_psConstCIStream->dwFormat==QMCI_FMT_PACKET || "
                "m_psConstCIStream->dwFormat==QMCI_FMT_SUBSTREAM")) {
    return -1;
  }
  if (!JASSERTED(hasTable(dwFormat))) {
    return -1;
  }
  const std::uint32_t uCount = readLE32(m_psConstCIStream + layout::kCount);
  const std::uint64_t uDataStart =
      dwFormat == QMCI_FMT_PACKET ? layout::packetData(uCount) : layout::substreamData(uCount);
  // An empty table may be read from a block that is too short for data.
  return uCount == 0 || JASSERTED(uDataStart <= getAllocatedSize()) ? static_cast<int>(uCount) : -1;
}

/// Offset of table element `i`, whose index the caller has checked against the count.
std::uint32_t ConstBitstream::elementAt(int i) const noexcept {
  const std::uint32_t uSize =
      getFormat() == QMCI_FMT_PACKET ? layout::kPacketElementSize : layout::kSubstreamElementSize;
  return layout::kElements + static_cast<std::uint32_t>(i) * uSize;
}

std::uint32_t ConstBitstream::placeOf(int i) const noexcept {
  return readLE32(m_psConstCIStream + elementAt(i));
}

bool ConstBitstream::isInternal(int i) const noexcept {
  return placeOf(i) < layout::kExternalPlace;
}

Packet ConstBitstream::getPacket(int i) const noexcept {
  if (!isPacketFormat()) {
    return {};
  }
  const int nPackets = getNbPackets();
  if (!JASSERTED(i >= 0 && i < nPackets)) {
    return {};
  }
  const std::uint8_t* pElement = m_psConstCIStream + elementAt(i);
  const std::uint32_t uPlace = readLE32(pElement);
  Packet packet{nullptr, readLE32(pElement + 4), readLE32(pElement + 8)};
  if (uPlace >= layout::kExternalPlace) {
    const std::uint32_t uExternal = uPlace - layout::kExternalPlace;
    if (!JASSERTED(uExternal < m_externals.size() && packet.nLength <= m_externals[uExternal].nLength)) {
      return {};
    }
    packet.pBuf = m_externals[uExternal].pBuf;
    return packet;
  }
  const std::uint32_t uEnd = getAllocatedSize();
  if (!JASSERTED(uPlace >= layout::packetData(static_cast<std::uint32_t>(nPackets)) && uPlace <= uEnd &&
                 packet.nLength <= uEnd - uPlace)) {
    return {};
  }
  packet.pBuf = m_psConstCIStream + uPlace;
  return packet;
}

std::optional<Substream> ConstBitstream::checkedSubstream(int i) const noexcept {
  if (!asserted(getFormat() == QMCI_FMT_SUBSTREAM, "m_psConstCIStream->dwFormat==QMCI_FMT_SUBSTREAM")) {
    return std::nullopt;
  }
  const int nSubstreams = getNbPackets();
  if (!JASSERTED(i >= 0 && i < nSubstreams)) {
    return std::nullopt;
  }
  const std::uint8_t* pElement = m_psConstCIStream + elementAt(i);
  const Substream substream{readLE32(pElement), readLE32(pElement + 4)};
  if (substream.nLength == 0) {
    return Substream{};
  }
  const std::uint32_t uEnd = getAllocatedSize();
  if (!JASSERTED(substream.nOffset >= layout::substreamData(static_cast<std::uint32_t>(nSubstreams)) &&
                 substream.nOffset <= uEnd && substream.nLength <= uEnd - substream.nOffset)) {
    return std::nullopt;
  }
  return substream;
}

Substream ConstBitstream::getSubstream(int i) const noexcept {
  return checkedSubstream(i).value_or(Substream{});
}

std::uint32_t ConstBitstream::getPacketLength(int i) const noexcept {
  return getFormat() == QMCI_FMT_SUBSTREAM ? getSubstream(i).nLength : getPacket(i).nLength;
}

const std::uint8_t* ConstBitstream::getPacketData(int i) const noexcept {
  if (getFormat() != QMCI_FMT_SUBSTREAM) {
    return getPacket(i).pBuf;
  }
  const std::optional<Substream> substream = checkedSubstream(i);
  return substream ? m_psConstCIStream + substream->nOffset : nullptr;
}

int ConstBitstream::getPacketCountInGroup(std::uint32_t dwGroup) const noexcept {
  if (!isPacketFormat()) {
    return -1;
  }
  int nInGroup = 0;
  const int nPackets = getNbPackets();
  for (int i = 0; i < nPackets; ++i) {
    if (readLE32(m_psConstCIStream + elementAt(i) + 8) == dwGroup) {
      ++nInGroup;
    } else if (nInGroup > 0) {
      break;
    }
  }
  return nInGroup;
}

std::int64_t ConstBitstream::getFreeSpace(int i) const noexcept {
  switch (getFormat()) {
    case QMCI_FMT_SUBSTREAM:
      return freeSpaceOfSubstream(i);
    case QMCI_FMT_PACKET:
      return freeSpaceOfPacket(i);
    case QMCI_FMT_LINEAR: {
      const std::int64_t iSpace = std::int64_t{getAllocatedSize()} - getHeaderLength() - 2;
      return JASSERTED(iSpace >= 0) ? iSpace : -1;
    }
    default:
      return -1;
  }
}

std::int64_t ConstBitstream::freeSpaceOfSubstream(int i) const noexcept {
  const int nSubstreams = getNbPackets();
  if (!JASSERTED(i >= 0 && i < nSubstreams)) {
    return -1;
  }
  std::int64_t iEnd = getAllocatedSize();
  for (int iNext = i + 1; iNext < nSubstreams; ++iNext) {
    if (readLE32(m_psConstCIStream + elementAt(iNext) + 4) != 0) {
      iEnd = std::min<std::int64_t>(iEnd, placeOf(iNext));
      break;
    }
  }
  const std::uint32_t uOffset = placeOf(i);
  return JASSERTED(uOffset >= layout::substreamData(static_cast<std::uint32_t>(nSubstreams)) &&
                   uOffset <= iEnd)
             ? iEnd - uOffset
             : -1;
}

std::int64_t ConstBitstream::freeSpaceOfPacket(int i) const noexcept {
  const int nPackets = getNbPackets();
  if (!JASSERTED(i >= 0 && i < nPackets) || !isInternal(i)) {
    return -1;
  }
  std::int64_t iEnd = getAllocatedSize();
  for (int iNext = i + 1; iNext < nPackets; ++iNext) {
    if (isInternal(iNext)) {
      iEnd = std::min<std::int64_t>(iEnd, placeOf(iNext));
      break;
    }
  }
  const std::uint32_t uPlace = placeOf(i);
  return JASSERTED(uPlace >= layout::packetData(static_cast<std::uint32_t>(nPackets)) && uPlace <= iEnd)
             ? iEnd - uPlace
             : -1;
}

int ConstBitstream::getIoBufs(std::span<JIoBuf> bufs) const noexcept {
  return getIoBufs(bufs, 0, 1);
}

int ConstBitstream::getIoBufs(std::span<JIoBuf> bufs, std::uint32_t dwGroup) const noexcept {
  const int nInGroup = getPacketCountInGroup(dwGroup);
  if (nInGroup <= 0) {
    return nInGroup;
  }
  if (bufs.size() < static_cast<std::size_t>(nInGroup)) {
    return -1;
  }
  int iFirst = 0;
  while (readLE32(m_psConstCIStream + elementAt(iFirst) + 8) != dwGroup) {
    ++iFirst;
  }
  return fillIoBufs(bufs, iFirst, iFirst + nInGroup, 1);
}

int ConstBitstream::getIoBufs(std::span<JIoBuf> bufs, int iOff, int iStep) const noexcept {
  if (!JASSERTED(iOff >= 0 && iStep >= 1)) {
    return -1;
  }
  const int nPackets = getNbPackets();
  return nPackets >= 0 ? fillIoBufs(bufs, iOff, nPackets, iStep) : -1;
}

/// Elements from `iFirst` to before `iEnd`, every `iStep`-th of them.
int ConstBitstream::fillIoBufs(std::span<JIoBuf> bufs, int iFirst, int iEnd, int iStep) const noexcept {
  int nFilled = 0;
  for (std::int64_t i = iFirst; i < iEnd; i += iStep) {
    const std::uint8_t* pData = getPacketData(static_cast<int>(i));
    if (pData == nullptr || static_cast<std::size_t>(nFilled) == bufs.size()) {
      return -1;
    }
    // A gathering write only reads; JIoBuf has one pointer for both directions.
    bufs[static_cast<std::size_t>(nFilled)] = {const_cast<std::uint8_t*>(pData),
                                               getPacketLength(static_cast<int>(i))};
    ++nFilled;
  }
  return nFilled;
}

bool ConstBitstream::isDataExternal(const void* pBuf) const noexcept {
  if (pBuf == nullptr) {
    return false;
  }
  const auto address = reinterpret_cast<std::uintptr_t>(pBuf);
  const auto start = reinterpret_cast<std::uintptr_t>(m_psConstCIStream);
  return address < start || address - start >= getAllocatedSize();
}

}  // namespace qm_ci
