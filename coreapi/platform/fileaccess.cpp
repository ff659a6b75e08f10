#include "coreapi/platform/fileaccess.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>
#include <utility>

#include "coreapi/platform/descriptor.h"
#include "coreapi/platform/filepath.h"
#include "coreapi/platform/systemcall.h"

namespace qm_platform {

namespace {

// An array of ours has the layout of the system's, so that a batch is copied once, into the array that a
// short count moves on in.
static_assert(sizeof(FileBuffer) == sizeof(iovec));

/// Permission bits that one file takes over from another.
constexpr mode_t kPermissionBits = S_IRWXU | S_IRWXG | S_IRWXO;

/// How often a file is opened again because it was deleted in between, before somebody is taken to do that on
/// purpose.
constexpr int kMostOpenings = 100;

int flagsOf(const FileOpening& how) noexcept {
  constexpr std::pair<FileAccess, int> kAccess[] = {
      {FileAccess::kRead, O_RDONLY}, {FileAccess::kWrite, O_WRONLY}, {FileAccess::kReadWrite, O_RDWR}};
  int flags = O_CLOEXEC | O_NOCTTY;
  for (const auto& [access, flag] : kAccess) {
    flags |= access == how.access ? flag : 0;
  }
  if (how.creation != FileCreation::kExisting) {
    flags |= O_CREAT;
  }
  if (how.creation == FileCreation::kNew) {
    flags |= O_EXCL;
  }
  return how.unbuffered ? flags | O_DIRECT : flags;
}

int openOnce(const std::string& path, const FileOpening& how, int flags, int& descriptor) noexcept {
  int error = 0;
  descriptor = uninterrupted(error, [&](bool) { return ::open(path.c_str(), flags, how.permissions); });
  return error;
}

int statusOf(int descriptor, struct stat& status) noexcept {
  return errorOfCall([&] { return ::fstat(descriptor, &status); });
}

/// Takes the advisory lock. `deleted` says that the file was deleted before the lock came to be held.
int lockFile(int descriptor, int operation, bool& deleted) noexcept {
  const int error = errorOfCall([&] { return ::flock(descriptor, operation); });
  if (error == EWOULDBLOCK) {
    return EAGAIN;
  }
  struct stat status {};
  deleted = statusOf(descriptor, status) == 0 && status.st_nlink == 0;
  return 0;
}

/// Does with a file just opened what makes it one to work on.
int prepare(const FileOpening& how, OpenedFile& file, bool& deleted) noexcept {
  struct stat status {};
  int error = statusOf(file.descriptor, status);
  if (error != 0) {
    return error;
  }
  if (S_ISDIR(status.st_mode)) {
    return EISDIR;
  }
  file.plain = S_ISREG(status.st_mode);
  if (!file.plain) {
    return 0;
  }
  error =
      lockFile(file.descriptor, (how.exclusive ? LOCK_EX : LOCK_SH) | (how.waiting ? 0 : LOCK_NB), deleted);
  if (error == 0 && how.creation == FileCreation::kEmptied && !deleted) {
    error = truncateFile(file.descriptor, 0);
  }
  if (!file.unbuffered) {
    ::posix_fadvise(file.descriptor, 0, 0, POSIX_FADV_SEQUENTIAL);
  }
  return error;
}

bool waitUntil(short events, int descriptor) noexcept {
  pollfd wanted{descriptor, events, 0};
  return errorOfCall([&] { return ::poll(&wanted, 1, -1); }) == 0;
}

/// Moves past bytes that went out.
void passBytes(std::span<iovec>& rest, std::size_t bytes) noexcept {
  while (!rest.empty() && bytes >= rest.front().iov_len) {
    bytes -= rest.front().iov_len;
    rest = rest.subspan(1);
  }
  if (bytes != 0) {
    rest.front().iov_base = static_cast<char*>(rest.front().iov_base) + bytes;
    rest.front().iov_len -= bytes;
  }
}

/// One gathering write; with `oneByte` of no more than that.
ssize_t writeVector(int descriptor, std::span<const iovec> rest, bool oneByte) noexcept {
  if (oneByte) {
    return ::write(descriptor, rest.front().iov_base, 1);
  }
  return ::writev(descriptor, rest.data(), static_cast<int>(rest.size()));
}

bool isSameFile(const struct stat& a, const struct stat& b) noexcept {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

}  // namespace

int openFile(const std::string& path, const FileOpening& how, OpenedFile& file) noexcept {
  for (int i = 0; i < kMostOpenings; ++i) {
    file = {};
    file.unbuffered = how.unbuffered;
    const int flags = flagsOf(how);
    int error = openOnce(path, how, flags, file.descriptor);
    if (error == EINVAL && how.unbuffered) {
      file.unbuffered = false;
      error = openOnce(path, how, flags & ~O_DIRECT, file.descriptor);
    }
    if (error != 0) {
      return error;
    }
    bool deleted = false;
    error = prepare(how, file, deleted);
    if (error == 0 && (!deleted || how.creation == FileCreation::kExisting)) {
      return 0;
    }
    closeDescriptor(std::exchange(file.descriptor, kNoDescriptor));
    if (error != 0) {
      return error;
    }
  }
  return EAGAIN;
}

int describeDescriptor(int descriptor, OpenedFile& file) noexcept {
  struct stat status {};
  const int error = statusOf(descriptor, status);
  if (error == 0) {
    file = {descriptor, S_ISREG(status.st_mode), false};
  }
  return error;
}

int endUnbuffered(int descriptor) noexcept {
  int error = 0;
  const int flags = uninterrupted(error, [&](bool) { return ::fcntl(descriptor, F_GETFL); });
  return error != 0 ? error : errorOfCall([&] { return ::fcntl(descriptor, F_SETFL, flags & ~O_DIRECT); });
}

int readSome(int descriptor, void* to, std::size_t size, std::size_t& done) noexcept {
  done = 0;
  for (;;) {
    int error = 0;
    const ssize_t count = uninterrupted(error, [&](bool oneByte) {
      return ::read(descriptor, to, oneByte ? std::min<std::size_t>(size, 1) : size);
    });
    if (count >= 0) {
      done = static_cast<std::size_t>(count);
      return 0;
    }
    if (error != EAGAIN || !waitUntil(POLLIN, descriptor)) {
      return error;
    }
  }
}

int readFile(int descriptor, void* to, std::size_t size, std::size_t granule, std::size_t& done) noexcept {
  done = 0;
  while (done < size) {
    std::size_t count = 0;
    const int error = readSome(descriptor, static_cast<char*>(to) + done, size - done, count);
    done += count;
    if (error != 0 || count == 0 || count % granule != 0) {
      return error;
    }
  }
  return 0;
}

int writeGathered(int descriptor, std::span<const FileBuffer> buffers, std::size_t& done) noexcept {
  done = 0;
  std::array<iovec, kMaxFileBuffers> vectors;
  if (buffers.size() > vectors.size()) {
    return EINVAL;
  }
  std::transform(buffers.begin(), buffers.end(), vectors.begin(), [](const FileBuffer& buffer) {
    return iovec{const_cast<void*>(buffer.data), buffer.size};
  });
  std::span<iovec> rest(vectors.data(), buffers.size());
  for (passBytes(rest, 0); !rest.empty();) {
    int error = 0;
    const ssize_t count =
        uninterrupted(error, [&](bool oneByte) { return writeVector(descriptor, rest, oneByte); });
    if (count > 0) {
      done += static_cast<std::size_t>(count);
      passBytes(rest, static_cast<std::size_t>(count));
    } else if (error != EAGAIN || !waitUntil(POLLOUT, descriptor)) {
      return count == 0 ? EIO : error;
    }
  }
  return 0;
}

int seekFile(int descriptor, std::int64_t offset, int whence, std::uint64_t& position) noexcept {
  if (whence < SEEK_SET || whence > SEEK_END) {
    return EINVAL;
  }
  int error = 0;
  const off_t reached = uninterrupted(error, [&](bool) { return ::lseek(descriptor, offset, whence); });
  if (error == 0) {
    position = static_cast<std::uint64_t>(reached);
  }
  return error;
}

void readFileAhead(int descriptor, std::uint64_t position, std::uint64_t size) noexcept {
  // What the system fetches of itself on this descriptor would come in between and be waited for.
  ::posix_fadvise(descriptor, 0, 0, POSIX_FADV_RANDOM);
  ::posix_fadvise(descriptor, static_cast<off_t>(position), static_cast<off_t>(size), POSIX_FADV_WILLNEED);
}

int truncateFile(int descriptor, std::uint64_t position) noexcept {
  if (!std::in_range<off_t>(position)) {
    return EFBIG;
  }
  return errorOfCall([&] { return ::ftruncate(descriptor, static_cast<off_t>(position)); });
}

int syncDescriptor(int descriptor) noexcept {
  const int error = errorOfCall([&] { return ::fsync(descriptor); });
  return error == EINVAL || error == EROFS ? 0 : error;  // a pipe or a file system that keeps nothing
}

int syncDirectoryOf(const std::string& path) {
  const std::string directory = directoryOf(path);
  int error = 0;
  const int descriptor = uninterrupted(
      error, [&](bool) { return ::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); });
  if (error != 0) {
    return error == EACCES ? 0 : error;  // one that may be written in but not listed
  }
  error = syncDescriptor(descriptor);
  closeDescriptor(descriptor);
  return error;
}

int deleteOpened(int descriptor, const std::string& path) noexcept {
  struct stat opened {};
  struct stat named {};
  int error = statusOf(descriptor, opened);
  if (error == 0) {
    error = errorOfCall([&] { return ::lstat(path.c_str(), &named); });
  }
  if (error != 0 || !isSameFile(opened, named)) {
    return error == ENOENT ? 0 : error;  // it has gone already, or its name is another file's now
  }
  return errorOfCall([&] { return ::unlink(path.c_str()); });
}

int removeUnused(const std::string& path) noexcept {
  int error = 0;
  const auto open = [&](int access) {
    return uninterrupted(
        error, [&](bool) { return ::open(path.c_str(), access | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC); });
  };
  // A network's file system locks a file exclusively only where it is open for writing.
  int descriptor = open(O_RDWR);
  if (error == EACCES || error == EPERM || error == ETXTBSY) {
    descriptor = open(O_RDONLY);
  }
  if (error == ELOOP) {  // a symbolic link: nobody has it open
    return errorOfCall([&] { return ::unlink(path.c_str()); });
  }
  if (error != 0) {
    return error;
  }
  struct stat status {};
  error = statusOf(descriptor, status);
  if (error == 0 && S_ISDIR(status.st_mode)) {
    error = EISDIR;
  }
  bool deleted = false;
  if (error == 0) {
    error = lockFile(descriptor, LOCK_EX | LOCK_NB, deleted);
  }
  if (error == 0 && !deleted) {
    error = deleteOpened(descriptor, path);
  }
  closeDescriptor(descriptor);
  return error;
}

int takePermissions(int descriptor, const std::string& path) noexcept {
  struct stat status {};
  const int error = errorOfCall([&] { return ::stat(path.c_str(), &status); });
  if (error != 0) {
    return error == ENOENT ? 0 : error;
  }
  return errorOfCall([&] { return ::fchmod(descriptor, status.st_mode & kPermissionBits); });
}

}  // namespace qm_platform
