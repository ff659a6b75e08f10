#include "coreapi/qmutils/registry/registrytree.h"

#include "coreapi/qmutils/registry/jlightreg.h"
#include "coreapi/qmutils/registry/jregistrytext.h"
#include "coreapi/qmutils/registry/jsystemregistry.h"
#include "coreapi/qmutils/registry/registryfile.h"

namespace qm_utils {

namespace {

class LightTree : public IRegistryTree {
 public:
  std::unique_ptr<IRegistryReadAccess> openKey(RegistryRoot root, const std::string& sPath,
                                               bool bTolerant) const override {
    auto pKey = std::make_unique<JLightRegistryKey>();
    return pKey->open(root, sPath, bTolerant) ? std::move(pKey) : nullptr;
  }

  std::unique_ptr<IRegistryWriteAccess> createKey(RegistryRoot root,
                                                  const std::string& sPath) const override {
    auto pKey = std::make_unique<JLightRegistryKey>();
    pKey->create(root, sPath);
    return pKey;
  }

  void deleteKey(RegistryRoot root, const std::string& sPath) const override {
    JLightRegistryKey top;
    top.open(root, "");
    top.deleteKey(sPath, true);
  }
};

class SystemTree : public IRegistryTree {
 public:
  std::unique_ptr<IRegistryReadAccess> openKey(RegistryRoot root, const std::string& sPath,
                                               bool bTolerant) const override {
    auto pKey = std::make_unique<JSystemRegistryKey>();
    return pKey->open(root, sPath, kRegistryRead, bTolerant) ? std::move(pKey) : nullptr;
  }

  std::unique_ptr<IRegistryWriteAccess> createKey(RegistryRoot root,
                                                  const std::string& sPath) const override {
    auto pKey = std::make_unique<JSystemRegistryKey>();
    pKey->create(root, sPath);
    return pKey;
  }

  void deleteKey(RegistryRoot root, const std::string& sPath) const override {
    JSystemRegistryKey top;
    top.open(root, "", kRegistryAllAccess);
    top.deleteKey(sPath);
  }
};

}  // namespace

const IRegistryTree& lightRegistryTree() {
  static const LightTree tree;
  return tree;
}

void importRegistry(JISocket& socket, const char* szPrefix) {
  RegistryFile::Batch batch;
  importRegistry(SystemTree(), socket, szPrefix);
  batch.end();
}

void exportRegistry(JOSocket& socket, const std::string& sKeyPath) {
  exportRegistry(SystemTree(), socket, sKeyPath);
}

bool copyKey(RegistryRoot destinationRoot, const std::string& sDestination, RegistryRoot sourceRoot,
             const std::string& sSource, bool bMerge, bool bTolerant) {
  RegistryFile::Batch batch;
  const bool bCopied =
      copyKey(SystemTree(), destinationRoot, sDestination, sourceRoot, sSource, bMerge, bTolerant);
  batch.end();
  return bCopied;
}

}  // namespace qm_utils
