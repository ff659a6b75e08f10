#pragma once

#include <cstdint>
#include <string_view>

/// Places where tests make the system fail. Every call of the platform layer that can fail asks `takeFault`
/// first; a build without QM_FAULT_SEAMS answers "no fault" at compile time and carries nothing of this.
namespace qm_platform {

/// What kind of resource a call belongs to. Values are bits, so that a plan can name several.
enum class Seam : std::uint32_t {
  kFile = 1U << 0,
  kSocket = 1U << 1,
  kProcess = 1U << 2,
  kClock = 1U << 3,
  kAllocation = 1U << 4,
  kThread = 1U << 5,
};

/// What a call that was picked shall do instead of its work.
enum class FaultKind {
  kNone,
  kError,      ///< fail with `error`
  kShort,      ///< read or write at most one byte, and report that
  kInterrupt,  ///< fail with EINTR
  kStop,       ///< end the process at this call, at once (`_exit`)
};

/// A plan: the `nth` call (from 1) at any seam of `seams` fails as `kind` says, and with `onwards` every
/// later one too.
struct FaultPlan {
  std::uint32_t seams = 0;
  std::uint64_t nth = 0;
  FaultKind kind = FaultKind::kError;
  int error = 0;
  bool onwards = false;
};

/// What a call has to do: `kNone` means go ahead.
struct Fault {
  FaultKind kind = FaultKind::kNone;
  int error = 0;
};

#ifdef QM_FAULT_SEAMS

/// Counts this call and says whether it is the one to fail. `kStop` doesn't return. Any thread.
Fault takeFault(Seam seam) noexcept;

/// Puts a plan in force for the whole process and counts calls from 0 again. An empty plan only counts.
void armFaults(const FaultPlan& plan) noexcept;

/// Ends the plan. Returns whether it had made a call fail.
bool disarmFaults() noexcept;

/// Calls that the plan's seams have seen since it was armed.
std::uint64_t countedCalls() noexcept;

#else

constexpr Fault takeFault(Seam /*seam*/) noexcept {
  return {};
}

#endif

}  // namespace qm_platform
