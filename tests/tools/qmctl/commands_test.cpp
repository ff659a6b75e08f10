#include <gmock/gmock.h>

#include "tests/support/tempdir.h"
#include "tests/tools/qmctl/toolsupport.h"
#include "tools/qmctl/failure.h"

namespace {

using qm_test::runTool;
using qm_test::SmallArchive;

constexpr const char* kStart = "2011-03-03T10:00:00Z";
constexpr const char* kEnd = "@12943623600000000";

TEST(Commands, PrintTablesAndJson) {
  struct {
    std::vector<std::string> arguments;
    std::string sTable;
    std::string sJson;
  } const rows[] = {
      {{"sources"}, "SOURCE  FPS\ngate    25,5\n", R"({"source":"gate","fps":[25,5]})"},
      {{"alarms"}, "ALARM\ndoor\n", R"({"alarm":"door"})"},
      {{"search"},
       "SOURCE  TYPE   FPS  START                          END\n"
       "g😀      video  25   03/03/2011 10:00:00.000000UTC  03/03/2011 11:00:00.000000UTC\n",
       R"({"source":"g😀","type":"video","fps":25,"start":"03/03/2011 10:00:00.000000UTC",)"
       R"("end":"03/03/2011 11:00:00.000000UTC"})"},
      {{"log", "alarm", "gate", "25"},
       "NAME  START                          END                            DATE\n"
       "door  03/03/2011 10:00:00.000000UTC  03/03/2011 11:00:00.000000UTC  03/03/2011 10:00:00.000001UTC\n",
       R"({"name":"door","start":"03/03/2011 10:00:00.000000UTC","end":"03/03/2011 11:00:00.000000UTC",)"
       R"("date":"03/03/2011 10:00:00.000001UTC"})"},
      {{"log", "protection", "gate", "25"},
       "START                          END                            VALID FROM                     "
       "VALID UNTIL                    DETAILS\n"
       "03/03/2011 10:00:00.000000UTC  03/03/2011 11:00:00.000000UTC  03/03/2011 10:00:00.000001UTC  "
       "01/19/2038 03:14:07.551615UTC  why\n",
       R"({"start":"03/03/2011 10:00:00.000000UTC","end":"03/03/2011 11:00:00.000000UTC",)"
       R"("validFrom":"03/03/2011 10:00:00.000001UTC","validUntil":"01/19/2038 03:14:07.551615UTC",)"
       R"("details":"why"})"},
      {{"log", "metadata", "gate", "25"},
       "START                          END                            METADATA\n"
       "03/03/2011 10:00:00.000000UTC  03/03/2011 11:00:00.000000UTC  colour=\"red\", lane=2\n",
       R"({"start":"03/03/2011 10:00:00.000000UTC","end":"03/03/2011 11:00:00.000000UTC",)"
       R"("params":{"colour":"red","lane":2}})"},
      {{"analytics", "sources", "gate", "25"},
       "SOURCE  ANALYTICS SOURCE  ANALYTICS  TYPE    FPS  GRID WIDTH  GRID HEIGHT\n"
       "gate    ga                m          motion  25   22          18\n",
       R"({"source":"gate","analyticsSource":"ga","analytics":"m","type":"motion","fps":25,"gridWidth":22,)"
       R"("gridHeight":18})"},
  };
  SmallArchive archive;
  for (const auto& row : rows) {
    auto arguments = archive.withServer({});
    arguments.insert(arguments.end(), row.arguments.begin(), row.arguments.end());
    const auto table = runTool(arguments);
    EXPECT_EQ(table.sOut, row.sTable);
    EXPECT_EQ(table.iStatus, 0) << table.sError;
    arguments.push_back("--json");
    EXPECT_EQ(runTool(arguments).sOut, row.sJson + "\n");
  }
  EXPECT_EQ(runTool(archive.withServer({"status"})).sOut,
            "SERVER" + std::string(std::to_string(archive.manager.getPort()).size() + 6, ' ') +
                "LINK       VERSION  GENERATION\n127.0.0.1:" + std::to_string(archive.manager.getPort()) +
                "  connected  4.2      3.x/4.x\n");
}

TEST(Commands, SayInWordsWhereAProtectionHasNoEnd) {
  const std::string sRecord = "ProtectedLog_ProtectedLog__ProtectedLogRecord_set0__";
  SmallArchive archive;
  archive.manager.answer("rpc_getProtectedLog", "ProtectedLog_ProtectedLog__size=1, " + sRecord +
                                                    "ProtectedStartDate=12943620000000000, " + sRecord +
                                                    "ProtectedEndDate=12943623600000000, " + sRecord +
                                                    "ValidityStartDate=0, " + sRecord +
                                                    "ValidityEndDate=0, " + sRecord + "Details=\"why\"");
  const auto table = runTool(archive.withServer({"log", "protection", "gate", "25"}));
  EXPECT_THAT(table.sOut, testing::EndsWith("11:00:00.000000UTC  at once     for good     why\n"));
  const auto json = runTool(archive.withServer({"--json", "log", "protection", "gate", "25"}));
  EXPECT_THAT(json.sOut, testing::HasSubstr(R"("validFrom":null,"validUntil":null,"details":"why")"));
}

/// Escapes sequences of a terminal can stand in any name that a Manager gives.
TEST(Commands, LetNoControlCharacterReachTheTerminal) {
  SmallArchive archive;
  archive.manager.answer("rpc_getAlarmNames",
                         "jrpc_set_AlarmNamesSet__size=1, jrpc_set_AlarmNamesSet__set0=\"a\x1B[2J\xC2\x9B\"");
  EXPECT_EQ(runTool(archive.withServer({"alarms"})).sOut, "ALARM\na?[2J?\n");
  archive.manager.refuse("rpc_getAlarmNames", "no\x1B");
  EXPECT_EQ(runTool(archive.withServer({"alarms"})).sError, "qmctl: no?\n");
}

TEST(Commands, AskTheManager) {
  const std::string sOfGate = R"(Fps=25, SourceName="gate"))";
  struct {
    std::vector<std::string> arguments;
    std::string sRequest;
  } const rows[] = {
      {{"protect", "gate", "25", kStart, kEnd, "--until", "@12943627200000000", "--details", "a \"b\""},
       R"(rpc_protect(Details="a \"b\"", TsValidEnd=12943627200000000, TsValidStart=0, )"
       "TsProtectedEnd=12943623600000000, TsProtectedStart=12943620000000000, " +
           sOfGate},
      {{"unprotect", "gate", "25", kStart, kEnd},
       "rpc_unprotect(TsProtectedEnd=12943623600000000, TsProtectedStart=12943620000000000, " + sOfGate},
      {{"alarm", "gate", "25", "search", kStart, kEnd},
       "rpc_alarm(TsAlarmEnd=12943623600000000, TsAlarmStart=12943620000000000, "
       "TsAlarmIncident=12943620000000000, AlarmName=\"search\", " +
           sOfGate},
      {{"remove-alarm", "gate", "25", "door", kStart, kEnd},
       "rpc_removeAlarmByInterval(TsAlarmEnd=12943623600000000, TsAlarmStart=12943620000000000, "
       "AlarmName=\"door\", " +
           sOfGate},
      {{"remove-alarm", "gate", "25", "door", "--at", kEnd},
       "rpc_removeAlarmByDate(TsAlarmIncident=12943623600000000, AlarmName=\"door\", " + sOfGate},
      {{"hide", "gate", "25", kStart, kEnd, kStart, kEnd},
       "rpc_hideIntervals(Intervals=\"03/03/2011 10:00:00.000000UTC-03/03/2011 11:00:00.000000UTC;"
       "03/03/2011 10:00:00.000000UTC-03/03/2011 11:00:00.000000UTC\", " +
           sOfGate},
      {{"unhide", "gate", "25", kStart, kEnd},
       "rpc_unhideIntervals(Intervals=\"03/03/2011 10:00:00.000000UTC-03/03/2011 11:00:00.000000UTC\", " +
           sOfGate},
      {{"set-metadata", "gate", "25", kStart, kEnd, "k=1"},
       "rpc_setMetaData(Params=\"k=1\", TsIntervalEnd=12943623600000000, "
       "TsIntervalStart=12943620000000000, " +
           sOfGate},
      {{"unset-metadata", "gate", "25", kStart, kEnd, "k,l"},
       "rpc_unsetMetaData(Params=\"k,l\", TsIntervalEnd=12943623600000000, "
       "TsIntervalStart=12943620000000000, " +
           sOfGate},
      {{"add-file", "clip.asf", "g\xF0\x9F\x98\x80", "--start", kStart},
       "rpc_addFile(StartDate=\"03/03/2011 10:00:00.000000UTC\", AlarmName=\"\", "
       "SourceName=\"g\xED\xA0\xBD\xED\xB8\x80\", DiskSpaceName=\"\", FileName=\"clip.asf\")"},
  };
  SmallArchive archive;
  for (const auto& row : rows) {
    SCOPED_TRACE(row.sRequest);
    auto arguments = archive.withServer({});
    arguments.insert(arguments.end(), row.arguments.begin(), row.arguments.end());
    const auto run = runTool(arguments);
    EXPECT_EQ(run.iStatus, 0) << run.sError;
    EXPECT_EQ(run.sOut, "done\n");
    EXPECT_THAT(archive.manager.takeRequests(), testing::ElementsAre(row.sRequest));
  }
}

TEST(Commands, TurnOptionsOfASearchIntoCriteria) {
  struct {
    std::vector<std::string> options;
    std::vector<std::string> keys;  ///< of the request
  } const rows[] = {
      {{"--source", "a,\"b", "--type", "Video", "--min-fps", "5"},
       {R"(SourceName="a,\"b")", R"(DataType="video/*")", "MinFPS=5", "MaxFPS=2147483647"}},
      {{"SourceName=\"a\",Fps=5", "--source", "b"}, {R"(SourceName="b")", "MaxFPS=5"}},
      {{"StartDate=\"2011-03-03T10:00:00Z\"", "--end", kEnd},
       {"StartDate=12943620000000000", "EndDate=12943623600000000"}},
      {{"--alarm", "door", "--exclude-protected"},
       {R"(AlarmName="door")", "RequireAlarm=true", "ExcludeProtected=true"}},
      {{"--exclude-alarm", "*"}, {R"(AlarmName="*")", "ExcludeAlarm=true", "RequireAlarm=false"}},
      {{"--metadata", "case"}, {R"(MetaData="case")", "RequireMetaDataByName=true"}},
      {{"--exclude-metadata", "case=17"}, {R"(MetaData="case=17")", "ExcludeMetaDataByValue=true"}},
      {{"--analytics", "without", "--analytics-type", "m*"},
       {R"(AnalyticsType="m*")", "ExcludeSrcWithAnalytics=true"}},
  };
  SmallArchive archive;
  for (const auto& row : rows) {
    auto arguments = archive.withServer({"search"});
    arguments.insert(arguments.end(), row.options.begin(), row.options.end());
    const auto run = runTool(arguments);
    EXPECT_EQ(run.iStatus, 0) << run.sError;
    const std::vector<std::string> requests = archive.manager.takeRequests();
    ASSERT_EQ(requests.size(), 1U);
    for (const std::string& sKey : row.keys) {
      EXPECT_THAT(requests[0], testing::HasSubstr("StorageQuery__" + sKey));
    }
  }
}

TEST(Commands, EndWithTheStatusOfTheirFailure) {
  SmallArchive archive;
  archive.manager.refuse("rpc_unprotect", "");
  struct {
    const char* szName;
    std::vector<std::string> arguments;
    int iStatus;
    std::string sError;  ///< a part of it
  } const rows[] = {
      {"refused", archive.withServer({"erase", "gate", "25", kStart, kEnd}), 1, "qmctl: it is protected\n"},
      {"refused without a word", archive.withServer({"unprotect", "gate", "25", kStart, kEnd}), 1,
       "qmctl: the Manager refused and gave no reason\n"},
      {"no such day", archive.withServer({"search", "--start", "02/31/2011 10:00:00.000000UTC"}), 2,
       "not a date"},
      {"bad date in the criteria", archive.withServer({"search", "EndDate=\"now\""}), 2, "not a date: 'now'"},
      {"bad date of a command", archive.withServer({"protect", "g", "1", "x", kEnd}), 2, "not a date: 'x'"},
      {"unknown criterion", archive.withServer({"search", "Source=\"gate\""}), 2, "no criterion 'Source'"},
      {"criteria cut short", archive.withServer({"search", "Fps=5 SourceName=\"g\""}), 2, "can't be read"},
      {"both sides of a condition", archive.withServer({"search", "--protected", "--exclude-protected"}), 2,
       "excludes"},
      {"empty date", archive.withServer({"protect", "g", "1", kStart, kEnd, "--until", ""}), 2,
       "not a date: ''"},
      {"odd number of dates", archive.withServer({"hide", "g", "1", kStart}), 2, "needs an END"},
      {"alarm by nothing", archive.withServer({"remove-alarm", "g", "1", "a", kStart}), 2, "--at"},
      {"not UTF-8", archive.withServer({"log", "alarm", "\xFF", "25"}), 2, "UTF-8"},
      {"unknown command", {"explode"}, 2, "no command 'explode'"},
      {"no command", {}, 2, "subcommand is required"},
      {"unknown level", {"--log-level", "loud", "status"}, 2, "no log level 'loud'"},
      {"no Manager", {"--port", "1", "--server", "127.0.0.1", "status"}, 3, "no connection to 127.0.0.1:1: "},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.szName);
    const auto run = runTool(row.arguments);
    EXPECT_EQ(run.iStatus, row.iStatus);
    EXPECT_THAT(run.sError, testing::HasSubstr(row.sError));
    EXPECT_EQ(run.sOut, "");
  }
}

/// The end of the link looks like the end of the rows.
TEST(Commands, FailWhenTheLinkIsLostBetweenRows) {
  SmallArchive archive;
  qmctl::Session session({.sServer = "127.0.0.1", .iPort = archive.manager.getPort()});
  try {
    session.forEachRow([](auto& control, auto& iQueryId) { control.AlarmNamesQuery(iQueryId); },
                       [&](const std::string&) { session.getControl().Disconnect(); });
    ADD_FAILURE() << "nothing said";
  } catch (const qmctl::Failure& failure) {
    EXPECT_STREQ(failure.what(), "the link to the Manager went down; rows may be missing");
  }
}

TEST(Commands, EraseOnATerminalOnlyWhenAnswered) {
  struct {
    const char* szAnswer;
    bool bTerminal;
    bool bErases;
  } const rows[] = {{"y\n", true, true}, {"\n", true, false}, {"", true, false}, {"", false, true}};
  SmallArchive archive;
  archive.manager.answer("rpc_erase");
  for (const auto& row : rows) {
    const auto run =
        runTool(archive.withServer({"erase", "gate", "25", kStart, kEnd}), row.szAnswer, row.bTerminal);
    EXPECT_EQ(run.iStatus, row.bErases ? 0 : 1);
    EXPECT_EQ(archive.manager.takeRequests().size(), row.bErases ? 1U : 0U);
  }
}

TEST(Commands, LogIntoAFileWhatIsAskedFor) {
  SmallArchive archive;
  const qm_test::TempDir directory;
  const auto logOf = [&](const std::string& sLevel) {
    const std::string sFile = directory.path(sLevel);
    runTool(archive.withServer({"--log", sFile, "--log-level", sLevel, "erase", "g", "1", kStart, kEnd}));
    return qm_test::readFile(sFile);
  };
  EXPECT_THAT(logOf("error"),
              testing::AllOf(testing::StartsWith("ERROR"), testing::HasSubstr("it is protected"),
                             testing::Not(testing::HasSubstr("TRACE"))));
  EXPECT_THAT(logOf("debug"), testing::HasSubstr("TRACE_NETWORK"));
}

}  // namespace
