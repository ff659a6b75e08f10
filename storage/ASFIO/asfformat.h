#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>

/// The system's native file: the early published form of the Advanced Streaming Format (version 1.0, the
/// family of identifiers D6E229xx-35DA-11D1-9034-00A0C90349BE), with a data section and an index of the
/// system's own. All numbers are little-endian. In order:
///
///     header object           with its sub-objects: file properties, language list, stream properties of
///                             each stream, file metadata
///     data object             a head of 24 bytes, then the data units
///     index object            one for each stream
///     padding object          with direct I/O only
///
/// Every object begins with a head of 24 bytes: its identifier, and its size with the head, 64 bits.
///
/// With direct I/O in blocks of B bytes, the header object and the data object's head are filled up with
/// zeros to a multiple of B, each data unit likewise, and the padding object fills up the block of the
/// indexes.
namespace asf_layout {

/// An identifier as it is stored: the first three groups of its text are little-endian numbers, the last two
/// bytes in the order of the text.
using Guid = std::array<std::uint8_t, 16>;

/// The identifier of a text "XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX".
consteval Guid guid(const char (&text)[37]) {
  constexpr std::array<int, 16> kPlaceOfByte = {6, 4, 2, 0, 11, 9, 16, 14, 19, 21, 24, 26, 28, 30, 32, 34};
  constexpr auto digit = [](char c) { return c <= '9' ? c - '0' : c - 'A' + 10; };
  Guid id{};
  for (std::size_t i = 0; i < id.size(); ++i) {
    const int place = kPlaceOfByte[i];
    id[i] = static_cast<std::uint8_t>(digit(text[place]) << 4 | digit(text[place + 1]));
  }
  return id;
}

inline constexpr Guid kHeaderObject = guid("D6E229D1-35DA-11D1-9034-00A0C90349BE");
inline constexpr Guid kFilePropertiesObject = guid("D6E229D0-35DA-11D1-9034-00A0C90349BE");
inline constexpr Guid kLanguageListObject = guid("D6E229E1-35DA-11D1-9034-00A0C90349BE");
inline constexpr Guid kStreamPropertiesObject = guid("D6E229D4-35DA-11D1-9034-00A0C90349BE");
inline constexpr Guid kStreamExtensionObject = guid("D6E22A0F-35DA-11D1-9034-00A0C90349BE");
inline constexpr Guid kVideoStream = guid("D6E229E3-35DA-11D1-9034-00A0C90349BE");
inline constexpr Guid kAudioStream = guid("D6E229E2-35DA-11D1-9034-00A0C90349BE");
inline constexpr Guid kDataStream = guid("63918ADF-4AC9-17C0-C579-A8AC37D404F1");
inline constexpr Guid kOtherStream = guid("D6E229E6-35DA-11D1-9034-00A0C90349BE");
inline constexpr Guid kVideoCoding1 = guid("0E19B072-11D3-09AA-E000-D8A0E11C1081");
inline constexpr Guid kVideoCoding2 = guid("D6E229EC-35DA-11D1-9034-00A0C90349BE");
inline constexpr Guid kAudioCoding1 = guid("00000001-0010-0000-AA00-0080719B3800");
inline constexpr Guid kAudioCoding2 = guid("D6E229EA-35DA-11D1-9034-00A0C90349BE");
/// Names the file metadata object, and the extension that holds a stream's parameters.
inline constexpr Guid kParameters = guid("6F718831-11D3-09B9-E000-D8A0E11C1081");
inline constexpr Guid kPropertiesExtension = guid("18090E74-364D-4CCE-AF0D-1CFB56818949");
inline constexpr Guid kDataObject = guid("EFCBDBBB-8BB3-47DB-B00D-7FB256059D23");
inline constexpr Guid kIndexObject = guid("EFCBDBBF-8BB3-47DB-B00D-7FB256059D23");
inline constexpr Guid kPaddingObject = guid("6F718830-11D3-09B9-E000-D8A0E11C1081");

/// Head of every object.
inline constexpr std::size_t kObjectIdAt = 0;
inline constexpr std::size_t kObjectSizeAt = 16;
inline constexpr std::size_t kObjectHeadSize = 24;

/// The largest header object that is written or read.
inline constexpr std::size_t kMaxHeaderSize = 0x100000;

/// File properties object:
///
///     offset  width  field
///         24     16  file id            zero
///         40      8  creation date      100 ns since the start of 1601
///         48      8  reserved           zero
///         56      8  last time          in the file's own time base
///         64      8  the same
///         72      4  flags              below
///         76      4  reserved           zero
///         80      4  peak bit rate      bits a second, of the largest stream
///         84      4  average data unit  bytes
///         88      4  largest data unit  bytes
///         92      4  frames             of all streams
///         96      2  streams
namespace file_properties {
inline constexpr std::size_t kCreationDateAt = 40;
inline constexpr std::size_t kReservedAt = 48;
inline constexpr std::size_t kLastTimeAt = 56;
inline constexpr std::size_t kLastTimeAgainAt = 64;
inline constexpr std::size_t kFlagsAt = 72;
inline constexpr std::size_t kPeakBitRateAt = 80;
inline constexpr std::size_t kAverageUnitAt = 84;
inline constexpr std::size_t kLargestUnitAt = 88;
inline constexpr std::size_t kFrameCountAt = 92;
inline constexpr std::size_t kStreamCountAt = 96;
inline constexpr std::size_t kSize = 98;

/// It is the first object of the header.
inline constexpr std::size_t kPlace = kObjectHeadSize;

/// Creation dates count this many to a microsecond.
inline constexpr std::uint64_t kDateUnits = 10;

inline constexpr std::uint32_t kUnfinished = 0x00000001;  ///< the writer hasn't ended
inline constexpr std::uint32_t kAlwaysSet = 0x00000002;
inline constexpr std::uint32_t kBlockMask = 0x0F000000;  ///< not 0: written for direct I/O
inline constexpr std::uint32_t kSmallBlocks = 0x08000000;
inline constexpr int kBlockShift = 24;
}  // namespace file_properties

/// Block sizes of direct I/O, powers of two, and their place in the flags: v in bits 24 to 26 stands for
/// 256 << v, and with `kSmallBlocks` for 256 >> (v - 1).
inline constexpr std::uint32_t kSmallestBlock = 8;
inline constexpr std::uint32_t kLargestBlock = 32768;

/// Whether files can be written in such blocks.
constexpr bool isBlockSize(std::uint32_t uSize) noexcept {
  return uSize >= kSmallestBlock && uSize <= kLargestBlock && std::has_single_bit(uSize);
}

/// The flags of a block size; 0 for none.
constexpr std::uint32_t blockFlags(std::uint32_t uSize) noexcept {
  using namespace file_properties;
  if (!isBlockSize(uSize)) {
    return 0;
  }
  const auto uLog2 = static_cast<std::uint32_t>(std::countr_zero(uSize));
  return uSize <= 256 ? ((9 - uLog2) << kBlockShift | kSmallBlocks) : (uLog2 - 8) << kBlockShift;
}

/// The block size of a file's flags; 0 for a file that wasn't written for direct I/O.
constexpr std::uint32_t blockSize(std::uint32_t uFlags) noexcept {
  using namespace file_properties;
  const std::uint32_t v = uFlags >> kBlockShift & 7;
  if ((uFlags & kSmallBlocks) != 0) {
    return v == 0 ? 0 : 256U >> (v - 1);
  }
  return v == 0 ? 0 : 256U << v;
}

/// The lowest multiple of a block size at or above a number of bytes.
constexpr std::uint64_t roundedUp(std::uint64_t uBytes, std::uint32_t uBlock) noexcept {
  return (uBytes + uBlock - 1) / uBlock * uBlock;
}

/// Language list object: a count of 1, a length of 16 and "American English", always.
namespace language_list {
inline constexpr std::size_t kCountAt = 24;
inline constexpr std::size_t kLengthAt = 26;
inline constexpr std::size_t kTextAt = 27;
inline constexpr char kText[] = "American English";
inline constexpr std::size_t kSize = kTextAt + sizeof kText - 1;
}  // namespace language_list

/// Stream properties object, with m bytes of MIME type and t of type-specific data:
///
///      offset  width  field
///          24     16  stream type
///          40      8  first date         ullTimeStamp of the first frame
///          48      8  last date          of the last one
///          56      4  average bit rate   bits a second
///          60      4  peak bit rate
///          64      4  average data unit  bytes
///          68      4  largest data unit  bytes
///          72      4  reserved           zero
///          76      4  flags              7
///          80      2  stream number      from 1
///          82      2  reserved           zero
///          84      2  name count         0
///          86      1  m
///          87      m  MIME type, zero-terminated; data streams only
///      87 + m      2  t
///      89 + m      t  type-specific data
///      89 + m + t     three extension objects
///
/// A reader also takes flags with bits 3 and 4: both other than 0 put more bytes in front of offset 80,
/// bit 3 alone 12, any other 8. Names are a word, a length in 16-bit units, and the text.
namespace stream_properties {
inline constexpr std::size_t kTypeAt = 24;
inline constexpr std::size_t kFirstDateAt = 40;
inline constexpr std::size_t kLastDateAt = 48;
inline constexpr std::size_t kAverageBitRateAt = 56;
inline constexpr std::size_t kPeakBitRateAt = 60;
inline constexpr std::size_t kAverageUnitAt = 64;
inline constexpr std::size_t kLargestUnitAt = 68;
inline constexpr std::size_t kFlagsAt = 76;
inline constexpr std::size_t kNumberAt = 80;
inline constexpr std::size_t kNameCountAt = 84;
inline constexpr std::size_t kMimeLengthAt = 86;
inline constexpr std::size_t kMimeAt = 87;

inline constexpr std::uint32_t kFlags = 7;
inline constexpr std::uint32_t kExtraMask = 24;
inline constexpr std::uint32_t kLongExtra = 8;
inline constexpr std::size_t kLongExtraSize = 12;
inline constexpr std::size_t kShortExtraSize = 8;
}  // namespace stream_properties

/// Type-specific data of a video stream; the size at 76 is that of the block behind offset 86 plus 8, 4 when
/// there is none:
///
///     offset  width  field
///          0     16  video coding identifier 1
///         16     16  video coding identifier 2
///         32      8  frames a second, a 64-bit real number; three times
///         56     10  zeros
///         66      8  width, height, width, height
///         74      2  biBitCount
///         76      2  size
///         78      2  zeros
///         80      6  ones
///         86         BITMAPINFOHEADER with what follows it
namespace video_data {
inline constexpr std::size_t kCoding1At = 0;
inline constexpr std::size_t kCoding2At = 16;
inline constexpr std::size_t kRateAt = 32;
inline constexpr std::size_t kRates = 3;
inline constexpr std::size_t kWidthAt = 66;
inline constexpr std::size_t kHeightAt = 68;
inline constexpr std::size_t kWidthAgainAt = 70;
inline constexpr std::size_t kHeightAgainAt = 72;
inline constexpr std::size_t kBitCountAt = 74;
inline constexpr std::size_t kSizeAt = 76;
inline constexpr std::size_t kOnesAt = 80;
inline constexpr std::size_t kInterlaceAt = 81;  ///< in files of earlier generations
inline constexpr std::size_t kOnesSize = 6;
inline constexpr std::size_t kBitmapAt = 86;

inline constexpr std::size_t kSizeOverBlock = 8;
inline constexpr std::size_t kNoBlock = 4;
inline constexpr std::size_t kLeastSize = 82;
}  // namespace video_data

/// Type-specific data of an audio stream:
///
///     offset  width  field
///          0     16  audio coding identifier 1
///         16     16  audio coding identifier 2
///         32      4  bits a sample
///         36      4  samplings a second
///         40      4  samplings a frame x channels x (bits / 8)
///         44      4  zeros
///         48      4  samplings a frame
///         52      2  zeros
///         54      2  channels
///         56      2  zeros
///         58      2  cbSize + 18
///         60         WAVEFORMATEX with what follows it, cbSize + 18 bytes
namespace audio_data {
inline constexpr std::size_t kCoding1At = 0;
inline constexpr std::size_t kCoding2At = 16;
inline constexpr std::size_t kBitsAt = 32;
inline constexpr std::size_t kRateAt = 36;
inline constexpr std::size_t kFrameBytesAt = 40;
inline constexpr std::size_t kSamplingsAt = 48;
inline constexpr std::size_t kChannelsAt = 54;
inline constexpr std::size_t kSizeAt = 58;
inline constexpr std::size_t kWaveAt = 60;

inline constexpr std::size_t kLeastSize = 60;
}  // namespace audio_data

/// Type-specific data of a data stream: the first 12 bytes of `qm_ci::StreamDataInfo`, then its XML
/// description, zero-terminated.
namespace data_data {
inline constexpr std::size_t kFieldsAt = 0;
inline constexpr std::size_t kFieldsSize = 12;
inline constexpr std::size_t kTextAt = 12;
}  // namespace data_data

/// Stream extension object with n bytes of content. Every stream has three, in this order: its parameters and
/// its properties, both texts with their zeros, and an empty one whose identifier is zero.
///
///     offset  width  field
///         24     16  identifier of the extension
///         40      2  zero
///         42      4  n
///         46      n  content
namespace stream_extension {
inline constexpr std::size_t kIdAt = 24;
inline constexpr std::size_t kContentSizeAt = 42;
inline constexpr std::size_t kContentAt = 46;
}  // namespace stream_extension

/// Head of a data unit, one for each frame; the packet's payload follows it.
///
///     offset  width  field
///          0      4  stream number
///          4      4  payload size
///          8      2  wPictureType
///         10      2  wAccessFlags
///         12      8  ullTimeStamp
///         20      8  ullFrameNumber
///         28      4  dwDecoderPipe
///         32      1  low 8 bits of dwFrameExtra
///         33      3  zeros
namespace data_unit {
inline constexpr std::size_t kStreamAt = 0;
inline constexpr std::size_t kPayloadSizeAt = 4;
inline constexpr std::size_t kPictureTypeAt = 8;
inline constexpr std::size_t kAccessFlagsAt = 10;
inline constexpr std::size_t kTimeStampAt = 12;
inline constexpr std::size_t kFrameNumberAt = 20;
inline constexpr std::size_t kDecoderPipeAt = 28;
inline constexpr std::size_t kFrameExtraAt = 32;
inline constexpr std::size_t kHeadSize = 36;
}  // namespace data_unit

// The file metadata object is a head and the text of the file's parameters without a zero. The data object's
// size counts to the end of the last data unit, and is 0 while the file is being written. An index object is
// a head and the entries of a stream in the form FILEINDEX_CI, with positions that count from the first data
// unit. The padding object is a head and zeros.

}  // namespace asf_layout
