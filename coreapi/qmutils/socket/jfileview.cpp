#include <cerrno>
#include <limits>
#include <map>
#include <utility>

#include "coreapi/platform/filemapping.h"
#include "coreapi/platform/filestatus.h"
#include "coreapi/qmutils/socket/filemessages.h"
#include "coreapi/qmutils/socket/jfilesocket.h"
#include "coreapi/qmutils/thread/jmutex.h"

namespace {

/// One more than the longest view.
constexpr std::uint64_t kViewLimit = std::uint64_t{1} << 32;

/// The views that are in use in this process, by the address that was given out. Never destroyed: a view may
/// end at the very end of the process.
struct Views {
  JMutex mutex;
  std::map<const void*, std::pair<void*, std::size_t>> starts;
};

Views& views() {
  static Views& all = *new Views;
  return all;
}

std::uint64_t granularity() {
  static const std::uint64_t uGranularity = qm_platform::mappingGranularity();
  return uGranularity;
}

/// The file can be mapped from `uOffset` on for `uLength` bytes as it is now.
void checkRange(int iFile, std::uint64_t uOffset, std::uint64_t uLength) {
  qm_platform::FileStatus status;
  int iError = qm_platform::statusOfFile(iFile, status);
  if (iError == 0 && (status.kind != qm_platform::FileKind::kPlain || status.size == 0)) {
    iError = EINVAL;
  }
  qm_utils::checkFile(iError, "CreateFileMapping");
  if (uLength == 0 || uOffset > status.size || uLength > status.size - uOffset) {
    qm_utils::failFile(EINVAL, "MapViewOfFile");
  }
}

}  // namespace

void* JFileSocket::mmap(std::uint64_t uOffset, std::uint64_t uLength, bool bWritable) {
  if (granularity() == 0) {
    qm_utils::failFile(EINVAL, "GetSystemInfo");
  }
  const std::uint64_t uSlack = uOffset % granularity();
  if (uLength >= kViewLimit - uSlack) {
    qm_utils::failFile(ENOTSUP, "mmap with length > 4GB");
  }
  checkRange(m_iFile, uOffset, uLength);
  const auto uSize = static_cast<std::size_t>(uLength + uSlack);
  void* pStart = nullptr;
  const int iError = qm_platform::mapFile(m_iFile, uOffset - uSlack, uSize, bWritable, pStart);
  // EACCES: the file isn't open for what the view is to do.
  qm_utils::checkFile(iError, iError == EACCES ? "CreateFileMapping" : "MapViewOfFile");
  void* const pAddress = static_cast<char*>(pStart) + uSlack;
  try {
    const JAutoLock lock(views().mutex);
    views().starts[pAddress] = {pStart, uSize};
  } catch (...) {
    qm_platform::unmapFile(pStart, uSize);
    throw;
  }
  return pAddress;
}

void JFileSocket::munmap(const void* pAddress) {
  std::pair<void*, std::size_t> view;
  {
    const JAutoLock lock(views().mutex);
    const auto iter = views().starts.find(pAddress);
    if (iter == views().starts.end()) {
      // The system would take the pages away from whoever has them.
      qm_utils::failFile(EINVAL, "UnmapViewOfFile");
    }
    view = iter->second;
    views().starts.erase(iter);
  }
  qm_utils::checkFile(qm_platform::unmapFile(view.first, view.second), "UnmapViewOfFile");
}
