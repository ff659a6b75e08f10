#include "coreapi/qmutils/registry/jsystemregistry.h"

#include <cerrno>
#include <utility>

#include "coreapi/qmutils/error/jerror.h"

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

}  // namespace

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

/// The key for an operation that changes it.
JLightRegistryKey& JSystemRegistryKey::changing(const char* szFunction, const std::string& sWhat) {
  requireChangeable(szFunction, sWhat);
  return m_key;
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

/// Takes over the key that was opened, or tells that it doesn't exist.
bool JSystemRegistryKey::adopt(bool bFound, JLightRegistryKey& key, RegistryRoot root,
                               const std::string& sPath, std::uint32_t uAccess, bool bTolerant) {
  if (!bFound) {
    if (!bTolerant) {
      fail(ENOENT, kOpenKey, root, sPath);
    }
    return false;
  }
  m_key = key;
  m_root = root;
  m_uAccess = uAccess;
  return true;
}

bool JSystemRegistryKey::open(RegistryRoot root, const std::string& sPath, std::uint32_t uAccess,
                              bool bTolerant) {
  JLightRegistryKey key;
  const bool bFound = key.open(root, sPath, true);
  return adopt(bFound, key, root, sPath, uAccess, bTolerant);
}

bool JSystemRegistryKey::open(const JSystemRegistryKey& parent, const std::string& sPath,
                              std::uint32_t uAccess, bool bTolerant) {
  JLightRegistryKey key;
  const bool bFound = key.open(parent.reading(kOpenKey, sPath), sPath, true);
  return adopt(bFound, key, parent.m_root, sPath, uAccess, bTolerant);
}

bool JSystemRegistryKey::create(RegistryRoot root, const std::string& sPath, std::uint32_t uAccess) {
  JLightRegistryKey key;
  const bool bNew = key.create(root, sPath);
  adopt(true, key, root, sPath, uAccess, false);
  return bNew;
}

bool JSystemRegistryKey::create(const JSystemRegistryKey& parent, const std::string& sPath,
                                std::uint32_t uAccess) {
  JLightRegistryKey key;
  parent.requireChangeable(kCreateKey, sPath);
  const bool bNew = key.create(parent.m_key, sPath);
  adopt(true, key, parent.m_root, sPath, uAccess, false);
  return bNew;
}

void JSystemRegistryKey::connect(const std::string& sMachine, RegistryRoot root) {
  fail(EOPNOTSUPP, "RegConnectRegistry", root, sMachine);
}

void JSystemRegistryKey::close() {
  m_key.close();
  m_root = {};
  m_uAccess = 0;
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
  m_key.flush();
}

void JSystemRegistryKey::deleteValue(const std::string& sName) {
  if (!changing("RegDeleteValue", sName).deleteValue(sName, true)) {
    fail(ENOENT, "RegDeleteValue", m_root, sName);
  }
}

void JSystemRegistryKey::deleteKey(const std::string& sName) {
  changing("RegDeleteKey", sName).deleteKey(sName, true);
}

void JSystemRegistryKey::setValue(const std::string& sName, std::uint32_t uType, const void* pData,
                                  std::size_t uSize) {
  changing(kSetValue, sName).setValue(sName, uType, pData, uSize);
}

void JSystemRegistryKey::setDword(const std::string& sName, std::uint32_t uValue) {
  changing(kSetValue, sName).setDword(sName, uValue);
}

void JSystemRegistryKey::setQword(const std::string& sName, std::uint64_t uValue) {
  changing(kSetValue, sName).setQword(sName, uValue);
}

void JSystemRegistryKey::setString(const std::string& sName, const std::string& sText) {
  changing(kSetValue, sName).setString(sName, sText);
}

void JSystemRegistryKey::setBinary(const std::string& sName, const void* pData, std::size_t uSize) {
  changing(kSetValue, sName).setBinary(sName, pData, uSize);
}
