#include "coreapi/qmci/waveheader.h"

#include "coreapi/platform/byteorder.h"

namespace qm_ci {

namespace {

using qm_platform::readLE16;
using qm_platform::readLE32;
using qm_platform::writeLE16;
using qm_platform::writeLE32;

constexpr std::size_t kFormatTagAt = 0;
constexpr std::size_t kChannelsAt = 2;
constexpr std::size_t kSamplesPerSecAt = 4;
constexpr std::size_t kAvgBytesPerSecAt = 8;
constexpr std::size_t kBlockAlignAt = 12;
constexpr std::size_t kBitsPerSampleAt = 14;
constexpr std::size_t kExtraSizeAt = 16;

}  // namespace

WaveFormatEx readPcmHeader(const std::uint8_t* pFrom) noexcept {
  WaveFormatEx header;
  header.wFormatTag = readLE16(pFrom + kFormatTagAt);
  header.nChannels = readLE16(pFrom + kChannelsAt);
  header.nSamplesPerSec = readLE32(pFrom + kSamplesPerSecAt);
  header.nAvgBytesPerSec = readLE32(pFrom + kAvgBytesPerSecAt);
  header.nBlockAlign = readLE16(pFrom + kBlockAlignAt);
  header.wBitsPerSample = readLE16(pFrom + kBitsPerSampleAt);
  return header;
}

WaveFormatEx readWaveHeader(const std::uint8_t* pFrom) noexcept {
  WaveFormatEx header = readPcmHeader(pFrom);
  header.cbSize = readLE16(pFrom + kExtraSizeAt);
  return header;
}

void writeWaveHeader(const WaveFormatEx& header, std::uint8_t* pTo) noexcept {
  writeLE16(pTo + kFormatTagAt, header.wFormatTag);
  writeLE16(pTo + kChannelsAt, header.nChannels);
  writeLE32(pTo + kSamplesPerSecAt, header.nSamplesPerSec);
  writeLE32(pTo + kAvgBytesPerSecAt, header.nAvgBytesPerSec);
  writeLE16(pTo + kBlockAlignAt, header.nBlockAlign);
  writeLE16(pTo + kBitsPerSampleAt, header.wBitsPerSample);
  writeLE16(pTo + kExtraSizeAt, header.cbSize);
}

}  // namespace qm_ci
