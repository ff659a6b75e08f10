#include <algorithm>
#include <gmock/gmock.h>
#include <map>
#include <sstream>
#include <thread>

#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/log/JLogThreadedInput.h"
#include "coreapi/qmutils/registry/jsystemregistry.h"
#include "tests/coreapi/qmutils/log/log_test_support.h"

namespace {

using qm_test::makeRecord;
using qm_test::messagesOf;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kKeyPath = "SOFTWARE\\LogConfigureTest";

using Values = std::map<std::string, std::string>;

class LogConfigure : public qm_test::LogTest {
 protected:
  ~LogConfigure() override {
    JLog::shutdown(0);
    JSystemRegistryKey parent;
    if (parent.open(qm_utils::RegistryRoot::kLocalMachine, "SOFTWARE", qm_utils::kRegistryAllAccess, true)) {
      parent.deleteKey("LogConfigureTest");
    }
    JLog::init(0);  // back to the default key
  }

  static void addSubKey(const std::string& sName, const Values& values) {
    JSystemRegistryKey key;
    key.create(qm_utils::RegistryRoot::kLocalMachine, std::string(kKeyPath) + "\\" + sName);
    for (const auto& [sValue, sText] : values) {
      key.setString(sValue, sText);
    }
  }

  /// What outputs write to the console from `work` on until they are shut down.
  template <typename Work>
  static std::vector<std::string> consoleLines(Work work) {
    testing::internal::CaptureStderr();
    work();
    JLog::shutdown(-1);
    std::istringstream text(testing::internal::GetCapturedStderr());
    std::vector<std::string> lines;
    for (std::string sLine; std::getline(text, sLine);) {
      lines.push_back(sLine);
    }
    return lines;
  }
};

struct FlagCase {
  const char* name;
  std::vector<std::uint32_t> flags;  ///< of `init`, then of each `configure`
  std::map<std::string, Values> subKeys;
  std::vector<const char*> lines;  ///< starts of the lines, sorted
};

const Values kConsoleKey{{"LogType", "console"}, {"Format", "key:%m"}};

class LogFlags : public LogConfigure, public testing::WithParamInterface<FlagCase> {};

TEST_P(LogFlags, MakeTheOutputs) {
  for (const auto& [sName, values] : GetParam().subKeys) {
    addSubKey(sName, values);
  }
  std::vector<std::string> lines = consoleLines([] {
    const std::vector<std::uint32_t>& flags = GetParam().flags;
    JLog::init(flags.front(), kKeyPath);
    std::for_each(flags.begin() + 1, flags.end(), JLog::configure);
    JLog::log(qm_err::kLogInfo, "x");
  });
  std::sort(lines.begin(), lines.end());
  ASSERT_EQ(lines.size(), GetParam().lines.size());
  for (std::size_t i = 0; i < lines.size(); ++i) {
    EXPECT_THAT(lines[i], testing::StartsWith(GetParam().lines[i]));
  }
}

INSTANTIATE_TEST_SUITE_P(
    Log, LogFlags,
    testing::Values(
        FlagCase{"NoOutput", {0}, {}, {}}, FlagCase{"ConsoleIfNoOther", {0x0A}, {}, {"INFO"}},
        FlagCase{"RegistryAlone", {0x08}, {}, {}},
        FlagCase{"ConsoleOfTheRegistryIsEnough", {0x0A}, {{"a", kConsoleKey}}, {"key:x"}},
        FlagCase{"ConsoleOfTheRegistryIsTheConsole", {0x0E}, {{"a", kConsoleKey}}, {"key:x"}},
        FlagCase{"RegistryNotAskedFor", {0x02}, {{"a", kConsoleKey}}, {"INFO"}},
        FlagCase{"OldNameOfTheType", {0x0A}, {{"a", {{"Type", "CONSOLE"}, {"Format", "old:%m"}}}}, {"old:x"}},
        FlagCase{
            "TypeBeforeItsOldName", {0x0A}, {{"a", {{"LogType", "none"}, {"Type", "console"}}}}, {"INFO"}},
        FlagCase{"TypesWithoutAnOutput",
                 {0x08},
                 {{"a", {{"LogType", "telnet"}}}, {"b", {{"LogType", "other"}}}, {"c", {}}},
                 {}},
        FlagCase{"SeveralSubKeys",
                 {0x08},
                 {{"a", kConsoleKey}, {"b", {{"LogType", "Console"}, {"Format", "second:%m"}}}},
                 {"key:x", "second:x"}},
        FlagCase{"StandardError", {0x40}, {}, {"INFO"}},
        FlagCase{"StandardErrorIsAnOutput", {0x42}, {}, {"INFO"}},
        FlagCase{"StandardErrorIsNoConsole", {0x44}, {}, {"INFO", "INFO"}},
        FlagCase{"NoChangeKeepsTheFlags", {0x40, 0x01}, {}, {"INFO"}},
        FlagCase{"ChangeReplacesTheOutputs", {0x44, 0x04, 0x01}, {}, {"INFO"}},
        FlagCase{"ChangeToNothing", {0x44, 0}, {}, {}}),
    [](const auto& row) { return std::string(row.param.name); });

TEST_F(LogConfigure, TellsWhichOutputCouldNotBeMade) {
  addSubKey("broken", {{"LogType", "console"}, {"WarnLevel", "a text"}});
  addSubKey("whole", kConsoleKey);
  const auto lines = consoleLines([] { JLog::init(0x0A, kKeyPath); });
  ASSERT_THAT(lines, testing::SizeIs(1));
  EXPECT_THAT(lines.front(), testing::StartsWith("key:Log output 'broken' not created: "));
}

TEST_F(LogConfigure, LogDirectoriesAreThoseOfTheFileOutputs) {
  addSubKey("a", {{"LogType", "File"}, {"LogDirectory", "/logs/a"}});
  addSubKey("b", {{"Type", "FILE"}, {"LogDirectory", "/logs/b"}});
  addSubKey("c", {{"LogType", "file"}, {"LogDirectory", "/logs/c"}});
  addSubKey("d", {{"LogType", "File"}});
  addSubKey("e", {{"LogType", "console"}, {"LogDirectory", "/logs/e"}});
  JLog::init(0, kKeyPath);
  EXPECT_THAT(JLog::getLogDirectories(), ElementsAre("/logs/a", "/logs/b"));
  JLog::init(0, "SOFTWARE\\NoSuchKey");
  EXPECT_THAT(JLog::getLogDirectories(), IsEmpty());
}

TEST_F(LogConfigure, OnlyASlaveOrdersTheMasterToReload) {
  const auto pRecords = std::make_shared<qm_test::RecordingOutput::Records>();
  JLog::addLogOutput(std::make_unique<qm_test::RecordingOutput>(pRecords));
  JLog::reload();
  EXPECT_THAT(*pRecords, IsEmpty());
  JLog::configure(JLog::kSlave);
  JLog::addLogOutput(std::make_unique<qm_test::RecordingOutput>(pRecords));
  JLog::reload();
  ASSERT_THAT(messagesOf(*pRecords), ElementsAre("RELOAD_CONFIG"));
  EXPECT_EQ(pRecords->front().uLevel, 0U);
}

// ---------------------------------------------------------------------------------------------------------

/// An input that gives the results of a script, and 0 behind its end.
class ScriptedInput : public JLogThreadedInput {
 public:
  struct Step {
    int iResult;
    JLog::Msg record;
  };

  explicit ScriptedInput(std::vector<Step> steps)
      : JLogThreadedInput("input", "input thread"), m_steps(std::move(steps)) {}
  ~ScriptedInput() override { stop(0, true); }

  int readRecord(JLog::Msg& record) override {
    if (m_uNext == m_steps.size()) {
      reads.add(m_uNext);
      std::this_thread::yield();
      return 0;
    }
    const Step& step = m_steps[m_uNext++];
    record = step.record;
    if (step.iResult == -2) {
      QM_THROW(JTextError, "read failed");
    }
    return step.iResult;
  }

  void onThreadStop() override { bStopped = true; }

  /// Blocks until the script is through.
  void awaitEnd() { reads.await(1); }

  qm_test::Journal<std::size_t> reads;
  std::atomic<bool> bStopped{false};

 private:
  const std::vector<Step> m_steps;
  std::size_t m_uNext = 0;
};

TEST_F(LogConfigure, InputForwardsRecordsAndTriesAgainAfterFailures) {
  const auto pRecords = std::make_shared<qm_test::RecordingOutput::Records>();
  JLog::addLogOutput(std::make_unique<qm_test::RecordingOutput>(pRecords));
  auto pInput = std::make_unique<ScriptedInput>(
      std::vector<ScriptedInput::Step>{{1, makeRecord("one")},
                                       {0, makeRecord("not there yet")},
                                       {-1, makeRecord("failed")},
                                       {-2, makeRecord("thrown")},
                                       {5, makeRecord("RELOAD_CONFIG")},      // the level isn't 0
                                       {5, makeRecord("RELOAD_CONFIG ", 0)},  // not the order, exactly
                                       {1, makeRecord("two")}});
  pInput->setRetryDelay(1);
  ScriptedInput& input = *pInput;
  EXPECT_TRUE(input.stop(0, true));
  input.start();
  input.start();
  EXPECT_EQ(input.JThread::getName(), "input thread");
  JLog::addLogInput(std::move(pInput));
  input.awaitEnd();
  EXPECT_TRUE(input.stop(0, true));
  EXPECT_TRUE(input.bStopped);
  EXPECT_THAT(messagesOf(*pRecords),
              ElementsAre("one", "read failed", "RELOAD_CONFIG", "RELOAD_CONFIG ", "two"));
  JLog::deleteInputs();
}

TEST_F(LogConfigure, FailedInputIsStoppedWithoutItsDelay) {
  ScriptedInput input(std::vector<ScriptedInput::Step>{{-1, {}}});
  input.setRetryDelay(1'000'000'000);
  input.start();
  EXPECT_TRUE(input.stop(0, true));
  EXPECT_TRUE(input.bStopped);
}

TEST_F(LogConfigure, ReloadOrderOfAnInputReadsTheConfigurationAgain) {
  const auto lines = consoleLines([] {
    JLog::init(0x0A, kKeyPath);
    addSubKey("a", kConsoleKey);
    auto pInput = std::make_unique<ScriptedInput>(
        std::vector<ScriptedInput::Step>{{1, makeRecord("RELOAD_CONFIG", 0)}});
    ScriptedInput& input = *pInput;
    input.start();
    JLog::addLogInput(std::move(pInput));
    input.awaitEnd();
  });
  EXPECT_THAT(lines, ElementsAre("key:---- LOG CONFIGURATION RELOADED ----"));
}

}  // namespace
