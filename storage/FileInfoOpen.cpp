#include <array>
#include <memory>

#include "coreapi/platform/byteorder.h"
#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/error/jgenericerror.h"
#include "coreapi/qmutils/socket/jfilesocket.h"
#include "storage/ASFIO/ASFFileInfoIn.h"
#include "storage/AVIIO/AVIFileInfo.h"
#include "storage/FileInfo.h"
#include "storage/FileInput.h"
#include "storage/MP3/MP3FileInfo.h"
#include "storage/WAVEIO/WAVEFileInfo.h"
#include "storage/filekinds.h"
#include "storage/fileread.h"

namespace {

std::unique_ptr<JCache>& cachePlace() {
  static std::unique_ptr<JCache> s_pCache;
  return s_pCache;
}

JCache& cache() {
  if (!cachePlace()) {
    QM_THROW(JTextError, "FileInfo cache not initialized");
  }
  return *cachePlace();
}

/// Every record of the cache is a description.
FileInfo* asFileInfo(JCacheRecord* pRecord) noexcept {
  return static_cast<FileInfo*>(pRecord);
}

}  // namespace

void FileInfo::release() {
  if (getCache() != nullptr) {
    JCacheRecord::release();
    return;
  }
  {
    const JAutoLock lock(m_mutex);
    if (m_iUseCount >= 1) {
      m_bDeletePending = true;
      return;
    }
  }
  delete this;
}

void FileInfo::beginUse() {
  addRef();
  const JAutoLock lock(m_mutex);
  ++m_iUseCount;
}

void FileInfo::endUse() {
  // Asked first: outside a cache another user may delete this as soon as the count is down.
  const bool bCached = getCache() != nullptr;
  bool bDelete = false;
  {
    const JAutoLock lock(m_mutex);
    bDelete = --m_iUseCount == 0 && m_bDeletePending;
  }
  if (bCached) {
    JCacheRecord::release();
  } else if (bDelete) {
    delete this;
  }
}

bool FileInfo::isIndexRebuild() const {
  const JAutoLock lock(m_mutex);
  return m_bIndexRebuild;
}

void FileInfo::setIndexRebuild(bool bOn) {
  const JAutoLock lock(m_mutex);
  m_bIndexRebuild = bOn;
}

std::unique_ptr<FileInput> FileInfo::makeInput(std::unique_ptr<JISocket> /*pSocket*/) {
  QM_THROW(JUnimplementedError);
}

std::unique_ptr<FileInput> FileInfo::createInput() {
  auto pInput = makeInput(std::make_unique<JFileSocket>(m_sFileName, JFileSocket::kRead, true));
  pInput->share();
  return pInput;
}

void FileInfo::rebuildIndex(bool /*bWriteBack*/, FileProgress* /*pProgress*/, JTime /*date*/) {
  QM_THROW(JTextError, "unimplemented");
}

void FileInfo::truncate(JTime /*date*/) {
  QM_THROW(JUnimplementedError);
}

const char* FileInfo::getFileExtension(bool bLowerCase) const noexcept {
  switch (m_uTypeMagic) {
    case file_kinds::kRiffMagic:
      return bLowerCase ? "avi" : "AVI";
    case file_kinds::kAsfMagic:
    case file_kinds::kLaterAsfMagic:
      return bLowerCase ? "asf" : "ASF";
    default:
      return nullptr;
  }
}

void FileInfo::initCache(std::uint32_t uMaxFree) {
  if (cachePlace()) {
    QM_THROW(JTextError, "File info cache already initialized");
  }
  cachePlace() = std::make_unique<JCache>(uMaxFree);
}

void FileInfo::closeCache() {
  cachePlace().reset();
}

bool FileInfo::isCached(const std::string& sName) {
  return cache().contains(sName);
}

/// Two threads that open a file at once both parse it; the second one to end takes what the first has stored.
FileInfo::Ptr FileInfo::getCached(const std::string& sName) {
  JCache& descriptions = cache();
  if (JCacheRecord* const pRecord = descriptions.acquire(sName)) {
    return Ptr(asFileInfo(pRecord));
  }
  checkNoPipe(sName);
  JFileSocket socket(sName, JFileSocket::kRead, true);
  Ptr pOpened = create(socket, sName, true);
  if (pOpened) {
    FileInfo* const pCached = asFileInfo(descriptions.addOrAcquire(pOpened.get()));
    if (pCached != pOpened.get()) {
      pOpened.reset(pCached);
    }
  }
  return pOpened;
}

void FileInfo::removeCached(const std::string& sName, bool bRelease) {
  if (JCacheRecord* const pRecord = cache().acquire(sName)) {
    removeCached(asFileInfo(pRecord), bRelease);
  }
}

void FileInfo::removeCached(FileInfo* pFileInfo, bool bRelease) {
  cache().remove(pFileInfo);
  if (bRelease) {
    pFileInfo->release();
  }
}

FileInfo::Ptr FileInfo::create(JFileSocket& socket, const std::string& sName, bool bMapIndex) {
  std::array<std::uint8_t, file_kinds::kRiffTypeAt + file_kinds::kMagicSize> start{};
  const std::size_t uRead = qm_utils::readFully(socket, start.data(), start.size());
  socket.rewind();
  if (uRead < file_kinds::kMagicSize) {
    return nullptr;
  }
  const std::uint32_t uMagic = qm_platform::readLE32(start.data());
  if (uMagic == file_kinds::kRiffMagic) {
    if (qm_platform::readLE32(start.data() + file_kinds::kRiffTypeAt) == file_kinds::kWaveMagic) {
      return Ptr(new WAVEFileInfo(socket, sName));
    }
    return Ptr(new AVIFileInfo(socket, sName));
  }
  if (uMagic == file_kinds::kAsfMagic) {
    return Ptr(new ASFFileInfoIn(socket, sName, bMapIndex));
  }
  if (file_kinds::isMpegMagic(uMagic)) {
    return Ptr(new MP3FileInfo(socket, sName, bMapIndex));
  }
  return nullptr;
}
