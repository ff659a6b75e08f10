#include "coreapi/qmutils/socket/jiobufiterator.h"

#include <algorithm>

JIoBufIterator::JIoBufIterator(const JIoBuf* pBuffers, std::size_t uCount) noexcept {
  if (!m_buffers.append(pBuffers, uCount)) {
    return;
  }
  for (std::size_t i = 0; i < uCount; ++i) {
    m_uRemaining += pBuffers[i].bufLength;
  }
}

void JIoBufIterator::advance(std::uint64_t uBytes) noexcept {
  uBytes = std::min(uBytes, m_uRemaining);
  m_uRemaining -= uBytes;
  while (m_uCurrent != m_buffers.size() && uBytes >= m_buffers[m_uCurrent].bufLength) {
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
  m_buffers.truncate(uBytes == 0 ? uIndex : uIndex + 1);
}

bool JIoBufIterator::append(void* pBuf, std::uint32_t bufLength) noexcept {
  if (!m_buffers.append(pBuf, bufLength)) {
    return false;
  }
  m_uRemaining += bufLength;
  return true;
}
