#include "coreapi/platform/filestatus.h"

#include <cerrno>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include "coreapi/platform/descriptor.h"
#include "coreapi/platform/systemcall.h"

namespace qm_platform {

namespace {

std::int64_t microsecondsOf(const statx_timestamp& time) noexcept {
  constexpr std::int64_t kMicrosecondsPerSecond = 1'000'000;
  constexpr std::int64_t kNanosecondsPerMicrosecond = 1000;
  std::int64_t seconds = 0;
  if (__builtin_mul_overflow(time.tv_sec, kMicrosecondsPerSecond, &seconds)) {
    return time.tv_sec < 0 ? INT64_MIN : INT64_MAX;
  }
  return seconds + time.tv_nsec / kNanosecondsPerMicrosecond;
}

FileKind kindOf(unsigned mode) noexcept {
  return S_ISREG(mode) ? FileKind::kPlain : S_ISDIR(mode) ? FileKind::kDirectory : FileKind::kOther;
}

/// One `statx`: of what a name in a directory leads to, of the name itself, or of the directory's descriptor,
/// by the flags.
int statusAt(int directory, const char* name, int flags, FileStatus& status) noexcept {
  struct statx found {};
  const int error =
      errorOfCall([&] { return ::statx(directory, name, flags, STATX_BASIC_STATS | STATX_BTIME, &found); });
  if (error == 0) {
    status.kind = kindOf(found.stx_mode);
    status.size = found.stx_size;
    status.lastWrite = microsecondsOf(found.stx_mtime);
    status.lastAccess = microsecondsOf(found.stx_atime);
    status.creation =
        (found.stx_mask & STATX_BTIME) != 0 ? microsecondsOf(found.stx_btime) : status.lastWrite;
  }
  return error;
}

}  // namespace

int statusOfPath(const std::string& path, FileStatus& status) noexcept {
  return statusAt(AT_FDCWD, path.c_str(), 0, status);
}

int statusOfFile(int descriptor, FileStatus& status) noexcept {
  return statusAt(descriptor, "", AT_EMPTY_PATH, status);
}

int diskSpaceOf(const std::string& path, DiskSpace& space) noexcept {
  struct statvfs found {};
  const int error = errorOfCall([&] { return ::statvfs(path.c_str(), &found); });
  if (error == 0) {
    space = {std::uint64_t{found.f_bavail} * found.f_frsize, std::uint64_t{found.f_blocks} * found.f_frsize,
             std::uint64_t{found.f_bfree} * found.f_frsize};
  }
  return error;
}

DirectoryListing::~DirectoryListing() {
  if (m_pDirectory != nullptr) {
    ::closedir(static_cast<DIR*>(m_pDirectory));
  }
}

int DirectoryListing::descriptor() const noexcept {
  return m_pDirectory != nullptr ? ::dirfd(static_cast<DIR*>(m_pDirectory)) : kNoDescriptor;
}

int DirectoryListing::openAt(int directory, const std::string& path, int flags) noexcept {
  int error = 0;
  const int opened = uninterrupted(error, [&](bool) {
    return ::openat(directory, path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | flags);
  });
  if (error != 0) {
    return error;
  }
  error = errorOfCall([&] { return (m_pDirectory = ::fdopendir(opened)) != nullptr ? 0 : -1; });
  if (error != 0) {
    closeDescriptor(opened);
  }
  return error;
}

int DirectoryListing::open(const std::string& path, bool through) noexcept {
  return openAt(AT_FDCWD, path, through ? 0 : O_NOFOLLOW);
}

int DirectoryListing::openInside(const DirectoryListing& parent, const std::string& name) noexcept {
  return openAt(parent.descriptor(), name, O_NOFOLLOW);
}

int DirectoryListing::next(std::string& name) {
  name.clear();
  if (m_pDirectory == nullptr) {
    return EBADF;
  }
  const dirent* pEntry = nullptr;
  const int error = errorOfCall([&] {
    errno = 0;  // the end and a failure differ in this alone
    pEntry = ::readdir(static_cast<DIR*>(m_pDirectory));
    return pEntry == nullptr && errno != 0 ? -1 : 0;
  });
  if (pEntry != nullptr) {
    name = pEntry->d_name;
  }
  return error;
}

int DirectoryListing::statusOf(const std::string& name, FileStatus& status, bool& link) const noexcept {
  struct statx found {};
  int error = errorOfCall(
      [&] { return ::statx(descriptor(), name.c_str(), AT_SYMLINK_NOFOLLOW, STATX_TYPE, &found); });
  if (error != 0) {
    return error;
  }
  link = S_ISLNK(found.stx_mode);
  error = statusAt(descriptor(), name.c_str(), 0, status);
  if (error != 0 && link) {
    return statusAt(descriptor(), name.c_str(), AT_SYMLINK_NOFOLLOW, status);
  }
  return error;
}

int DirectoryListing::remove(const std::string& name, bool directory) const noexcept {
  return errorOfCall([&] { return ::unlinkat(descriptor(), name.c_str(), directory ? AT_REMOVEDIR : 0); });
}

}  // namespace qm_platform
