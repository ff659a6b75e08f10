#include <chrono>
#include <filesystem>
#include <gmock/gmock.h>
#include <string>
#include <thread>
#include <vector>

#include "coreapi/qmutils/socket/jtcpsocket.h"
#include "tests/qmactivexctrl/qmstorageaccesscontroller/pushing.h"
#include "tests/qmactivexctrl/qmstorageaccesscontroller/referencelink.h"
#include "tests/storage/readersupport.h"
#include "tests/support/filesizelimit.h"
#include "tests/support/tempdir.h"
#include "tests/support/thrownby.h"

namespace {

using qm_test::copied;
using qm_test::description;
using qm_test::framed;
using qm_test::Pushing;
using qm_test::ReferenceLink;
using qm_test::tpkt;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kStart = "03/03/2011 10:00:00.000000UTC";
constexpr const char* kEnd = "03/03/2011 11:00:00.000000UTC";
const std::string kFailed = "Remote Backup Failed: ";
const std::string kHostDown = kFailed + "Remote host must be down";

/// A controller whose Manager pushes.
struct CopyLink : ReferenceLink, Pushing {
  explicit CopyLink(const std::string& sProtocol, const qm_ci::StreamInfo& info = qm_test::videoStream())
      : Pushing(manager, sProtocol, info) {}

  std::int32_t copy(const std::string& sPath) { return control.remoteCopy("cam 1", 25, sPath, kStart, kEnd); }
};

TEST(Backup, WritesWhatIsPushedAndTellsHowItEnded) {
  const std::string sOne = copied("first frame", 1);
  const std::string sBig(5000, 'b');
  struct Row {
    const char* name;
    const char* szProtocol;
    std::string sWire;
    std::vector<std::string> payloads;  ///< in the file; no file when there are none
    std::vector<std::string> messages;
    bool bStall = false;
  };
  const std::vector<Row> rows = {
      {"copy", "", sOne + copied("second frame", 2) + copied(""), {"first frame", "second frame"}, {}},
      {"copy of nothing", "", copied(""), {}, {}},
      {"copy without an end", "", sOne, {"first frame"}, {kHostDown}},
      {"copy cut in a frame", "", sOne + copied("lost").substr(0, 27), {"first frame"}, {kHostDown}},
      {"copy cut in the first header", "", sOne.substr(0, 5), {}, {kHostDown}},
      {"copy of a frame larger than promised", "", sOne + copied(sBig), {"first frame"}, {kHostDown}},
      {"copy of 4 GiB",
       "",
       sOne + copied("").replace(12, 4, "\xFF\xFF\xFF\xFF") + "x",
       {"first frame"},
       {kHostDown}},
      {"copy that stalls", "", sOne + copied("lost").substr(0, 27), {"first frame"}, {kHostDown}, true},
      {"tpkt",
       "QM_TPKT",
       description() + framed("first frame") + framed("second frame") + tpkt(""),
       {"first frame", "second frame"},
       {}},
      {"tpkt of nothing", "QM_TPKT", tpkt(""), {}, {}},
      {"tpkt of authentication only",
       "QM_TPKT",
       description() + framed("proof", 6) + tpkt(""),
       {"proof"},
       {}},
      {"tpkt with long headers",
       "QM_TPKT",
       description() + framed("first frame", 2, 49) + framed("second frame", 2, 100) + tpkt(""),
       {"first frame", "second frame"},
       {}},
      {"tpkt with a header too long",
       "QM_TPKT",
       description() + framed("first frame") + framed(sBig, 2, 101) + tpkt(""),
       {"first frame"},
       {kHostDown}},
      {"tpkt with a header too short", "QM_TPKT", description() + framed("x", 2, 47), {}, {kHostDown}},
      {"tpkt with less than a header", "QM_TPKT", description() + tpkt("short"), {}, {kHostDown}},
      {"tpkt without a description", "QM_TPKT", framed("first frame") + tpkt(""), {}, {kHostDown}},
      {"tpkt with too long a description", "QM_TPKT", framed(std::string(300'000, 'd'), 5), {}, {kHostDown}},
      {"tpkt with garbage for a description", "QM_TPKT", framed(sBig, 5), {}, {kHostDown}},
      {"tpkt cut in the description", "QM_TPKT", description().substr(0, 90), {}, {kHostDown}},
      {"tpkt that stalls",
       "QM_TPKT",
       description() + framed("first frame") + framed("lost").substr(0, 57),
       {"first frame"},
       {kHostDown},
       true},
      {"tpkt out of step",
       "QM_TPKT",
       description() + framed("first frame") + "\2garbage",
       {"first frame"},
       {kHostDown}},
      {"tpkt of a frame larger than promised",
       "QM_TPKT",
       description() + framed("first frame") + framed(sBig) + tpkt(""),
       {"first frame"},
       {kHostDown}},
      {"tpkt of 4 GiB",
       "QM_TPKT",
       description() + std::string("\1\0\0\0\xFF\xFF\xFF\xFF", 8),
       {},
       {kHostDown}},
      {"a remote copy that comes by name",
       "QM_RCPY30",
       sOne + copied(""),
       {},
       {kFailed + "Couldn't create input socket"}},
      {"a protocol known by name", "QM_SP40", "", {}, {kFailed + "Couldn't create input socket"}},
      {"a protocol of nobody", "QM_NONE", "", {}, {kFailed + "Couldn't create input socket"}},
  };
  const qm_test::TempDir dir;
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    const std::string sPath = dir.path("copy.asf");
    CopyLink link(row.szProtocol);
    link.push(row.sWire, row.bStall);
    if (row.bStall) {
      link.control.setTimeOut(300);
    }
    EXPECT_EQ(link.copy(sPath), row.messages.empty() ? 0 : -1);
    EXPECT_EQ(link.messages(), row.messages);
    const std::string sFile = qm_test::readFile(sPath);
    EXPECT_EQ(std::filesystem::exists(sPath), !row.payloads.empty());
    for (const std::string& sPayload : row.payloads) {
      EXPECT_NE(sFile.find(sPayload), std::string::npos) << sPayload;
    }
    EXPECT_EQ(sFile.find("lost"), std::string::npos);
    std::filesystem::remove(sPath);
  }
}

std::vector<std::string> payloadsOf(const std::string& sPath) {
  std::vector<std::string> payloads;
  for (const qm_test::Read& read : qm_test::framesOf(sPath)) {
    payloads.push_back(read.sPayload);
  }
  return payloads;
}

std::ptrdiff_t entriesOf(const char* szDirectory) {
  return std::distance(std::filesystem::directory_iterator(szDirectory), {});
}

/// Wherever it breaks off, the file holds the frames that came whole, and nothing is left behind.
TEST(Backup, CutAtAnyByteKeepsWholeFrames) {
  const qm_test::TempDir dir;
  const qm_ci::StreamInfo info = qm_test::wholeVideoStream();
  for (const std::string sProtocol : {"", "QM_TPKT"}) {
    const bool bCopy = sProtocol.empty();
    std::string sWire = bCopy ? "" : description(info);
    std::vector<std::size_t> ends;
    for (const std::uint64_t uNumber : {1, 2}) {
      const std::string sPayload = "frame " + std::to_string(uNumber);
      sWire += bCopy ? copied(sPayload, uNumber) : framed(sPayload, 2, 48, uNumber);
      ends.push_back(sWire.size());
    }
    sWire += bCopy ? copied("") : tpkt("");
    CopyLink link(sProtocol, info);
    std::ptrdiff_t iDescriptors = 0;
    std::ptrdiff_t iThreads = 0;
    for (std::size_t uCut = 0; uCut <= sWire.size(); ++uCut) {
      const std::string sPath = dir.path(sProtocol + std::to_string(uCut) + ".asf");
      SCOPED_TRACE(sPath);
      link.push(sWire.substr(0, uCut));
      const bool bWhole = uCut == sWire.size();
      EXPECT_EQ(link.copy(sPath), bWhole ? 0 : -1);
      EXPECT_EQ(link.messages(), bWhole ? std::vector<std::string>() : std::vector{kHostDown});
      std::vector<std::string> wanted;
      for (std::size_t i = 0; i < ends.size() && ends[i] <= uCut; ++i) {
        wanted.push_back("frame " + std::to_string(i + 1));
      }
      ASSERT_EQ(std::filesystem::exists(sPath), !wanted.empty());
      if (!wanted.empty()) {
        EXPECT_EQ(payloadsOf(sPath), wanted);
      }
      link.join();
      if (uCut == 0) {
        iDescriptors = entriesOf("/proc/self/fd");
        iThreads = entriesOf("/proc/self/task");
      }
    }
    EXPECT_LE(entriesOf("/proc/self/fd"), iDescriptors);
    // The system shows a thread for a moment after it was waited for.
    for (int i = 0; i < 1000 && entriesOf("/proc/self/task") > iThreads; ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    EXPECT_LE(entriesOf("/proc/self/task"), iThreads);
  }
}

TEST(Backup, OfNothingLeavesADeviceAlone) {
  const qm_test::TempDir dir;
  const std::string sDevice = dir.path("null.asf");
  std::filesystem::create_symlink("/dev/null", sDevice);
  CopyLink link("");
  link.push(copied(""));
  EXPECT_EQ(link.copy(sDevice), 0);
  EXPECT_TRUE(std::filesystem::is_symlink(sDevice));
}

/// Neither a frame nor the end of a file is lost without a word.
TEST(Backup, TellsThatTheDiskIsFull) {
  const qm_test::TempDir dir;
  const qm_ci::StreamInfo info = qm_test::wholeVideoStream();
  CopyLink link("", info);
  const std::string sSecond(900, 's');
  const std::string sWire = copied("first frame", 1) + copied(sSecond, 2) + copied("");
  link.push(sWire);
  ASSERT_EQ(link.copy(dir.path("whole.asf")), 0);
  const rlim_t uWhole = std::filesystem::file_size(dir.path("whole.asf"));
  struct {
    const char* name;
    rlim_t uLess;
    std::vector<std::string> payloads;
  } const rows[] = {{"no room for the index", 1, {"first frame", sSecond}},
                    {"no room for a frame", 500, {"first frame"}}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    const std::string sPath = dir.path(std::to_string(row.uLess) + ".asf");
    {
      const qm_test::FileSizeLimit full(uWhole - row.uLess);
      link.push(sWire);
      EXPECT_EQ(link.copy(sPath), -1);
    }
    EXPECT_THAT(link.messages(), ElementsAre(kFailed + "Couldn't write received field on disk"));
    EXPECT_EQ(payloadsOf(sPath), row.payloads);
  }
}

TEST(Backup, BeginsAnotherFileWhenTheStreamChanges) {
  const qm_test::TempDir dir;
  CopyLink link("QM_TPKT");
  const std::string sLong = "Note=\"" + std::string(30'000, 'n') + '"';  // longer than all before it
  link.push(description() + framed("in the first") + description(qm_test::videoStream(sLong)) +
            framed("in the second") + description() + framed("in the third") + tpkt(""));
  EXPECT_EQ(link.copy(dir.path("a.b.asf")), 0);
  EXPECT_NE(qm_test::readFile(dir.path("a.b.asf")).find("in the first"), std::string::npos);
  EXPECT_NE(qm_test::readFile(dir.path("a.b1.asf")).find("in the second"), std::string::npos);
  EXPECT_NE(qm_test::readFile(dir.path("a.b2.asf")).find("in the third"), std::string::npos);
  const std::string sSecond = qm_test::readFile(dir.path("a.b1.asf"));
  for (const char* szProperty : {"tester", "startTimeStamp=\"03/03/2011 10:00:00.000000UTC\""}) {
    EXPECT_NE(sSecond.find(szProperty), std::string::npos) << szProperty;
  }
  link.push(description(qm_test::audioStream({}, "audio/x-qmmp3")) + framed("sound") + description() +
            framed("picture") + tpkt(""));
  EXPECT_EQ(link.copy(dir.path("a.mp3")), -1);
  EXPECT_THAT(link.messages(), ElementsAre(kHostDown));
  EXPECT_NE(qm_test::readFile(dir.path("a.mp3")).find("sound"), std::string::npos);
  EXPECT_FALSE(std::filesystem::exists(dir.path("a1.mp3"))) << "nothing could be written there";
}

TEST(Backup, TellsWhyTheServerDidNotPush) {
  const qm_test::TempDir dir;
  const std::string sPath = dir.path("copy.asf");
  CopyLink link("QM_TPKT");
  link.manager.refuse("rpc_remoteCopy", "no such recording");
  EXPECT_EQ(link.copy(sPath), -1);
  EXPECT_THAT(link.messages(), ElementsAre("no such recording"));
  EXPECT_FALSE(std::filesystem::exists(sPath));
  link.manager.fail("rpc_remoteCopy", "broken");
  EXPECT_EQ(link.copy(sPath), -1);
  EXPECT_THAT(link.messages(), ElementsAre(kFailed + "RPC"));
  EXPECT_FALSE(std::filesystem::exists(sPath));
  const auto unreadable = [](const JParams&) {
    auto pAnswer = std::make_unique<JParams>();
    pAnswer->add("Error", reinterpret_cast<const std::uint8_t*>("no"), 2, JVariant::T_BINARY);
    return pAnswer;
  };
  for (const char* const szRpc : {"rpc_remoteCopy", "rpc_getStreamInfo", "rpc_localCopy"}) {
    SCOPED_TRACE(szRpc);
    link.manager.answer(szRpc, unreadable);
    const bool bLocal = szRpc == std::string("rpc_localCopy");
    EXPECT_EQ(bLocal ? link.control.localCopy("c", 25, "/x", kStart, kEnd) : link.copy(sPath), -1);
    EXPECT_THAT(link.messages(), ElementsAre(bLocal ? "Local Backup Failed: RPC" : kFailed + "RPC"));
  }
  link.manager.answer("rpc_getStreamInfo", "authoringApp=\"x\"");
  EXPECT_EQ(link.copy(sPath), -1);
  EXPECT_THAT(link.messages(), ElementsAre(kFailed + "Stream Info Deserialisation"));
  link.manager.answer("rpc_getStreamInfo", [](const JParams&) {
    auto pAnswer = std::make_unique<JParams>();
    pAnswer->add("StreamInfo", reinterpret_cast<const std::uint8_t*>("garbage"), 7, JVariant::T_BINARY);
    return pAnswer;
  });
  EXPECT_EQ(link.copy(sPath), -1);
  EXPECT_THAT(link.messages(), ElementsAre(kFailed + "Stream Info Deserialisation"));
  EXPECT_FALSE(std::filesystem::exists(sPath));
  link.manager.answer("rpc_getStreamInfo", "ProtocolVersion=\"QM_TPKT\"");
  EXPECT_EQ(link.copy(dir.path("copy.xyz")), -1);
  EXPECT_THAT(link.messages(), ElementsAre(kFailed + "Unable to create file output"));
  EXPECT_FALSE(std::filesystem::exists(dir.path("copy.xyz")));
  EXPECT_EQ(link.copy(dir.path("no/copy.asf")), -1);
  EXPECT_THAT(link.messages(),
              ElementsAre(kFailed + "Unable to create backup file (erroneous or inexistant path)"));
}

TEST(Backup, EndsWhenTheLinkGoes) {
  const qm_test::TempDir dir;
  const qm_ci::StreamInfo info = qm_test::wholeVideoStream();
  for (const bool bInMidCopy : {false, true}) {
    SCOPED_TRACE(bInMidCopy);
    qm_test::ScriptedManager manager;
    JRPCClient client(
        {.sHost = "127.0.0.1", .iPort = manager.getPort(), .bConnectNow = true, .iPingPeriod = 20});
    StorageAccessController3X4X control(client, 60'000);
    manager.answer("rpc_getStreamInfo", "ProtocolVersion=\"QM_TPKT\"");
    manager.hangUp("rpc_hangUp");
    std::thread cutter;
    manager.answer("rpc_remoteCopy", [&](const JParams& params) {
      std::int32_t iPort = 0;
      params.get("BackupPort", iPort, true);
      // Calls exclude each other: the one here goes out when the copy's has its answer.
      cutter = std::thread([&, iPort] {
        JTCPSocket socket;
        const auto push = [&](const std::string& sBytes) { socket.write(sBytes.data(), sBytes.size()); };
        if (bInMidCopy) {
          socket.connect(JInetAddr("127.0.0.1", static_cast<std::uint16_t>(iPort)));
          push(description(info) + framed("before", 2, 48, 1));
        }
        qm_test::thrownBy([&] { client.call("rpc_hangUp", static_cast<const JVariant*>(nullptr), 60'000); });
        if (bInMidCopy) {
          while (client.isConnected()) {
            std::this_thread::yield();
          }
          push(framed("behind", 2, 48, 2));
          char end;
          qm_test::thrownBy([&] { socket.read(&end, 1); });
        }
      });
      return std::make_unique<JParams>();
    });
    const std::string sPath = dir.path(bInMidCopy ? "a.asf" : "b.asf");
    EXPECT_EQ(control.remoteCopy("c", 25, sPath, kStart, kEnd), -1);
    cutter.join();
    EXPECT_EQ(control.getLastError(), kFailed + "QMService link down");
    ASSERT_EQ(std::filesystem::exists(sPath), bInMidCopy);
    if (bInMidCopy) {
      EXPECT_THAT(payloadsOf(sPath), ElementsAre("before", "behind"));
    }
  }
}

/// Whenever it comes, the copy returns, and what came until then is a whole file.
TEST(Backup, IsCancelledFromAnotherThread) {
  const std::string sCopied = copied("first frame") + copied("lost").substr(0, 27);
  const std::string sTpkt = description() + framed("first frame");
  struct {
    const char* name;
    const char* szProtocol;
    const char* szStalled;  ///< the call before whose answer it comes; null for in mid-frame
    std::string sWire;
  } const rows[] = {{"before the receiver is there", "QM_TPKT", "rpc_getStreamInfo", ""},
                    {"before the connection", "QM_TPKT", "rpc_remoteCopy", ""},
                    {"in a remote copy", "", nullptr, sCopied},
                    {"in tpkt", "QM_TPKT", nullptr, sTpkt}};
  const qm_test::TempDir dir;
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    const std::string sPath = dir.path("copy.asf");
    CopyLink link(row.szProtocol);
    EXPECT_FALSE(link.control.cancelCopy()) << "nothing runs";
    link.push(row.sWire, true);
    if (row.szStalled != nullptr) {
      link.manager.stall(row.szStalled);
    }
    std::thread canceller([&] {
      if (row.szStalled != nullptr) {
        link.manager.awaitRequests(std::string(row.szStalled) == "rpc_getStreamInfo" ? 1 : 2);
      } else {
        while (qm_test::readFile(sPath).find("first frame") == std::string::npos) {
          std::this_thread::yield();
        }
      }
      EXPECT_TRUE(link.control.cancelCopy());
      link.manager.release();
    });
    EXPECT_EQ(link.copy(sPath), -1);
    canceller.join();
    EXPECT_THAT(link.messages(), ElementsAre(kFailed + "Cancelled"));
    EXPECT_FALSE(link.control.cancelCopy());
    EXPECT_EQ(std::filesystem::exists(sPath), row.szStalled == nullptr);
    std::filesystem::remove(sPath);
  }
}

TEST(Backup, LimitsItsSpan) {
  ReferenceLink link;
  link.manager.answer("rpc_localCopy");
  link.manager.answer("rpc_getRecordingSize", "Size=4294967301");
  struct {
    const char* szStart;
    const char* szEnd;
    const char* szProblem;  ///< null when there is none
  } const rows[] = {
      {"03/03/2011 10:00:00.000000UTC", "03/06/2011 10:00:00.000000UTC", nullptr},
      {"03/03/2011 10:00:00.000000UTC", "03/06/2011 10:00:00.000001UTC", "Interval too large"},
      {"03/03/2011 10:00:00.000001UTC", "03/03/2011 10:00:00.000000UTC", "Interval too large"},
      {"now", "03/06/2011 10:00:00.000000UTC", "Bad format for Ntp date (see documentation)"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.szEnd);
    const bool bGood = row.szProblem == nullptr;
    const bool bDate = !bGood && row.szProblem[0] == 'B';
    EXPECT_EQ(link.control.localCopy("c", 25, "/x", row.szStart, row.szEnd), bGood ? 0 : -1);
    EXPECT_EQ(link.control.getRecordingSize("c", 25, row.szStart, row.szEnd), bGood ? 5 : 1);
    if (bGood) {
      EXPECT_THAT(link.messages(), IsEmpty());
    } else {
      EXPECT_THAT(link.messages(),
                  ElementsAre(kFailed + row.szProblem, std::string("Local Backup Failed") +
                                                           (bDate ? " Failed: " : ": ") + row.szProblem));
    }
  }
  EXPECT_THAT(
      link.manager.takeRequests(),
      ElementsAre(
          R"(rpc_localCopy(WithAuthentication=true, BackupPath="/x", TsBackupEndDate=12943879200000000, )"
          R"(TsBackupStartDate=12943620000000000, Fps=25, SourceName="c"))",
          R"(rpc_getRecordingSize(SupportedProtocols="QM_TPKT,QM_RCPY30", )"
          R"(TsBackupEndDate=12943879200000000, TsBackupStartDate=12943620000000000, Fps=25, SourceName="c"))"));
  link.manager.answer("rpc_getRecordingSize");
  EXPECT_EQ(link.control.getRecordingSize("c", 25, kStart, kEnd), 0);
  link.manager.refuse("rpc_getRecordingSize", "no");
  EXPECT_EQ(link.control.getRecordingSize("c", 25, kStart, kEnd), 0);
  link.manager.fail("rpc_getRecordingSize", "no");
  EXPECT_EQ(link.control.getRecordingSize("c", 25, kStart, kEnd), 1);
  EXPECT_THAT(link.messages(), ElementsAre(kFailed + "RPC", "no"));
}

TEST(Backup, FeedsAChild) {
  CopyLink link("");
  std::string sOutput;
  std::string sError;
  std::int32_t iStatus = -7;
  const auto pipe = [&](const std::string& sCommandLine) {
    return link.control.remoteCopyToProcess("c", 25, "asf", sCommandLine, nullptr, kStart, kEnd, &sOutput,
                                            &sError, iStatus);
  };
  link.push(copied("first frame") + copied(""));
  EXPECT_EQ(pipe("sh -c \"tr -d '\\200-\\377'; echo done >&2; exit 3\""), 0);
  EXPECT_EQ(iStatus, 3);
  EXPECT_NE(sOutput.find("first frame"), std::string::npos);
  EXPECT_EQ(sOutput.find('\0'), std::string::npos);
  EXPECT_EQ(sError, "done\n");

  std::string sMuch;
  for (int i = 0; i < 1000; ++i) {
    sMuch += copied(std::string(1000, 'x'));
  }
  link.push(sMuch + copied(""));
  EXPECT_EQ(pipe("sh -c \"head -c 20000 >/dev/null; exit 4\""), -1) << "more than a pipe holds";
  EXPECT_EQ(iStatus, 4);
  EXPECT_THAT(link.messages(), ElementsAre(kFailed + "Couldn't write received field on disk"));

  iStatus = -7;
  EXPECT_EQ(pipe("no-such-program-of-anybody"), -1);
  EXPECT_EQ(iStatus, -7);
  EXPECT_THAT(link.messages(), ElementsAre(kFailed + "Unable to create process"));
}

}  // namespace
