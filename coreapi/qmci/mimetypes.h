#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

/// MIME types that the system uses by name, and what they say about a stream.
namespace qm_ci {

inline constexpr std::string_view kMimeQmv1 = "video/x-qmv1";
inline constexpr std::string_view kMimeQmv2 = "video/x-qmv2";
inline constexpr std::string_view kMimeQmv = "video/x-qmv[1-2]";  ///< pattern for either one
inline constexpr std::string_view kMimeQmMp3 = "audio/x-qmmp3";
inline constexpr std::string_view kMimeQmPcm = "audio/x-qmpcm";
inline constexpr std::string_view kMimeQmMp3Internal =
    "audio/x-qmmp3-internal";  ///< as a server's stream has it
inline constexpr std::string_view kMimeQmPcmInternal =
    "audio/x-qmpcm-internal";  ///< as a server's stream has it
inline constexpr std::string_view kMimePluginStream = "application/x-qmpluginstream";
inline constexpr std::string_view kMimeSyntheticStream = "application/x-qmsyntheticstream";
inline constexpr std::string_view kMimeAnyVideo = "video/*";
inline constexpr std::string_view kMimeAnyAudio = "audio/*";
inline constexpr std::string_view kMimeAnyApplication = "application/*";

/// Types of sound that a wave header of another system describes: "PCM", or the four hexadecimal digits of a
/// format tag, follow.
inline constexpr std::string_view kMimeWave = "audio/x-AfW-";
inline constexpr std::string_view kMimeWavePcm = "audio/x-AfW-PCM";

/// Such a type of a `wFormatTag`, and the other way round.
std::string waveMIMEType(std::uint16_t wFormatTag);
std::optional<std::uint16_t> waveTagOf(std::string_view sMIMEType) noexcept;

/// Whether a type begins with "video/" or "image/", in any letter case.
bool isVideoMIMEType(std::string_view sMIMEType) noexcept;

/// Whether a type begins with "audio/", in any letter case.
bool isAudioMIMEType(std::string_view sMIMEType) noexcept;

}  // namespace qm_ci
