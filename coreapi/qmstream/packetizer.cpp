#include "coreapi/qmstream/packetizer.h"

#include <algorithm>
#include <numeric>

#include "coreapi/qmci/asserted.h"

namespace qm_utils {

namespace {

std::uint64_t bytesOf(const JIoBuf* pBuffers, std::size_t uCount) {
  return std::accumulate(pBuffers, pBuffers + uCount, std::uint64_t{0},
                         [](std::uint64_t uSum, const JIoBuf& buffer) { return uSum + buffer.bufLength; });
}

}  // namespace

Packetizer::Error::Error() : JTextError("unknown error") {}

Packetizer::~Packetizer() = default;

Packetizer::Cursor Packetizer::startOf(const JIoBuf* pData, std::size_t uDataCount) noexcept {
  return {pData, pData + uDataCount, *pData};
}

/// Takes the pieces of the next packet, at most `uRoom` bytes of them, into `pOut`, which may be null to
/// count them only. Returns their number.
std::size_t Packetizer::takePacket(Cursor& cursor, std::uint32_t uRoom, JIoBuf* pOut, const JIoBuf* pOutEnd,
                                   std::uint64_t& uBytes) {
  std::size_t nPacket = 0;
  std::uint32_t uLeft = uRoom;
  while (cursor.pInput != cursor.pInputEnd && uLeft != 0) {
    JIoBuf& piece = cursor.piece;
    const std::uint32_t uPart = std::min(uLeft, piece.bufLength);
    if (pOut != nullptr) {
      if (!qm_ci::asserted(pOut + nPacket < pOutEnd, "m_pBufs+m_nHdrs+nPacket<m_pBufsEnd")) {
        QM_THROW(Error);
      }
      pOut[nPacket] = {piece.pBuf, uPart};
    }
    ++nPacket;
    uLeft -= uPart;
    piece = {static_cast<char*>(piece.pBuf) + uPart, piece.bufLength - uPart};
    if (piece.bufLength == 0 && ++cursor.pInput != cursor.pInputEnd) {
      piece = *cursor.pInput;
    }
  }
  uBytes = uRoom - uLeft;
  return nPacket;
}

std::uint64_t Packetizer::init(std::uint32_t uMaxPacket, const JIoBuf* pHeaders, std::size_t uHeaderCount,
                               const JIoBuf* pData, std::size_t uDataCount, std::uint64_t* pTotal) {
  m_uPackets = 0;
  m_uGiven = 0;
  if (uMaxPacket == 0 || pData == nullptr || uDataCount == 0) {
    QM_THROW(Error);
  }
  m_uHeaderBytes = bytesOf(pHeaders, uHeaderCount);
  const std::uint64_t uSum = bytesOf(pData, uDataCount);
  if (uSum == 0 || m_uHeaderBytes >= uMaxPacket) {
    QM_THROW(Error);
  }
  m_uRoom = uMaxPacket - static_cast<std::uint32_t>(m_uHeaderBytes);
  std::uint64_t uPackets = 1;
  std::size_t uPieces = uDataCount;
  if (uSum > m_uRoom) {
    uPackets = (uSum + m_uRoom - 1) / m_uRoom;
    uPieces = 0;
    std::uint64_t uBytes = 0;
    for (Cursor cursor = startOf(pData, uDataCount); cursor.pInput != cursor.pInputEnd;) {
      uPieces = std::max(uPieces, takePacket(cursor, m_uRoom, nullptr, nullptr, uBytes));
    }
  }
  const std::size_t uElements = uHeaderCount + uPieces;
  if (uElements > m_uCapacity) {
    m_uCapacity = 0;
    m_pBufs.reset();
    m_pBufs = std::make_unique<JIoBuf[]>(uElements);
    m_uCapacity = uElements;
  }
  m_pBufsEnd = m_pBufs.get() + uElements;
  m_nHdrs = uHeaderCount;
  std::copy_n(pHeaders, uHeaderCount, m_pBufs.get());
  if (uPackets == 1) {
    std::copy_n(pData, uDataCount, m_pBufs.get() + uHeaderCount);
  }
  if (pTotal != nullptr) {
    *pTotal = uPackets * m_uHeaderBytes + uSum;
  }
  m_cursor = startOf(pData, uDataCount);
  m_uPackets = uPackets;
  return uPackets;
}

bool Packetizer::next(JIoBuf** ppBufs, std::size_t* pnBufs, std::uint64_t* pBytes) {
  if (!qm_ci::asserted(ppBufs != nullptr && *ppBufs != nullptr && pnBufs != nullptr,
                       "ppBufs && *ppBufs && pnBufs")) {
    QM_THROW(Error);
  }
  if (m_uGiven == m_uPackets) {
    return false;
  }
  std::uint64_t uBytes = 0;
  if (m_uPackets == 1) {
    *pnBufs = static_cast<std::size_t>(m_pBufsEnd - m_pBufs.get());
    uBytes = bytesOf(m_pBufs.get(), *pnBufs);
  } else {
    *pnBufs = m_nHdrs + takePacket(m_cursor, m_uRoom, m_pBufs.get() + m_nHdrs, m_pBufsEnd, uBytes);
    uBytes += m_uHeaderBytes;
  }
  if (pBytes != nullptr) {
    *pBytes = uBytes;
  }
  *ppBufs = m_pBufs.get();
  ++m_uGiven;
  return true;
}

}  // namespace qm_utils
