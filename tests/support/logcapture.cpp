#include "tests/support/logcapture.h"

#include <algorithm>
#include <mutex>

namespace qm_test {

namespace {

std::mutex g_mutex;
std::vector<LoggedMessage> g_messages;

void keep(int level, const char* text, const char* file, int line, const char* tag) {
  const std::lock_guard lock(g_mutex);
  g_messages.push_back({level, text, file, line, tag != nullptr ? tag : ""});
}

}  // namespace

LogCapture::LogCapture() : m_previous(qm_err::getLogHook()) {
  const std::lock_guard lock(g_mutex);
  g_messages.clear();
  qm_err::setLogHook(keep);
}

LogCapture::~LogCapture() {
  qm_err::setLogHook(m_previous);
}

std::vector<LoggedMessage> LogCapture::messages() const {
  const std::lock_guard lock(g_mutex);
  return g_messages;
}

bool LogCapture::has(int level, const std::string& text) const {
  const std::lock_guard lock(g_mutex);
  return std::any_of(g_messages.begin(), g_messages.end(), [&](const LoggedMessage& message) {
    return message.level == level && message.text == text;
  });
}

}  // namespace qm_test
