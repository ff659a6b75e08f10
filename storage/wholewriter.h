#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "coreapi/qmutils/socket/jiobuf.h"
#include "coreapi/qmutils/socket/jsocket.h"

/// Appends pieces to a socket so that each is there whole or not at all: short counts are gone on with, and
/// what a file took of a piece that failed is cut off before the next one. Positions of later pieces so stay
/// true after a failure. Where the socket isn't a file, nothing can be taken back.
///
/// The file's start is where the socket stands at construction; a file must stand at its own start. Belongs
/// to one thread.
class WholeWriter {
 public:
  /// The socket outlives the object.
  explicit WholeWriter(JSocket& socket) noexcept : m_socket(socket) {}

  /// Appends the buffers as one piece. Throws what the socket throws, and JTextError when it takes no more.
  void append(std::span<const JIoBuf> bufs);
  void append(const void* pBytes, std::size_t size);

  /// Appends the buffers as one piece through the asynchronous form of the socket, which tells `notify` how
  /// it ended; `notify` tells this object, by `completed` or `failed`. The buffers may go when this returns.
  void appendAsync(std::span<const JIoBuf> bufs, JSocketAsyncIONotify& notify);
  void completed(std::size_t bytes) noexcept { m_uEnd += bytes; }
  void failed() noexcept { m_bTorn = true; }

  /// Overwrites the first bytes of the file, at the end of all work. False, and nothing written, when the
  /// socket has no position.
  bool overwriteStart(std::span<const std::uint8_t> bytes);

  /// Bytes of all whole pieces.
  std::uint64_t getEnd() const noexcept { return m_uEnd; }

 private:
  void mend();
  void writeWhole(std::span<const JIoBuf> bufs);

  JSocket& m_socket;
  std::uint64_t m_uEnd = 0;
  bool m_bTorn = false;  ///< part of a piece may stand behind the end
};
