#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "coreapi/qmutils/socket/jiobuf.h"

/// An array of buffers for one vectored operation, held in place: making it allocates nothing and clears
/// nothing, however few of its elements are used. One thread at a time.
class JIoBufArray {
 public:
  /// The most buffers that a vectored operation takes.
  static constexpr std::size_t kCapacity = 512;

  JIoBufArray() noexcept {}
  JIoBufArray(const JIoBufArray&) = delete;
  JIoBufArray& operator=(const JIoBufArray&) = delete;

  /// Adds buffers at the end. False, and nothing added, when there is no room for all of them.
  bool append(const JIoBuf* pBuffers, std::size_t uCount) noexcept {
    if (uCount > kCapacity - m_uSize) {
      return false;
    }
    std::uninitialized_copy_n(pBuffers, uCount, m_buffers + m_uSize);
    m_uSize += uCount;
    return true;
  }
  bool append(void* pBuf, std::uint32_t bufLength) noexcept {
    const JIoBuf buffer{pBuf, bufLength};
    return append(&buffer, 1);
  }

  /// Drops the elements from a number on.
  void truncate(std::size_t uSize) noexcept { m_uSize = uSize < m_uSize ? uSize : m_uSize; }

  JIoBuf& operator[](std::size_t uIndex) noexcept { return m_buffers[uIndex]; }
  JIoBuf* data() noexcept { return m_buffers; }
  const JIoBuf* data() const noexcept { return m_buffers; }
  std::size_t size() const noexcept { return m_uSize; }

 private:
  std::size_t m_uSize = 0;
  union {
    JIoBuf m_buffers[kCapacity];  ///< the first `m_uSize` hold something
  };
};
