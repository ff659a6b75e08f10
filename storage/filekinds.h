#pragma once

#include <cstddef>
#include <cstdint>

#include "storage/MP3/mp3format.h"
#include "storage/WAVEIO/waveformat.h"
#include "storage/riff.h"

/// What kind of media file some first bytes begin.
namespace file_kinds {

/// The first word of each kind, as `FileInfo::getTypeMagic` tells it.
inline constexpr std::uint32_t kRiffMagic = riff_layout::kRiff;
inline constexpr std::uint32_t kWaveMagic = wave_layout::kWave;
inline constexpr std::uint32_t kAsfMagic = 0xD6E229D1;
inline constexpr std::uint32_t kLaterAsfMagic = 0x75B22630;  ///< of the later, common form; not read here

/// The bytes that tell a kind: the first word, and of a RIFF file the third.
inline constexpr std::size_t kMagicSize = 4;
inline constexpr std::size_t kRiffTypeAt = 8;

/// Whether a file that begins with a word may be MPEG audio: its first 11 bits are ones.
constexpr bool isMpegMagic(std::uint32_t uMagic) noexcept {
  return (uMagic & 0xE0FF) == 0xE0FF;
}

}  // namespace file_kinds
