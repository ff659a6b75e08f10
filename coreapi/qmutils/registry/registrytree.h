#pragma once

#include <memory>
#include <string>

#include "coreapi/qmutils/registry/jregistry.h"

namespace qm_utils {

/// Where whole branches of keys are made, read and deleted, whichever class of keys it is. Failures are those
/// of the class.
class IRegistryTree {
 public:
  virtual ~IRegistryTree() = default;

  /// Opens a key for reading. With `bTolerant` a key that doesn't exist gives null; else it is a failure.
  virtual std::unique_ptr<IRegistryReadAccess> openKey(RegistryRoot root, const std::string& sPath,
                                                       bool bTolerant) const = 0;

  /// Opens a key for all access, and makes it and the keys above it where they don't exist.
  virtual std::unique_ptr<IRegistryWriteAccess> createKey(RegistryRoot root,
                                                          const std::string& sPath) const = 0;

  /// Deletes a key with everything under it. One that doesn't exist is no failure.
  virtual void deleteKey(RegistryRoot root, const std::string& sPath) const = 0;
};

/// The tree of `JLightRegistryKey`, which changes nothing but the memory.
const IRegistryTree& lightRegistryTree();

}  // namespace qm_utils
