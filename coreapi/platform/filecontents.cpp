#include "coreapi/platform/filecontents.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

#include "coreapi/platform/faultseam.h"

namespace qm_platform {

namespace {

constexpr std::size_t kPiece = 64 * 1024;

int openForReading(const std::string& path, int& descriptor) {
  for (;;) {
    const Fault fault = takeFault(Seam::kFile);
    if (fault.kind == FaultKind::kError || fault.kind == FaultKind::kInterrupt) {
      errno = fault.error;
    } else {
      descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    }
    if (descriptor >= 0) {
      return 0;
    }
    if (errno != EINTR) {
      return errno;
    }
  }
}

/// One `read`; the number of bytes, or -1 with `errno` set.
ssize_t readPiece(int descriptor, void* to, std::size_t size) {
  const Fault fault = takeFault(Seam::kFile);
  if (fault.kind == FaultKind::kError || fault.kind == FaultKind::kInterrupt) {
    errno = fault.error;
    return -1;
  }
  return read(descriptor, to, fault.kind == FaultKind::kShort ? std::min<std::size_t>(size, 1) : size);
}

/// Reads to the end, or to one byte beyond the limit.
int readToEnd(int descriptor, std::size_t limit, std::vector<std::uint8_t>& contents) {
  std::size_t length = 0;
  for (;;) {
    contents.resize(std::min(length + kPiece, limit + 1));
    const ssize_t count = readPiece(descriptor, contents.data() + length, contents.size() - length);
    if (count < 0 && errno == EINTR) {
      continue;
    }
    if (count < 0) {
      return errno;
    }
    length += static_cast<std::size_t>(count);
    if (length > limit) {
      return EFBIG;
    }
    if (count == 0) {
      contents.resize(length);
      return 0;
    }
  }
}

}  // namespace

int readFileContents(const std::string& path, std::size_t limit, std::vector<std::uint8_t>& contents) {
  contents.clear();
  int descriptor = -1;
  int error = openForReading(path, descriptor);
  if (error != 0) {
    return error;
  }
  error = readToEnd(descriptor, limit, contents);
  close(descriptor);
  if (error != 0) {
    contents.clear();
  }
  return error;
}

}  // namespace qm_platform
