#pragma once

#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "coreapi/qmutils/thread/jmutex.h"
#include "storage/AlarmLog.h"
#include "storage/FileFactory.h"
#include "storage/FileInfo.h"
#include "storage/MetaDataLog.h"
#include "storage/ProtectedLog.h"
#include "storage/Slice.h"
#include "storage/SliceMap.h"
#include "storage/TimeSpan.h"
#include "storage/UnitMedia.h"

class ArchiveUnit;

/// Told what becomes of a unit's slices. Comes on the thread that changes the unit, under the unit's mutex.
class ArchiveUnitListener {
 public:
  virtual ~ArchiveUnitListener() = default;
  virtual void sliceAdded(const ArchiveUnit& unit, const Slice& slice) = 0;
  virtual void sliceRemoved(const ArchiveUnit& unit, const Slice& slice) = 0;
};

/// Told of each entry of a directory that is opened but for the logs, on the thread that opens it.
class ArchiveUnitProgress {
 public:
  virtual ~ArchiveUnitProgress() = default;
  virtual void entry(const std::string& sName) = 0;
};

/// One directory of recordings of one source at one frame rate: media files (slices), and beside them the
/// logs of the stream.
///
///     20110303-100000000000-20110303-100959960000-000052428800.asf     slices, named by their content
///     alarm.log  protection.log  metadata.log
///     hidden-metadata.log                                              spans that searches leave out
///
/// The index of the slices is made of their names alone. Files with other names are what a writer left
/// unfinished: they are recovered when the directory is opened, or removed when that can't be.
///
/// Any thread may call anything, `open` aside, which comes once and before all else. One mutex guards the
/// unit; it comes after the lock of the source table and before the cache's and the descriptions' mutexes. It
/// isn't held while a file is opened.
class ArchiveUnit : public FileFactory {
 public:
  /// Why the unit's recordings are made. Never renumber: configurations hold these.
  enum Type : std::int32_t { kPermanent = 1, kOnEvent = 2, kPrePost = 3 };

  struct Settings {
    std::int32_t iType = kPermanent;

    /// Pictures a second, the key of the unit in the source table; 0 for streams that have none.
    std::int32_t iFps = 0;

    /// Bytes that unprotected slices may take; 0 for no limit. `getExpiredSlicesbySpace` goes by it.
    std::uint64_t uMaxSpace = 0;

    /// Whether slices whose gap is at most two frame periods, of the key or of the media if those are longer,
    /// count as one stored span, so that an uninterrupted recording is one row of a search. Otherwise spans
    /// are those of the slices.
    bool bJoinGaps = false;

    /// The directory that files go to which can't be recovered, made when the first one comes; they are
    /// deleted when it is empty.
    std::string sQuarantine = {};
  };

  /// "PERMANENT", "ONEVENT" or "PREPOST"; empty for any other type.
  static const char* getTypeText(std::int32_t iType) noexcept;

  /// Process-wide: while it is on, recovery changes and removes nothing.
  static void setRecoveryReadOnly(bool bOn) noexcept;

  ArchiveUnit(std::string sDirectory, Settings settings);

  /// All listeners must be gone.
  ~ArchiveUnit() override;
  ArchiveUnit(const ArchiveUnit&) = delete;
  ArchiveUnit& operator=(const ArchiveUnit&) = delete;

  /// Opens the slice, or the file being written, that fits; `iMode` is a `SliceMap::Mode`.
  std::unique_ptr<FileInput> openFile(const TimeSpan& span, JTime* pStart, JTime* pEnd, int iMode) override;
  std::unique_ptr<FileInput> openNextFile(JTime after, JTime* pStart, JTime* pEnd) override;

  /// The stored spans that have part in a range, in order, without those that are hidden. They aren't cut to
  /// the range, nor followed far beyond it.
  virtual TimeSpanList getStoredSpans(const TimeSpan& range) const;

  /// Indexes the directory, recovers files and reads the logs. Whatever is wrong with files is logged and
  /// stops nothing. Throws JTextError without the process's cache of descriptions (`FileInfo::initCache`).
  void open(ArchiveUnitProgress* pProgress = nullptr);

  const std::string& getDirectory() const noexcept { return m_sDirectory; }
  const Settings& getSettings() const noexcept { return m_settings; }
  const char* getTypeText() const noexcept { return getTypeText(m_settings.iType); }

  std::string getSessionName() const;
  void setSessionName(const std::string& sSessionName);

  /// What the unit's files hold, told by the first one that can be read, or by the one being written when
  /// there is none. The first call after a change of the first slice opens a file.
  UnitMedia getMedia() const;

  // Slices.

  /// Takes a file of the directory into the index (as `SliceMap::add`), or with null gives up the description
  /// of the file being written.
  void addSlice(std::unique_ptr<Slice> pSlice);

  /// Deletes a slice's file and takes it out of the index. False when there is no slice of just this span.
  /// Throws JSysError "DeleteFile", and nothing changes; a file that isn't there is no failure.
  bool removeSlice(const TimeSpan& span);

  /// The file that a writer has begun in this directory, whose description it fills; null for none. A writer
  /// needs its description up to its end: it goes before the unit is made to give the description up.
  void setCurrentFile(FileInfo::Ptr pFileInfo);

  /// Copies of the slices that have part in a range, in order.
  std::vector<Slice> getSlices(const TimeSpan& range) const;
  std::size_t getSliceCount() const;

  /// Bytes of all slices, and of a range: of a slice that it cuts, the part.
  std::uint64_t getUsedSpace() const;
  std::uint64_t getSizeWithin(const TimeSpan& range) const;

  /// Appends the oldest slices that must go for the unit to keep to its maximum: those that no protection in
  /// force touches, until what protections don't hold is small enough. None as long as the log of the
  /// protections couldn't be read whole.
  void getExpiredSlicesbySpace(std::vector<Slice>& list) const;

  // Spans that the logs tell, in order.

  /// Of all protections, whenever they are valid.
  TimeSpanList getProtectedSpans() const;

  /// Of the protections that are in force at a time; a validity of 0 is open at that end. United.
  TimeSpanList getProtectedSpans(JTime when) const;
  TimeSpanList getAlarmSpans(const std::string& sNameGlob) const;
  TimeSpanList getMetaDataSpans() const;
  TimeSpanList getMetaDataSpans(const std::vector<std::string>& names) const;
  TimeSpanList getMetaDataSpans(const JParams& pairs) const;
  TimeSpanList getHiddenSpans() const;

  /// Leaves spans out of searches, or takes them in again. The log is on disk when they return; they throw
  /// what the storing throws.
  void hide(const TimeSpanList& spans);
  void unhide(const TimeSpanList& spans);

  /// Erases a span but for what protections in force hold: hides it, and deletes the slices that lie inside
  /// it whole and that no protection touches; media files are never rewritten. It is out of sight for good
  /// when this returns or throws anything but what the storing of the hidden spans throws. Throws JSysError
  /// when a file couldn't be deleted, after trying all, and JTextError, before anything, as long as the log
  /// of the protections couldn't be read whole.
  void erase(const TimeSpan& span);

  // The logs belong to whoever holds the mutex.

  JMutex& getMutex() const noexcept { return m_mutex; }
  AlarmLog& getAlarmLog() noexcept { return m_alarmLog; }
  ProtectedLog& getProtectedLog() noexcept { return m_protectedLog; }
  MetaDataLog& getMetaDataLog() noexcept { return m_metaDataLog; }

  // Changes of a log that stores itself, under the mutex: they are on disk when these return. When the change
  // throws, or the disk refuses it, the log is read again from its file, so that memory holds what stands
  // there, and the error is thrown on; where that fails too, memory holds what it held before the change.

  void changeAlarmLog(const std::function<void(AlarmLog& log)>& change);
  void changeProtectedLog(const std::function<void(ProtectedLog& log)>& change);
  void changeMetaDataLog(const std::function<void(MetaDataLog& log)>& change);

  /// A listener stays the caller's, who removes it before it or the unit goes.
  void addListener(ArchiveUnitListener* pListener);
  void removeListener(ArchiveUnitListener* pListener);

  // Sizes for replay.

  /// The largest buffer that a replay of this unit has asked for, bytes; it never shrinks. Throws JTextError
  /// "Bad archive unit type".
  std::uint32_t updateMaxBufferSize();

  /// Bytes of the largest frame: the registry value "MaxFrameSizeSVCFileReplay" under "SOFTWARE\Quelmarin" if
  /// there is one; else what the newest file says of itself, or its frames' mean size when that is more; 0
  /// when nothing is known.
  std::uint32_t estimateMaxFrameSize() const;

  /// The longest frame period of the streams of the newest file, microseconds; 0 when nothing is known.
  std::uint64_t getMaxFrameDuration() const;

 private:
  struct Listing;

  static constexpr const char* kAlarmLogName = "alarm.log";
  static constexpr const char* kProtectedLogName = "protection.log";
  static constexpr const char* kMetaDataLogName = "metadata.log";
  static constexpr const char* kHiddenLogName = "hidden-metadata.log";

  Listing list(ArchiveUnitProgress* pProgress) const;
  void addLogged(std::unique_ptr<Slice> pSlice);
  void recover(const std::string& sFileName);
  void dispose(const std::string& sFileName) const;
  void openLogs(const Listing& listing);
  template <class Log, class Change, class ReadAgain>
  void changeLog(Log& log, Change change, ReadAgain readAgain);
  std::string pathOf(const std::string& sFileName) const { return m_sDirectory + "/" + sFileName; }
  std::optional<TimeSpan> currentSpan() const;
  std::unique_ptr<FileInput> tryOpen(const TimeSpan& span, JTime* pStart, JTime* pEnd, int iMode);
  std::uint64_t joinedGap() const;
  TimeSpanList recordedSpans(const TimeSpan& range, std::uint64_t uGap) const;
  FileInfo::Ptr describeNewest(std::string& sPath) const;
  void requireHiddenLog();
  void storeHidden(const TimeSpanList& spans);

  AlarmLog m_alarmLog;
  ProtectedLog m_protectedLog;
  MetaDataLog m_metaDataLog;
  const std::string m_sDirectory;
  const Settings m_settings;
  std::string m_sSessionName;
  mutable JMutex m_mutex;
  FileInfo::Ptr m_pCurrentFile;  ///< being written
  SliceMap m_slices;
  std::list<ArchiveUnitListener*> m_listeners;
  MetaDataLog m_hiddenLog;    ///< a record with the one pair hidden=1 for each hidden span
  bool m_bHiddenLog = false;  ///< whether the log has its file
  std::uint32_t m_uMaxBufferSize = 0;
  mutable UnitMedia m_media;       ///< told when the first slice was
  mutable std::string m_sMediaOf;  ///< this one; empty: not known
};
