#include <filesystem>
#include <gmock/gmock.h>
#include <sstream>
#include <thread>
#include <unistd.h>

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

/// Checks that all lines are whole and those of each thread in order; returns their number.
int countLines(const std::string& sText) {
  std::vector<int> next(kThreads, 0);
  int iLines = 0;
  std::istringstream text(sText);
  for (std::string sLine; std::getline(text, sLine); ++iLines) {
    int iThread = -1;
    int iRecord = -1;
    char szEnd[4] = {};
    const std::size_t uStart = sLine.find("thread ");
    if (sLine.find("LOG OVERFLOW") != std::string::npos) {
      continue;
    }
    EXPECT_NE(uStart, std::string::npos) << sLine;
    EXPECT_EQ(std::sscanf(sLine.c_str() + uStart, "thread %d record %d %3s", &iThread, &iRecord, szEnd), 3)
        << sLine;
    EXPECT_STREQ(szEnd, "end");
    EXPECT_GE(iRecord, next.at(static_cast<std::size_t>(iThread))) << sLine;
    next.at(static_cast<std::size_t>(iThread)) = iRecord + 1;
  }
  return iLines;
}

class LogLoad : public qm_test::LogTest {};

TEST_F(LogLoad, NothingIsLostWhereTheQueueHasRoom) {
  const std::string sPath = testing::TempDir() + "qm_log_load_" + std::to_string(getpid()) + ".log";
  std::filesystem::remove(sPath);
  JLog::addLogOutput(std::make_unique<JLogFileOutput>("file", sPath, 0, nullptr, false, kThreads * kRecords));
  logFromManyThreads();
  JLog::shutdown(-1);
  EXPECT_EQ(countLines(qm_test::contentsOf(sPath)), kThreads * kRecords);
  std::filesystem::remove(sPath);
}

TEST_F(LogLoad, LinesStayWholeWhileTheConfigurationChanges) {
  testing::internal::CaptureStderr();
  std::atomic<bool> bDone{false};
  std::thread changer([&] {
    while (!bDone) {
      JLog::configure(JLog::kStandardError | JLog::kConsole);
      JLog::setDefaultInstance("changed");
      JLog::configure(JLog::kStandardError);
      JLog::stopOutputs(0, true);
    }
  });
  logFromManyThreads();
  bDone = true;
  changer.join();
  JLog::shutdown(-1);
  JLog::setDefaultInstance("System");
  const std::string sText = testing::internal::GetCapturedStderr();
  for (std::istringstream text(sText); text;) {
    std::string sLine;
    if (std::getline(text, sLine) && sLine.find("LOG OVERFLOW") == std::string::npos) {
      EXPECT_THAT(sLine, testing::MatchesRegex("INFO \\[.*\\] 0x.*: thread . record .* end"));
    }
  }
}

TEST_F(LogLoad, ReloadOrdersAndShutdownsFromSeveralThreadsGetAlong) {
  struct ReloadingInput : JLogThreadedInput {
    ReloadingInput() : JLogThreadedInput("reloading", "reloading") {}
    ~ReloadingInput() override { stop(0, true); }
    int readRecord(JLog::Msg& record) override {
      record = qm_test::makeRecord(kReloadOrder, 0);
      return 1;
    }
  };
  testing::internal::CaptureStderr();
  JLog::configure(JLog::kStandardError);
  std::vector<std::thread> threads;
  for (int iThread = 0; iThread < 2; ++iThread) {
    threads.emplace_back([] {
      for (int i = 0; i < 20; ++i) {
        auto pInput = std::make_unique<ReloadingInput>();
        pInput->start();
        JLog::addLogInput(std::move(pInput));
        JLog::log(qm_err::kLogInfo, "x");
        JLog::shutdown(1000);
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  JLog::shutdown(0);
  testing::internal::GetCapturedStderr();
}

}  // namespace
