#include <atomic>
#include <gmock/gmock.h>
#include <sstream>
#include <thread>

#include "coreapi/qmutils/log/JLogFileOutput.h"
#include "coreapi/qmutils/log/JLogThreadedInput.h"
#include "tests/coreapi/qmutils/log/log_test_support.h"

namespace {

constexpr int kThreads = 4;
constexpr int kRecords = 2000;

void logFromManyThreads() {
  std::vector<std::thread> threads;
  for (int iThread = 0; iThread < kThreads; ++iThread) {
    threads.emplace_back([iThread] {
      for (int i = 0; i < kRecords; ++i) {
        JLog::log(qm_err::kLogInfo, "thread %d record %d end", iThread, i);
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
}

class LogLoad : public qm_test::LogTest {};

TEST_F(LogLoad, NothingIsLostWhereTheQueueHasRoom) {
  const qm_test::TempDir directory;
  const std::string sPath = directory.path("log");
  JLog::addLogOutput(std::make_unique<JLogFileOutput>("file", sPath, 0, "%m", false, kThreads * kRecords));
  logFromManyThreads();
  JLog::shutdown(-1);
  std::vector<int> next(kThreads, 0);
  std::istringstream text(qm_test::readFile(sPath));
  for (std::string sLine; std::getline(text, sLine);) {
    const auto uThread = static_cast<std::size_t>(sLine.at(7) - '0');
    EXPECT_EQ(sLine,
              "thread " + std::to_string(uThread) + " record " + std::to_string(next.at(uThread)++) + " end");
  }
  EXPECT_THAT(next, testing::Each(kRecords));
}

/// Orders the configuration to be read again, over and over.
class ReloadingInput : public JLogThreadedInput {
 public:
  ReloadingInput() : JLogThreadedInput("reloading", "reloading") { start(); }
  ~ReloadingInput() override { stop(0, true); }
  int readRecord(JLog::Msg& record) override {
    record = qm_test::makeRecord(kReloadOrder, 0);
    return 1;
  }
};

TEST_F(LogLoad, LinesStayWholeWhileEverythingChanges) {
  testing::internal::CaptureStderr();
  std::atomic<bool> bDone{false};
  std::vector<std::thread> changers;
  for (const bool bShutdown : {false, true}) {
    changers.emplace_back([&bDone, bShutdown] {
      while (!bDone) {
        JLog::configure(JLog::kStandardError | JLog::kConsole);
        JLog::addLogInput(std::make_unique<ReloadingInput>());
        JLog::stopOutputs(bShutdown ? 1000 : 0, true);
        bShutdown ? JLog::shutdown(1000) : JLog::deleteInputs();
        JLog::setDefaultInstance("System");
      }
    });
  }
  logFromManyThreads();
  bDone = true;
  for (std::thread& changer : changers) {
    changer.join();
  }
  JLog::shutdown(-1);
  std::istringstream text(testing::internal::GetCapturedStderr());
  for (std::string sLine; std::getline(text, sLine);) {
    EXPECT_THAT(sLine, testing::MatchesRegex("(INFO|WARNING) \\[.*\\] 0x[0-9a-f]+: "
                                             "(thread . record .* end|---- LOG CONFIGURATION RELOADED ----|"
                                             "### .*LOG OVERFLOW, LOST [0-9]+ MESSAGES ###)"));
  }
}

}  // namespace
