#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include "coreapi/platform/faultseam.h"
#include "coreapi/qmutils/log/JLogDebugOutput.h"
#include "coreapi/qmutils/log/JLogFileOutput.h"
#include "tests/coreapi/qmutils/log/log_test_support.h"

namespace {

using qm_test::makeRecord;
using qm_test::readFile;
using qm_test::TestKey;
using testing::ElementsAre;

/// A formatted output without a thread that keeps its lines.
class LineOutput : public JLogFormattedOutput {
 public:
  LineOutput(std::uint32_t uMask, const char* szFormat, bool bOneLine)
      : JLogFormattedOutput("lines", "", uMask, szFormat, bOneLine, 10, 0) {}
  LineOutput(const qm_utils::IRegistryReadAccess& key, bool bOneLine)
      : JLogFormattedOutput("lines", "", key, bOneLine, 10, 0) {}

  void writeText(const JLog::Msg&, const std::string& sLine) override { lines.push_back(sLine); }

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

TEST(LogFormattedOutput, LineEndsInALineBreakUnlessItIsToBeOne) {
  LineOutput lines(0, "<%m", false);
  LineOutput oneLine(0, "<%m", true);
  for (const char* szMessage : {"a", "a\n", "a\r\nb"}) {
    lines.write(makeRecord(szMessage));
    oneLine.write(makeRecord(szMessage));
  }
  EXPECT_THAT(lines.lines, ElementsAre("<a\r\n", "<a\n", "<a\r\nb\r\n"));
  EXPECT_THAT(oneLine.lines, ElementsAre("<a", "<a ", "<a  b"));
}

TEST(LogFormattedOutput, OneLineTouchesTheMessageAlone) {
  LineOutput output(0, "%m\\n%i", true);
  JLog::Msg record = makeRecord("a\nb");
  record.sInstance = "c\nd";
  output.write(record);
  EXPECT_THAT(output.lines, ElementsAre("a b\nc\nd"));
}

TEST(LogFormattedOutput, MaskOfTheKeyIsReadAndThenRefined) {
  const auto maskOf = [](const std::map<std::string, unsigned>& values) {
    const TestKey key({}, values);
    return LineOutput(key.get(), true).getMask();
  };
  EXPECT_EQ(maskOf({}), 0xFFB00U);
  EXPECT_EQ(maskOf({{"WarnLevel", 0}}), 0U);
  EXPECT_EQ(maskOf({{"EnableLevelDebug", 7}, {"EnableLevelInfo", 0}}), 0xFFA08U);
  EXPECT_EQ(maskOf({{"EnableLevelCritical", 1}, {"WarnLevel", 6}}), 0x1006U);
  constexpr const char* kSwitches[] = {"FullDebug",   "ActiveXCalls", "Debug",           "Trace",
                                       "TraceAction", "TraceRunning", "TraceStepByStep", "Info",
                                       "Warning",     "Exception",    "Error",           "Critical"};
  for (std::uint32_t uLevel = 1; uLevel <= 12; ++uLevel) {
    EXPECT_EQ(maskOf({{"WarnLevel", 0}, {std::string("EnableLevel") + kSwitches[uLevel - 1], 1}}),
              1U << uLevel);
  }
}

TEST(LogFormattedOutput, FiltersOfTheKeyAreKeptAndKeepNoRecordOut) {
  const TestKey key({{"FilterInclude", "a*;;[xy]?"}, {"FilterExclude", "*z"}}, {});
  LineOutput output(key.get(), true);
  output.write(makeRecord("z"));
  EXPECT_EQ(output.lines.size(), 1U);
  const JLogFilter& filter = output.getFilter();
  EXPECT_EQ(filter.getInclude(), "a*;;[xy]?");
  for (const char* szText : {"a", "abc", "x1", "y2"}) {
    EXPECT_TRUE(filter.passes(szText)) << szText;
  }
  for (const char* szText : {"", "b", "x", "az", "xz"}) {
    EXPECT_FALSE(filter.passes(szText)) << szText;
  }
  EXPECT_FALSE(JLogFilter("", "").passes("anything"));
}

// ---------------------------------------------------------------------------------------------------------

class LogFileOutput : public testing::Test {
 protected:
  ~LogFileOutput() override { qm_platform::disarmFaults(); }

  static void failCall(int iError) {
    qm_platform::armFaults(
        {.seams = static_cast<std::uint32_t>(qm_platform::Seam::kFile), .nth = 1, .error = iError});
  }

  const qm_test::TempDir m_directory;
  const std::string m_sPath = m_directory.path("log");
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
  EXPECT_EQ(readFile(m_sPath), "a\n b\nc\n\nd e\n");
  struct stat info {};
  ASSERT_EQ(stat(m_sPath.c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777 & ~S_IRUSR & ~S_IWUSR, 0U);
}

TEST_F(LogFileOutput, TakesItsNameFromTheKey) {
  const TestKey key({{"Filename", m_sPath}, {"Format", "%w:%m"}}, {});
  JLogFileOutput("file", key.get(), false, 10, 0, false).write(makeRecord("a"));
  EXPECT_EQ(readFile(m_sPath), "INFO:a\n");
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
  EXPECT_EQ(readFile(m_sPath), "a\nb\n");
}

TEST_F(LogFileOutput, DropsLinesWhileThereIsNothingToWriteTo) {
  for (const char* szName : {"&-1", "&", "&none", "&99999", "/nowhere/at/all"}) {
    JLogFileOutput output("file", szName, 0, "%m", false, 10, 0, false);
    output.write(makeRecord("a"));
    EXPECT_EQ(output.getLostCount(), 0U) << szName;
  }
}

TEST_F(LogFileOutput, FailedWriteLosesItsLineAndOpensAnew) {
  JLogFileOutput output("file", m_sPath, 0, "%m", false, 10, 0, false);
  output.write(makeRecord("a"));
  std::filesystem::remove(m_sPath);
  output.write(makeRecord("to the removed file"));
  failCall(ENOSPC);
  output.write(makeRecord("lost"));
  EXPECT_TRUE(qm_platform::disarmFaults());
  output.write(makeRecord("b"));
  EXPECT_EQ(readFile(m_sPath), "b\n");
}

TEST_F(LogFileOutput, FailureInAGroupLosesTheCutLineAlone) {
  const std::vector<JLog::Msg> group{makeRecord("one"), makeRecord("two\nlines"), makeRecord("three")};
  JLogFileOutput output("file", m_sPath, 0, "%m", false, 10, 0, false);
  EXPECT_EQ(output.writeRecords(group), 3U);
  EXPECT_EQ(readFile(m_sPath), "one\ntwo\nlines\nthree\n");

  failCall(EIO);
  EXPECT_EQ(output.writeRecords(group), 1U);  // nothing went out
  failCall(EACCES);
  EXPECT_EQ(output.writeRecords(group), 1U);  // there is no file
  qm_platform::disarmFaults();

  std::filesystem::resize_file(m_sPath, 0);
  {
    const qm_test::FileSizeLimit limit(std::string("one\ntwo\nli").size());
    EXPECT_EQ(output.writeRecords(group), 2U);
  }
  EXPECT_EQ(output.writeRecords(std::span(group).last(1)), 1U);
  EXPECT_EQ(readFile(m_sPath), "one\ntwo\nlithree\n");
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
