#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <gmock/gmock.h>
#include <map>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "coreapi/platform/faultseam.h"
#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/log/JLogDebugOutput.h"
#include "coreapi/qmutils/log/JLogFileOutput.h"
#include "coreapi/qmutils/registry/jsystemregistry.h"
#include "tests/coreapi/qmutils/log/log_test_support.h"

namespace {

using qm_platform::FaultKind;
using qm_test::contentsOf;
using qm_test::makeRecord;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kKeyPath = "SOFTWARE\\LogOutputTest";

/// A key of the configuration with these values, for as long as this lives.
class TestKey {
 public:
  TestKey(const std::map<std::string, std::string>& texts, const std::map<std::string, unsigned>& numbers) {
    m_key.create(qm_utils::RegistryRoot::kLocalMachine, kKeyPath);
    for (const auto& [sName, sText] : texts) {
      m_key.setString(sName, sText);
    }
    for (const auto& [sName, uNumber] : numbers) {
      m_key.setDword(sName, uNumber);
    }
  }
  ~TestKey() {
    JSystemRegistryKey parent;
    parent.open(qm_utils::RegistryRoot::kLocalMachine, "SOFTWARE", qm_utils::kRegistryAllAccess);
    parent.deleteKey("LogOutputTest");
  }
  TestKey(const TestKey&) = delete;
  TestKey& operator=(const TestKey&) = delete;

  const qm_utils::IRegistryReadAccess& get() const { return m_key; }

 private:
  JSystemRegistryKey m_key;
};

/// A formatted output without a thread that keeps its lines.
class LineOutput : public JLogFormattedOutput {
 public:
  LineOutput(std::uint32_t uMask, const char* szFormat, bool bOneLine)
      : JLogFormattedOutput("lines", "", uMask, szFormat, bOneLine, 10, 0) {}
  LineOutput(const qm_utils::IRegistryReadAccess& key, bool bOneLine)
      : JLogFormattedOutput("lines", "", key, bOneLine, 10, 0) {}

  void writeText(const JLog::Msg&, const std::string& sLine) override {
    if (bFailing) {
      QM_THROW(JTextError, "no");
    }
    lines.push_back(sLine);
  }

  bool bFailing = false;
  std::vector<std::string> lines;
};

TEST(LogFormattedOutput, MaskKeepsOutLevelsBelowThirteenOnly) {
  LineOutput output(1U << qm_err::kLogDebug, "%w %m", true);
  output.write(makeRecord("no", qm_err::kLogError));
  output.write(makeRecord("yes", qm_err::kLogDebug));
  output.write(makeRecord("object", qm_err::kLogTraceDriver));
  output.write(makeRecord("beyond", 40));
  EXPECT_THAT(output.lines, ElementsAre("DEBUG yes", "TRACE_DRIVER object", "UNKNOWW beyond"));
}

TEST(LogFormattedOutput, DefaultsAreKeptForNoMaskAndNoPattern) {
  LineOutput output(0, nullptr, true);
  EXPECT_EQ(output.getMask(), 0xFFB00U);
  for (std::uint32_t uLevel = 0; uLevel < 13; ++uLevel) {
    output.write(makeRecord(std::to_string(uLevel), uLevel));
  }
  ASSERT_THAT(output.lines, testing::SizeIs(4));
  EXPECT_THAT(output.lines[0], testing::MatchesRegex("INFO \\[.*\\] 0x00000000: 8"));
  EXPECT_THAT(output.lines[3], testing::EndsWith(": 12"));
}

struct LineCase {
  const char* name;
  const char* message;
  bool bOneLine;
  const char* line;
};

class LogLine : public testing::TestWithParam<LineCase> {};

TEST_P(LogLine, IsFinished) {
  LineOutput output(0, "<%m", GetParam().bOneLine);
  output.write(makeRecord(GetParam().message));
  EXPECT_THAT(output.lines, ElementsAre(GetParam().line));
}

INSTANTIATE_TEST_SUITE_P(Log, LogLine,
                         testing::Values(LineCase{"EndsInALineBreak", "a", false, "<a\r\n"},
                                         LineCase{"HasItsLineFeed", "a\n", false, "<a\n"},
                                         LineCase{"KeepsItsLines", "a\nb", false, "<a\nb\r\n"},
                                         LineCase{"OneLine", "a\r\nb\n", true, "<a  b "}),
                         [](const auto& row) { return std::string(row.param.name); });

TEST(LogFormattedOutput, OneLineTouchesTheMessageAlone) {
  LineOutput output(0, "%m\\n%i", true);
  JLog::Msg record = makeRecord("a\nb");
  record.sInstance = "c\nd";
  output.write(record);
  EXPECT_THAT(output.lines, ElementsAre("a b\nc\nd"));
}

TEST(LogFormattedOutput, ErrorOfAWriteMeansThatItWasNotWritten) {
  LineOutput output(0, "%m", true);
  output.bFailing = true;
  EXPECT_FALSE(output.writeRecord(makeRecord("x")));
  output.bFailing = false;
  EXPECT_TRUE(output.writeRecord(makeRecord("y")));
}

struct MaskCase {
  const char* name;
  std::map<std::string, unsigned> values;
  std::uint32_t uMask;
};

class LogKeyMask : public testing::TestWithParam<MaskCase> {};

TEST_P(LogKeyMask, IsReadAndThenRefined) {
  const TestKey key({}, GetParam().values);
  EXPECT_EQ(LineOutput(key.get(), true).getMask(), GetParam().uMask);
}

INSTANTIATE_TEST_SUITE_P(
    Log, LogKeyMask,
    testing::Values(MaskCase{"Absent", {}, 0xFFB00}, MaskCase{"Whole", {{"WarnLevel", 6}}, 6},
                    MaskCase{"WholeIsNothing", {{"WarnLevel", 0}}, 0},
                    MaskCase{"Added", {{"EnableLevelDebug", 7}}, 0xFFB08},
                    MaskCase{"Removed", {{"EnableLevelInfo", 0}}, 0xFFA00},
                    MaskCase{"Refined", {{"EnableLevelCritical", 1}, {"WarnLevel", 0}}, 0x1000},
                    MaskCase{"All",
                             {{"WarnLevel", 0},
                              {"EnableLevelFullDebug", 1},
                              {"EnableLevelActiveXCalls", 1},
                              {"EnableLevelDebug", 1},
                              {"EnableLevelTrace", 1},
                              {"EnableLevelTraceAction", 1},
                              {"EnableLevelTraceRunning", 1},
                              {"EnableLevelTraceStepByStep", 1},
                              {"EnableLevelInfo", 1},
                              {"EnableLevelWarning", 1},
                              {"EnableLevelException", 1},
                              {"EnableLevelError", 1},
                              {"EnableLevelCritical", 1}},
                             0x1FFE}),
    [](const auto& row) { return std::string(row.param.name); });

TEST(LogFormattedOutput, PatternOfTheKeyMayHoldALineFeed) {
  const TestKey key({{"Format", "%m\\n|"}}, {});
  LineOutput output(key.get(), true);
  output.write(makeRecord("a"));
  EXPECT_THAT(output.lines, ElementsAre("a\n|"));
}

// ---------------------------------------------------------------------------------------------------------

class LogFileOutput : public testing::Test {
 protected:
  LogFileOutput() { std::filesystem::remove(m_sPath); }
  ~LogFileOutput() override {
    qm_platform::disarmFaults();
    std::filesystem::remove(m_sPath);
  }

  static void failCalls(FaultKind kind, std::uint64_t uNth, int iError = 0) {
    qm_platform::armFaults({.seams = static_cast<std::uint32_t>(qm_platform::Seam::kFile),
                            .nth = uNth,
                            .kind = kind,
                            .error = iError});
  }

  const std::string m_sPath = testing::TempDir() + "qm_log_output_" + std::to_string(getpid()) + ".log";
};

TEST_F(LogFileOutput, AppendsLinesThatEndInOneLineFeed) {
  {
    JLogFileOutput output("file", m_sPath, 0, "%m", false);
    EXPECT_EQ(output.JThread::getName(), "file [Log:Out:Formatted:File to " + m_sPath + "]");
    output.write(makeRecord("a \t \r\n"));
    output.write(makeRecord(" b\nc\n\n"));
    output.write(makeRecord(" \r\n"));
    EXPECT_TRUE(output.stop(-1, true));
  }
  {
    JLogFileOutput output("file", m_sPath, 0, "%m", true, 10, 0, false);
    output.write(makeRecord("d\ne\n"));
  }
  EXPECT_EQ(contentsOf(m_sPath), "a\n b\nc\n\nd e\n");
  struct stat info {};
  ASSERT_EQ(stat(m_sPath.c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777 & ~S_IRUSR & ~S_IWUSR, 0U);
}

TEST_F(LogFileOutput, TakesItsNameFromTheKey) {
  const TestKey key({{"Filename", m_sPath}, {"Format", "%w:%m"}}, {});
  JLogFileOutput("file", key.get(), false, 10, 0, false).write(makeRecord("a"));
  EXPECT_EQ(contentsOf(m_sPath), "INFO:a\n");
}

TEST_F(LogFileOutput, WritesToADuplicateOfANumberedDescriptor) {
  const int iFile = ::open(m_sPath.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  ASSERT_GT(iFile, 2);
  {
    JLogFileOutput output("file", "&" + std::to_string(iFile), 0, "%m", false, 10, 0, false);
    output.write(makeRecord("a"));
    ::close(iFile);
    output.write(makeRecord("b"));
  }
  EXPECT_EQ(contentsOf(m_sPath), "a\nb\n");
}

TEST_F(LogFileOutput, EmptyNameMeansStandardError) {
  testing::internal::CaptureStderr();
  JLogFileOutput("file", "", 0, "%m", false, 10, 0, false).write(makeRecord("to the console"));
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "to the console\n");
}

TEST_F(LogFileOutput, DropsLinesWhileThereIsNothingToWriteTo) {
  for (const char* szName : {"&-1", "&", "&none", "&99999", "/nowhere/at/all"}) {
    JLogFileOutput output("file", szName, 0, "%m", false, 10, 0, false);
    output.write(makeRecord("a"));
    EXPECT_EQ(output.getLostCount(), 0U) << szName;
  }
}

TEST_F(LogFileOutput, FinishesShortAndInterruptedWrites) {
  JLogFileOutput output("file", m_sPath, 0, "%m", false, 10, 0, false);
  for (const FaultKind kind : {FaultKind::kShort, FaultKind::kInterrupt}) {
    failCalls(kind, 1);
    output.write(makeRecord("whole line"));
    EXPECT_TRUE(qm_platform::disarmFaults());
  }
  EXPECT_EQ(contentsOf(m_sPath), "whole line\nwhole line\n");
}

TEST_F(LogFileOutput, FailedWriteLosesItsLineAndOpensAnew) {
  JLogFileOutput output("file", m_sPath, 0, "%m", false, 10, 0, false);
  output.write(makeRecord("a"));
  std::filesystem::remove(m_sPath);
  output.write(makeRecord("to the removed file"));
  failCalls(FaultKind::kError, 1, ENOSPC);
  output.write(makeRecord("lost"));
  EXPECT_TRUE(qm_platform::disarmFaults());
  output.write(makeRecord("b"));
  EXPECT_EQ(contentsOf(m_sPath), "b\n");
}

/// Lets no file of the process grow beyond a size for its lifetime; a write past it comes short, the next one
/// fails.
class FileSizeLimit {
 public:
  explicit FileSizeLimit(rlim_t uBytes) : m_previousHandler(std::signal(SIGXFSZ, SIG_IGN)) {
    getrlimit(RLIMIT_FSIZE, &m_previous);
    const rlimit limit{uBytes, m_previous.rlim_max};
    setrlimit(RLIMIT_FSIZE, &limit);
  }
  ~FileSizeLimit() {
    setrlimit(RLIMIT_FSIZE, &m_previous);
    std::signal(SIGXFSZ, m_previousHandler);
  }
  FileSizeLimit(const FileSizeLimit&) = delete;
  FileSizeLimit& operator=(const FileSizeLimit&) = delete;

 private:
  void (*m_previousHandler)(int);
  rlimit m_previous{};
};

TEST_F(LogFileOutput, FailureInAGroupLosesTheCutLineAlone) {
  const std::vector<JLog::Msg> group{makeRecord("one"), makeRecord("two\nlines"), makeRecord("three")};
  JLogFileOutput output("file", m_sPath, 0, "%m", false, 10, 0, false);
  EXPECT_EQ(output.writeRecords(group), 3U);
  EXPECT_EQ(contentsOf(m_sPath), "one\ntwo\nlines\nthree\n");

  failCalls(FaultKind::kError, 1, EIO);
  EXPECT_EQ(output.writeRecords(group), 1U);  // nothing went out
  failCalls(FaultKind::kError, 1, EACCES);
  EXPECT_EQ(output.writeRecords(group), 1U);  // there is no file
  qm_platform::disarmFaults();

  std::filesystem::resize_file(m_sPath, 0);
  {
    const FileSizeLimit limit(std::string("one\ntwo\nli").size());
    EXPECT_EQ(output.writeRecords(group), 2U);
  }
  EXPECT_EQ(output.writeRecords(std::span(group).last(1)), 1U);
  EXPECT_EQ(contentsOf(m_sPath), "one\ntwo\nlithree\n");
}

TEST_F(LogFileOutput, ManyLinesGoOutInBlocks) {
  const std::vector<JLog::Msg> group(2000, makeRecord(std::string(99, 'x')));
  JLogFileOutput output("file", m_sPath, 0, "%m", false, 10, 0, false);
  const std::size_t uDone = output.writeRecords(group);
  EXPECT_EQ(uDone, 656U);  // the block is full with the line that passes 64 KiB
  EXPECT_EQ(contentsOf(m_sPath).size(), uDone * 100);
}

TEST_F(LogFileOutput, SurvivesAPipeThatNobodyReads) {
  for (const bool bThread : {false, true}) {
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    JLogFileOutput output("file", "&" + std::to_string(ends[1]), 0, "%m", false, 10, 0, bThread);
    ::close(ends[0]);
    output.write(makeRecord("nobody reads this"));
    EXPECT_TRUE(output.stop(-1, true));
    ::close(ends[1]);
  }
}

TEST(LogDebugOutput, WritesLinesToStandardError) {
  testing::internal::CaptureStderr();
  {
    JLogDebugOutput output("console", 0, "%w %m");
    EXPECT_EQ(output.JThread::getName(), "console [Log:Out:Formatted:DgbView]");
    output.write(makeRecord("a \r\n"));
    output.write(makeRecord("no", qm_err::kLogTrace));
    EXPECT_TRUE(output.stop(-1, true));
  }
  {
    const TestKey key({{"Format", "key:%m"}}, {{"EnableLevelTrace", 1}});
    JLogDebugOutput output("console", key.get(), true, 10, 0, false);
    output.write(makeRecord("b\nc", qm_err::kLogTrace));
  }
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "INFO a\nkey:b c\n");
}

}  // namespace
