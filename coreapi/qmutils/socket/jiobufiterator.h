#pragma once

#include <cstddef>
#include <cstdint>

#include "coreapi/qmutils/socket/jiobufarray.h"

/// A cursor over an array of buffers: what a transfer in parts has still to do. It works on a copy of the
/// array that it holds itself, so that nothing is allocated and the caller's array stays as it is. One thread
/// at a time.
class JIoBufIterator {
 public:
  /// The most buffers that it takes.
  static constexpr std::size_t kCapacity = JIoBufArray::kCapacity;

  /// Over more than `kCapacity` buffers it stays empty.
  JIoBufIterator(const JIoBuf* pBuffers, std::size_t uCount) noexcept;

  /// Moves past bytes from the front; more than remain ends it.
  void advance(std::uint64_t uBytes) noexcept;

  /// Bytes that remain.
  std::uint64_t bufs_length() const noexcept { return m_uRemaining; }

  /// Buffers that remain, the one in work included.
  std::size_t count() const noexcept { return m_buffers.size() - m_uCurrent; }

  /// The buffers that remain; the first one holds what is left of it.
  const JIoBuf* current() const noexcept { return m_buffers.data() + m_uCurrent; }
  JIoBuf* current() noexcept { return m_buffers.data() + m_uCurrent; }

  /// Drops from the end all but a number of bytes. A larger number changes nothing.
  void limit(std::uint64_t uBytes) noexcept;

  /// Adds a buffer at the end; false when there is no room for another one.
  bool append(void* pBuf, std::uint32_t bufLength) noexcept;

 private:
  JIoBufArray m_buffers;
  std::size_t m_uCurrent = 0;
  std::uint64_t m_uRemaining = 0;
};
