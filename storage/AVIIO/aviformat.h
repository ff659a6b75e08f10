#pragma once

#include <cstddef>
#include <cstdint>

#include "storage/riff.h"

/// The published RIFF AVI file as this system writes it: one video stream, number 1, and one audio stream,
/// number 2, at most; little-endian:
///
///     "RIFF" size "AVI "
///       "LIST" size "hdrl"
///         "avih" 56                       main header
///         "LIST" size "strl"              video: "strh" 56, "strf" BITMAPINFOHEADER
///         "LIST" size "strl"              audio: "strh" 56, "strf" WAVEFORMATEX
///       "JUNK" size zeros                 so that the first frame chunk stands at a multiple of 512
///       "LIST" size "movi"
///         "00dc" or "01wb" size           a frame: the 32-byte block below, payload, pad byte
///       "idx1" size                       an entry of 16 bytes for each frame
///
/// "avih" and the two kinds of "strh", by the offset in the body:
///
///     avih                               strh         video           audio
///       0  dwMicroSecPerFrame              0  fccType "vids"          "auds"
///       4  dwMaxBytesPerSec 4000000        4  handler "QMCI"          0
///       8  dwPaddingGranularity 2          8  dwFlags 0
///      12  dwFlags                        12  wPriority, wLanguage 0
///      16  dwTotalFrames                  16  dwInitialFrames 0
///      20  dwInitialFrames 0              20  dwScale rate's denom.   nBlockAlign
///      24  dwStreams                      24  dwRate  rate's numer.   nAvgBytesPerSec
///      28  dwSuggestedBufferSize          28  dwStart 0
///      32  dwWidth                        32  dwLength frames         samplings
///      36  dwHeight                       36  dwSuggestedBufferSize
///      40  16 bytes of 0                  40  dwQuality 0xFFFFFFFF
///                                         44  dwSampleSize 0          nBlockAlign
///                                         48  rcFrame 0, 0, w, h      0
///
/// Block in front of every payload:                   Entry of "idx1":
///
///       0  8  ullTimeStamp                             0  4  code of the chunk
///       8  8  ullFrameNumber                           4  4  flags: 16 for a key frame
///      16  2  wPictureType                             8  4  place of the chunk's head, from "movi"
///      18  2  wAccessFlags                            12  4  size of the chunk's body
///      20  4  dwDecoderPipe
///      24  1  low 8 bits of dwFrameExtra
///      25  1  0xB1
///      26  2  0xD2BA
///      28  4  0
namespace avi_layout {

using qm_ci::fourcc;

inline constexpr std::uint32_t kAvi = fourcc("AVI ");
inline constexpr std::uint32_t kHeaderList = fourcc("hdrl");
inline constexpr std::uint32_t kMainHeader = fourcc("avih");
inline constexpr std::uint32_t kStreamList = fourcc("strl");
inline constexpr std::uint32_t kStreamHeader = fourcc("strh");
inline constexpr std::uint32_t kStreamFormat = fourcc("strf");
inline constexpr std::uint32_t kMovi = fourcc("movi");
inline constexpr std::uint32_t kIndex = fourcc("idx1");
inline constexpr std::uint32_t kVideoChunk = fourcc("00dc");
inline constexpr std::uint32_t kAudioChunk = fourcc("01wb");

/// Numbers of the streams.
inline constexpr std::uint32_t kVideoStream = 1;
inline constexpr std::uint32_t kAudioStream = 2;

/// The media begins at a multiple of this.
inline constexpr std::size_t kMediaAlignment = 512;

namespace main_header {
inline constexpr std::size_t kSize = 56;
inline constexpr std::size_t kMicroSecPerFrameAt = 0;
inline constexpr std::size_t kMaxBytesPerSecAt = 4;
inline constexpr std::size_t kPaddingGranularityAt = 8;
inline constexpr std::size_t kFlagsAt = 12;
inline constexpr std::size_t kTotalFramesAt = 16;
inline constexpr std::size_t kStreamsAt = 24;
inline constexpr std::size_t kSuggestedBufferSizeAt = 28;
inline constexpr std::size_t kWidthAt = 32;
inline constexpr std::size_t kHeightAt = 36;

inline constexpr std::uint32_t kMaxBytesPerSec = 4'000'000;
inline constexpr std::uint32_t kPaddingGranularity = 2;
inline constexpr std::uint32_t kNoVideoPeriod = 1'000'000;  ///< microseconds
/// Has an index, trust its chunk types, was captured.
inline constexpr std::uint32_t kFlags = 0x10030;
inline constexpr std::uint32_t kInterleavedFlag = 0x100;
}  // namespace main_header

namespace stream_header {
inline constexpr std::size_t kSize = 56;
inline constexpr std::size_t kTypeAt = 0;
inline constexpr std::size_t kHandlerAt = 4;
inline constexpr std::size_t kFlagsAt = 8;
inline constexpr std::size_t kScaleAt = 20;
inline constexpr std::size_t kRateAt = 24;
inline constexpr std::size_t kLengthAt = 32;
inline constexpr std::size_t kSuggestedBufferSizeAt = 36;
inline constexpr std::size_t kQualityAt = 40;
inline constexpr std::size_t kSampleSizeAt = 44;
inline constexpr std::size_t kFrameWidthAt = 52;
inline constexpr std::size_t kFrameHeightAt = 54;

inline constexpr std::uint32_t kVideoType = fourcc("vids");
inline constexpr std::uint32_t kAudioType = fourcc("auds");
inline constexpr std::uint32_t kHandler = fourcc("QMCI");
inline constexpr std::uint32_t kDefaultQuality = 0xFFFFFFFF;
}  // namespace stream_header

namespace frame_block {
inline constexpr std::size_t kSize = 32;
inline constexpr std::size_t kTimeStampAt = 0;
inline constexpr std::size_t kFrameNumberAt = 8;
inline constexpr std::size_t kPictureTypeAt = 16;
inline constexpr std::size_t kAccessFlagsAt = 18;
inline constexpr std::size_t kDecoderPipeAt = 20;
inline constexpr std::size_t kFrameExtraAt = 24;
inline constexpr std::size_t kMark1At = 25;
inline constexpr std::size_t kMark2At = 26;

inline constexpr std::uint8_t kMark1 = 0xB1;
inline constexpr std::uint16_t kMark2 = 0xD2BA;
}  // namespace frame_block

namespace index_entry {
inline constexpr std::size_t kSize = 16;
inline constexpr std::size_t kCodeAt = 0;
inline constexpr std::size_t kFlagsAt = 4;
inline constexpr std::size_t kPlaceAt = 8;
inline constexpr std::size_t kBodySizeAt = 12;

inline constexpr std::uint32_t kKeyFrame = 16;
/// Places count from the type of the "movi" list, which is so many bytes in front of the first chunk.
inline constexpr std::uint32_t kPlaceOfFirst = 4;
}  // namespace index_entry

}  // namespace avi_layout
