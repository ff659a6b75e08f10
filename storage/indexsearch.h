#pragma once

#include <cstddef>
#include <cstdint>

#include "coreapi/qmutils/time/jtime.h"
#include "storage/indexformat.h"

/// Looking things up in the entries of an index, wherever they lie. No state; the entries must not change
/// meanwhile.
class IndexView {
 public:
  /// `pEntries`: `uCount` entries of the form; may be null, for an index without entries.
  IndexView(IndexType eType, const std::uint8_t* pEntries, std::uint32_t uCount) noexcept
      : m_eType(eType),
        m_pEntries(pEntries),
        m_uStride(index_layout::entrySize(eType)),
        m_uCount(pEntries != nullptr && m_uStride != 0 ? uCount : 0) {}

  std::uint32_t count() const noexcept { return m_uCount; }

  /// Position of an entry without its mark of a key frame.
  std::uint64_t position(std::uint32_t uNumber) const noexcept {
    return word(uNumber, index_layout::kPositionAt) & ~index_layout::kKeyFrame;
  }

  /// Time of an entry, of a form that has times.
  std::uint64_t time(std::uint32_t uNumber) const noexcept { return word(uNumber, index_layout::kTimeAt); }

  /// Whether a reader may start at an entry.
  bool isStart(std::uint32_t uNumber) const noexcept {
    return m_eType == FILEINDEX_CI
               ? (flags(uNumber) & 1) != 0
               : (word(uNumber, index_layout::kPositionAt) & index_layout::kKeyFrame) != 0;
  }

  /// Whether an entry is one of a key frame: in the long form both low bits of its flags are set.
  bool isKeyFrame(std::uint32_t uNumber) const noexcept {
    return m_eType == FILEINDEX_CI ? (flags(uNumber) & 3) == 3 : isStart(uNumber);
  }

  IndexEntry entry(std::uint32_t uNumber) const noexcept {
    return readIndexEntry(m_pEntries + m_uStride * uNumber, m_eType);
  }

  /// The last entry at or before a time, of entries whose times don't descend. The time isn't before that of
  /// the first entry. Times that do descend, as those of a damaged file, give some entry.
  ///
  /// Interpolates where times are evenly spaced, which finds them at once, and halves where they aren't, so
  /// that no spacing takes more than twice as many steps as there are bits in the count.
  std::uint32_t lastAtOrBefore(std::uint64_t ullTime) const noexcept;

 private:
  std::uint64_t word(std::uint32_t uNumber, std::size_t at) const noexcept {
    return qm_platform::readLE64(m_pEntries + m_uStride * uNumber + at);
  }
  std::uint32_t flags(std::uint32_t uNumber) const noexcept {
    return qm_platform::readLE32(m_pEntries + m_uStride * uNumber + index_layout::kFlagsAt);
  }

  IndexType m_eType;
  const std::uint8_t* m_pEntries;
  std::size_t m_uStride;
  std::uint32_t m_uCount;
};
