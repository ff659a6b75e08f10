#include "coreapi/qmutils/socket/jiobufiterator.h"

#include <algorithm>

JIoBufIterator::JIoBufIterator(const JIoBuf* pBuffers, std::size_t uCount) noexcept {
  if (uCount > kCapacity) {
    return;
  }
  std::copy_n(pBuffers, uCount, m_buffers.begin());
  m_uEnd = uCount;
  for (std::size_t i = 0; i < uCount; ++i) {
    m_uRemaining += pBuffers[i].bufLength;
  }
}

void JIoBufIterator::advance(std::uint64_t uBytes) noexcept {
  uBytes = std::min(uBytes, m_uRemaining);
  m_uRemaining -= uBytes;
  while (m_uCurrent != m_uEnd && uBytes >= m_buffers[m_uCurrent].bufLength) {
    uBytes -= m_buffers[m_uCurrent++].bufLength;
  }
  if (uBytes != 0) {
    JIoBuf& buffer = m_buffers[m_uCurrent];
    buffer.pBuf = static_cast<char*>(buffer.pBuf) + uBytes;
    buffer.bufLength -= static_cast<std::uint32_t>(uBytes);
  }
}

void JIoBufIterator::limit(std::uint64_t uBytes) noexcept {
  if (uBytes >= m_uRemaining) {
    return;
  }
  m_uRemaining = uBytes;
  std::size_t uIndex = m_uCurrent;
  while (uBytes > m_buffers[uIndex].bufLength) {
    uBytes -= m_buffers[uIndex++].bufLength;
  }
  m_buffers[uIndex].bufLength = static_cast<std::uint32_t>(uBytes);
  m_uEnd = uBytes == 0 ? uIndex : uIndex + 1;
}
