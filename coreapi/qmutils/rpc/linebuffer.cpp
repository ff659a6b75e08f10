#include "coreapi/qmutils/rpc/linebuffer.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "coreapi/qmutils/error/jerror.h"

namespace qm_utils {

LineBuffer::LineBuffer(std::size_t uLimit)
    : m_uLimit(uLimit), m_pBytes(std::make_unique_for_overwrite<char[]>(kInitialCapacity)) {}

std::optional<std::string_view> LineBuffer::takeLine() {
  char* const pBytes = m_pBytes.get();
  const void* const pFound = std::memchr(pBytes + m_uScanned, '\n', m_uEnd - m_uScanned);
  if (pFound == nullptr) {
    m_uScanned = m_uEnd;
    // The last byte may be the CR of the line's end.
    if (m_uEnd - m_uStart > m_uLimit + 1) {
      throwTooLong();
    }
    return std::nullopt;
  }
  const auto uLineFeed = static_cast<std::size_t>(static_cast<const char*>(pFound) - pBytes);
  std::size_t uLineEnd = uLineFeed;
  if (uLineEnd > m_uStart && pBytes[uLineEnd - 1] == '\r') {
    --uLineEnd;
  }
  if (uLineEnd - m_uStart > m_uLimit) {
    throwTooLong();
  }
  pBytes[uLineFeed] = '\0';
  pBytes[uLineEnd] = '\0';
  const std::string_view sLine(pBytes + m_uStart, uLineEnd - m_uStart);
  m_uStart = m_uScanned = uLineFeed + 1;
  return sLine;
}

/// What was taken is moved over here and not line by line, so that many short lines in a large buffer cost
/// no more than their own length.
std::span<char> LineBuffer::makeRoom() {
  const std::size_t uHeld = m_uEnd - m_uStart;
  if (uHeld > m_uCapacity / 2) {
    std::unique_ptr<char[]> pLarger(new (std::nothrow) char[m_uCapacity * 2]);
    if (!pLarger) {
      QM_THROW(JTextError, "no memory for a line of more than %zu bytes", uHeld);
    }
    std::memcpy(pLarger.get(), m_pBytes.get() + m_uStart, uHeld);
    m_pBytes = std::move(pLarger);
    m_uCapacity *= 2;
  } else if (m_uStart != 0) {
    std::memmove(m_pBytes.get(), m_pBytes.get() + m_uStart, uHeld);
  }
  m_uScanned -= m_uStart;
  m_uStart = 0;
  m_uEnd = uHeld;
  return {m_pBytes.get() + m_uEnd, m_uCapacity - m_uEnd};
}

std::size_t LineBuffer::takeBytes(void* pBuffer, std::size_t uSize) noexcept {
  const std::size_t uTaken = std::min(uSize, m_uEnd - m_uStart);
  if (uTaken != 0) {
    std::memcpy(pBuffer, m_pBytes.get() + m_uStart, uTaken);
    m_uStart += uTaken;
    m_uScanned = std::max(m_uScanned, m_uStart);
  }
  return uTaken;
}

void LineBuffer::throwTooLong() const {
  QM_THROW(JTextError, "line longer than %zu bytes", m_uLimit);
}

}  // namespace qm_utils
