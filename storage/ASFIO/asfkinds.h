#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "storage/ASFIO/asfformat.h"
#include "storage/indexformat.h"

/// The generations of the system's native file that are read, called kinds. Kind 2 is the one that is
/// written, laid out in `asfformat.h`; the two earlier ones have a data object, a head of data units and
/// index objects of their own:
///
///     kind  head of a data unit  index object
///        2  36 bytes             FILEINDEX_CI, one for each stream in order
///        1  32 bytes, below      FILEINDEX_NTP, one for each stream in order
///        0  12 bytes, below      FILEINDEX_POSITION, for the first video and for the first audio stream
namespace asf_layout {

inline constexpr Guid kDataObject1 = guid("6F71882F-11D3-09B9-E000-D8A0E11C1081");
inline constexpr Guid kDataObject0 = guid("D6E229D2-35DA-11D1-9034-00A0C90349BE");
inline constexpr Guid kIndexObject1 = guid("6F71882E-11D3-09B9-E000-D8A0E11C1081");
inline constexpr Guid kVideoIndexObject0 = guid("6F3F76CA-11D3-09B9-E000-D8A0E11C1081");
inline constexpr Guid kAudioIndexObject0 = guid("6F71882C-11D3-09B9-E000-D8A0E11C1081");

/// Holds parameters of a video stream in files of kinds 0 and 1.
inline constexpr Guid kEarlyParameters = guid("D5FE7CE6-A97D-46F5-8AB1-32C0503CEE57");

/// The kind that a data object's identifier tells.
constexpr std::optional<int> kindOfData(const Guid& id) noexcept {
  return id == kDataObject    ? std::optional(2)
         : id == kDataObject1 ? std::optional(1)
         : id == kDataObject0 ? std::optional(0)
                              : std::nullopt;
}

constexpr const Guid& dataObjectOf(int iKind) noexcept {
  return iKind == 2 ? kDataObject : iKind == 1 ? kDataObject1 : kDataObject0;
}

/// The form of the index that a walk of such a file builds.
constexpr IndexType indexTypeOf(int iKind) noexcept {
  return iKind == 2 ? FILEINDEX_CI : iKind == 1 ? FILEINDEX_NTP : FILEINDEX_NONE;
}

/// Head of a data unit of kind 1:
///
///     offset  width  field
///          0      4  bits 0 to 23 payload size, bits 24 to 31 stream number - 1
///          4      4  frame number
///          8      8  time; bit 63 marks a key frame
///         16      4  bit 0 synthetic, bit 1 authentication
///         20     12  not read
namespace data_unit1 {
inline constexpr std::size_t kSizeAndStreamAt = 0;
inline constexpr std::size_t kFrameNumberAt = 4;
inline constexpr std::size_t kTimeAt = 8;
inline constexpr std::size_t kFlagsAt = 16;
inline constexpr std::size_t kHeadSize = 32;

inline constexpr std::uint32_t kSizeMask = 0x00FFFFFF;
inline constexpr int kStreamShift = 24;
inline constexpr std::uint64_t kKeyFrame = std::uint64_t{1} << 63;
inline constexpr std::uint32_t kSynthetic = 1;
inline constexpr std::uint32_t kAuthentication = 2;
}  // namespace data_unit1

/// Head of a data unit of kind 0:
///
///     offset  width  field
///          0      4  size of the unit with this head
///          4      2  stream identifier: the number in the stream properties
///          6      4  extra word that goes with the frame
///         10      2  not read
namespace data_unit0 {
inline constexpr std::size_t kUnitSizeAt = 0;
inline constexpr std::size_t kStreamAt = 4;
inline constexpr std::size_t kExtraAt = 6;
inline constexpr std::size_t kHeadSize = 12;
}  // namespace data_unit0

constexpr std::size_t unitHeadSize(int iKind) noexcept {
  return iKind == 2 ? data_unit::kHeadSize : iKind == 1 ? data_unit1::kHeadSize : data_unit0::kHeadSize;
}

}  // namespace asf_layout
