#include "coreapi/platform/descriptor.h"

#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include "coreapi/platform/faultseam.h"

namespace qm_platform {

namespace {

/// Makes a call of the system until no signal interrupts it. `call` gets whether it is to move one byte only.
/// `error` becomes 0, or the reason why the result is negative.
template <typename Call>
auto uninterrupted(int& error, Call call) noexcept -> decltype(call(false)) {
  for (;;) {
    const Fault fault = takeFault(Seam::kFile);
    if (fault.kind == FaultKind::kError) {
      error = fault.error;
      return -1;
    }
    if (fault.kind == FaultKind::kInterrupt) {
      continue;
    }
    const auto result = call(fault.kind == FaultKind::kShort);
    if (result >= 0 || errno != EINTR) {
      error = result < 0 ? errno : 0;
      return result;
    }
  }
}

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
