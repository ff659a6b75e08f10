#include "qmactivexctrl/common/qmregistration.h"

#include <array>
#include <cstddef>
#include <ranges>
#include <string_view>
#include <vector>

#include "coreapi/qmutils/registry/jsystemregistry.h"

namespace {

#define QM_PROG_ID "QMStorageAccessController.QMStorageAccessCtrl"
#define QM_CLASS_KEY "CLSID\\{F6896C2F-489A-46B0-BD71-7C1844E5AEC1}"
static_assert(std::string_view(QM_CLASS_KEY).ends_with(qm_registration::kClassId));

/// What becomes of a key when the control is registered or unregistered.
enum class Mark {
  kPlain,        ///< goes when nothing else is in it
  kForceRemove,  ///< goes with all its content, ahead of registering as well
  kNoRemove,     ///< stays
};

struct Entry {
  const char* szKey;
  Mark eMark;
  const char* szValueName;  ///< empty for the key's own value
  const char* szValue;      ///< null for none; "%MODULE%" stands for the module's path
};

constexpr const char* kModule = "%MODULE%";

/// Keys stand behind the keys that they are in.
constexpr std::array<Entry, 19> kScript{{
    {QM_PROG_ID ".1", Mark::kPlain, "", "QMStorageAccessCtrl Class"},
    {QM_PROG_ID ".1\\CLSID", Mark::kPlain, "", qm_registration::kClassId},
    {QM_PROG_ID, Mark::kPlain, "", "QMStorageAccessCtrl Class"},
    {QM_PROG_ID "\\CLSID", Mark::kPlain, "", qm_registration::kClassId},
    {QM_PROG_ID "\\CurVer", Mark::kPlain, "", QM_PROG_ID ".1"},
    {"CLSID", Mark::kNoRemove, "", nullptr},
    {QM_CLASS_KEY, Mark::kForceRemove, "", "QMStorageAccessCtrl Class"},
    {QM_CLASS_KEY "\\ProgID", Mark::kPlain, "", QM_PROG_ID ".1"},
    {QM_CLASS_KEY "\\VersionIndependentProgID", Mark::kPlain, "", QM_PROG_ID},
    {QM_CLASS_KEY "\\Programmable", Mark::kForceRemove, "", nullptr},
    {QM_CLASS_KEY "\\InprocServer32", Mark::kPlain, "", "%MODULE%"},
    {QM_CLASS_KEY "\\InprocServer32", Mark::kPlain, "ThreadingModel", "Apartment"},
    {QM_CLASS_KEY "\\Control", Mark::kForceRemove, "", nullptr},
    {QM_CLASS_KEY "\\Insertable", Mark::kForceRemove, "", nullptr},
    {QM_CLASS_KEY "\\ToolboxBitmap32", Mark::kForceRemove, "", "%MODULE%, 103"},
    {QM_CLASS_KEY "\\MiscStatus", Mark::kPlain, "", "0"},
    {QM_CLASS_KEY "\\MiscStatus\\1", Mark::kPlain, "", "132497"},
    {QM_CLASS_KEY "\\TypeLib", Mark::kPlain, "", qm_registration::kLibraryId},
    {QM_CLASS_KEY "\\Version", Mark::kPlain, "", "1.0"},
}};

std::string withModule(std::string sValue, const std::string& sModule) {
  const std::size_t uAt = sValue.find(kModule);
  if (uAt != std::string::npos) {
    sValue.replace(uAt, std::string_view(kModule).size(), sModule);
  }
  return sValue;
}

JSystemRegistryKey openClasses() {
  JSystemRegistryKey classes;
  classes.create(qm_utils::RegistryRoot::kLocalMachine, qm_registration::kClassesKey);
  return classes;
}

bool isEmpty(const qm_utils::IRegistryReadAccess& key) {
  std::vector<std::string> keys;
  std::vector<qm_utils::RegistryValue> values;
  key.getSubKeys(keys);
  key.getValues(values);
  return keys.empty() && values.empty();
}

/// Takes an entry out of its key, and the key when that was all.
void removePlain(JSystemRegistryKey& classes, const Entry& entry) {
  JSystemRegistryKey key;
  if (!key.open(classes, entry.szKey, qm_utils::kRegistryAllAccess, true)) {
    return;
  }
  std::vector<qm_utils::RegistryValue> values;
  key.getValues(values);
  for (const qm_utils::RegistryValue& value : values) {
    if (value.sName == entry.szValueName) {
      key.deleteValue(value.sName);
    }
  }
  if (isEmpty(key)) {
    classes.deleteKey(entry.szKey);
  }
}

}  // namespace

namespace qm_registration {

void registerControl(const std::string& sModule) {
  JSystemRegistryKey classes = openClasses();
  for (const Entry& entry : kScript) {
    if (entry.eMark == Mark::kForceRemove) {
      classes.deleteKey(entry.szKey);
    }
    JSystemRegistryKey key;
    key.create(classes, entry.szKey);
    if (entry.szValue != nullptr) {
      key.setString(entry.szValueName, withModule(entry.szValue, sModule));
    }
  }
  classes.flush();
}

void unregisterControl() {
  JSystemRegistryKey classes = openClasses();
  for (const Entry& entry : std::views::reverse(kScript)) {
    switch (entry.eMark) {
      case Mark::kPlain:
        removePlain(classes, entry);
        break;
      case Mark::kForceRemove:
        classes.deleteKey(entry.szKey);
        break;
      case Mark::kNoRemove:
        break;
    }
  }
  classes.flush();
}

}  // namespace qm_registration
