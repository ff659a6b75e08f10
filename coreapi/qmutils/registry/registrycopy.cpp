#include <memory>
#include <utility>
#include <vector>

#include "coreapi/qmutils/registry/jregistrytext.h"
#include "coreapi/qmutils/registry/registrybranch.h"
#include "coreapi/qmutils/registry/registrypath.h"

namespace qm_utils {

std::vector<KeyCopy> readBranch(std::unique_ptr<IRegistryReadAccess> pTop) {
  std::vector<KeyCopy> copies;
  std::vector<std::pair<std::string, std::unique_ptr<IRegistryReadAccess>>> waiting;
  waiting.emplace_back("", std::move(pTop));
  while (!waiting.empty()) {
    const auto [sPath, pKey] = std::move(waiting.back());
    waiting.pop_back();
    copies.push_back({sPath, {}});
    pKey->getValues(copies.back().values);
    std::vector<std::string> names;
    pKey->getSubKeys(names);
    for (const std::string& sName : names) {
      std::unique_ptr<IRegistryReadAccess> pSubKey;
      if (pKey->openSubKey(sName, pSubKey, true)) {
        waiting.emplace_back(joinPath(sPath, sName), std::move(pSubKey));
      }
    }
  }
  return copies;
}

bool copyKey(const IRegistryTree& tree, RegistryRoot destinationRoot, const std::string& sDestination,
             RegistryRoot sourceRoot, const std::string& sSource, bool bMerge, bool bTolerant) {
  std::unique_ptr<IRegistryReadAccess> pSource = tree.openKey(sourceRoot, sSource, bTolerant);
  if (!pSource) {
    return false;
  }
  const std::vector<KeyCopy> copies = readBranch(std::move(pSource));
  if (!bMerge) {
    tree.deleteKey(destinationRoot, sDestination);
  }
  for (const KeyCopy& copy : copies) {
    const std::unique_ptr<IRegistryWriteAccess> pKey =
        tree.createKey(destinationRoot, joinPath(sDestination, copy.sPath));
    for (const RegistryValue& value : copy.values) {
      pKey->setValue(value.sName, value.uType, value.data.data(), value.data.size());
    }
  }
  return true;
}

}  // namespace qm_utils
