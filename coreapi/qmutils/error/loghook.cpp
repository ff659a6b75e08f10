#include "coreapi/qmutils/error/loghook.h"

#include <atomic>
#include <cstdarg>

#include "coreapi/platform/clocale.h"

namespace qm_err {

namespace {

constinit std::atomic<LogHook> g_hook{nullptr};

}  // namespace

void setLogHook(LogHook hook) noexcept {
  g_hook.store(hook, std::memory_order_release);
}

LogHook getLogHook() noexcept {
  return g_hook.load(std::memory_order_acquire);
}

void logText(int level, const char* text, const char* file, int line, const char* tag) noexcept {
  if (const LogHook hook = g_hook.load(std::memory_order_acquire)) {
    hook(level, text, file, line, tag);
  }
}

void log(int level, const char* format, ...) noexcept {
  if (g_hook.load(std::memory_order_acquire) == nullptr) {
    return;
  }
  char text[2048];
  va_list arguments;
  va_start(arguments, format);
  const int length = qm_platform::printC(text, sizeof text, format, arguments);
  va_end(arguments);
  logText(level, length < 0 ? format : text);
}

}  // namespace qm_err
