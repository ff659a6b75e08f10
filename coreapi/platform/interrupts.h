#pragma once

namespace qm_platform {

/// Catches the signals by which somebody wants this process to end, so that it can end its work in order:
/// SIGINT and SIGTERM. The second signal of a kind has its
/// usual effect again, so that nobody is held by work that doesn't end.
///
/// For programs: the library itself leaves all signals alone. One object at a time in a process; what it
/// found is put back at its end. Any thread may call its operations.
class InterruptCatcher {
 public:
  /// What becomes of signals that the process was started to ignore.
  enum class Ignored {
    kStay,    ///< they stay ignored: a tool goes on when it was told so
    kCaught,  ///< they are caught too: a service that a script starts in the background must end
  };

  explicit InterruptCatcher(Ignored ignored = Ignored::kStay) noexcept;
  ~InterruptCatcher();
  InterruptCatcher(const InterruptCatcher&) = delete;
  InterruptCatcher& operator=(const InterruptCatcher&) = delete;

  /// Waits for a signal or a `wake`, so many milliseconds at most. One that has come since the last wait
  /// counts.
  void await(int iMilliseconds) noexcept;

  /// Ends a wait.
  void wake() noexcept;

  /// The number of the last signal that was caught; 0 for none.
  int getCaught() const noexcept;
};

}  // namespace qm_platform
