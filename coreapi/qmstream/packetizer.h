#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/socket/jiobuf.h"

namespace qm_utils {

/// Cuts a frame's buffers into packets of a given size, each behind the same header buffers. Payload isn't
/// copied: a packet is a list of pieces of the caller's buffers. One object serves frame after frame and
/// allocates only when a frame needs more pieces in a packet than any before. One thread at a time.
class Packetizer {
 public:
  /// A call that can't be carried out: no data, no room behind the headers, nowhere to put a packet.
  class Error : public JTextError {
   public:
    Error();
  };

  Packetizer() = default;
  virtual ~Packetizer();
  Packetizer(const Packetizer&) = delete;
  Packetizer& operator=(const Packetizer&) = delete;

  /// Takes up a frame and returns the number of its packets, each of at most `uMaxPacket` bytes with its
  /// headers. The header buffers are copied, their bytes and the data array stay the caller's until the last
  /// packet is through. `pTotal`, unless null, takes the bytes of all packets together.
  ///
  /// Throws Error for a size of 0, for no data, and when the headers leave no room; there is no frame then.
  std::uint64_t init(std::uint32_t uMaxPacket, const JIoBuf* pHeaders, std::size_t uHeaderCount,
                     const JIoBuf* pData, std::size_t uDataCount, std::uint64_t* pTotal);

  /// Gives the next packet: its buffers, headers first, in `*ppBufs`, their number in `*pnBufs`, and its
  /// bytes in `*pBytes` unless that is null. False when all were given. The array is the same for each packet
  /// of a frame, so that the bytes of the headers can be changed between two calls.
  ///
  /// Throws Error, after a failed assertion, when `ppBufs`, the pointer in it or `pnBufs` is null.
  bool next(JIoBuf** ppBufs, std::size_t* pnBufs, std::uint64_t* pBytes);

 private:
  /// Where the cutting stands in the data.
  struct Cursor {
    const JIoBuf* pInput = nullptr;
    const JIoBuf* pInputEnd = nullptr;
    JIoBuf piece;  ///< what is left of the buffer at `pInput`
  };

  static Cursor startOf(const JIoBuf* pData, std::size_t uDataCount) noexcept;
  static std::size_t takePacket(Cursor& cursor, std::uint32_t uRoom, JIoBuf* pOut, const JIoBuf* pOutEnd,
                                std::uint64_t& uBytes);

  std::uint32_t m_uRoom = 0;  ///< payload of a packet, in bytes
  Cursor m_cursor;
  std::unique_ptr<JIoBuf[]> m_pBufs;
  JIoBuf* m_pBufsEnd = nullptr;
  std::size_t m_nHdrs = 0;
  std::uint64_t m_uHeaderBytes = 0;
  std::size_t m_uCapacity = 0;  ///< of `m_pBufs`
  std::uint64_t m_uPackets = 0;
  std::uint64_t m_uGiven = 0;
};

}  // namespace qm_utils
