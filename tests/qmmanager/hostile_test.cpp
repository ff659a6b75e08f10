#include <chrono>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <set>
#include <string>
#include <vector>

#include "coreapi/qmutils/params/jparams.h"
#include "coreapi/qmutils/socket/jtcpsocket.h"
#include "tests/qmmanager/servedarchive.h"
#include "tests/storage/readersupport.h"
#include "tests/support/logcapture.h"
#include "tests/support/thrownby.h"

namespace {

namespace fs = std::filesystem;
using namespace qm_test;
using testing::AnyOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::SizeIs;
using testing::StartsWith;

/// Every path under a directory.
std::set<std::string> everything(const std::string& sPath) {
  std::set<std::string> paths;
  for (const auto& entry : fs::recursive_directory_iterator(sPath)) {
    paths.insert(entry.path().string());
  }
  return paths;
}

/// 200 names that try to lead elsewhere, or to break what takes them.
std::vector<std::string> hostileNames(const std::string& sOutside) {
  const std::vector<std::string> kParts = {
      "",    ".",   "..",      "/",         "\\",    "%2e%2e%2f", "%00",      std::string(1, '\0'),
      "~",   "*",   "?",       "[",         "$HOME", "`id`",      "\r\n",     "\x1b[2J",
      "con", "nul", "current", "qmarchive", "%",     "%zz",       "\xFF\xFE", "\xC0\xAE\xC0\xAE/",
      "-",   "--",  "gate",    "quarantine"};
  std::vector<std::string> names = {sOutside,
                                    "../outside",
                                    "../../outside",
                                    "gate/25",
                                    "gate/../gate",
                                    std::string(300, 'x'),
                                    std::string(5000, '.'),
                                    std::string(1 << 20, '/'),
                                    "alarm.log",
                                    "../outside/secret.asf",
                                    std::string("gate\0/../..", 11),
                                    "%2e%2e%2foutside"};
  for (std::size_t i = 0; names.size() < 200; ++i) {
    const std::string& sFirst = kParts[i % kParts.size()];
    const std::string& sSecond = kParts[i / kParts.size() % kParts.size()];
    names.push_back(sFirst + sSecond + "/" + sFirst + (i % 2 == 0 ? "" : "/outside"));
  }
  return names;
}

std::string requestOf(const std::string& sFunction, const JParams& parameters) {
  std::string sList;
  parameters.toText(sList);
  return sFunction + "(" + sList + ")";
}

TEST(ManagerUnderAttack, StaysInItsDirectory) {
  ServedArchive served;
  served.record("gate", 25, 0, 25, wholeVideoStream());
  const std::string sOutside = served.temp.path("outside");
  for (const char* const szDirectory : {"outside", "copies", "imports"}) {
    fs::create_directory(served.temp.path(szDirectory));
  }
  writeAsf(sOutside + "/secret.asf", 3);
  qm_manager::Manager::Settings settings;
  settings.sCopyDirectory = served.temp.path("copies");
  settings.sImportDirectory = served.temp.path("imports");
  served.serve(settings);

  // Each function, and its parameters that are names.
  const struct {
    const char* szFunction;
    std::vector<const char*> names;
  } kFunctions[] = {
      {"rpc_getAlarmLog", {"SourceName"}},
      {"rpc_analyticsSourceQuery", {"SourceName"}},
      {"rpc_protect", {"SourceName", "Details"}},
      {"rpc_alarm", {"SourceName", "AlarmName"}},
      {"rpc_removeAlarmByInterval", {"SourceName", "AlarmName"}},
      {"rpc_setMetaData", {"SourceName", "Params"}},
      {"rpc_unsetMetaData", {"SourceName", "Params"}},
      {"rpc_hideIntervals", {"SourceName", "Intervals"}},
      {"rpc_erase", {"SourceName"}},
      {"rpc_addFile", {"FileName", "DiskSpaceName", "SourceName", "AlarmName", "StartDate"}},
      {"rpc_localCopy", {"SourceName", "BackupPath"}},
      {"rpc_getStreamInfo", {"SourceName", "SupportedProtocols"}},
      {"rpc_getRecordingSize", {"SourceName", "SupportedProtocols"}},
      {"rpc_remoteCopy", {"SourceName", "ProtocolVersion"}},
  };
  JParams common;
  common.parse(
      "SourceName=\"gate\",Fps=25,AlarmName=\"a\",Params=\"a=1\",Details=\"\",Intervals=\"\",BackupPort=1,"
      "WithAuthentication=true,SupportedProtocols=\"QM_TPKT\",ProtocolVersion=\"QM_TPKT\",FileName=\"a\","
      "DiskSpaceName=\"\",StartDate=\"\",BackupPath=\"a\"");
  for (const char* const szSpan :
       {"TsProtected", "TsValid", "TsAlarm", "TsInterval", "TsErase", "TsBackup"}) {
    for (const char* const szSuffix : {"", "Date"}) {
      common.add(std::string(szSpan) + "Start" + szSuffix, kBegin);
      common.add(std::string(szSpan) + "End" + szSuffix, kBegin + 1);
    }
  }
  // What was made beforehand is all there may be, but for the logs of the one source, and copies.
  const auto known = [&](const std::string& sPath) {
    return (sPath.starts_with(served.root() + "/gate/25/") && sPath.ends_with(".log")) ||
           sPath.starts_with(settings.sCopyDirectory + "/");
  };
  const std::set<std::string> before = everything(served.temp.path(""));
  const auto names = hostileNames(sOutside);
  ASSERT_THAT(names, SizeIs(200));
  const LogCapture log;  // hostile names are many lines
  for (const auto& function : kFunctions) {
    for (const char* const szKey : function.names) {
      for (const std::string& sName : names) {
        JParams parameters = common;
        parameters.add(szKey, sName);
        const std::string sAnswer = served.ask(requestOf(function.szFunction, parameters));
        ASSERT_THAT(sAnswer, AnyOf(StartsWith("OK "), StartsWith("FAILED ")))
            << function.szFunction << " " << szKey << " " << sName.substr(0, 100);
      }
    }
  }
  for (const std::string& sPath : everything(served.temp.path(""))) {
    EXPECT_TRUE(before.contains(sPath) || known(sPath)) << sPath;
  }
  EXPECT_THAT(served.found(""), SizeIs(1));
}

TEST(ManagerUnderAttack, ServesOthersWhileOneDoesNotRead) {
  ServedArchive served;
  for (int i = 0; i < 50; ++i) {
    served.unit(std::string(200, 'x') + std::to_string(i), 25);
  }
  served.serve();
  // Requests without end, no answer of which is ever read: its connection stalls, alone.
  JTCPSocket greedy;
  greedy.connect(JInetAddr("127.0.0.1", served.pManager->getPort()));
  greedy.setWriteTimeout(200);
  std::string sRequests;
  for (int i = 0; i < 2000; ++i) {
    sRequests += "rpc_getSourceMap()\r\n";
  }
  EXPECT_THAT(thrownBy([&] {
                for (int i = 0; i < 10'000; ++i) {
                  greedy.write(sRequests.data(), sRequests.size());
                }
              }),
              testing::Not(testing::IsEmpty()));
  for (int i = 0; i < 20; ++i) {
    const auto start = std::chrono::steady_clock::now();
    EXPECT_THAT(served.rows(served.pControl->sourcesQuery()), SizeIs(50));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
  }
}

TEST(ManagerUnderAttack, ServesAnArchiveWithDamage) {
  ServedArchive served;
  served.record("gate", 25, 0, 25, wholeVideoStream());
  const std::string sUnit = served.unit("gate", 25);
  std::ofstream(sUnit + "/20110303-080010000000-20110303-080011000000-000000000005.asf") << "no media";
  std::ofstream(sUnit + "/stub.asf") << "neither";
  std::ofstream(sUnit + "/alarm.log") << "this is no alarm\n";
  std::ofstream(sUnit + "/protection.log") << "ProtectionPeriod=0\nnonsense\n";
  fs::create_directory(sUnit + "/metadata.log");
  served.serve();
  StorageAccessController& control = *served.pControl;
  EXPECT_THAT(served.found(""), ElementsAre("gate/25 0-24", "gate/25 250-275"));
  EXPECT_TRUE(fs::exists(served.root() + "/quarantine/stub.asf"));
  // Logs that couldn't be read are left as they are, and say so.
  const auto s0 = frameDate(0);
  const auto s9 = frameDate(9);
  EXPECT_EQ(control.alarm("gate", 25, "door", s0, s0, s9), -1);
  EXPECT_THAT(served.message(), HasSubstr("wasn't read to its end, so it isn't written"));
  EXPECT_EQ(control.protect("gate", 25, s0, s9, "", "", ""), -1);
  EXPECT_EQ(control.setMetaData("gate", 25, s0, s9, "a=1"), -1);
  EXPECT_EQ(control.hideIntervals("gate", 25, s0 + "-" + s9), 0);
  EXPECT_EQ(readFile(sUnit + "/alarm.log"), "this is no alarm\n");
}

}  // namespace
