#include <chrono>
#include <csignal>
#include <filesystem>
#include <gmock/gmock.h>
#include <random>
#include <set>
#include <spawn.h>
#include <sys/wait.h>
#include <thread>

#include "qmmanager/archive.h"
#include "storage/FrameWalk.h"
#include "tests/storage/readersupport.h"
#include "tests/support/logcapture.h"
#include "tests/tools/qmctl/mediasupport.h"

namespace {

namespace fs = std::filesystem;
using namespace qm_test;
using qmctl::Json;
using testing::HasSubstr;

constexpr const char* kStart = "2011-03-03T10:00:00Z";
constexpr std::uint64_t kStartCount = 12943620000000000;

/// Frames of a file, each as text, with the time behind the first one's.
std::vector<std::string> framesOf(const std::vector<std::string>& files, std::uint64_t uStream = 1) {
  std::vector<std::string> frames;
  std::uint64_t ullFirst = 0;
  for (const std::string& sFile : files) {
    for (Json frame : jsonOf({"file", "frames", sFile})) {
      if (frame["stream"] != uStream) {
        continue;
      }
      const std::uint64_t ullTime = frame["time"];
      ullFirst = frames.empty() ? ullTime : ullFirst;
      frames.push_back(std::to_string(ullTime - ullFirst) + " " + frame["size"].dump() + " " +
                       frame["key"].dump() + " " + frame["sha256"].dump());
    }
  }
  return frames;
}

TEST(Import, RecordsWhatOthersHaveMade) {
  struct {
    const char* szName;
    const char* szOptions;
    int iFps;
    std::uint64_t uPeriod;  ///< of the frames, microseconds
    const char* szNote;
  } const rows[] = {
      {"pictures.avi", "-c:v mpeg4 -g 5 -an", 10, 100'000, ""},
      {"both.avi", "-c:v msmpeg4 -g 5 -c:a pcm_s16le", 10, 100'000, "stream 2 (audio/"},
      {"ntsc.avi", "-c:v mjpeg -r 30000/1001 -an", 30, 33'366, ""},
      {"slow.avi", "-c:v mjpeg -r 1/2 -t 10 -an", 1, 2'000'000, ""},
      {"sound.wav", "-vn -c:a pcm_s16le", 0, 23'219, ""},
      {"sound.mp3", "-vn -c:a libmp3lame -b:a 64k -id3v2_version 0", 0, 26'122, ""},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.szName);
    const TempDir dir;
    const std::string sClip = makeClip(dir.path(row.szName), row.szOptions);
    const ToolRun run = runTool({"--json", "import", sClip, "--archive", dir.path("archive"), "--source",
                                 "gate/1", "--start", kStart, "--slice", "1"});
    ASSERT_EQ(run.iStatus, 0) << run.sError;
    EXPECT_THAT(run.sError, HasSubstr(row.szNote));
    EXPECT_EQ(run.sError.empty(), *row.szNote == '\0') << run.sError;
    const Json result = Json::parse(run.sOut);
    EXPECT_EQ(result["fps"], row.iFps);
    EXPECT_EQ(result["start"], kStartCount);
    std::vector<std::string> slices;
    for (const Json& slice : result["slices"]) {
      slices.push_back(slice["file"]);
      EXPECT_THAT(slices.back(), HasSubstr("/gate%2F1/" + std::to_string(row.iFps) + "/"));
      EXPECT_EQ(fs::file_size(slices.back()), slice["size"].get<std::uint64_t>());
    }
    EXPECT_GE(slices.size(), 2U);
    const auto expected = framesOf({sClip});
    EXPECT_EQ(framesOf(slices), expected);
    EXPECT_EQ(result["frames"], expected.size());
    EXPECT_NEAR(std::stod(expected.at(1)), static_cast<double>(row.uPeriod), 1.0);
    const Json info = jsonOf({"file", "info", slices[0]})[0]["streams"][0];
    const double dRate = info["rate"][0].get<double>() / info["rate"][1].get<double>();
    EXPECT_NEAR(1e6 / dRate, static_cast<double>(row.uPeriod), 2.0);
  }
}

TEST(Import, TellsWhyNot) {
  const TempDir dir;
  const std::string sClip = makeClip(dir.path("clip.avi"), "-c:v mjpeg -an");
  const std::string sArchive = dir.path("archive");
  const auto import = [&](std::vector<std::string> options) {
    options.insert(options.begin(), {"import", sClip});
    return runTool(options);
  };
  const auto full = [&](std::vector<std::string> more) {
    more.insert(more.end(), {"--archive", sArchive, "--source", "gate"});
    return import(more);
  };
  dir.write("others.txt", "somebody's");
  ASSERT_EQ(full({"--start", kStart}).iStatus, 0);
  const struct {
    ToolRun run;
    int iStatus;
    const char* szReason;
  } rows[] = {
      {full({}), 2, "doesn't tell when it was recorded; --start must"},
      {full({"--start", "soon"}), 2, "not a date"},
      {full({"--start", kStart, "--slice", "0"}), 2, "--slice"},
      {full({"--start", kStart, "--fps", "-1"}), 2, "--fps"},
      {import({"--archive", sArchive, "--start", kStart}), 2, "--source"},
      {full({"--start", "2011-03-03T10:00:01Z"}), 1, "recording already"},
      {full({"--start", "2038-01-19T03:14:07Z"}), 1, "1970"},
      {import({"--archive", dir.path(""), "--source", "a", "--start", kStart}), 1, "nor empty"},
      {import({"--archive", sArchive, "--source", "", "--start", kStart}), 1, "needs a name"},
      {runTool({"import", dir.path("others.txt"), "--archive", sArchive, "--source", "a"}), 1,
       "not a media file"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(row.run.iStatus, row.iStatus) << row.szReason;
    EXPECT_EQ(row.run.sOut, "");
    EXPECT_THAT(row.run.sError, HasSubstr(row.szReason));
  }
  const ToolRun next = full({"--start", "2011-03-03T10:01:00Z", "--fps", "12"});
  EXPECT_EQ(next.iStatus, 0) << next.sError;
  EXPECT_THAT(next.sOut, HasSubstr("recorded 1 slice, from"));
}

/// The tool itself, on a file that takes it a while.
class ImportProcess : public testing::Test {
 protected:
  void SetUp() override {
    const auto pOutput = writerOf("asf", m_clip);
    const auto stream = dataStream();
    pOutput->open(&stream, nullptr, nullptr);
    for (std::uint64_t i = 0; i < kFrames; ++i) {
      write(*pOutput, 1, numbered(1, i, 400));
    }
  }

  pid_t start(const std::string& sArchive) const {
    // Without the tests' place of locales: the system's library leaks that one's path.
    std::vector<std::string> words{"env",       "-u",     "LOCPATH", QM_TOOL, "import",   m_clip,
                                   "--archive", sArchive, "--slice", "1",     "--source", "gate"};
    std::vector<char*> argv;
    for (std::string& sWord : words) {
      argv.push_back(sWord.data());
    }
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", 1, 0);
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", 1, 0);
    pid_t process = 0;
    EXPECT_EQ(posix_spawnp(&process, "env", &actions, nullptr, argv.data(), environ), 0);
    posix_spawn_file_actions_destroy(&actions);
    return process;
  }

  static int end(pid_t process, int iSignal, std::chrono::milliseconds after) {
    std::this_thread::sleep_for(after);
    kill(process, iSignal);
    int iStatus = 0;
    waitpid(process, &iStatus, 0);
    return iStatus;
  }

  /// Checks what stands in an archive: slices that are whole and hold the file's first frames, one after the
  /// other. Returns their number.
  std::size_t check(const std::string& sArchive) const {
    std::set<std::string> files;
    const std::string sUnit = sArchive + "/gate/0";
    for (const auto& entry : fs::directory_iterator(fs::exists(sUnit) ? sUnit : sArchive)) {
      if (Slice::parseFileName(entry.path().filename().string())) {
        files.insert(entry.path());
      }
    }
    std::uint64_t uNext = 0;
    for (const std::string& sFile : files) {
      EXPECT_EQ(fs::file_size(sFile), Slice::parseFileName(fs::path(sFile).filename().string())->uSize);
      EXPECT_TRUE(FrameWalk::isFinished(readerOf(sFile)->getFileInfo()));
      for (const Read& frame : qm_test::framesOf(sFile)) {
        EXPECT_EQ(frame, asRead(1, numbered(1, uNext++, 400)));
      }
    }
    return files.size();
  }

  static constexpr std::uint64_t kFrames = 20000;
  TempDir m_dir;
  const std::string m_clip = m_dir.path("long.asf");
};

TEST_F(ImportProcess, KilledAnywhereLeavesAnArchiveOfWholeSlices) {
  std::minstd_rand random(7);
  std::size_t uSlices = 0;
  for (int i = 0; i < 20; ++i) {
    const std::string sArchive = m_dir.path("archive" + std::to_string(i));
    end(start(sArchive), SIGKILL, std::chrono::milliseconds(20 + random() % 400));
    if (!fs::exists(sArchive + "/qmarchive")) {
      continue;
    }
    uSlices += check(sArchive);
    {
      const LogCapture quiet;
      FileInfo::initCache(4);
      { const qm_manager::Archive archive(sArchive, qm_manager::ArchiveRoot::Creation::kExisting); }
      FileInfo::closeCache();
    }
    check(sArchive);
    for (const auto& entry : fs::recursive_directory_iterator(sArchive)) {
      EXPECT_TRUE(entry.path().extension() != ".work" ||
                  entry.path().string().find("quarantine/") != std::string::npos)
          << entry.path();
    }
    fs::remove_all(sArchive);
  }
  EXPECT_GT(uSlices, 0U);  // else none was killed in its work
}

TEST_F(ImportProcess, InterruptedEndsInOrder) {
  for (const int iSignal : {SIGINT, SIGTERM}) {
    const std::string sArchive = m_dir.path("archive" + std::to_string(iSignal));
    const pid_t process = start(sArchive);
    const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (!fs::exists(sArchive + "/gate/0/alarm.log") && std::chrono::steady_clock::now() < until) {
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    const int iStatus = end(process, iSignal, std::chrono::milliseconds(20));
    EXPECT_TRUE(WIFEXITED(iStatus));
    EXPECT_EQ(WEXITSTATUS(iStatus), 128 + iSignal);
    const std::size_t uSlices = check(sArchive);
    const auto files = fs::directory_iterator(sArchive + "/gate/0");
    EXPECT_EQ(std::distance(fs::begin(files), fs::end(files)), static_cast<std::ptrdiff_t>(uSlices + 3));
  }
}

}  // namespace
