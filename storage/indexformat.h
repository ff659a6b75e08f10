#pragma once

#include <cstddef>
#include <cstdint>

#include "coreapi/platform/byteorder.h"

/// The three forms of a stream's frame index, which stand in memory as they stand in files, little-endian:
///
///     FILEINDEX_POSITION, 8 bytes     FILEINDEX_NTP, 16 bytes      FILEINDEX_CI, 32 bytes
///     offset  width  field            offset  width  field         offset  width  field
///          0      8  position              0      8  position           0      8  position
///                                          8      8  time               8      8  time
///                                                                      16      8  frame number
///                                                                      24      4  flags, wAccessFlags
///                                                                      28      4  extra, dwFrameExtra
///
/// A position counts from the start of the media data. In the two short forms its bit 63 marks a key frame;
/// in the long one bit 0 of the flags marks a frame at which a reader may start. A time is a `JTime`.
///
/// Never renumber: files hold these forms.
enum IndexType : int {
  FILEINDEX_NONE = 0,
  FILEINDEX_POSITION = 1,
  FILEINDEX_NTP = 2,
  FILEINDEX_CI = 3,
};

namespace index_layout {

inline constexpr std::size_t kPositionAt = 0;
inline constexpr std::size_t kTimeAt = 8;
inline constexpr std::size_t kFrameNumberAt = 16;
inline constexpr std::size_t kFlagsAt = 24;
inline constexpr std::size_t kExtraAt = 28;

inline constexpr std::size_t kPositionSize = 8;
inline constexpr std::size_t kNtpSize = 16;
inline constexpr std::size_t kCISize = 32;

/// Bit of a position in the two short forms.
inline constexpr std::uint64_t kKeyFrame = std::uint64_t{1} << 63;

/// Bytes of an entry; 0 for no index.
constexpr std::size_t entrySize(IndexType eType) noexcept {
  switch (eType) {
    case FILEINDEX_POSITION:
      return kPositionSize;
    case FILEINDEX_NTP:
      return kNtpSize;
    case FILEINDEX_CI:
      return kCISize;
    default:
      return 0;
  }
}

/// Whether the entries of a form have times.
constexpr bool isTimed(IndexType eType) noexcept {
  return eType == FILEINDEX_NTP || eType == FILEINDEX_CI;
}

}  // namespace index_layout

/// One entry in the widest form; the short forms hold the first fields of it.
struct IndexEntry {
  std::uint64_t ullPosition = 0;
  std::uint64_t ullTime = 0;
  std::uint64_t ullFrameNumber = 0;
  std::uint32_t dwFlags = 0;
  std::uint32_t dwExtra = 0;

  bool operator==(const IndexEntry&) const = default;
};

/// Writes the fields that the form has to `entrySize(eType)` bytes.
inline void writeIndexEntry(const IndexEntry& entry, IndexType eType, std::uint8_t* pTo) noexcept {
  if (eType != FILEINDEX_NONE) {
    qm_platform::writeLE64(pTo + index_layout::kPositionAt, entry.ullPosition);
  }
  if (index_layout::isTimed(eType)) {
    qm_platform::writeLE64(pTo + index_layout::kTimeAt, entry.ullTime);
  }
  if (eType == FILEINDEX_CI) {
    qm_platform::writeLE64(pTo + index_layout::kFrameNumberAt, entry.ullFrameNumber);
    qm_platform::writeLE32(pTo + index_layout::kFlagsAt, entry.dwFlags);
    qm_platform::writeLE32(pTo + index_layout::kExtraAt, entry.dwExtra);
  }
}

/// Reads an entry from `entrySize(eType)` bytes; fields that the form hasn't are 0.
inline IndexEntry readIndexEntry(const std::uint8_t* pFrom, IndexType eType) noexcept {
  IndexEntry entry;
  if (eType != FILEINDEX_NONE) {
    entry.ullPosition = qm_platform::readLE64(pFrom + index_layout::kPositionAt);
  }
  if (index_layout::isTimed(eType)) {
    entry.ullTime = qm_platform::readLE64(pFrom + index_layout::kTimeAt);
  }
  if (eType == FILEINDEX_CI) {
    entry.ullFrameNumber = qm_platform::readLE64(pFrom + index_layout::kFrameNumberAt);
    entry.dwFlags = qm_platform::readLE32(pFrom + index_layout::kFlagsAt);
    entry.dwExtra = qm_platform::readLE32(pFrom + index_layout::kExtraAt);
  }
  return entry;
}
