#include "coreapi/platform/filepath.h"

#include <cerrno>
#include <cstdlib>
#include <unistd.h>

#include "coreapi/platform/systemcall.h"

namespace qm_platform {

namespace {

/// The path without slashes at its end, unless it is the root.
std::string withoutLastSlashes(std::string path) {
  while (path.size() > 1 && path.back() == '/') {
    path.pop_back();
  }
  return path;
}

}  // namespace

int currentDirectory(std::string& path) {
  constexpr std::size_t kFirstSize = 256;
  for (path.resize(kFirstSize);; path.resize(path.size() * 2)) {
    const int error = errorOfCall([&] { return ::getcwd(path.data(), path.size()) != nullptr ? 0 : -1; });
    if (error == 0) {
      path.resize(path.find('\0'));
      return 0;
    }
    if (error != ERANGE) {
      path.clear();
      return error;
    }
  }
}

int changeDirectory(const std::string& path) noexcept {
  return errorOfCall([&] { return ::chdir(path.c_str()); });
}

std::string temporaryDirectory() {
  const char* set = std::getenv("TMPDIR");
  return withoutLastSlashes(set != nullptr && *set != '\0' ? set : "/tmp");
}

int absolutePath(const std::string& path, std::string& absolute) {
  if (path.starts_with('/')) {
    absolute = path;
    return 0;
  }
  const int error = currentDirectory(absolute);
  if (error == 0) {
    absolute += '/' + path;
  }
  return error;
}

std::string directoryOf(const std::string& path) {
  const std::string whole = withoutLastSlashes(path);
  const std::size_t slash = whole.find_last_of('/');
  if (slash == std::string::npos) {
    return ".";
  }
  return withoutLastSlashes(whole.substr(0, slash + 1));
}

}  // namespace qm_platform
