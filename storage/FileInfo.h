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

/// The description of one media file in memory: its streams, their descriptions, the file's attributes and
/// parameters, and for each stream a frame index. A writer fills one as frames arrive.
///
/// The mutex guards the growth of the indexes and the data size; it comes before the mutexes of the streams.
/// The rest belongs to whoever fills the description.
class FileInfo {
 public:
  explicit FileInfo(std::string sFileName);
  virtual ~FileInfo() = default;
  FileInfo(const FileInfo&) = delete;
  FileInfo& operator=(const FileInfo&) = delete;

  /// Width and height in pixels from the first video stream's description; both 0 when there is none.
  virtual void getVideoSize(std::uint32_t* pWidth, std::uint32_t* pHeight) const;

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

  JMutex& getMutex() const noexcept { return m_mutex; }

 private:
  bool takesEntry(const FileStreamInfo& stream, std::uint32_t uNumber, IndexType eType) const;

 protected:
  bool m_bOnFlyIndexing = false;
  FileAttributes m_attributes;
  std::vector<std::unique_ptr<FileStreamInfo>> m_streams;  ///< stream number n is element n - 1
  std::uint32_t m_uFirstAudioStream = 0;
  std::uint32_t m_uFirstVideoStream = 0;
  std::uint32_t m_uFirstDataStream = 0;
  std::uint64_t m_uDataSize = 0;
  bool m_bIndexRebuild = false;  ///< the index of a file without one grows as it is read
  std::string m_sFileName;
  mutable JMutex m_mutex;
  JParams m_params;
};
