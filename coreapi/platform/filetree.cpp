#include "coreapi/platform/filetree.h"

#include <cerrno>
#include <cstdio>  // renameat2
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

#include "coreapi/platform/descriptor.h"
#include "coreapi/platform/fileaccess.h"
#include "coreapi/platform/filepath.h"
#include "coreapi/platform/filestatus.h"
#include "coreapi/platform/process.h"
#include "coreapi/platform/systemcall.h"

namespace qm_platform {

namespace {

/// Directories inside each other that a removal goes into: each holds a descriptor meanwhile.
constexpr int kDeepestTree = 1000;

/// Permission bits that a copy takes over.
constexpr mode_t kPermissionBits = S_IRWXU | S_IRWXG | S_IRWXO;

/// Bytes of one step of a copy.
constexpr std::size_t kCopyStep = 1024 * 1024;

int removeContents(DirectoryListing& listing, int depth) {
  if (depth == kDeepestTree) {
    return ENAMETOOLONG;
  }
  for (std::string name;;) {
    int error = listing.next(name);
    if (error != 0 || name.empty()) {
      return error;
    }
    if (name == "." || name == "..") {
      continue;
    }
    error = listing.remove(name, false);
    if (error == EISDIR) {
      DirectoryListing inner;
      error = inner.openInside(listing, name);
      error = error != 0 ? error : removeContents(inner, depth + 1);
      error = error != 0 ? error : listing.remove(name, true);
    }
    if (error != 0 && error != ENOENT) {  // what somebody else has removed meanwhile is gone as well
      return error;
    }
  }
}

/// One `rename`; without `replace` also where the file system can't refuse a taken name by itself.
int renameOnce(const std::string& from, const std::string& to, bool replace) noexcept {
  if (replace) {
    return errorOfCall([&] { return ::rename(from.c_str(), to.c_str()); });
  }
  const int error = errorOfCall(
      [&] { return ::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE); });
  if (error != EINVAL) {
    return error;
  }
  struct stat status {};
  if (errorOfCall([&] { return ::lstat(to.c_str(), &status); }) == 0) {
    return EEXIST;
  }
  return errorOfCall([&] { return ::rename(from.c_str(), to.c_str()); });
}

/// A descriptor that is closed at the end.
class Opened {
 public:
  Opened() = default;
  ~Opened() { close(); }
  Opened(const Opened&) = delete;
  Opened& operator=(const Opened&) = delete;

  int open(const std::string& path, const FileOpening& how) noexcept { return openFile(path, how, m_file); }
  int close() noexcept {
    const int descriptor = std::exchange(m_file.descriptor, kNoDescriptor);
    return descriptor == kNoDescriptor ? 0 : closeDescriptor(descriptor);
  }
  const OpenedFile& get() const noexcept { return m_file; }

 private:
  OpenedFile m_file;
};

/// Copies by way of memory, from where both files stand.
int copyThroughBuffer(int from, int to) {
  std::vector<char> buffer(kCopyStep);
  for (;;) {
    std::size_t got = 0;
    int error = readFile(from, buffer.data(), buffer.size(), 1, got);
    if (error == 0 && got != 0) {
      error = writeAll(to, buffer.data(), got);
    }
    if (error != 0 || got == 0) {
      return error;
    }
  }
}

/// Copies all bytes, inside the system where it can do that.
int copyBytes(int from, int to) {
  for (;;) {
    int error = 0;
    const ssize_t count = uninterrupted(error, [&](bool oneByte) {
      return ::copy_file_range(from, nullptr, to, nullptr, oneByte ? 1 : kCopyStep, 0);
    });
    if (error == EXDEV || error == EINVAL || error == EOPNOTSUPP || error == ENOSYS || error == EPERM ||
        count == 0) {
      // Some file systems also report the end where they merely don't know the size; reading tells.
      return copyThroughBuffer(from, to);
    }
    if (error != 0) {
      return error;
    }
  }
}

/// Gives a copy the permissions and the time of the last write of its origin, and syncs it.
int finishCopy(int to, const struct stat& origin) noexcept {
  const timespec times[] = {{0, UTIME_OMIT}, origin.st_mtim};
  int error = errorOfCall([&] { return ::fchmod(to, origin.st_mode & kPermissionBits); });
  if (error == EPERM || error == EOPNOTSUPP) {
    error = 0;  // a file system without permissions
  }
  error = error != 0 ? error : errorOfCall([&] { return ::futimens(to, times); });
  return error != 0 ? error : syncDescriptor(to);
}

/// What stands at the target of a copy. `resolved` is where the copy goes: through a symbolic link.
int checkTarget(const std::string& to, bool replace, const struct stat& origin, std::string& resolved) {
  resolved = to;
  struct stat status {};
  int error = errorOfCall([&] { return ::lstat(to.c_str(), &status); });
  if (error == ENOENT) {
    return 0;
  }
  if (error == 0 && !replace) {
    return EEXIST;
  }
  if (error == 0 && S_ISLNK(status.st_mode)) {
    error = resolvePath(to, resolved);
    error = error != 0 ? error : errorOfCall([&] { return ::stat(resolved.c_str(), &status); });
  }
  if (error != 0) {
    return error;
  }
  if (S_ISDIR(status.st_mode)) {
    return EISDIR;
  }
  const bool same = status.st_dev == origin.st_dev && status.st_ino == origin.st_ino;
  return same || !S_ISREG(status.st_mode) ? EINVAL : 0;
}

/// Makes the copy under its work name and gives it its own.
int copyUnderWorkName(int from, const struct stat& origin, const std::string& to, bool replace) {
  const std::string work = directoryOf(to) + "/.qmcopy." + std::to_string(threadId());
  deleteFile(work);  // left by a thread of this number that was stopped
  Opened copy;
  // From the first byte on nobody may read the copy who may not read its origin.
  int error = copy.open(work, {.access = FileAccess::kWrite,
                               .creation = FileCreation::kNew,
                               .permissions = (origin.st_mode & kPermissionBits) | S_IWUSR});
  if (error == EEXIST) {
    return error;
  }
  error = error != 0 ? error : copyBytes(from, copy.get().descriptor);
  error = error != 0 ? error : finishCopy(copy.get().descriptor, origin);
  const int closed = copy.close();
  error = error != 0 ? error : closed;
  error = error != 0 ? error : renameOnce(work, to, replace);
  if (error != 0) {
    ::unlink(work.c_str());
    return error;
  }
  return syncDirectoryOf(to);
}

}  // namespace

int makeDirectory(const std::string& path) noexcept {
  return errorOfCall([&] { return ::mkdir(path.c_str(), S_IRWXU | S_IRWXG | S_IRWXO); });
}

int resolvePath(const std::string& path, std::string& resolved) {
  char* pResolved = nullptr;
  const int error =
      errorOfCall([&] { return (pResolved = ::realpath(path.c_str(), nullptr)) != nullptr ? 0 : -1; });
  if (error == 0) {
    resolved = pResolved;
    std::free(pResolved);
  }
  return error;
}

int removeEmptyDirectory(const std::string& path) noexcept {
  return errorOfCall([&] { return ::rmdir(path.c_str()); });
}

int removeTree(const std::string& path) {
  DirectoryListing listing;
  int error = listing.open(path, false);
  error = error != 0 ? error : removeContents(listing, 0);
  return error != 0 ? error : removeEmptyDirectory(path);
}

int deleteFile(const std::string& path) noexcept {
  return errorOfCall([&] { return ::unlink(path.c_str()); });
}

int moveFile(const std::string& from, const std::string& to, bool replace) {
  int error = renameOnce(from, to, replace);
  if (error == EXDEV) {
    error = copyFile(from, to, replace);
    return error != 0 ? error : deleteFile(from);
  }
  error = error != 0 ? error : syncDirectoryOf(to);
  return error != 0 || directoryOf(from) == directoryOf(to) ? error : syncDirectoryOf(from);
}

int copyFile(const std::string& from, const std::string& to, bool replace) {
  struct stat status {};
  std::string resolved;
  // Asked before the opening, which would wait on a pipe for somebody to write.
  int error = errorOfCall([&] { return ::stat(from.c_str(), &status); });
  if (error == 0 && !S_ISREG(status.st_mode)) {
    error = S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
  }
  Opened origin;
  error = error != 0 ? error : origin.open(from, {});
  error = error != 0 ? error : errorOfCall([&] { return ::fstat(origin.get().descriptor, &status); });
  error = error != 0 ? error : checkTarget(to, replace, status, resolved);
  return error != 0 ? error : copyUnderWorkName(origin.get().descriptor, status, resolved, replace);
}

}  // namespace qm_platform
