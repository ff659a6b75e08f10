#include <gmock/gmock.h>
#include <string>
#include <thread>
#include <vector>

#include "tests/qmactivexctrl/qmstorageaccesscontroller/pushing.h"
#include "tests/qmactivexctrl/qmstorageaccesscontroller/referencelink.h"
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
  explicit CopyLink(const std::string& sProtocol) : Pushing(manager, sProtocol) {}

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
      {"copy that stalls", "", sOne + copied("lost").substr(0, 27), {"first frame"}, {kHostDown}, true},
      {"tpkt",
       "QM_TPKT",
       description() + framed("first frame") + framed("second frame") + tpkt(""),
       {"first frame", "second frame"},
       {}},
      {"tpkt of nothing", "QM_TPKT", tpkt(""), {}, {}},
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

TEST(Backup, BeginsAnotherFileWhenTheStreamChanges) {
  const qm_test::TempDir dir;
  CopyLink link("QM_TPKT");
  link.push(description() + framed("in the first") + description() + framed("in the second") + description() +
            framed("in the third") + tpkt(""));
  EXPECT_EQ(link.copy(dir.path("a.b.asf")), 0);
  EXPECT_NE(qm_test::readFile(dir.path("a.b.asf")).find("in the first"), std::string::npos);
  EXPECT_NE(qm_test::readFile(dir.path("a.b1.asf")).find("in the second"), std::string::npos);
  EXPECT_NE(qm_test::readFile(dir.path("a.b2.asf")).find("in the third"), std::string::npos);
  const std::string sSecond = qm_test::readFile(dir.path("a.b1.asf"));
  for (const char* szProperty : {"tester", "startTimeStamp=\"03/03/2011 10:00:00.000000UTC\""}) {
    EXPECT_NE(sSecond.find(szProperty), std::string::npos) << szProperty;
  }
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
  link.manager.answer("rpc_getStreamInfo", "authoringApp=\"x\"");
  EXPECT_EQ(link.copy(sPath), -1);
  EXPECT_THAT(link.messages(), ElementsAre(kFailed + "Stream Info Deserialisation"));
  link.manager.answer("rpc_getStreamInfo", "ProtocolVersion=\"QM_TPKT\"");
  EXPECT_EQ(link.copy(dir.path("copy.xyz")), -1);
  EXPECT_THAT(link.messages(), ElementsAre(kFailed + "Unable to create file output"));
  EXPECT_FALSE(std::filesystem::exists(dir.path("copy.xyz")));
  EXPECT_EQ(link.copy(dir.path("no/copy.asf")), -1);
  EXPECT_THAT(link.messages(),
              ElementsAre(kFailed + "Unable to create backup file (erroneous or inexistant path)"));
}

TEST(Backup, EndsItsWaitWhenTheLinkGoes) {
  const qm_test::TempDir dir;
  qm_test::ScriptedManager manager;
  JRPCClient client(
      {.sHost = "127.0.0.1", .iPort = manager.getPort(), .bConnectNow = true, .iPingPeriod = 20});
  StorageAccessController3X4X control(client, 60'000);
  manager.answer("rpc_getStreamInfo", "ProtocolVersion=\"QM_TPKT\"");
  manager.hangUp("rpc_hangUp");
  std::thread cutter;
  manager.answer("rpc_remoteCopy", [&](const JParams&) {
    // Calls exclude each other: this one goes out when the copy's has its answer.
    cutter = std::thread([&] {
      qm_test::thrownBy([&] { client.call("rpc_hangUp", static_cast<const JVariant*>(nullptr), 60'000); });
    });
    return std::make_unique<JParams>();
  });
  EXPECT_EQ(control.remoteCopy("c", 25, dir.path("a.asf"), kStart, kEnd), -1);
  cutter.join();
  EXPECT_EQ(control.getLastError(), kFailed + "QMService link down");
  EXPECT_FALSE(std::filesystem::exists(dir.path("a.asf")));
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
