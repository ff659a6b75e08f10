#pragma once

#include <csignal>

namespace qm_platform {

/// Turns SIGPIPE into the error EPIPE for the calling thread, for its lifetime: a write to a pipe or a socket
/// that nobody reads fails then instead of ending the process. No other thread and no process-wide setting is
/// touched. Guards may be nested; one object is for one thread.
class BrokenPipeGuard {
 public:
  BrokenPipeGuard() noexcept;
  ~BrokenPipeGuard();
  BrokenPipeGuard(const BrokenPipeGuard&) = delete;
  BrokenPipeGuard& operator=(const BrokenPipeGuard&) = delete;

 private:
  sigset_t m_previous;  ///< the thread's signal mask before
  bool m_active;        ///< whether this guard is what blocks the signal
};

}  // namespace qm_platform
