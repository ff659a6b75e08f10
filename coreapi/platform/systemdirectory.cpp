#include "coreapi/platform/systemdirectory.h"

#include <cstdlib>
#include <unistd.h>

namespace qm_platform {

namespace {

constexpr const char* kMachineDirectory = "/etc/quelmarin";

/// The value of a variable; empty when it isn't set.
std::string variable(const char* name) {
  const char* value = std::getenv(name);
  return value != nullptr ? value : "";
}

std::string withoutSlash(std::string path) {
  while (path.size() > 1 && path.back() == '/') {
    path.pop_back();
  }
  return path;
}

/// The user's directory; empty for a user without a home.
std::string userDirectory() {
  std::string parent = variable("XDG_CONFIG_HOME");
  if (parent.empty()) {
    const std::string home = variable("HOME");
    if (home.empty()) {
      return {};
    }
    parent = withoutSlash(home) + "/.config";
  }
  return withoutSlash(parent) + "/quelmarin";
}

}  // namespace

std::string systemDirectory(const std::string& fileName) {
  if (std::string directory = variable("QM_SYSTEM_DIR"); !directory.empty()) {
    return withoutSlash(std::move(directory));
  }
  std::string directory = userDirectory();
  if (!directory.empty() && access((directory + "/" + fileName).c_str(), F_OK) == 0) {
    return directory;
  }
  return kMachineDirectory;
}

}  // namespace qm_platform
