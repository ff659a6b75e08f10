#pragma once

/// The way from code below the log to the log. Errors, threads and time tell what happened through this hook;
/// the log installs itself behind it when the program starts. Nothing here includes the log.
namespace qm_err {

/// Levels of log records. Never renumber: masks, configuration and stored records hold these numbers.
enum LogLevel : int {
  kLogNone = 0,
  kLogFullDebug = 1,
  kLogActiveX = 2,
  kLogDebug = 3,
  kLogTrace = 4,
  kLogTraceAction = 5,
  kLogTraceRunning = 6,
  kLogTraceStepByStep = 7,
  kLogInfo = 8,
  kLogWarning = 9,
  kLogException = 10,
  kLogError = 11,
  kLogCritical = 12,
  kLogTraceDebug = 13,
  kLogTraceException = 14,
  kLogTraceInfo = 15,
  kLogTraceComPort = 16,
  kLogTraceFile = 17,
  kLogTraceNetwork = 18,
  kLogTraceStats = 19,
  kLogTraceRegistry = 20,
  kLogTraceRpc = 21,
  kLogTraceDriver = 22,
};

/// Receives one message: level, text, source file (may be empty) and line of the site, and a tag that stands
/// in the record's class field (null when there is none). Must not throw, and must not block for long.
using LogHook = void (*)(int level, const char* text, const char* file, int line, const char* tag);

/// Installs the receiver of all messages; null drops them. Any thread.
void setLogHook(LogHook hook) noexcept;

/// The receiver now in force, or null. Any thread.
LogHook getLogHook() noexcept;

/// Logs a finished text. Never throws. Any thread.
void logText(int level, const char* text, const char* file = "", int line = 0,
             const char* tag = nullptr) noexcept;

/// Logs a printf-style text of at most 2047 characters. Never throws. Any thread.
[[gnu::format(printf, 2, 3)]] void log(int level, const char* format, ...) noexcept;

}  // namespace qm_err
