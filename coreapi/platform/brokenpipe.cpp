#include "coreapi/platform/brokenpipe.h"

#include <cerrno>
#include <ctime>

namespace qm_platform {

namespace {

sigset_t brokenPipeSet() noexcept {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGPIPE);
  return set;
}

}  // namespace

BrokenPipeGuard::BrokenPipeGuard() noexcept {
  const sigset_t wanted = brokenPipeSet();
  m_active = pthread_sigmask(SIG_BLOCK, &wanted, &m_previous) == 0 && sigismember(&m_previous, SIGPIPE) == 0;
}

BrokenPipeGuard::~BrokenPipeGuard() {
  if (!m_active) {
    return;
  }
  // The signal was deliverable before, so one that is pending now was raised under this guard.
  const sigset_t wanted = brokenPipeSet();
  const timespec noWait{};
  int signal = 0;
  do {
    signal = sigtimedwait(&wanted, nullptr, &noWait);
  } while (signal == SIGPIPE || (signal < 0 && errno == EINTR));
  pthread_sigmask(SIG_SETMASK, &m_previous, nullptr);
}

}  // namespace qm_platform
