#include "qmactivexctrl/qmstorageaccesscontroller/controlids.h"

#include <map>

#include "coreapi/qmutils/thread/jmutex.h"

namespace {

struct Table {
  JMutex mutex;
  std::map<std::int32_t, JQMStorageAccessCtrl*> controls;
  std::int32_t iLast = 0;
};

/// Never destroyed: controls may end after the program's statics.
Table& table() {
  static Table* const pTable = new Table;
  return *pTable;
}

}  // namespace

namespace qm_control {

std::int32_t enterControl(JQMStorageAccessCtrl& control) {
  Table& ids = table();
  const JAutoLock lock(ids.mutex);
  do {
    ids.iLast = ids.iLast == INT32_MAX ? 1 : ids.iLast + 1;
  } while (!ids.controls.emplace(ids.iLast, &control).second);
  return ids.iLast;
}

JQMStorageAccessCtrl* takeControl(std::int32_t iId) noexcept {
  Table& ids = table();
  const JAutoLock lock(ids.mutex);
  const auto it = ids.controls.find(iId);
  if (it == ids.controls.end()) {
    return nullptr;
  }
  JQMStorageAccessCtrl* const pControl = it->second;
  ids.controls.erase(it);
  return pControl;
}

void forgetControl(const JQMStorageAccessCtrl& control) noexcept {
  Table& ids = table();
  const JAutoLock lock(ids.mutex);
  std::erase_if(ids.controls, [&](const auto& entry) { return entry.second == &control; });
}

}  // namespace qm_control
