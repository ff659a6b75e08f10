#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>

#include "coreapi/qmci/streaminfo.h"
#include "coreapi/qmutils/params/jparams.h"
#include "coreapi/qmutils/thread/jmutex.h"
#include "coreapi/qmutils/time/jtime.h"
#include "storage/indexformat.h"
#include "storage/indexsearch.h"

/// A stream's frame period in milliseconds, as a fraction.
struct FramePeriod {
  std::uint32_t uNumerator = 1;
  std::uint32_t uDenominator = 1;

  bool operator==(const FramePeriod&) const = default;
};

/// The record of one stream of a file: what it is, how many frames it has, when they begin and end, and the
/// index that turns a frame's number into its place.
///
/// The index may grow while readers look into it: its count and its entries are guarded by the record's
/// mutex, which comes after the mutex of the `FileInfo` that the record belongs to. Everything else belongs
/// to whoever fills the record.
class FileStreamInfo {
 public:
  FileStreamInfo() = default;

  /// Copies the entries too. A copy for which there is no memory has no entries.
  FileStreamInfo(const FileStreamInfo& other);
  FileStreamInfo& operator=(const FileStreamInfo& other);

  /// Frames known, which are the entries of the index where there is one.
  std::uint32_t getCount() const;
  void setCount(std::uint32_t uCount);

  JTime getFirstDate() const noexcept { return m_firstDate; }
  void setFirstDate(JTime date) noexcept { m_firstDate = date; }
  JTime getLastDate() const noexcept { return m_lastDate; }
  void setLastDate(JTime date) noexcept { m_lastDate = date; }

  FramePeriod getPeriod() const noexcept { return m_period; }

  /// The stream's own parameters.
  JParams& getParams() noexcept { return m_params; }
  const JParams& getParams() const noexcept { return m_params; }

  /// The form of the index. Changing it drops the entries.
  IndexType getIndexType() const noexcept { return m_eIndexType; }
  void setIndexType(IndexType eType);

  /// The description; null before it is set.
  const qm_ci::StreamInfo* getStreamInfo() const noexcept { return m_streamInfo ? &*m_streamInfo : nullptr; }

  /// Sets the description, and the frame period that it tells. A description without a rate leaves the period
  /// as it is.
  void setStreamInfo(const qm_ci::StreamInfo& streamInfo);

  /// Takes over an index that was read from a file: `pEntries` holds `uCount` entries of the form.
  void setEntries(IndexType eType, std::unique_ptr<std::uint8_t[]> pEntries, std::uint32_t uCount);

  /// Looks at an index in place: a view that `JFileSocket::mmap` gave, which ends with this object's use of
  /// it.
  void setMappedEntries(IndexType eType, const std::uint8_t* pEntries, std::uint32_t uCount);

  /// Whether the entries are such a view.
  bool isMapped() const;

  /// Drops the entries and keeps count and form.
  void releaseEntries();

  /// Forgets frames from the end, as a walk does with the last one that it saw. At most `getCount()`.
  void dropFrames(std::uint32_t uCount);

  // Looking up. Numbers count the frames of the stream from 0; positions count from the start of the media
  // data, without the mark of a key frame.

  /// Place of a frame; with `bToKeyFrame` of the one at or before it at which a reader may start, whose
  /// number is stored. Throws JTextError for a number beyond the end, without an index, and when there is no
  /// such frame; the number may be another one then.
  std::uint64_t getPosByNumber(std::uint32_t& uNumber, bool bToKeyFrame) const;

  /// Place and number of the frame in force at a time: the last one at or before it. A time less than a frame
  /// period behind the last frame is that frame's. With `bToKeyFrame` it goes on back to one at which a
  /// reader may start, or to the first. Throws JTextError for times outside and without an index that has
  /// times.
  std::uint64_t getPosByTime(JTime time, std::uint32_t& uNumber, bool bToKeyFrame) const;

  /// Time of an entry; 0 where it has none.
  JTime getTimeByNumber(std::uint32_t uNumber) const;

  /// Whether a frame is a key frame. Throws JTextError for a number beyond the end, and without an index.
  bool isKeyFrame(std::uint32_t uNumber) const;

  /// An entry as it stands; nothing beyond the end and without an index.
  std::optional<IndexEntry> getEntry(std::uint32_t uNumber) const;

  /// Whether there are entries with times.
  bool hasTimes() const;

  /// Number of the last frame at or before a time, -1 when that is before the first one; of an index that has
  /// times.
  std::int64_t getNumberAtOrBefore(JTime time) const;

  /// The entries, `getCount()` times `index_layout::entrySize` bytes; null when there are none. Only for who
  /// holds the mutex, or knows that the index doesn't grow any more.
  const std::uint8_t* getEntries() const noexcept { return m_pMapped ? m_pMapped.get() : m_pEntries.get(); }

  /// Counts a frame and appends its entry. The array grows by doubling; when there is no memory for it, it is
  /// gone for good, and only the count goes on. The caller holds the mutex of the `FileInfo`.
  void append(const IndexEntry& entry);

  /// Counts a frame that gets no entry.
  void countOnly();

  JMutex& getMutex() const noexcept { return m_mutex; }

 private:
  struct Unmap {
    void operator()(const std::uint8_t* pView) const noexcept;
  };

  IndexView view() const noexcept { return {m_eIndexType, getEntries(), m_uCount}; }

  /// Entries that the array of a stream with `uCount` frames has room for.
  static std::uint64_t entriesFor(std::uint64_t uCount) noexcept;

  void copyFrom(const FileStreamInfo& other);
  void grow(std::size_t entrySize);

  std::uint32_t m_uCount = 0;
  JTime m_firstDate;
  JTime m_lastDate;
  FramePeriod m_period;
  JParams m_params;
  IndexType m_eIndexType = FILEINDEX_NONE;
  std::unique_ptr<std::uint8_t[]> m_pEntries;            ///< own entries, or
  std::unique_ptr<const std::uint8_t, Unmap> m_pMapped;  ///< a view of a file
  mutable JMutex m_mutex;
  std::optional<qm_ci::StreamInfo> m_streamInfo;
};
