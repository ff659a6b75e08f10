#include <csignal>
#include <filesystem>
#include <gmock/gmock.h>
#include <thread>
#include <unistd.h>

#include "tests/qmactivexctrl/qmstorageaccesscontroller/pushing.h"
#include "tests/storage/readersupport.h"
#include "tests/tools/qmctl/toolsupport.h"
#include "tools/qmctl/copyprogress.h"

namespace {

using qm_test::copied;
using qm_test::description;
using qm_test::framed;
using qm_test::tpkt;
using testing::HasSubstr;

const std::string kStart = "2011-03-03T10:00:00Z";
const std::string kEnd = "2011-03-03T11:00:00Z";
const std::string kKept = "' holds what had come until then\n";

/// A Manager with one recording, which it pushes.
struct Archive : qm_test::SmallArchive, qm_test::Pushing {
  explicit Archive(const std::string& sProtocol, const qm_ci::StreamInfo& info = qm_test::wholeVideoStream())
      : Pushing(manager, sProtocol, info) {
    manager.answer("rpc_getRecordingSize", "Size=4294977296");
    std::signal(SIGINT, SIG_DFL);  // a test in the background is started with it ignored
  }

  qm_test::ToolRun run(const std::vector<std::string>& arguments) {
    std::vector<std::string> all = withServer({});
    all.insert(all.end(), arguments.begin(), arguments.end());
    return qm_test::runTool(all);
  }
  qm_test::ToolRun copy(const std::string& sFile) { return run({"copy", "gate", "25", kStart, kEnd, sFile}); }
  qm_test::ToolRun pipe(std::vector<std::string> options) {
    options.insert(options.begin(), {"pipe", "gate", "0", kStart, kEnd});
    return run(options);
  }
};

qm_test::Read pushed(std::uint64_t uNumber) {
  return {1, "frame " + std::to_string(uNumber), qm_test::kFirstPushed + (uNumber - 1) * 40000, uNumber,
          true};
}

/// Frames 1 to `uCount`, with what stands before and behind them in each protocol.
std::string wireOf(const std::string& sProtocol, std::uint64_t uCount, bool bEnds = true) {
  std::string sWire = sProtocol.empty() ? "" : description(qm_test::wholeVideoStream());
  for (std::uint64_t i = 1; i <= uCount; ++i) {
    const std::string sPayload = pushed(i).sPayload;
    sWire += sProtocol.empty() ? copied(sPayload, i) : framed(sPayload, 2, 48, i);
  }
  return sWire + (!bEnds ? "" : sProtocol.empty() ? copied("") : tpkt(""));
}

TEST(Copying, MakesAFileThatReadsBackFrameByFrame) {
  const qm_test::TempDir dir;
  for (const std::string sProtocol : {"", "QM_TPKT"}) {
    SCOPED_TRACE(sProtocol);
    const std::string sFile = dir.path("c.asf");
    Archive archive(sProtocol);
    archive.push(wireOf(sProtocol, 30));
    const auto run = archive.copy(sFile);
    EXPECT_EQ(run.iStatus, 0) << run.sError;
    EXPECT_EQ(run.sOut, "done\n");
    std::vector<qm_test::Read> expected;
    for (std::uint64_t i = 1; i <= 30; ++i) {
      expected.push_back(pushed(i));
    }
    EXPECT_EQ(qm_test::framesOf(sFile), expected);
  }
}

TEST(Copying, InterruptedLeavesAWholeFile) {
  const qm_test::TempDir dir;
  struct {
    const char* szProtocol;
    int iSignal;
  } const rows[] = {{"", SIGINT}, {"QM_TPKT", SIGINT}, {"", SIGTERM}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.szProtocol);
    const std::string sFile = dir.path("c.asf");
    Archive archive(row.szProtocol);
    archive.push(wireOf(row.szProtocol, 3, false), true);
    std::thread user([&] {
      while (qm_test::readFile(sFile).find("frame 3") == std::string::npos) {
        std::this_thread::yield();
      }
      kill(getpid(), row.iSignal);
    });
    const auto run = archive.copy(sFile);
    user.join();
    EXPECT_EQ(run.iStatus, 128 + row.iSignal);
    EXPECT_EQ(run.sError, "qmctl: interrupted; '" + sFile + kKept);
    EXPECT_EQ(qm_test::framesOf(sFile), (std::vector{pushed(1), pushed(2), pushed(3)}));
    std::filesystem::remove(sFile);
  }
}

TEST(Copying, TellsWhyItFailedAndWhatIsLeft) {
  const qm_test::TempDir dir;
  const std::string sFile = dir.path("c.asf");
  const auto fails = [&](Archive& archive, const std::string& sPath, const std::string& sError) {
    const auto run = archive.copy(sPath);
    EXPECT_EQ(run.iStatus, 1);
    EXPECT_EQ(run.sOut, "");
    EXPECT_EQ(run.sError, "qmctl: " + sError);
  };
  Archive archive("");
  archive.push(wireOf("", 2, false));
  fails(archive, sFile, "Remote Backup Failed: Remote host must be down\nqmctl: '" + sFile + kKept);
  EXPECT_EQ(qm_test::framesOf(sFile).size(), 2U);
  archive.push(copied(""));
  fails(archive, sFile, "nothing came that is recorded between these dates; there is no file\n");
  for (const char* const szRpc : {"rpc_remoteCopy", "rpc_getStreamInfo"}) {
    archive.manager.refuse(szRpc, "no such recording");
    fails(archive, sFile, "no such recording\n");
    EXPECT_FALSE(std::filesystem::exists(sFile)) << szRpc;
  }
  const std::string sDirectory = dir.path("");
  fails(archive, sDirectory,
        "Remote Backup Failed: Unable to create backup file (erroneous or inexistant path)\n");
  EXPECT_EQ(archive.copy(dir.path("\xF0\x9F\x98\x80.asf")).iStatus, 2) << "another name in the file system";
}

TEST(Copying, FeedsAProgramThatReadsSound) {
  const qm_ci::StreamInfo sound = qm_test::audioStream({}, "audio/x-qmpcm");
  std::string sSamples;
  std::string sWire = description(sound);
  for (std::uint64_t i = 1; i <= 20; ++i) {
    const std::string sFrame(640, static_cast<char>('a' + i));
    sSamples += sFrame;
    sWire += framed(sFrame, 0, 48, i);
  }
  const qm_test::TempDir dir;
  Archive archive("QM_TPKT", sound);
  archive.push(sWire + tpkt(""));
  const std::string sRaw = dir.path("sound of the gate");
  const auto run = archive.pipe(
      {"--format", "wav", "--", "sox", "-V1", "--ignore-length", "-t", "wav", "-", "-t", "raw", sRaw});
  EXPECT_EQ(run.iStatus, 0) << run.sError;
  EXPECT_EQ(qm_test::readFile(sRaw), sSamples);
}

TEST(Copying, ShowsWhatItsCommandSays) {
  const qm_test::TempDir dir;
  const std::string sScript = dir.write("s", "cat >/dev/null; echo \"$1:$A\"; echo bad >&2; exit $STATUS");
  struct {
    const char* szStatus;
    bool bEnds;  ///< the copy
    int iStatus;
    std::string sError;
  } const rows[] = {
      {"0", true, 0, ""},
      {"3", true, 1, "qmctl: the command ended with status 3\n"},
      {"3", false, 1,
       "qmctl: Remote Backup Failed: Remote host must be down\nqmctl: the command ended with status 3\n"},
  };
  for (const auto& row : rows) {
    Archive archive("");
    const auto pipe = [&](std::vector<std::string> options) {
      archive.push(wireOf("", 2, row.bEnds));
      const std::vector<std::string> words{
          "--env", std::string("A=\xC3\xA9 STATUS=") + row.szStatus, "--", "sh", sScript, "--json  x"};
      options.insert(options.end(), words.begin(), words.end());
      return archive.pipe(options);
    };
    const auto json = pipe({"--format", "asf", "--json"});
    EXPECT_EQ(json.iStatus, row.iStatus);
    EXPECT_EQ(json.sError, row.sError);
    EXPECT_EQ(json.sOut, std::string("{\"command\":\"pipe\",\"result\":") + (row.bEnds ? "0" : "-1") +
                             ",\"status\":" + row.szStatus +
                             ",\"output\":\"--json  x:\xC3\xA9\\n\",\"error\":\"bad\\n\"}\n");
    const auto plain = pipe({"--format", "asf"});
    EXPECT_EQ(plain.sOut, "--json  x:\xC3\xA9\n");
    EXPECT_EQ(plain.sError, "bad\n" + row.sError);
  }
  Archive archive("");
  EXPECT_EQ(archive.pipe({"--format", "asf", "--", "no-such-program"}).sError,
            "qmctl: Remote Backup Failed: Unable to create process\n");
  EXPECT_EQ(archive.pipe({"--format", "asf", "--", "sh", "a\"b"}).iStatus, 2);
}

/// Until the interrupt the command has had all that had come, and afterwards it ends by itself.
TEST(Copying, InterruptedEndsTheInputOfItsCommand) {
  const qm_test::TempDir dir;
  const std::string sScript = dir.write(
      "s", "head -c 20 >/dev/null; kill -INT " + std::to_string(getpid()) + "; cat >/dev/null; echo read");
  Archive archive("");
  archive.push(wireOf("", 3, false), true);
  const auto run = archive.pipe({"--format", "asf", "--", "sh", sScript});
  EXPECT_EQ(run.iStatus, 130);
  EXPECT_EQ(run.sOut, "read\n");
  EXPECT_EQ(run.sError, "qmctl: interrupted; the command got what had come until then\n");
}

TEST(Copying, TellsTheSizeAndCopiesAtTheManager) {
  Archive archive("");
  const std::vector<std::string> size{"size", "gate", "25", kStart, kEnd};
  EXPECT_EQ(archive.run(size).sOut, "10000\n");
  EXPECT_EQ(archive.run({"--json", "size", "gate", "25", kStart, kEnd}).sOut, "{\"size\":10000}\n");
  archive.manager.answer("rpc_getRecordingSize");
  EXPECT_EQ(archive.run(size).sError, "qmctl: the Manager doesn't tell the size\n");
  archive.manager.fail("rpc_getRecordingSize", "broken");
  EXPECT_EQ(archive.run(size).sError, "qmctl: Remote Backup Failed: RPC\n");
  const std::vector<std::string> local{"copy-local", "gate", "25", kStart, kEnd, "d/c.asf"};
  archive.manager.answer("rpc_localCopy");
  archive.manager.takeRequests();
  EXPECT_EQ(archive.run(local).sOut, "done\n");
  EXPECT_THAT(archive.manager.takeRequests(), testing::ElementsAre(HasSubstr("BackupPath=\"d/c.asf\"")));
  archive.manager.refuse("rpc_localCopy", "no such directory");
  const auto refused = archive.run(local);
  EXPECT_EQ(refused.iStatus, 1);
  EXPECT_EQ(refused.sError, "qmctl: no such directory\n");
}

TEST(Copying, ShowsHowFarItIs) {
  struct {
    std::uint64_t uBytes;
    std::uint64_t uExpected;
    std::uint64_t uMilliseconds;
    const char* szLine;
  } const rows[] = {
      {0, 27'100'000, 0, "  0% [--------------------] 0 B of 27.1 MB  0 B/s"},
      {12'345'678, 27'100'000, 2000, " 45% [#########-----------] 12.3 MB of 27.1 MB  6.1 MB/s  0:03 left"},
      {27'200'000, 27'100'000, 4000, "100% [####################] 27.2 MB of 27.1 MB  6.8 MB/s  0:00 left"},
      {999, UINT32_MAX, 1000, "  0% [--------------------] 999 B of 4.2 GB  999 B/s  1194:14:26 left"},
      {4'294'967'296, 1000, 1000, "4.2 GB  4.2 GB/s"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(qmctl::progressLine(row.uBytes, row.uExpected, row.uMilliseconds), row.szLine);
  }
}

}  // namespace
