#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "coreapi/platform/byteorder.h"

namespace qm_stream {

/// The header in front of each frame of a TPKT stream, in the form in which it travels.
///
///     offset  size  field
///          0     1  version   1
///          1     1  reserved  0; receivers ignore it
///          2     2  reserved  0; receivers ignore it
///          4     4  length    bytes behind the header, big-endian; 0 ends the stream
class TPKT {
 public:
  static constexpr std::size_t kSize = 8;
  static constexpr std::uint8_t kCurrentVersion = 1;

  /// The header of so many bytes; of none, the end of the stream.
  explicit TPKT(std::uint32_t uLength = 0) noexcept {
    m_bytes[kVersion] = kCurrentVersion;
    qm_platform::writeBE32(&m_bytes[kLength], uLength);
  }

  /// The bytes that travel; a receiver reads into them.
  std::uint8_t* data() noexcept { return m_bytes.data(); }
  const std::uint8_t* data() const noexcept { return m_bytes.data(); }

  std::uint8_t getVersion() const noexcept { return m_bytes[kVersion]; }
  std::uint32_t getLength() const noexcept { return qm_platform::readBE32(&m_bytes[kLength]); }

 private:
  static constexpr std::size_t kVersion = 0;
  static constexpr std::size_t kLength = 4;

  std::array<std::uint8_t, kSize> m_bytes{};
};

}  // namespace qm_stream
