#include "coreapi/platform/interrupts.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <ctime>
#include <semaphore.h>

namespace qm_platform {

namespace {

constexpr int kSignals[] = {SIGINT, SIGTERM};

std::atomic<int> g_caught{0};
static_assert(std::atomic<int>::is_always_lock_free);  // a handler may use nothing else

sem_t g_wakeUps;
struct sigaction g_previous[sizeof kSignals / sizeof kSignals[0]];

void onSignal(int number) {
  const int error = errno;
  g_caught = number;
  ::sem_post(&g_wakeUps);
  errno = error;
}

}  // namespace

InterruptCatcher::InterruptCatcher(Ignored ignored) noexcept {
  g_caught = 0;
  ::sem_init(&g_wakeUps, 0, 0);
  struct sigaction action = {};
  action.sa_handler = onSignal;
  action.sa_flags = SA_RESTART | static_cast<int>(SA_RESETHAND);
  ::sigemptyset(&action.sa_mask);
  struct sigaction* pPrevious = g_previous;
  for (const int number : kSignals) {
    ::sigaction(number, nullptr, pPrevious);
    if (ignored == Ignored::kCaught || pPrevious->sa_handler != SIG_IGN) {
      ::sigaction(number, &action, nullptr);
    }
    ++pPrevious;
  }
}

InterruptCatcher::~InterruptCatcher() {
  const struct sigaction* pPrevious = g_previous;
  for (const int number : kSignals) {
    ::sigaction(number, pPrevious++, nullptr);
  }
  // The semaphore stays: a handler on another thread may still be at it.
}

void InterruptCatcher::await(int iMilliseconds) noexcept {
  timespec due{};
  ::clock_gettime(CLOCK_MONOTONIC, &due);
  due.tv_sec += iMilliseconds / 1000;
  due.tv_nsec += iMilliseconds % 1000 * 1'000'000L;
  if (due.tv_nsec >= 1'000'000'000L) {
    ++due.tv_sec;
    due.tv_nsec -= 1'000'000'000L;
  }
  // A signal that interrupts the wait has its effect already.
  if (::sem_clockwait(&g_wakeUps, CLOCK_MONOTONIC, &due) == 0) {
    while (::sem_trywait(&g_wakeUps) == 0) {
    }
  }
}

void InterruptCatcher::wake() noexcept {
  ::sem_post(&g_wakeUps);
}

int InterruptCatcher::getCaught() const noexcept {
  return g_caught;
}

}  // namespace qm_platform
