#include "coreapi/qmutils/socket/filemessages.h"

#include "coreapi/platform/filestatus.h"
#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/socket/fileoperations.h"

namespace qm_utils {

namespace {

FileType typeOf(qm_platform::FileKind kind) noexcept {
  switch (kind) {
    case qm_platform::FileKind::kPlain:
      return kPlainFile;
    case qm_platform::FileKind::kDirectory:
      return kDirectory;
    default:
      return kSystemEntry;
  }
}

/// From microseconds since 1970.
JTime timeOf(std::int64_t iMicroseconds) noexcept {
  return JTime::fromMicroseconds(JTime::kEpochOffset).add(iMicroseconds);
}

template <typename T>
void give(T* pTarget, T value) noexcept {
  if (pTarget != nullptr) {
    *pTarget = value;
  }
}

}  // namespace

void failFile(int iError, const std::string& sFunction) {
  QM_THROW(JSysError, static_cast<std::uint32_t>(iError), sFunction.c_str());
}

void giveFileInfo(const qm_platform::FileStatus& status, std::uint32_t* pType, std::uint64_t* pSize,
                  JTime* pCreation, JTime* pLastWrite, JTime* pLastAccess) noexcept {
  give<std::uint32_t>(pType, typeOf(status.kind));
  give(pSize, status.size);
  give(pCreation, timeOf(status.creation));
  give(pLastWrite, timeOf(status.lastWrite));
  give(pLastAccess, timeOf(status.lastAccess));
}

std::string withoutLastSeparators(std::string sPath, std::size_t uShortest) {
  while (sPath.size() >= uShortest && (sPath.ends_with('/') || sPath.ends_with('\\'))) {
    sPath.pop_back();
  }
  return sPath;
}

}  // namespace qm_utils
