#include "coreapi/platform/faultseam.h"

#ifdef QM_FAULT_SEAMS

#include <atomic>
#include <cerrno>
#include <mutex>
#include <unistd.h>

namespace qm_platform {

namespace {

/// Exit status of a process that a plan stopped, so that a test can tell it from a crash.
constexpr int kStoppedByPlan = 86;

std::mutex g_mutex;
FaultPlan g_plan;
std::uint64_t g_calls = 0;
bool g_fired = false;
std::atomic<std::uint32_t> g_seams{0};  // the plan's seams; lets calls outside any plan pass without the lock

}  // namespace

Fault takeFault(Seam seam) noexcept {
  if ((g_seams.load(std::memory_order_acquire) & static_cast<std::uint32_t>(seam)) == 0) {
    return {};
  }
  const std::lock_guard lock(g_mutex);
  ++g_calls;
  if (g_plan.nth == 0 || g_calls < g_plan.nth || (g_calls > g_plan.nth && !g_plan.onwards)) {
    return {};
  }
  g_fired = true;
  if (g_plan.kind == FaultKind::kStop) {
    _exit(kStoppedByPlan);
  }
  return {g_plan.kind, g_plan.kind == FaultKind::kInterrupt ? EINTR : g_plan.error};
}

void armFaults(const FaultPlan& plan) noexcept {
  const std::lock_guard lock(g_mutex);
  g_plan = plan;
  g_calls = 0;
  g_fired = false;
  g_seams.store(plan.seams, std::memory_order_release);
}

bool disarmFaults() noexcept {
  const std::lock_guard lock(g_mutex);
  g_seams.store(0, std::memory_order_release);
  g_plan = {};
  return g_fired;
}

std::uint64_t countedCalls() noexcept {
  const std::lock_guard lock(g_mutex);
  return g_calls;
}

}  // namespace qm_platform

#endif
