#pragma once

#include <stdexcept>
#include <string>

namespace qmctl {

/// How the tool ends. Scripts rely on these numbers; never renumber.
enum ExitStatus : int {
  kDone = 0,
  kFailed = 1,         ///< the operation failed
  kWrongUsage = 2,     ///< nothing was tried
  kNoConnection = 3,   ///< the Manager wasn't reached
  kInterrupted = 130,  ///< SIGINT has ended a copy, an export or an import
  kTerminated = 143,   ///< SIGTERM has ended a copy or an import
};

/// Ends a command. The text goes to standard error, line by line.
class Failure : public std::runtime_error {
 public:
  Failure(ExitStatus eStatus, const std::string& sText) : std::runtime_error(sText), m_eStatus(eStatus) {}

  ExitStatus getStatus() const noexcept { return m_eStatus; }

 private:
  ExitStatus m_eStatus;
};

/// Ends a command that a signal has ended in order; the text says what is left.
[[noreturn]] inline void failInterrupted(int iSignal, const std::string& sText) {
  constexpr int kFirst = 128;  // as shells tell it
  throw Failure(static_cast<ExitStatus>(kFirst + iSignal), "interrupted; " + sText);
}

}  // namespace qmctl
