#include <gmock/gmock.h>
#include <string>
#include <vector>

#include "qmactivexctrl/qmstorageaccesscontroller/ServerGeneration.h"
#include "tests/coreapi/qmci/streamsamples.h"
#include "tests/qmmanager/servedarchive.h"
#include "tests/storage/readersupport.h"
#include "tests/support/thrownby.h"

namespace {

using namespace qm_test;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

using Rows = std::vector<std::string>;

TEST(ManagerQueries, FindWhatTheArchiveHolds) {
  ServedArchive served;
  const auto video = wholeVideoStream();
  const auto data = dataStream();
  for (const std::uint64_t uFirst : {0, 25, 50, 100}) {  // the last one after a gap of a second
    served.record("gate", 25, uFirst, 25, video);
  }
  served.record("gate", 5, 0, 25, video);
  served.record("hall", 5, 1000, 10, data);
  served.serve();
  StorageAccessController& control = *served.pControl;
  ASSERT_EQ(control.alarm("gate", 25, "door", frameDate(12), frameDate(10), frameDate(30)), 0);
  ASSERT_EQ(control.protect("gate", 25, frameDate(60), frameDate(110), "", "", "kept"), 0);
  ASSERT_EQ(control.setMetaData("hall", 5, frameDate(1002), frameDate(1004), "plate=\"QM 1\""), 0);
  ASSERT_EQ(control.hideIntervals("gate", 5, frameDate(0) + "-" + frameDate(5) + ";"), 0);

  const struct {
    std::string sCriteria;
    Rows found;
  } kRows[] = {
      {"", {"gate/5 5+-24", "gate/25 0-74", "gate/25 100-124", "hall/5 1000-1009"}},
      {"SourceName=\"g*\",MinFps=6", {"gate/25 0-74", "gate/25 100-124"}},
      {"Fps=25,StartDate=\"" + frameDate(20) + "\",EndDate=\"" + frameDate(105) + "\"",
       {"gate/25 20-74", "gate/25 100-105"}},
      {"FileType=\"Data\"", {"hall/5 1000-1009"}},
      {"FileType=\"Audio\"", {}},
      {"RequireAlarm=true,AlarmName=\"d*\"", {"gate/25 10-30"}},
      {"RequireAlarm=true,AlarmName=\"window\"", {}},
      {"RequireProtected=true", {"gate/25 60-74", "gate/25 100-110"}},
      {"MetaData=\"plate\",RequireMetaDataByName=true", {"hall/5 1002-1004"}},
      {"MetaData=\"plate=\\\"QM*\\\"\",RequireMetaDataByValue=true", {"hall/5 1002-1004"}},
      {"SourceName=\"cellar\"", {}},
  };
  for (const auto& row : kRows) {
    EXPECT_EQ(served.found(row.sCriteria), row.found) << row.sCriteria;
    EXPECT_EQ(served.message(), "") << row.sCriteria;
  }
  EXPECT_EQ(control.databaseQuery("MetaData=\"no list\",RequireMetaDataByValue=true"), 0);
  EXPECT_THAT(served.message(), StartsWith("SyntaxError for parameter"));

  EXPECT_THAT(served.rows(control.sourcesQuery()),
              ElementsAre("SourceName=\"gate\",Fps=\"5,25\"", "SourceName=\"hall\",Fps=\"5\""));
  EXPECT_THAT(served.rows(control.alarmNamesQuery()), ElementsAre("door"));
  EXPECT_THAT(served.rows(control.analyticsSourceQuery("*", 5)),
              ElementsAre(HasSubstr("AnalyticsSourceName=\"hall\"")));
  EXPECT_EQ(served.message(), "");
  EXPECT_EQ(control.alarmLogQuery("cellar", 5), 0);
  EXPECT_EQ(served.message(), "there is no recording of \"cellar\" at the frame rate 5");
}

TEST(ManagerQueries, AreOfTheDialectThatClientsChoose) {
  for (std::int32_t iMajor = 0; iMajor < 6; ++iMajor) {
    for (std::int32_t iMinor = 0; iMinor < 50; ++iMinor) {
      const bool bSpoken = iMajor > 2 && selectGeneration(iMajor, iMinor) == ServerGeneration::k3X4X;
      EXPECT_EQ(thrownBy([&] {
                  qm_manager::Manager::checkVersion({iMajor, iMinor});
                }).empty(),
                bSpoken)
          << iMajor << "." << iMinor;
    }
  }
}

TEST(ManagerQueries, TellAboutTheManager) {
  ServedArchive served;
  served.record("gate", 25, 0, 25, wholeVideoStream());
  served.serve({.version = {3, 7}});
  EXPECT_THAT(served.ask("getParams(nop=0)"), HasSubstr("name=\"qmmanagerd\", units=1, version="));
  const struct {
    const char* szRequest;
    const char* szAnswer;
  } kRows[] = {
      {"PING", "PONG"},
      {"getRPCVersion()", "OK RPCVersion=\"3.7\""},
      {"getVersionString(nop=0)", "OK ProductVersion=\"3, 7, 0, 0\""},
      {"setParams(a=1)", "OK Error=\"this Manager has no parameters that can be set\""},
      {"rpc_analyticsCreateQuery(SourceName=\"gate\")",
       "OK Error=\"this Manager has no searches by analytics\""},
      {"rpc_nothing()", "FAILED ProtocolError: unknown function 'rpc_nothing'"},
      {"rpc_getAlarmLog(SourceName=\"gate\")", "OK Error=\"the parameter \\\"Fps\\\" is missing\""},
      {"rpc_getAlarmLog(SourceName=\"gate\",Fps=\"x\")",
       "OK Error=\"the parameter \\\"Fps\\\" is no whole number\""},
      {"rpc_getAlarmLog(SourceName=\"gate\",Fps=4294967321)",
       "OK Error=\"the parameter \\\"Fps\\\" is out of range\""},
      {"rpc_getAlarmLog(SourceName=[00],Fps=25)", "OK Error=\"the parameter \\\"SourceName\\\" is no text\""},
      {"rpc_unprotect(SourceName=\"gate\",Fps=25,TsProtectedStart=-1,TsProtectedEnd=5)",
       "OK Error=\"the parameter \\\"TsProtectedStart\\\" is no date between the years 1601 and 9999\""},
      {"rpc_unprotect(SourceName=\"gate\",Fps=25,TsProtectedStart=6,TsProtectedEnd=5)",
       "OK Error=\"the parameter \\\"TsProtectedEnd\\\" is before the start\""},
  };
  for (const auto& row : kRows) {
    EXPECT_EQ(served.ask(row.szRequest), row.szAnswer);
  }
}

}  // namespace
