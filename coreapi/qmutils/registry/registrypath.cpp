#include "coreapi/qmutils/registry/registrypath.h"

namespace qm_utils {

namespace {

constexpr char kSeparator = '\\';

constexpr RegistryRoot kRoots[] = {RegistryRoot::kClassesRoot, RegistryRoot::kCurrentUser,
                                   RegistryRoot::kLocalMachine, RegistryRoot::kUsers,
                                   RegistryRoot::kCurrentConfig};

}  // namespace

bool nextName(std::string_view& path, std::string_view& name) noexcept {
  const std::size_t start = path.find_first_not_of(kSeparator);
  if (start == std::string_view::npos) {
    return false;
  }
  path.remove_prefix(start);
  name = path.substr(0, path.find(kSeparator));
  path.remove_prefix(name.size());
  return true;
}

std::size_t countNames(std::string_view path) noexcept {
  std::size_t uCount = 0;
  for (std::string_view name; nextName(path, name);) {
    ++uCount;
  }
  return uCount;
}

std::string joinPath(const std::string& sPath, const std::string& sSubPath) {
  return sPath.empty() || sSubPath.empty() ? sPath + sSubPath : sPath + kSeparator + sSubPath;
}

bool parseRootedPath(std::string_view text, RootedPath& path) {
  for (const RegistryRoot root : kRoots) {
    const std::string_view name = registryRootName(root);
    if (text.starts_with(name) && (text.size() == name.size() || text[name.size()] == kSeparator)) {
      text.remove_prefix(name.size());
      const std::size_t start = text.find_first_not_of(kSeparator);
      path = {root, std::string(start == std::string_view::npos ? "" : text.substr(start))};
      return true;
    }
  }
  return false;
}

std::string fullPath(RegistryRoot root, const std::string& sPath) {
  return joinPath(std::string(registryRootName(root)), sPath);
}

}  // namespace qm_utils
