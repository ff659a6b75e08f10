#include "storage/SliceRecovery.h"

#include <atomic>
#include <exception>
#include <string_view>

#include "coreapi/platform/filestatus.h"
#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/socket/fileoperations.h"
#include "coreapi/qmutils/socket/jfilesocket.h"
#include "storage/filekinds.h"

namespace {

/// A recording never gets this large as long as its unit changes from file to file.
constexpr std::uint64_t kLargeFile = 4'608'000'000;

std::atomic<bool> s_bReadOnly = false;

/// The file is at fault, and will be the next time too.
struct Broken {};

std::string_view extensionOf(const FileInfo& fileInfo) {
  if (fileInfo.getTypeMagic() == file_kinds::kWaveMagic) {
    return ".wav";
  }
  const char* const szExtension = fileInfo.getFileExtension(true);
  if (szExtension == nullptr) {
    return ".mp3";
  }
  return std::string_view(szExtension) == "avi" ? ".avi" : ".asf";
}

/// Whether another opens the file meanwhile is told by its lock.
void checkNotInUse(const std::string& sPath) {
  const JFileSocket alone(sPath, JFileSocket::kRead, false);
}

FileInfo::Ptr describe(const std::string& sPath) {
  FileInfo::Ptr pInfo;
  try {
    pInfo = FileInfo::getCached(sPath);
  } catch (JError* pError) {
    qm_err::CaughtError error(pError);
    qm_err::log(qm_err::kLogError, "Could not retrieve the file information from cache for %s: %s\n",
                sPath.c_str(), error->getMessage().c_str());
    error.rethrow();
  }
  if (!pInfo) {
    qm_err::log(qm_err::kLogError, "Could not create file information for %s\n", sPath.c_str());
    throw Broken();
  }
  return pInfo;
}

void finishIndex(FileInfo& fileInfo, const std::string& sPath) {
  if (!fileInfo.isIndexRebuild()) {
    return;
  }
  try {
    fileInfo.rebuildIndex(!s_bReadOnly, nullptr, JTime::lastQueryTime());
  } catch (JError* pError) {
    qm_err::CaughtError error(pError);
    JCATCH_LOG(error.get());
    qm_err::log(qm_err::kLogError, "Could not fix the index of %s\n", sPath.c_str());
    error.rethrow();
  }
}

TimeSpan spanOf(const FileInfo& fileInfo, const std::string& sPath) {
  const FileStreamInfo* const pStream = fileInfo.getStream(1);
  if (pStream == nullptr) {
    qm_err::log(qm_err::kLogError, "Could not retrieve the stream information from %s\n", sPath.c_str());
    throw Broken();
  }
  const TimeSpan span(pStream->getFirstDate(), pStream->getLastDate());
  if (pStream->getCount() == 0 || span.startDate == JTime::zero() || span.endDate < span.startDate) {
    qm_err::log(qm_err::kLogError, "There is no dated frame in %s\n", sPath.c_str());
    throw Broken();
  }
  return span;
}

std::uint64_t sizeOf(const std::string& sPath) {
  std::uint64_t uSize = 0;
  try {
    qm_utils::getFileInfo(sPath, nullptr, &uSize);
  } catch (JError* pError) {
    qm_err::CaughtError error(pError);
    qm_err::log(qm_err::kLogError, "Could not retrieve the size of %s: %s\n", sPath.c_str(),
                error->getMessage().c_str());
    error.rethrow();
  }
  if (uSize > kLargeFile) {
    qm_err::log(qm_err::kLogWarning, "Large file (%llu bytes), probably stopped swapping: %s\n",
                static_cast<unsigned long long>(uSize), sPath.c_str());
  }
  return uSize;
}

/// The path that the file has then.
std::string renameByContent(const std::string& sDirectory, const std::string& sFileName,
                            const std::string& sWanted) {
  const std::string sPath = sDirectory + "/" + sFileName;
  if (sWanted == sFileName || s_bReadOnly) {
    return sPath;
  }
  try {
    qm_utils::moveFile(sPath, sDirectory + "/" + sWanted, false);
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    qm_err::log(qm_err::kLogError, "Could not rename %s: %s\n", sPath.c_str(), error->getMessage().c_str());
    return sPath;
  }
  qm_err::log(qm_err::kLogInfo, "File has been renamed according to its content (old: %s  new: %s)\n",
              sFileName.c_str(), sWanted.c_str());
  return sDirectory + "/" + sWanted;
}

Slice recoverSlice(const std::string& sDirectory, const std::string& sFileName) {
  const std::string sPath = sDirectory + "/" + sFileName;
  const FileInfo::Ptr pInfo = describe(sPath);
  finishIndex(*pInfo, sPath);
  const TimeSpan span = spanOf(*pInfo, sPath);
  const std::uint64_t uSize = sizeOf(sPath);
  const std::string sWanted = Slice::computeFileName(span, uSize, extensionOf(*pInfo));
  return Slice(span, renameByContent(sDirectory, sFileName, sWanted), uSize);
}

/// A link is none: mending would change a file somewhere else.
bool isPlainFile(const std::string& sDirectory, const std::string& sFileName) {
  qm_platform::DirectoryListing directory;
  qm_platform::FileStatus status;
  bool bLink = false;
  return directory.open(sDirectory) == 0 && directory.statusOf(sFileName, status, bLink) == 0 && !bLink &&
         status.kind == qm_platform::FileKind::kPlain;
}

/// The description tells of the file as it was; under its old name, too.
void forget(const std::string& sPath) {
  try {
    FileInfo::removeCached(sPath, true);
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    qm_err::log(qm_err::kLogError, "Could not remove %s from the cache: %s\n", sPath.c_str(),
                error->getMessage().c_str());
  }
}

SliceRecovery::Outcome tryRecover(const std::string& sDirectory, const std::string& sFileName,
                                  std::optional<Slice>& slice) {
  const std::string sPath = sDirectory + "/" + sFileName;
  try {
    if (!isPlainFile(sDirectory, sFileName)) {
      return SliceRecovery::Outcome::kLeft;
    }
    checkNotInUse(sPath);
    slice.emplace(recoverSlice(sDirectory, sFileName));
    return SliceRecovery::Outcome::kRecovered;
  } catch (const Broken&) {
    return SliceRecovery::Outcome::kBroken;
  } catch (JSysError* pError) {
    const qm_err::CaughtError error(pError);
    JCATCH_LOG(error.get());
    return SliceRecovery::Outcome::kLeft;
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    JCATCH_LOG(error.get());
    return SliceRecovery::Outcome::kBroken;
  } catch (const std::exception& error) {
    qm_err::log(qm_err::kLogException, "%s", error.what());  // no memory
    return SliceRecovery::Outcome::kLeft;
  }
}

}  // namespace

SliceRecovery::Outcome SliceRecovery::recover(const std::string& sDirectory, const std::string& sFileName,
                                              std::optional<Slice>& slice) {
  const Outcome outcome = tryRecover(sDirectory, sFileName, slice);
  const std::string sPath = sDirectory + "/" + sFileName;
  if (outcome == Outcome::kRecovered) {
    qm_err::log(qm_err::kLogInfo, "Successfully recovered and fixed timespan (%llu:%llu) of file %s\n",
                static_cast<unsigned long long>(slice->getSpan().startDate.getMicroseconds()),
                static_cast<unsigned long long>(slice->getSpan().endDate.getMicroseconds()), sPath.c_str());
  } else {
    qm_err::log(qm_err::kLogError, "Could not recover and fix index of file %s\n", sPath.c_str());
  }
  forget(sPath);
  return outcome;
}

void SliceRecovery::setReadOnly(bool bOn) noexcept {
  s_bReadOnly = bOn;
}

bool SliceRecovery::isReadOnly() noexcept {
  return s_bReadOnly;
}
