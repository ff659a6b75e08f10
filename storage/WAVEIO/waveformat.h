#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "storage/riff.h"

/// The published WAVE file, little-endian, as this system writes it:
///
///     offset      width  field
///          0          4  "RIFF"
///          4          4  bytes of the file minus 8
///          8          4  "WAVE"
///         12          8  "fmt ", 16
///         20         16  wFormatTag, nChannels, nSamplesPerSec, nAvgBytesPerSec, nBlockAlign, wBitsPerSample
///                        (`qm_ci::WaveFormatEx` without its last word)
///         36     0 or 8  G.726 only: "fact", 0
///    36 or 44         8  "data", bytes of the audio
///    44 or 52            audio
///
/// Nothing in it tells about frames: places follow from the size of an index step.
namespace wave_layout {

inline constexpr std::uint32_t kWave = qm_ci::fourcc("WAVE");
inline constexpr std::uint32_t kFormat = qm_ci::fourcc("fmt ");
inline constexpr std::uint32_t kFact = qm_ci::fourcc("fact");
inline constexpr std::uint32_t kData = qm_ci::fourcc("data");

inline constexpr std::uint16_t kTagPcm = 1;
inline constexpr std::uint16_t kTagG711 = 7;
inline constexpr std::uint16_t kTagG726 = 0x45;

/// How a stream of a MIME type is stored.
struct Coding {
  std::string_view sMIMEType;
  std::uint16_t wFormatTag;
};

/// The types that a WAVE file can hold.
inline constexpr std::array<Coding, 4> kCodings = {{
    {"audio/x-qmpcm", kTagPcm},
    {"audio/x-qmg711", kTagG711},
    {"audio/x-qmg726", kTagG726},
    {"audio/G726-32", kTagG726},
}};

inline constexpr std::uint16_t kG726Bits = 4;
inline constexpr std::uint16_t kG726BlockAlign = 2;

/// An index step is the part of a second that holds this many of.
inline constexpr std::uint32_t kStepsPerSecond = 40;

}  // namespace wave_layout
