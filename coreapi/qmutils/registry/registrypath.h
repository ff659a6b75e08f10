#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "coreapi/qmutils/registry/jregistry.h"

/// Paths of keys: names joined by backslashes. Empty names count for nothing.
namespace qm_utils {

/// Takes the next name off a path, skipping empty ones; false at its end.
bool nextName(std::string_view& path, std::string_view& name) noexcept;

/// The number of names in a path.
std::size_t countNames(std::string_view path) noexcept;

/// The path of a sub-key.
std::string joinPath(const std::string& sPath, const std::string& sSubPath);

/// A path that begins with the name of its root.
struct RootedPath {
  RegistryRoot root{};
  std::string sPath;  ///< behind the root
};

/// Takes a path apart behind its root's name; false when it begins with none.
bool parseRootedPath(std::string_view text, RootedPath& path);

/// The path with the name of its root.
std::string fullPath(RegistryRoot root, const std::string& sPath);

}  // namespace qm_utils
