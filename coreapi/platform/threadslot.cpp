#include "coreapi/platform/threadslot.h"

#include <cerrno>
#include <mutex>
#include <new>
#include <set>
#include <vector>

#include "coreapi/platform/faultseam.h"

namespace qm_platform {

namespace {

/// Who has which slot. Never destroyed: slots are freed until the very end of the process.
struct Registry {
  std::mutex mutex;
  std::set<std::uint32_t> freed;
  std::uint32_t uNext = 0;   ///< the first place that was never used
  std::uint64_t ullUse = 0;  ///< uses so far
};

Registry& registry() {
  static Registry& instance = *new Registry;
  return instance;
}

/// A thread's value, valid when its use is that of the slot.
struct Value {
  std::uint64_t ullUse = 0;
  void* pValue = nullptr;
};

using Table = std::vector<Value>;

/// The calling thread's values. A bare pointer can be looked at even when the thread's other objects are
/// destroyed already, as they are on the main thread while the program's static objects go.
thread_local Table* t_pTable = nullptr;

struct TableOwner {
  TableOwner() noexcept = default;
  ~TableOwner() {
    delete t_pTable;
    t_pTable = nullptr;
  }
  void touch() noexcept {}
};
thread_local TableOwner t_owner;

}  // namespace

int takeThreadSlot(ThreadSlot& slot) noexcept {
  if (const int iFault = takeFault(Seam::kThread).error; iFault != 0) {
    return iFault;
  }
  try {
    Registry& all = registry();
    const std::lock_guard lock(all.mutex);
    if (!all.freed.empty()) {
      slot.uIndex = all.freed.extract(all.freed.begin()).value();
    } else if (all.uNext < kMaxThreadSlots) {
      slot.uIndex = all.uNext++;
    } else {
      return EAGAIN;
    }
    slot.ullUse = ++all.ullUse;
    return 0;
  } catch (const std::bad_alloc&) {
    return ENOMEM;
  }
}

void freeThreadSlot(const ThreadSlot& slot) noexcept {
  if (slot.ullUse == 0) {
    return;
  }
  Registry& all = registry();
  const std::lock_guard lock(all.mutex);
  try {
    all.freed.insert(slot.uIndex);
  } catch (const std::bad_alloc&) {
    // The place stays unused; nothing else depends on it.
  }
}

int getThreadSlot(const ThreadSlot& slot, void*& pValue) noexcept {
  if (slot.ullUse == 0) {
    return EINVAL;
  }
  const Table* pTable = t_pTable;
  const bool bSet =
      pTable != nullptr && slot.uIndex < pTable->size() && (*pTable)[slot.uIndex].ullUse == slot.ullUse;
  pValue = bSet ? (*pTable)[slot.uIndex].pValue : nullptr;
  return 0;
}

int setThreadSlot(const ThreadSlot& slot, void* pValue) noexcept {
  if (slot.ullUse == 0) {
    return EINVAL;
  }
  try {
    if (t_pTable == nullptr) {
      t_owner.touch();  // from now on the thread's end frees the table
      t_pTable = new Table;
    }
    if (t_pTable->size() <= slot.uIndex) {
      t_pTable->resize(slot.uIndex + std::size_t{1});
    }
    (*t_pTable)[slot.uIndex] = {slot.ullUse, pValue};
    return 0;
  } catch (const std::bad_alloc&) {
    return ENOMEM;
  }
}

}  // namespace qm_platform
