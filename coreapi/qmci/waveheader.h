#pragma once

#include <cstddef>
#include <cstdint>

/// The published WAVEFORMATEX, little-endian:
///
///     offset  width  field
///          0      2  wFormatTag       1 PCM, 85 MPEG layer 3
///          2      2  nChannels
///          4      4  nSamplesPerSec
///          8      4  nAvgBytesPerSec
///         12      2  nBlockAlign      bytes of a sample of all channels
///         14      2  wBitsPerSample
///         16      2  cbSize           bytes of what follows
///         18         extra bytes, `cbSize` of them
///
/// Its older form, PCMWAVEFORMAT, ends before `cbSize`.
namespace qm_ci {

inline constexpr std::size_t kPcmHeaderSize = 16;
inline constexpr std::size_t kWaveHeaderSize = 18;

struct WaveFormatEx {
  std::uint16_t wFormatTag = 1;
  std::uint16_t nChannels = 0;
  std::uint32_t nSamplesPerSec = 0;
  std::uint32_t nAvgBytesPerSec = 0;
  std::uint16_t nBlockAlign = 0;
  std::uint16_t wBitsPerSample = 0;
  std::uint16_t cbSize = 0;

  bool operator==(const WaveFormatEx&) const = default;
};

/// Reads the older form from 16 bytes: `cbSize` is 0.
WaveFormatEx readPcmHeader(const std::uint8_t* pFrom) noexcept;

/// Reads a header from, or writes it to, 18 bytes.
WaveFormatEx readWaveHeader(const std::uint8_t* pFrom) noexcept;
void writeWaveHeader(const WaveFormatEx& header, std::uint8_t* pTo) noexcept;

}  // namespace qm_ci
