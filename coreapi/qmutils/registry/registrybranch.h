#pragma once

#include <memory>
#include <string>
#include <vector>

#include "coreapi/qmutils/registry/jregistry.h"

namespace qm_utils {

/// A key as it was read.
struct KeyCopy {
  std::string sPath;  ///< from the top of its branch
  std::vector<RegistryValue> values;
};

/// Reads a key and everything under it, each key before its sub-keys.
std::vector<KeyCopy> readBranch(std::unique_ptr<IRegistryReadAccess> pTop);

}  // namespace qm_utils
