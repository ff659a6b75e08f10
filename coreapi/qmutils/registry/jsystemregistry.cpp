#include "coreapi/qmutils/registry/jsystemregistry.h"

#include <cerrno>
#include <string_view>
#include <utility>

#include "coreapi/platform/byteorder.h"
#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/registry/jregistrytext.h"
#include "coreapi/qmutils/registry/registryfile.h"
#include "coreapi/qmutils/registry/registrypath.h"
#include "coreapi/qmutils/registry/registrytextform.h"
#include "coreapi/qmutils/socket/jfilesocket.h"

using qm_utils::joinPath;
using qm_utils::RegistryFile;
using qm_utils::RegistryRoot;

namespace {

/// Bits of an access mask that changes of a key ask for: set values, create sub-keys.
constexpr std::uint32_t kMayChange = 0x2 | 0x4;

constexpr char kQueryValue[] = "RegQueryValueEx";
constexpr char kSetValue[] = "RegSetValueEx";
constexpr char kEnumKey[] = "RegEnumKeyEx";
constexpr char kEnumValue[] = "RegEnumValue";
constexpr char kOpenKey[] = "RegOpenKeyEx";
constexpr char kCreateKey[] = "RegCreateKeyEx";

[[noreturn]] void fail(int iCode, const char* szFunction, RegistryRoot root, const std::string& sWhat) {
  const std::string sFunction =
      std::string("Function=") + szFunction + ", key=" + std::string(registryRootName(root)) + "\\" + sWhat;
  QM_THROW(JSysError, static_cast<std::uint32_t>(iCode), sFunction.c_str());
}

/// Runs what works on a file, and tells its failure as that of one call.
template <typename Work>
void asCall(const char* szFunction, RegistryRoot root, const std::string& sWhat, Work work) {
  std::uint32_t uCode = 0;
  try {
    work();
    return;
  } catch (JSysError* pError) {
    const qm_err::CaughtError error(pError);
    JCATCH_LOG(error.get());
    uCode = pError->getCode();
  }
  fail(static_cast<int>(uCode), szFunction, root, sWhat);
}

/// Whether a key lies in the branch that is kept in the file.
bool isKept(RegistryRoot root, std::string_view path) {
  std::string_view name;
  return root == RegistryRoot::kLocalMachine && qm_utils::nextName(path, name) &&
         name == RegistryFile::kBranch;
}

}  // namespace

JSystemRegistryKey::~JSystemRegistryKey() {
  RegistryFile::get().saveAtClose();
}

/// The key for an operation that reads it.
const JLightRegistryKey& JSystemRegistryKey::reading(const char* szFunction, const std::string& sWhat) const {
  if (m_key.isNull()) {
    fail(EBADF, szFunction, m_root, sWhat);
  }
  return m_key;
}

/// Fails unless the key is open for changes.
void JSystemRegistryKey::requireChangeable(const char* szFunction, const std::string& sWhat) const {
  reading(szFunction, sWhat);
  if ((m_uAccess & kMayChange) != kMayChange) {
    fail(EACCES, szFunction, m_root, sWhat);
  }
}

/// Runs a change of the key, or with a path of a key below it. What is kept in the file is changed under the
/// file's lock. The file may have been read since the key was opened: the change goes to the key that stands
/// at its path now.
template <typename Work>
void JSystemRegistryKey::change(const char* szFunction, const std::string& sWhat, const std::string& sSubPath,
                                Work work) {
  requireChangeable(szFunction, sWhat);
  if (!isKept(m_root, joinPath(m_sPath, sSubPath))) {
    work(m_key);
    return;
  }
  RegistryFile::get().change([&] {
    if (m_key.isDeleted() && !m_key.open(m_root, m_sPath, true)) {
      fail(ENOENT, szFunction, m_root, sWhat);
    }
    work(m_key);
  });
}

/// Fails when a value that was asked for isn't there.
void JSystemRegistryKey::requireFound(bool bFound, const std::string& sName) const {
  if (!bFound) {
    fail(ENOENT, kQueryValue, m_root, sName);
  }
}

/// As `requireFound`, for the getters into a caller's buffer, which have no tolerant form below.
void JSystemRegistryKey::requireValue(const std::string& sName) const {
  std::uint32_t uType = 0;
  std::size_t uSize = 0;
  queryValue(sName, uType, nullptr, uSize, false);
}

/// Takes over a key.
void JSystemRegistryKey::adopt(const JLightRegistryKey& key, RegistryRoot root, const std::string& sPath,
                               std::uint32_t uAccess) {
  m_key = key;
  m_root = root;
  m_sPath = sPath;
  m_uAccess = uAccess;
}

/// Takes over the key that was opened, or tells that it doesn't exist.
bool JSystemRegistryKey::openAt(bool bFound, const JLightRegistryKey& key, RegistryRoot root,
                                const std::string& sParentPath, const std::string& sPath,
                                std::uint32_t uAccess, bool bTolerant) {
  if (!bFound) {
    if (!bTolerant) {
      fail(ENOENT, kOpenKey, root, sPath);
    }
    return false;
  }
  adopt(key, root, joinPath(sParentPath, sPath), uAccess);
  return true;
}

bool JSystemRegistryKey::open(RegistryRoot root, const std::string& sPath, std::uint32_t uAccess,
                              bool bTolerant) {
  RegistryFile::get().ensureRead();
  JLightRegistryKey key;
  const bool bFound = key.open(root, sPath, true);
  return openAt(bFound, key, root, {}, sPath, uAccess, bTolerant);
}

bool JSystemRegistryKey::open(const JSystemRegistryKey& parent, const std::string& sPath,
                              std::uint32_t uAccess, bool bTolerant) {
  JLightRegistryKey key;
  const bool bFound = key.open(parent.reading(kOpenKey, sPath), sPath, true);
  return openAt(bFound, key, parent.m_root, std::string(parent.m_sPath), sPath, uAccess, bTolerant);
}

/// Opens a key below another one, and makes it if it isn't there. In the file it is made below the key that
/// stands at the other one's path now, as in `change`.
bool JSystemRegistryKey::createAt(JLightRegistryKey parent, RegistryRoot root, const std::string& sParentPath,
                                  const std::string& sPath, std::uint32_t uAccess) {
  const std::string sFullPath = joinPath(sParentPath, sPath);
  JLightRegistryKey key;
  bool bNew = false;
  if (key.open(parent, sPath, true)) {
    adopt(key, root, sFullPath, uAccess);
    return false;
  }
  if (!isKept(root, sFullPath)) {
    bNew = key.create(parent, sPath);
  } else if (qm_utils::hasTextForm(sFullPath)) {
    RegistryFile::get().change([&] {
      if (parent.isDeleted() && !parent.open(root, sParentPath, true)) {
        fail(ENOENT, kCreateKey, root, sPath);
      }
      bNew = key.create(parent, sPath);
    });
  } else {
    fail(EINVAL, kCreateKey, root, sPath);
  }
  adopt(key, root, sFullPath, uAccess);
  return bNew;
}

bool JSystemRegistryKey::create(RegistryRoot root, const std::string& sPath, std::uint32_t uAccess) {
  RegistryFile::get().ensureRead();
  JLightRegistryKey top;
  top.open(root, {});
  return createAt(top, root, {}, sPath, uAccess);
}

bool JSystemRegistryKey::create(const JSystemRegistryKey& parent, const std::string& sPath,
                                std::uint32_t uAccess) {
  parent.requireChangeable(kCreateKey, sPath);
  // The parent may be this object.
  return createAt(parent.m_key, parent.m_root, std::string(parent.m_sPath), sPath, uAccess);
}

void JSystemRegistryKey::reload() {
  RegistryFile::get().reload();
}

void JSystemRegistryKey::save(const std::string& sFile) const {
  reading("RegSaveKey", sFile);
  asCall("RegSaveKey", m_root, sFile, [&] {
    JFileSocket::ReplaceWithRollBack(sFile, [&](JOSocket& socket) {
      qm_utils::exportRegistry(socket, qm_utils::fullPath(m_root, m_sPath));
    });
  });
}

void JSystemRegistryKey::restore(const std::string& sFile) {
  requireChangeable("RegRestoreKey", sFile);
  asCall("RegRestoreKey", m_root, sFile, [&] {
    JFileSocket file(sFile, JFileSocket::kRead, true);
    std::vector<std::string> names;
    getSubKeys(names);
    for (const std::string& sName : names) {
      deleteKey(sName);
    }
    std::vector<qm_utils::RegistryValue> values;
    getValues(values);
    for (const qm_utils::RegistryValue& value : values) {
      deleteValue(value.sName);
    }
    qm_utils::importRegistry(file, qm_utils::fullPath(m_root, m_sPath).c_str());
  });
}

void JSystemRegistryKey::connect(const std::string& sMachine, RegistryRoot root) {
  fail(EOPNOTSUPP, "RegConnectRegistry", root, sMachine);
}

void JSystemRegistryKey::close() {
  m_key.close();
  m_root = {};
  m_sPath.clear();
  m_uAccess = 0;
  RegistryFile::get().saveAtClose();
}

void JSystemRegistryKey::notifyChange(std::shared_ptr<JFlag> pFlag, bool bSubTree) {
  reading("RegNotifyChangeKeyValue", "none");
  m_key.notifyChange(std::move(pFlag), bSubTree);
}

bool JSystemRegistryKey::isNull() const {
  return m_key.isNull();
}

void JSystemRegistryKey::getSubKeys(std::vector<std::string>& names) const {
  reading(kEnumKey, "").getSubKeys(names);
}

void JSystemRegistryKey::getSubKeys(std::unique_ptr<qm_utils::RegistryKeyRecord[]>& pRecords,
                                    std::size_t& uCount) const {
  reading(kEnumKey, "").getSubKeys(pRecords, uCount);
}

bool JSystemRegistryKey::openSubKey(const std::string& sName,
                                    std::unique_ptr<qm_utils::IRegistryReadAccess>& pKey,
                                    bool bTolerant) const {
  auto pSubKey = std::make_unique<JSystemRegistryKey>();
  if (!pSubKey->open(*this, sName, qm_utils::kRegistryRead, bTolerant)) {
    return false;
  }
  pKey = std::move(pSubKey);
  return true;
}

void JSystemRegistryKey::getValues(std::vector<qm_utils::RegistryValue>& values) const {
  reading(kEnumValue, "").getValues(values);
}

void JSystemRegistryKey::getValues(std::unique_ptr<qm_utils::RegistryValueRecord[]>& pRecords,
                                   std::size_t& uCount) const {
  reading(kEnumValue, "").getValues(pRecords, uCount);
}

bool JSystemRegistryKey::queryValue(const std::string& sName, std::uint32_t& uType, void* pData,
                                    std::size_t& uSize, bool bTolerant) const {
  const bool bFound = reading(kQueryValue, sName).queryValue(sName, uType, pData, uSize, true);
  requireFound(bFound || bTolerant, sName);
  return bFound;
}

bool JSystemRegistryKey::getDword(const std::string& sName, std::uint32_t& uValue) const {
  return reading(kQueryValue, sName).getDword(sName, uValue);
}

std::uint32_t JSystemRegistryKey::getDword(const std::string& sName) const {
  std::uint32_t uValue = 0;
  requireFound(getDword(sName, uValue), sName);
  return uValue;
}

bool JSystemRegistryKey::getQword(const std::string& sName, std::uint64_t& uValue) const {
  return reading(kQueryValue, sName).getQword(sName, uValue);
}

std::uint64_t JSystemRegistryKey::getQword(const std::string& sName) const {
  std::uint64_t uValue = 0;
  requireFound(getQword(sName, uValue), sName);
  return uValue;
}

bool JSystemRegistryKey::getBool(const std::string& sName, bool& bValue) const {
  return reading(kQueryValue, sName).getBool(sName, bValue);
}

bool JSystemRegistryKey::getBool(const std::string& sName) const {
  return getDword(sName) != 0;
}

bool JSystemRegistryKey::getString(const std::string& sName, std::string& sValue) const {
  return reading(kQueryValue, sName).getString(sName, sValue);
}

std::string JSystemRegistryKey::getString(const std::string& sName) const {
  std::string sValue;
  requireFound(getString(sName, sValue), sName);
  return sValue;
}

void JSystemRegistryKey::getString(const std::string& sName, char* szBuffer, std::size_t uSize) const {
  requireValue(sName);
  m_key.getString(sName, szBuffer, uSize);
}

bool JSystemRegistryKey::getBinary(const std::string& sName, std::vector<std::uint8_t>& block) const {
  return reading(kQueryValue, sName).getBinary(sName, block);
}

std::vector<std::uint8_t> JSystemRegistryKey::getBinary(const std::string& sName) const {
  std::vector<std::uint8_t> block;
  requireFound(getBinary(sName, block), sName);
  return block;
}

std::size_t JSystemRegistryKey::getBinary(const std::string& sName, void* pBuffer, std::size_t uSize) const {
  requireValue(sName);
  return m_key.getBinary(sName, pBuffer, uSize);
}

void JSystemRegistryKey::flush() {
  reading("RegFlushKey", "none");
  asCall("RegFlushKey", m_root, "none", [] { RegistryFile::get().save(); });
}

void JSystemRegistryKey::deleteValue(const std::string& sName) {
  std::uint32_t uType = 0;
  std::size_t uSize = 0;
  requireChangeable("RegDeleteValue", sName);
  if (!m_key.queryValue(sName, uType, nullptr, uSize, true)) {
    fail(ENOENT, "RegDeleteValue", m_root, sName);
  }
  change("RegDeleteValue", sName, {}, [&](JLightRegistryKey& key) { key.deleteValue(sName, true); });
}

void JSystemRegistryKey::deleteKey(const std::string& sName) {
  requireChangeable("RegDeleteKey", sName);
  if (JLightRegistryKey().open(m_key, sName, true)) {
    change("RegDeleteKey", sName, sName, [&](JLightRegistryKey& key) { key.deleteKey(sName, true); });
  }
}

/// Fails for a value that the file can't carry, on a key that is kept in it.
void JSystemRegistryKey::requireTextForm(const std::string& sName, std::uint32_t uType, const void* pData,
                                         std::size_t uSize) const {
  const std::string_view data(static_cast<const char*>(pData), pData != nullptr ? uSize : 0);
  if (isKept(m_root, m_sPath) &&
      !(qm_utils::isTextType(uType) && qm_utils::hasTextForm(sName, uType, data))) {
    fail(EINVAL, kSetValue, m_root, sName);
  }
}

void JSystemRegistryKey::setValue(const std::string& sName, std::uint32_t uType, const void* pData,
                                  std::size_t uSize) {
  requireChangeable(kSetValue, sName);
  requireTextForm(sName, uType, pData, uSize);
  change(kSetValue, sName, {}, [&](JLightRegistryKey& key) { key.setValue(sName, uType, pData, uSize); });
}

void JSystemRegistryKey::setDword(const std::string& sName, std::uint32_t uValue) {
  std::uint8_t bytes[sizeof uValue];
  qm_platform::writeLE32(bytes, uValue);
  setValue(sName, qm_utils::kRegDword, bytes, sizeof bytes);
}

void JSystemRegistryKey::setQword(const std::string& sName, std::uint64_t uValue) {
  std::uint8_t bytes[sizeof uValue];
  qm_platform::writeLE64(bytes, uValue);
  setValue(sName, qm_utils::kRegQword, bytes, sizeof bytes);
}

void JSystemRegistryKey::setString(const std::string& sName, const std::string& sText) {
  setValue(sName, qm_utils::kRegSz, sText.c_str(), sText.size() + 1);
}

void JSystemRegistryKey::setBinary(const std::string& sName, const void* pData, std::size_t uSize) {
  setValue(sName, qm_utils::kRegBinary, pData, uSize);
}
