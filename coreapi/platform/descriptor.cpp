#include "coreapi/platform/descriptor.h"

#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include "coreapi/platform/faultseam.h"
#include "coreapi/platform/systemcall.h"

namespace qm_platform {

namespace {

/// Waits until a non-blocking descriptor takes bytes again, or has failed.
void waitForRoom(int descriptor) noexcept {
  pollfd wanted{descriptor, POLLOUT, 0};
  ::poll(&wanted, 1, -1);
}

}  // namespace

int openAppend(const std::string& path, int& descriptor) noexcept {
  int error = 0;
  descriptor = uninterrupted(error, [&](bool) {
    return ::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, S_IRUSR | S_IWUSR);
  });
  return error;
}

int duplicateDescriptor(int original, int& descriptor, int lowest) noexcept {
  int error = 0;
  descriptor = uninterrupted(error, [&](bool) { return ::fcntl(original, F_DUPFD_CLOEXEC, lowest); });
  return error;
}

int writeAll(int descriptor, const void* data, std::size_t size, std::size_t* written) noexcept {
  const char* from = static_cast<const char*>(data);
  std::size_t done = 0;
  int error = 0;
  while (done < size) {
    const ssize_t count = uninterrupted(
        error, [&](bool oneByte) { return ::write(descriptor, from + done, oneByte ? 1 : size - done); });
    if (count > 0) {
      done += static_cast<std::size_t>(count);
    } else if (error == EAGAIN) {
      waitForRoom(descriptor);
    } else {
      error = count == 0 ? EIO : error;
      break;
    }
  }
  if (written != nullptr) {
    *written = done;
  }
  return done == size ? 0 : error;
}

int closeDescriptor(int descriptor) noexcept {
  const Fault fault = takeFault(Seam::kFile);
  const int error = ::close(descriptor) == 0 ? 0 : errno;
  return fault.kind == FaultKind::kError ? fault.error : error;
}

}  // namespace qm_platform
