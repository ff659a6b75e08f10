#include "storage/mpegheader.h"

#include <array>

#include "coreapi/platform/byteorder.h"

namespace {

/// Kilobits a second of layer III by the bit rate index, for MPEG 1 and for both later versions.
constexpr std::array<std::array<std::uint16_t, 15>, 2> kBitRates = {{
    {0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320},
    {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160},
}};

/// Samplings a second by the version, 1 to 3, and the sampling rate index.
constexpr std::array<std::array<std::uint32_t, 3>, 3> kSampleRates = {{
    {44100, 48000, 32000},
    {22050, 24000, 16000},
    {11025, 12000, 8000},
}};

/// Versions by their field; 0 for the one that isn't used.
constexpr std::array<int, 4> kVersions = {3, 0, 2, 1};

constexpr std::uint32_t kSync = 0xFFE00000;
constexpr std::uint32_t kLayer3 = 1;
constexpr std::uint32_t kMono = 3;

template <typename T>
void give(T* pTo, T value) noexcept {
  if (pTo != nullptr) {
    *pTo = value;
  }
}

}  // namespace

bool parseMPEGHeader(const std::uint8_t* pBytes, std::uint32_t* pBitRate, int* pVersion,
                     std::uint32_t* pSampleRate, int* pChannels, bool* pPadding, bool* pCrc) noexcept {
  const std::uint32_t uHeader = qm_platform::readBE32(pBytes);
  const auto field = [uHeader](int iLowestBit, std::uint32_t uMask) { return uHeader >> iLowestBit & uMask; };
  const int iVersion = kVersions[field(19, 3)];
  const std::uint32_t uBitRate = field(12, 15);
  const std::uint32_t uSampleRate = field(10, 3);
  if ((uHeader & kSync) != kSync || iVersion == 0 || field(17, 3) != kLayer3 ||
      uBitRate >= kBitRates[0].size() || uSampleRate >= kSampleRates[0].size()) {
    return false;
  }
  give(pBitRate, std::uint32_t{kBitRates[iVersion == 1 ? 0 : 1][uBitRate]} * 1000);
  give(pVersion, iVersion);
  give(pSampleRate, kSampleRates[static_cast<std::size_t>(iVersion - 1)][uSampleRate]);
  give(pChannels, field(6, 3) < kMono ? 2 : 1);
  give(pPadding, field(9, 1) != 0);
  give(pCrc, field(16, 1) == 0);
  return true;
}
