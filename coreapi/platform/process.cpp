#include "coreapi/platform/process.h"

#include <climits>
#include <unistd.h>

namespace qm_platform {

namespace {

std::string readModuleName() {
  char path[PATH_MAX];
  const ssize_t length = readlink("/proc/self/exe", path, sizeof path);
  if (length <= 0) {
    return {};
  }
  const std::string full(path, static_cast<std::size_t>(length));
  return full.substr(full.find_last_of('/') + 1);
}

}  // namespace

const std::string& runningModuleName() {
  static const std::string name = readModuleName();
  return name;
}

std::uint32_t processId() noexcept {
  return static_cast<std::uint32_t>(getpid());
}

std::uint32_t threadId() noexcept {
  thread_local const auto id = static_cast<std::uint32_t>(gettid());
  return id;
}

}  // namespace qm_platform
