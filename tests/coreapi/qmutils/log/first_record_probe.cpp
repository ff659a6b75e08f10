#include <cstdio>
#include <thread>
#include <unistd.h>
#include <vector>

#include "coreapi/qmutils/log/JLog.h"

// Logs from several threads as the first thing that the process does. One of them configures the log; the
// records of the others must wait for that and not get lost. Ends with 0 when the console has all lines.

int main() {
  constexpr int kThreads = 8;
  constexpr int kRecords = 10;
  std::FILE* pConsole = std::tmpfile();
  if (pConsole == nullptr || dup2(fileno(pConsole), STDERR_FILENO) < 0) {
    return 2;
  }
  std::vector<std::thread> threads;
  for (int iThread = 0; iThread < kThreads; ++iThread) {
    threads.emplace_back([] {
      for (int i = 0; i < kRecords; ++i) {
        JLog::log(qm_err::kLogInfo, "record %d", i);
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  JLog::shutdown(-1);
  int iLines = 0;
  std::rewind(pConsole);
  for (int c = 0; (c = std::fgetc(pConsole)) != EOF;) {
    iLines += c == '\n' ? 1 : 0;
  }
  std::printf("%d lines of %d\n", iLines, kThreads * kRecords);
  return iLines == kThreads * kRecords ? 0 : 1;
}
