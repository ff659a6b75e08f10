#pragma once

#include <cstddef>
#include <cstdint>

/// The header of a frame of MPEG audio, layer III (ISO/IEC 11172-3, 13818-3), 32 bits, most significant
/// first:
///
///     bits    field
///     21-31   all ones
///     19-20   version           0 MPEG 2.5, 2 MPEG 2, 3 MPEG 1
///     17-18   layer             1 for layer III
///        16   0: a checksum follows
///     12-15   bit rate index    15 is none
///     10-11   sampling rate index, 3 is none
///         9   padding: the frame is a byte longer
///      6-7    mode              0 stereo, 1 joint stereo, 2 two channels, 3 mono
inline constexpr std::size_t kMPEGHeaderSize = 4;

/// Takes a header apart. Each pointer may be null: bits a second (0 for a free format), the version (1, 2, or
/// 3 for MPEG 2.5), samplings a second, channels, whether the frame is padded, and whether it has a checksum.
/// False, and nothing set, when the four bytes aren't the header of a layer III frame.
bool parseMPEGHeader(const std::uint8_t* pBytes, std::uint32_t* pBitRate, int* pVersion = nullptr,
                     std::uint32_t* pSampleRate = nullptr, int* pChannels = nullptr, bool* pPadding = nullptr,
                     bool* pCrc = nullptr) noexcept;

/// Mode field of a header.
constexpr int getMPEGMode(const std::uint8_t* pBytes) noexcept {
  return pBytes[3] >> 6;
}

/// Samplings of one frame of a version, each of all channels.
constexpr std::uint32_t getMPEGFrameSamples(int iVersion) noexcept {
  return iVersion == 1 ? 1152 : 576;
}

/// Bytes of one frame without padding, its header included; 0 for a sampling rate of 0.
constexpr std::uint32_t getMPEGFrameBytes(std::uint32_t uBitRate, int iVersion,
                                          std::uint32_t uSampleRate) noexcept {
  return uSampleRate == 0 ? 0 : uBitRate * (iVersion == 1 ? 144U : 72U) / uSampleRate;
}
