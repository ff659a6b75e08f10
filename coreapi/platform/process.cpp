#include "coreapi/platform/process.h"

#include <climits>
#include <unistd.h>

namespace qm_platform {

namespace {

/// Path of the program, or nothing.
std::string readModulePath() {
  char path[PATH_MAX];
  const ssize_t length = readlink("/proc/self/exe", path, sizeof path);
  return length > 0 ? std::string(path, static_cast<std::size_t>(length)) : std::string();
}

std::string readModuleName() {
  const std::string path = readModulePath();
  return path.substr(path.find_last_of('/') + 1);
}

std::string readModuleDirectory() {
  const std::string path = readModulePath();
  const std::size_t slash = path.find_last_of('/');
  return slash == std::string::npos ? std::string() : path.substr(0, slash == 0 ? 1 : slash);
}

}  // namespace

// Never destroyed: who asks first may be the log, at the very end of the process.

const std::string& runningModuleName() {
  static const std::string& name = *new std::string(readModuleName());
  return name;
}

const std::string& runningModuleDirectory() {
  static const std::string& directory = *new std::string(readModuleDirectory());
  return directory;
}

std::uint32_t processId() noexcept {
  return static_cast<std::uint32_t>(getpid());
}

std::uint32_t threadId() noexcept {
  thread_local const auto id = static_cast<std::uint32_t>(gettid());
  return id;
}

}  // namespace qm_platform
