#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "coreapi/platform/byteorder.h"

namespace qm_stream {

/// The header in front of each frame of a remote copy stream, in the form in which it travels.
///
///     offset  size  field
///          0     8  time stamp    the frame's ullTimeStamp
///          8     4  frame number  ullFrameNumber % 0xFFFFFFFF
///         12     4  dwFrameSize   bytes of payload behind the header; 0 ends the stream
///         16     4  flags         31 decoding can start here, 30 always 0, 29 the frame is of kind 6
///         20     4  reserved      0; receivers ignore it
///
/// All fields are little-endian. Never renumber: peers of every generation read it.
class RemoteCopyFrameHeader {
 public:
  static constexpr std::size_t kSize = 24;

  /// All zeros, which is the end of the stream.
  RemoteCopyFrameHeader() noexcept = default;

  /// The bytes that travel; a receiver reads into them.
  std::uint8_t* data() noexcept { return m_bytes.data(); }
  const std::uint8_t* data() const noexcept { return m_bytes.data(); }

  std::uint64_t getTimeStamp() const noexcept { return qm_platform::readLE64(&m_bytes[kTimeStamp]); }
  std::uint32_t getFrameNumber() const noexcept { return qm_platform::readLE32(&m_bytes[kFrameNumber]); }
  std::uint32_t getFrameSize() const noexcept { return qm_platform::readLE32(&m_bytes[kFrameSize]); }

  /// Whether decoding can start at the frame.
  bool isAccessPoint() const noexcept { return hasFlag(kAccessPointFlag); }

  /// Whether the frame is of kind 6.
  bool isAuthentication() const noexcept { return hasFlag(kAuthenticationFlag); }

  void setTimeStamp(std::uint64_t ullTimeStamp) noexcept {
    qm_platform::writeLE64(&m_bytes[kTimeStamp], ullTimeStamp);
  }

  /// Stores the remainder by 4294967295, which isn't the low word.
  void setFrameNumber(std::uint64_t ullFrameNumber) noexcept {
    qm_platform::writeLE32(&m_bytes[kFrameNumber], static_cast<std::uint32_t>(ullFrameNumber % 0xFFFFFFFFU));
  }
  void setFrameSize(std::uint32_t dwFrameSize) noexcept {
    qm_platform::writeLE32(&m_bytes[kFrameSize], dwFrameSize);
  }

  // Each sets or clears its own bit only.
  void setAccessPoint(bool bSet) noexcept { setFlag(kAccessPointFlag, bSet); }
  void setBit30(bool bSet) noexcept { setFlag(kBit30, bSet); }
  void setAuthentication(bool bSet) noexcept { setFlag(kAuthenticationFlag, bSet); }

 private:
  static constexpr std::size_t kTimeStamp = 0;
  static constexpr std::size_t kFrameNumber = 8;
  static constexpr std::size_t kFrameSize = 12;
  static constexpr std::size_t kFlags = 16;
  static constexpr std::uint32_t kAccessPointFlag = 1U << 31;
  static constexpr std::uint32_t kBit30 = 1U << 30;
  static constexpr std::uint32_t kAuthenticationFlag = 1U << 29;

  bool hasFlag(std::uint32_t uFlag) const noexcept {
    return (qm_platform::readLE32(&m_bytes[kFlags]) & uFlag) != 0;
  }
  void setFlag(std::uint32_t uFlag, bool bSet) noexcept {
    const std::uint32_t uFlags = qm_platform::readLE32(&m_bytes[kFlags]);
    qm_platform::writeLE32(&m_bytes[kFlags], bSet ? uFlags | uFlag : uFlags & ~uFlag);
  }

  std::array<std::uint8_t, kSize> m_bytes{};
};

}  // namespace qm_stream
