#include "storage/FileInfo.h"

#include <utility>

FileInfo::FileInfo(std::string sFileName) : JCacheRecord(sFileName), m_sFileName(std::move(sFileName)) {}

void FileInfo::getVideoSize(std::uint32_t* pWidth, std::uint32_t* pHeight) const {
  *pWidth = 0;
  *pHeight = 0;
  const FileStreamInfo* pStream = getStream(m_uFirstVideoStream);
  const qm_ci::StreamInfo* pStreamInfo = pStream != nullptr ? pStream->getStreamInfo() : nullptr;
  if (pStreamInfo == nullptr) {
    return;
  }
  if (const auto description = pStreamInfo->getVideoInfo()) {
    const qm_ci::QMCIVideoInfo video(*description);
    *pWidth = video.getWidth();
    *pHeight = video.getHeight();
  }
}

FileStreamInfo* FileInfo::getStream(std::uint32_t uNumber) noexcept {
  return uNumber >= 1 && uNumber <= m_streams.size() ? m_streams[uNumber - 1].get() : nullptr;
}

const FileStreamInfo* FileInfo::getStream(std::uint32_t uNumber) const noexcept {
  return uNumber >= 1 && uNumber <= m_streams.size() ? m_streams[uNumber - 1].get() : nullptr;
}

void FileInfo::resetStreams(std::uint32_t uCount) {
  m_streams.clear();
  for (std::uint32_t i = 0; i < uCount; ++i) {
    m_streams.push_back(std::make_unique<FileStreamInfo>());
  }
}

std::uint64_t FileInfo::getDataSize() const {
  const JAutoLock lock(m_mutex);
  return m_uDataSize;
}

void FileInfo::setDataSize(std::uint64_t uSize) {
  const JAutoLock lock(m_mutex);
  m_uDataSize = uSize;
}

void FileInfo::addToDataSize(std::uint64_t uSize) {
  const JAutoLock lock(m_mutex);
  m_uDataSize += uSize;
}

void FileInfo::settleDataSize(std::uint64_t uSize) {
  const JAutoLock lock(m_mutex);
  if (m_uDataSize == 0 && !m_bOnFlyIndexing) {
    m_uDataSize = uSize;
  }
}

bool FileInfo::isOnFlyIndexing() const {
  const JAutoLock lock(m_mutex);
  return m_bOnFlyIndexing;
}

void FileInfo::setOnFlyIndexing(bool bOn) {
  const JAutoLock lock(m_mutex);
  m_bOnFlyIndexing = bOn;
}

bool FileInfo::takesEntry(const FileStreamInfo& stream, std::uint32_t uNumber, IndexType eType) const {
  return (m_bOnFlyIndexing || m_bIndexRebuild) && stream.getIndexType() == eType &&
         uNumber == stream.getCount();
}

void FileInfo::addCIEntry(std::uint32_t uStream, std::uint32_t uNumber, std::uint64_t uPosition,
                          const qm_ci::ConstBitstream& oCIBitstream) {
  const JAutoLock lock(m_mutex);
  FileStreamInfo* const pStream = getStream(uStream);
  if (pStream == nullptr) {
    return;
  }
  if (pStream->getIndexType() == FILEINDEX_NTP) {
    addNtpEntry(uStream, uNumber, uPosition, oCIBitstream.getTimestamp());
  } else if (takesEntry(*pStream, uNumber, FILEINDEX_CI)) {
    pStream->append({uPosition, oCIBitstream.getTimestamp(), oCIBitstream.getFrameNumber(),
                     oCIBitstream.getAccessFlags(), oCIBitstream.getFrameExtra()});
  } else {
    pStream->countOnly();
  }
}

void FileInfo::addNtpEntry(std::uint32_t uStream, std::uint32_t uNumber, std::uint64_t uPosition,
                           std::uint64_t ullTime) {
  const JAutoLock lock(m_mutex);
  FileStreamInfo* const pStream = getStream(uStream);
  if (pStream != nullptr && takesEntry(*pStream, uNumber, FILEINDEX_NTP)) {
    pStream->append({uPosition, ullTime, 0, 0, 0});
  }
}
