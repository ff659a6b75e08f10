#pragma once

#include <cstdint>
#include <memory>
#include <span>

#include "coreapi/qmutils/socket/jiosocket.h"

namespace qm_stream {

/// Takes a byte stream apart into headers and payloads of known sizes.
///
/// Large payloads go from the connection straight into the caller's buffers, in the same call that brings the
/// header behind them. Where frames are small, one call brings as many of them as have arrived, and they are
/// copied from here; what such a call catches of a large payload is copied too, at most `kRoom` bytes.
///
/// A peer that ends the stream before all is there is an EndOfFileError. When a read gave less than was
/// needed and the connection's read time-out has passed since the part was begun, JTimeoutError is thrown; so
/// a peer that drips bytes can't hold a reader. With a time-out of -1 nothing is timed.
///
/// One thread.
class ReadAhead {
 public:
  /// Most bytes that are kept here.
  static constexpr std::uint32_t kRoom = 64 * 1024;

  /// Payloads up to this size are taken from here, larger ones straight from the connection: copying that
  /// much costs about what another call of the system does.
  static constexpr std::uint32_t kSmallPayload = 8 * 1024;

  /// The connection outlives this object. `uHeaderSize` is what stands in front of each payload.
  ReadAhead(JISocket& input, std::uint32_t uHeaderSize);

  /// Fills the header from `uFilled` on, and moves `uFilled` along, so that a read that failed can be taken
  /// up again.
  void readHeader(std::uint8_t* pHeader, std::uint32_t& uFilled);

  /// Fills `uSize` bytes of the buffers from byte `uOffset` on, which must have room for them.
  void readPayload(const JIoBuf* pBuffers, std::size_t uCount, std::uint32_t uOffset, std::uint32_t uSize);

 private:
  std::uint32_t kept() const noexcept { return m_uEnd - m_uNext; }
  void receivePayload(const JIoBuf* pBuffers, std::size_t uCount, std::uint32_t uOffset, std::uint32_t uSize);

  JISocket& m_input;
  std::uint32_t m_uHeaderSize;
  std::unique_ptr<std::uint8_t[]> m_buffer;
  std::uint32_t m_uNext = 0;  ///< first byte that is kept
  std::uint32_t m_uEnd = 0;
  bool m_bSmall = false;  ///< the last payload was small: so is probably the next one
};

}  // namespace qm_stream
