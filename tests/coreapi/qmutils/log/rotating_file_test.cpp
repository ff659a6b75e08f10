#include <cerrno>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>

#include "coreapi/platform/faultseam.h"
#include "coreapi/platform/process.h"
#include "coreapi/qmutils/log/JLogRotatingFile.h"
#include "coreapi/qmutils/log/logdirectory.h"
#include "coreapi/qmutils/time/jsplittime.h"
#include "tests/coreapi/qmutils/log/log_test_support.h"

namespace {

using qm_test::makeRecord;
using qm_utils::LogDirectory;
using qm_utils::LogFileClock;
using testing::SizeIs;

JTime localTime(int iYear, int iMonth, int iDay, int iHour, int iMinute, int iSecond, int iMicrosecond) {
  return JLocalSplitTime(iMonth, iDay, iYear, iHour, iMinute, iSecond, iMicrosecond).getTime();
}

class LogRotatingFile : public testing::Test {
 protected:
  ~LogRotatingFile() override { qm_platform::disarmFaults(); }

  /// An output without a thread, by the test's clock, that writes each message as it is.
  std::unique_ptr<JLogRotatingFile> makeOutput(const std::string& sDirectory, std::uint64_t uMaxDirSize,
                                               std::uint64_t uMaxFileSize, const char* szPrefix = "p") {
    auto pOutput = std::make_unique<JLogRotatingFile>("rotating", sDirectory, szPrefix, uMaxDirSize,
                                                      uMaxFileSize, 0, "%m", 10, 0, false);
    pOutput->setClock([this] { return m_now; });
    return pOutput;
  }

  /// The files of the directory by their names.
  std::vector<std::string> names(const std::string& sDirectory = "logs") const {
    std::vector<std::string> found;
    for (const auto& entry : std::filesystem::directory_iterator(m_directory.path(sDirectory))) {
      found.push_back(entry.path().filename());
    }
    std::sort(found.begin(), found.end());
    return found;
  }

  std::string contents(const std::string& sName) const {
    return qm_test::readFile(m_directory.path("logs/" + sName));
  }

  static void failCall(std::uint64_t uNth, int iError) {
    qm_platform::armFaults(
        {.seams = static_cast<std::uint32_t>(qm_platform::Seam::kFile), .nth = uNth, .error = iError});
  }

  const qm_test::TempDir m_directory;
  const std::string m_sLogs = m_directory.path("logs");
  JTime m_now = localTime(2011, 3, 3, 10, 0, 0, 0);
};

TEST_F(LogRotatingFile, KeepsItsFilesWithinTheirSizes) {
  std::filesystem::create_directory(m_sLogs);
  const std::string sForeign = "p_notes.log";
  std::ofstream(m_sLogs + "/" + sForeign) << std::string(2000, 'x');
  std::ofstream(m_sLogs + "/other.log") << std::string(50000, 'x');  // of no concern
  const auto pOutput = makeOutput(m_sLogs, 10 * 1024, 1);            // raised to 1024
  const std::string sLine(510, 'a');                                 // and its line end
  for (int i = 0; i < 40; ++i) {
    m_now.add(1'000'001);
    pOutput->write(makeRecord(sLine));
  }
  EXPECT_EQ(pOutput->getLostCount(), 0U);
  const std::vector<std::string> all = names();
  EXPECT_THAT(all, testing::Contains(sForeign));
  // 9216 bytes less the foreign 2000 take 7 files of 1024; the newest one came behind that.
  ASSERT_THAT(all, SizeIs(2 + 7 + 1));
  for (std::size_t i = 2; i < all.size(); ++i) {
    EXPECT_EQ(contents(all[i - 1]), sLine + "\r\n" + sLine + "\r\n") << all[i - 1];
  }
  EXPECT_EQ(all[all.size() - 2].size(), 2U + 30U);
}

TEST_F(LogRotatingFile, HasNoLimitOfAFileForTheSizeZeroAndNoFileAtAllWithoutADirectory) {
  const auto pEndless = makeOutput(m_sLogs + "/deep/er", 4096, 0, "");
  for (int i = 0; i < 10; ++i) {
    pEndless->write(makeRecord(std::string(1000, 'x')));
  }
  ASSERT_THAT(names("logs/deep/er"), SizeIs(1));
  EXPECT_THAT(names("logs/deep/er")[0], testing::StartsWith("QM_Log_2011_03_03_10_00_"));
  makeOutput(m_directory.path("none"), 0, 1024)->write(makeRecord("x"));
  makeOutput("", 4096, 1024)->write(makeRecord("x"));
  makeOutput(m_directory.write("file", ""), 4096, 1024)->write(makeRecord("x"));
  EXPECT_THAT(names("."), testing::ElementsAre("file", "logs"));
}

TEST_F(LogRotatingFile, TellsHowLongADiskWasFullInTheSameFile) {
  const auto pOutput = makeOutput(m_sLogs, 1 << 20, 0);
  pOutput->write(makeRecord("before"));
  {
    const qm_test::FileSizeLimit limit(std::string("before\r\nlo").size());
    pOutput->write(makeRecord("lost"));
    m_now.add(12'900'000);
    pOutput->write(makeRecord("lost too"));
  }
  pOutput->write(makeRecord("after"));
  ASSERT_THAT(names(), SizeIs(1));
  EXPECT_EQ(
      contents(names()[0]),
      "before\r\nlo\n### Log data lost for 12s, due to Disk write error='No space left' ###\nafter\r\n");
}

TEST_F(LogRotatingFile, TriesAgainTenSecondsAfterAnyOtherFailureAndTellsTheFirst) {
  const auto pOutput = makeOutput(m_sLogs, 1 << 20, 0);
  pOutput->write(makeRecord("before"));
  failCall(1, EIO);
  pOutput->write(makeRecord("lost"));
  EXPECT_TRUE(qm_platform::disarmFaults());
  m_now.add(9'999'999);
  pOutput->write(makeRecord("lost too"));
  EXPECT_THAT(names(), SizeIs(1));
  m_now.add(1);
  std::filesystem::remove_all(m_sLogs);
  std::ofstream(m_directory.path("file")) << "";
  std::filesystem::create_symlink(m_directory.path("file/below"), m_sLogs);
  pOutput->write(makeRecord("another reason"));
  std::filesystem::remove(m_sLogs);
  m_now.subtract(60'000'000);  // a clock that is set back makes nobody wait
  pOutput->write(makeRecord("after"));
  ASSERT_THAT(names(), SizeIs(1));
  EXPECT_EQ(
      contents(names()[0]),
      "\n### Log data lost for 0s, due to Disk write error='system call error at function 'WriteFile' : "
      "Input/output error' ###\nafter\r\n");
}

TEST_F(LogRotatingFile, ComesFromTheConfigurationOnlyIfItMay) {
  const std::string sLogs = m_sLogs;
  for (const unsigned uAllowed : {0U, 1U}) {
    const qm_test::TestKey top({}, {});
    JSystemRegistryKey key;
    key.create(qm_utils::RegistryRoot::kLocalMachine, std::string(qm_test::TestKey::kKeyPath) + "\\a");
    key.setString("LogType", "FILE");
    key.setString("LogDirectory", sLogs);
    key.setString("Format", "%w:%m");
    key.setDword("MaxLogFileSize", 1);
    key.setDword("MaxLogDirSize", 1);
    key.setDword("AllowMultiple", uAllowed);
    JLog::init(JLog::kRegistry, qm_test::TestKey::kKeyPath);
    for (int i = 0; i < 3; ++i) {
      JLog::log(qm_err::kLogInfo, "%s", std::string(600, 'x').c_str());
    }
    JLog::shutdown(-1);
    EXPECT_EQ(std::filesystem::exists(sLogs), uAllowed != 0);
  }
  JLog::init(0);
  const std::vector<std::string> found = names();
  ASSERT_THAT(found, SizeIs(2));
  EXPECT_THAT(found[0], testing::StartsWith(qm_platform::runningModuleName() + "_20"));
  EXPECT_THAT(contents(found[0]), testing::StartsWith("INFO:xxx"));
}

// ---------------------------------------------------------------------------------------------------------

TEST_F(LogRotatingFile, NamesTellTheTimeBothWays) {
  const JTime time = localTime(2011, 3, 3, 9, 8, 7, 654321);
  EXPECT_EQ(qm_utils::logFileSuffix(time), "2011_03_03_09_08_07_654321.log");
  EXPECT_EQ(qm_utils::parseLogFileSuffix("anything2011_03_03_09_08_07_654321.log"), time);
  for (const char* szName :
       {"2011_03_03_09_08_07_654321.txt", "2011_03_03_09_08_07_65432x.log", "2011_02_29_09_08_07_654321.log",
        "2011_13_03_09_08_07_654321.log", "2011_03_03_24_08_07_654321.log", "2011-03_03_09_08_07_654321.log",
        "2011_03_03_09_08_07_+54321.log", "011_03_03_09_08_07_654321.log", ".log", ""}) {
    EXPECT_EQ(qm_utils::parseLogFileSuffix(szName), std::nullopt) << szName;
  }
}

TEST_F(LogRotatingFile, FirstNameOfAProcessIsAWholeMinuteUnlessItIsTaken) {
  LogDirectory directory(m_directory.path(""), "p_");
  directory.list();
  const JTime time = localTime(2011, 3, 3, 9, 8, 7, 654321);
  LogFileClock first;
  EXPECT_EQ(first.nextSuffix(time, directory), "2011_03_03_09_08_00_000000.log");
  EXPECT_EQ(first.nextSuffix(time, directory), "2011_03_03_09_08_07_654321.log");
  m_directory.write("p_2011_03_03_09_08_00_000000.log", "of a process that has just ended");
  directory.list();
  LogFileClock second;
  EXPECT_EQ(second.nextSuffix(time, directory), "2011_03_03_09_08_07_654321.log");
}

TEST_F(LogRotatingFile, ClockThatIsNotSetGoesOnBehindTheNewestFile) {
  m_directory.write("p_2010_05_05_10_20_30_123456.log", "");
  m_directory.write("p_2009_05_05_10_20_30_123456.log", "");
  LogDirectory directory(m_directory.path(""), "p_");
  directory.list();
  const JTime start = localTime(1970, 1, 1, 3, 0, 1, 500000);
  LogFileClock clock;
  EXPECT_EQ(clock.nextSuffix(start, directory), "2010_05_05_10_22_00_000000.log");
  EXPECT_EQ(clock.nextSuffix(JTime(start).add(1'000'001), directory), "2010_05_05_10_22_01_000001.log");
  const JTime set = localTime(2011, 3, 3, 9, 8, 7, 654321);
  EXPECT_EQ(clock.nextSuffix(set, directory), "2011_03_03_09_08_07_654321.log");
  LogFileClock withoutFiles;
  EXPECT_EQ(withoutFiles.nextSuffix(start, LogDirectory(m_directory.path(""), "q_")),
            "1970_01_01_03_00_00_000000.log");
  EXPECT_EQ(withoutFiles.nextSuffix(start, directory), "1970_01_01_03_00_01_500000.log");
}

}  // namespace
