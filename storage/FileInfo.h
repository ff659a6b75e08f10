#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "coreapi/qmci/bitstream.h"
#include "coreapi/qmutils/params/jparams.h"
#include "coreapi/qmutils/thread/jmutex.h"
#include "storage/FileAttributes.h"
#include "storage/FileStreamInfo.h"
#include "storage/JCache.h"

class FileInput;
class JFileSocket;
class JISocket;

/// Told how far a long work on a file has got.
class FileProgress {
 public:
  virtual ~FileProgress() = default;

  /// A text of stars and dots that grows as the work goes on. Comes on the thread that works, which holds no
  /// lock.
  virtual void progress(const std::string& sText) = 0;
};

/// The description of one media file in memory: its streams, their descriptions, the file's attributes and
/// parameters, and for each stream a frame index that turns a number or a time into a place in the file. A
/// writer fills one as frames arrive; a reader gets one by opening the file.
///
/// One description may serve many readers, on any threads: through the process's cache of descriptions, by
/// which a file that is opened often is parsed once, or outside of it. Whoever holds one gives it back by
/// `release`. Readers count as users of their own, so that it lives as long as they do.
///
/// The mutex guards the growth of the indexes, the data size and the number of users; it comes before the
/// mutexes of the streams. The rest belongs to whoever fills the description.
class FileInfo : public JCacheRecord {
 public:
  struct Release {
    void operator()(FileInfo* pFileInfo) const { pFileInfo->release(); }
  };

  /// A hold on a description, in a cache or outside of one.
  using Ptr = std::unique_ptr<FileInfo, Release>;

  explicit FileInfo(std::string sFileName);
  ~FileInfo() override = default;

  /// One user less: outside a cache the description goes, at once or when its last reader ends.
  void release() override;

  /// A reader of the file's frames, which opens the file under its name. Throws what opening throws, and
  /// JUnimplementedError for a description that can't be read through.
  virtual std::unique_ptr<FileInput> createInput();

  /// Width and height in pixels from the first video stream's description; both 0 when there is none.
  virtual void getVideoSize(std::uint32_t* pWidth, std::uint32_t* pHeight) const;

  /// Builds the index anew by walking the file, which must have none; with a date other than
  /// `JTime::lastQueryTime()` the index is built anyway, and the frames are dated from it. With `bWriteBack`
  /// the file then gets its index and its final header. `pProgress` may be null. Throws JTextError
  /// "unimplemented" for files that can't.
  virtual void rebuildIndex(bool bWriteBack, FileProgress* pProgress, JTime date);

  /// Cuts the file off at a date: the frame of that time and all later ones go. Throws JUnimplementedError
  /// for files that can't.
  virtual void truncate(JTime date);

  /// What the file is, by what its bytes say: the magic of "RIFF", of an ASF header, "WAVE" or the first word
  /// of MPEG audio; 0 while MPEG audio is being written.
  std::uint32_t getTypeMagic() const noexcept { return m_uTypeMagic; }

  /// "avi" or "asf"; null for any other file.
  const char* getFileExtension(bool bLowerCase) const noexcept;

  const std::string& getFileName() const noexcept { return m_sFileName; }

  FileAttributes& getAttributes() noexcept { return m_attributes; }
  const FileAttributes& getAttributes() const noexcept { return m_attributes; }

  /// File-level metadata.
  JParams& getParams() noexcept { return m_params; }
  const JParams& getParams() const noexcept { return m_params; }

  std::uint32_t getStreamCount() const noexcept { return static_cast<std::uint32_t>(m_streams.size()); }

  /// The record of a stream, by its number from 1; null for 0 and for a number above the count.
  FileStreamInfo* getStream(std::uint32_t uNumber) noexcept;
  const FileStreamInfo* getStream(std::uint32_t uNumber) const noexcept;

  /// Makes `uCount` empty records in the place of those that were there.
  void resetStreams(std::uint32_t uCount);

  /// Number of the first stream of a kind; 0 for none.
  std::uint32_t getFirstVideoStream() const noexcept { return m_uFirstVideoStream; }
  void setFirstVideoStream(std::uint32_t uNumber) noexcept { m_uFirstVideoStream = uNumber; }
  std::uint32_t getFirstAudioStream() const noexcept { return m_uFirstAudioStream; }
  void setFirstAudioStream(std::uint32_t uNumber) noexcept { m_uFirstAudioStream = uNumber; }
  std::uint32_t getFirstDataStream() const noexcept { return m_uFirstDataStream; }
  void setFirstDataStream(std::uint32_t uNumber) noexcept { m_uFirstDataStream = uNumber; }

  /// Bytes of media data; 0 means not known.
  std::uint64_t getDataSize() const;
  void setDataSize(std::uint64_t uSize);
  void addToDataSize(std::uint64_t uSize);

  /// A reader has come to the end of a file whose size isn't known: that is its size then, unless a writer is
  /// still at it and keeps the count.
  void settleDataSize(std::uint64_t uSize);

  /// Whether the indexes grow as frames pass.
  bool isOnFlyIndexing() const;
  void setOnFlyIndexing(bool bOn);

  /// Counts a frame of a stream and puts it into the stream's index of the form FILEINDEX_CI; for one of the
  /// form FILEINDEX_NTP this is `addNtpEntry` with the frame's time. The frame is only counted when nothing
  /// is indexed on the fly, when `uNumber` isn't the count, and when the index is of another form. A stream
  /// that doesn't exist is ignored.
  void addCIEntry(std::uint32_t uStream, std::uint32_t uNumber, std::uint64_t uPosition,
                  const qm_ci::ConstBitstream& oCIBitstream);

  /// The same for an index of the form FILEINDEX_NTP, except that a frame that can't be indexed isn't
  /// counted either.
  void addNtpEntry(std::uint32_t uStream, std::uint32_t uNumber, std::uint64_t uPosition,
                   std::uint64_t ullTime);

  /// Whether the index of a file without one grows as it is walked.
  bool isIndexRebuild() const;
  void setIndexRebuild(bool bOn);

  /// Counts a reader or another user that goes on beyond the caller's own hold. The description may be gone
  /// when `endUse` returns.
  void beginUse();
  void endUse();

  JMutex& getMutex() const noexcept { return m_mutex; }

  // The process's cache of descriptions, by file name. All but the first two throw JTextError "FileInfo cache
  // not initialized" without one. Any thread, but nothing else may use the cache while it is made or closed.

  /// Makes the cache, which keeps so many descriptions that nobody uses. Throws JTextError "File info cache
  /// already initialized".
  static void initCache(std::uint32_t uMaxFree);

  /// Ends the cache with all descriptions in it, which nobody may use any more. No cache is no failure.
  static void closeCache();

  static bool isCached(const std::string& sName);

  /// The description of a file with one user more, from the cache or by opening the file. Null when it isn't
  /// a file of a kind known. Throws what opening throws.
  static Ptr getCached(const std::string& sName);

  /// Lets a description go when its last user leaves; with `bRelease` the caller's own hold is given back.
  static void removeCached(const std::string& sName, bool bRelease);
  static void removeCached(FileInfo* pFileInfo, bool bRelease);

  /// Describes the media file that a socket is at the start of, whatever its kind; null for a file of none.
  /// With `bMapIndex` an index is looked at in place rather than read, for which the file mustn't shrink: for
  /// files of the process's own archive alone. Throws JTextError for a file that isn't whole, and what the
  /// socket throws.
  static Ptr create(JFileSocket& socket, const std::string& sName, bool bMapIndex);

 private:
  bool takesEntry(const FileStreamInfo& stream, std::uint32_t uNumber, IndexType eType) const;

 protected:
  /// A reader over this description, which reads through the socket.
  virtual std::unique_ptr<FileInput> makeInput(std::unique_ptr<JISocket> pSocket);
  friend class FileInput;

  bool m_bOnFlyIndexing = false;
  FileAttributes m_attributes;
  std::vector<std::unique_ptr<FileStreamInfo>> m_streams;  ///< stream number n is element n - 1
  std::uint32_t m_uFirstAudioStream = 0;
  std::uint32_t m_uFirstVideoStream = 0;
  std::uint32_t m_uFirstDataStream = 0;
  std::uint64_t m_uDataSize = 0;
  bool m_bIndexRebuild = false;  ///< the index of a file without one grows as it is read
  std::uint32_t m_uTypeMagic = 0;
  std::string m_sFileName;
  std::int32_t m_iUseCount = 0;  ///< readers and others who go on with it
  mutable JMutex m_mutex;
  bool m_bDeletePending = false;
  JParams m_params;
};
