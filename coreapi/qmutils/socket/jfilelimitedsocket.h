#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "coreapi/qmutils/socket/jfilesocket.h"

/// A file that holds its transfers back, so that a copy leaves the disk to others. Threads as in
/// `JFileSocket`.
class JFileLimitedSocket : public JFileSocket {
 public:
  /// Opens a file, shared, as `JFileSocket` does. `uLimit` is at once the most bytes a second that are
  /// written and the microseconds that each read pauses; 0 holds nothing back.
  JFileLimitedSocket(const std::string& sPath, int iMode, std::uint32_t uLimit);

  using JFileSocket::write;
  using JFileSocket::writev;

  /// Reads, then sleeps when there was something.
  std::size_t read(void* pBuffer, std::size_t uLength) override;

  /// Writes, then sleeps for what the bytes take at the limit, less the time that the write took.
  std::size_t write(const void* pBuffer, std::size_t uLength) override;
  std::size_t writev(const JIoBuf* pBuffers, std::size_t uCount) override;

 private:
  void holdBack(std::uint64_t uBytes, std::int64_t iStart) const;

  std::uint32_t m_uLimit;
};
