#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

/// A file of MPEG audio as this system writes it: the frames, one behind the other, then a trailer that is
/// found from the end of the file; little-endian:
///
///     width      part
///                audio
///                --- when the file's or the stream's parameters aren't empty:
///     a + 1      text of the file's parameters and a zero
///     b + 1      text of the stream's parameters and a zero
///         8      "QM_TAG_2"
///         4      a + b + 2
///                --- always:
///     16 n       index: n entries of the form FILEINDEX_NTP
///         8      bytes of audio
///         8      0xFF eight times
///         8      "QM_TAG_1"
///         4      n
///                --- when the stream has a "sourceName" or the file an "authoringApp":
///       128      the published ID3 tag, version 1:
///                    0   3  "TAG"
///                    3  30  title: "sourceName", filled with zeros, cut without a zero
///                   33  30  artist: "authoringApp", likewise
///                   63  64  zeros
///                  127   1  genre, 0x2B
///
/// Players skip what isn't a frame, and know the tag.
namespace mp3_layout {

inline constexpr std::string_view kIndexMark = "QM_TAG_1";
inline constexpr std::string_view kParamsMark = "QM_TAG_2";
inline constexpr std::size_t kMarkSize = 8;

/// A mark and the word behind it.
inline constexpr std::size_t kMarkBlockSize = kMarkSize + 4;

/// Audio size and eight bytes of ones.
inline constexpr std::size_t kSizeBlockSize = 16;
inline constexpr std::size_t kSizeBlockOnesAt = 8;

inline constexpr std::string_view kId3Mark = "TAG";
inline constexpr std::size_t kId3Size = 128;
inline constexpr std::size_t kId3TitleAt = 3;
inline constexpr std::size_t kId3ArtistAt = 33;
inline constexpr std::size_t kId3NameSize = 30;
inline constexpr std::size_t kId3GenreAt = 127;
inline constexpr std::uint8_t kId3Genre = 0x2B;

}  // namespace mp3_layout
