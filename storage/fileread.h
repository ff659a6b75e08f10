#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "coreapi/qmutils/socket/jiosocket.h"
#include "coreapi/qmutils/socket/readfully.h"

/// Reads the start of a media file in order, from a file or from a channel that has no positions. A few bytes
/// that somebody has read already, to see what file it is, may stand in front. Belongs to one thread.
class FileHeadReader {
 public:
  /// The socket outlives the object.
  explicit FileHeadReader(JISocket& socket, std::span<const std::uint8_t> front = {})
      : m_socket(socket), m_front(front.begin(), front.end()) {}

  /// Fills a buffer as far as the file goes; fewer bytes only at its end. Throws what the socket throws.
  std::size_t read(void* pBuffer, std::size_t uSize);

  /// Whether a buffer could be filled.
  bool fill(void* pBuffer, std::size_t uSize) { return read(pBuffer, uSize) == uSize; }

  /// Passes over bytes; false when the file ends before, as far as that is seen: a file is only seen to end
  /// by the next read.
  bool skip(std::uint64_t uSize);

  /// Bytes of the file that were read and passed over, those in front included.
  std::uint64_t getPosition() const noexcept { return m_uPosition; }

 private:
  JISocket& m_socket;
  std::vector<std::uint8_t> m_front;
  std::size_t m_uFrontTaken = 0;
  std::uint64_t m_uPosition = 0;
};

/// Throws JTextError when a path leads to a pipe, a device or a socket: opening one may wait for ever. What
/// else is wrong with the path is left to the opening.
void checkNoPipe(const std::string& sPath);

/// Zeros to read a header into. Throws JTextError "out of memory".
std::vector<std::uint8_t> makeHeadBytes(std::size_t uSize);

/// Passes over bytes of a socket, by moving where it has a position and by reading where it hasn't. False
/// when it ends before, as far as reading shows it.
bool skipBytes(JISocket& socket, std::uint64_t uSize);
