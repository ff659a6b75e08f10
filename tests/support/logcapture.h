#pragma once

#include <string>
#include <vector>

#include "coreapi/qmutils/error/loghook.h"

namespace qm_test {

/// One message that reached the log hook.
struct LoggedMessage {
  int level;
  std::string text;
  std::string file;
  int line;
  std::string tag;
};

/// Takes the place of the log behind `qm_err::log` for its lifetime, and keeps what comes. One at a time; any
/// thread may log meanwhile. On its end the previous receiver is put back.
class LogCapture {
 public:
  LogCapture();
  ~LogCapture();
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  std::vector<LoggedMessage> messages() const;

  /// Whether a message of this level with exactly this text has come.
  bool has(int level, const std::string& text) const;

 private:
  qm_err::LogHook m_previous;
};

}  // namespace qm_test
