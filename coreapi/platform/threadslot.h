#pragma once

#include <cstdint>

/// Slots that hold a pointer for each thread. They are the library's own and take nothing from the few that
/// the system has for the whole process.
namespace qm_platform {

/// One slot, by its place and the number of its use: a place that is used again starts at null in every
/// thread.
struct ThreadSlot {
  std::uint32_t uIndex = 0;
  std::uint64_t ullUse = 0;  ///< 0: no slot
};

/// How many there are at once. Each thread has 16 bytes for each slot up to the highest that it has set.
inline constexpr std::uint32_t kMaxThreadSlots = 4096;

/// Takes a slot. Returns 0, EAGAIN when none is left, or ENOMEM; `slot` is untouched then. Any thread.
int takeThreadSlot(ThreadSlot& slot) noexcept;

/// Gives it back; the values in it aren't touched. Any thread.
void freeThreadSlot(const ThreadSlot& slot) noexcept;

/// The calling thread's value, null until set. Returns 0, or EINVAL when there is no slot.
int getThreadSlot(const ThreadSlot& slot, void*& pValue) noexcept;

/// Stores the calling thread's value. Returns 0, EINVAL, or ENOMEM.
int setThreadSlot(const ThreadSlot& slot, void* pValue) noexcept;

}  // namespace qm_platform
