#include <gmock/gmock.h>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "tests/qmactivexctrl/qmstorageaccesscontroller/referencelink.h"
#include "tests/support/logcapture.h"

namespace {

using qm_test::functionOf;
using qm_test::ReferenceLink;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

using Control = IStorageAccessControl;

struct Query {
  std::int32_t (*run)(Control& control);
  std::string sRequest;
  std::string sAnswer;
  std::vector<std::string> rows;
  std::string sNotConnected;
  std::string sRpc;
  std::string sDeserialisation;
};

/// Puts a prefix in front of each key.
std::string under(const std::string& sPrefix, const std::string& sKeys) {
  std::string sList = sPrefix + sKeys;
  for (std::size_t uAt = sList.find(", "); uAt != std::string::npos; uAt = sList.find(", ", uAt + 2)) {
    sList.insert(uAt + 2, sPrefix);
  }
  return sList;
}

/// The request of a search, with other values than the defaults for some keys.
std::string search(const std::map<std::string, std::string>& changes) {
  std::string sKeys;
  for (const std::string sKey : {"AlarmName",
                                 "AnalyticsType",
                                 "DataType",
                                 "EndDate",
                                 "ExcludeAlarm",
                                 "ExcludeMetaDataByName",
                                 "ExcludeMetaDataByValue",
                                 "ExcludeProtected",
                                 "ExcludeSrcAnalytics",
                                 "ExcludeSrcWithAnalytics",
                                 "MaxFPS",
                                 "MetaData",
                                 "MinFPS",
                                 "RequireAlarm",
                                 "RequireMetaDataByName",
                                 "RequireMetaDataByValue",
                                 "RequireProtected",
                                 "RequireSrcAnalytics",
                                 "RequireSrcWithAnalytics",
                                 "SourceName",
                                 "StartDate",
                                 "Type"}) {
    const std::map<std::string, std::string> kDefaults = {
        {"EndDate", "-1"}, {"MaxFPS", "2147483647"}, {"MinFPS", "0"}, {"StartDate", "0"}, {"Type", "0"}};
    const bool bFlag = sKey.starts_with("Exclude") || sKey.starts_with("Require");
    std::string sValue = bFlag ? "false" : "\"*\"";
    for (const auto* const pValues : {&kDefaults, &changes}) {
      const auto entry = pValues->find(sKey);
      sValue = entry != pValues->end() ? entry->second : sValue;
    }
    sKeys += (sKeys.empty() ? "" : ", ") + sKey + "=" + sValue;
  }
  return "rpc_dbQuery(" + under("StorageQuery_StorageQuery__", sKeys) + ")";
}

// clang-format off
const Query kQueries[] = {
    {[](Control& c) { return c.databaseQuery("SourceName=\"c*\""); }, search({{"SourceName", "\"c*\""}}),
     "StorageSearchResultSet_StorageSearchResultSet__size=2, " +
         under("StorageSearchResultSet_StorageSearchResultSet__TimeSpan_",
           R"(vec0__DataType="video/x-qmv2", vec0__FPS=25, vec0__SourceName="c \"1\"", vec0__StartDate=12943620000000000, )"
           R"(vec0__EndDate=12943623600000000, vec1__Type=2, vec1__FPS=0, vec1__SourceName="a", vec1__StartDate=0, )"
           R"(vec1__EndDate=-1)"),
     {R"(Sourcename="c "1"",FileType=1,Fps=25,StartDate="03/03/2011 10:00:00.000000UTC",EndDate="03/03/2011 11:00:00.000000UTC")",
      R"(Sourcename="a",FileType=2,Fps=0,StartDate="12/13/1901 20:45:52.000000UTC",EndDate="01/19/2038 03:14:07.551615UTC")"},
     "Database Query Failed: Not connected to Manager", "Database Query Failed: RPC",
     "Database Query Failed: Results Deserialisation"},
    {[](Control& c) { return c.alarmNamesQuery(); }, "rpc_getAlarmNames()",
     under("jrpc_set_AlarmNamesSet__", R"(size=3, set0="fire", set1="door 2", set2="fire")"), {"door 2", "fire"},
     "Get Alarm Names Failed: Not connected to Manager", "Get Alarm Names Failed: RPC",
     "Get Alarm Names Failed: Result Deserialisation"},
    {[](Control& c) { return c.sourcesQuery(); }, "rpc_getSourceMap()",
     under("jrpc_map_SourceMap__",
           R"(size=2, map0_first="cam 2", jrpc_vector_map0_second__size=3, jrpc_vector_map0_second__vec0=25, )"
           R"(jrpc_vector_map0_second__vec1=5, jrpc_vector_map0_second__vec2=0, map1_first="cam 1", )"
           R"(jrpc_vector_map1_second__size=0)"),
     {R"(SourceName="cam 1",Fps="")", R"(SourceName="cam 2",Fps="25,5,0")"},
     "Get Sources Failed: Not connected to Manager", "Get Sources Failed: RPC",
     "Get Sources Failed: Result Deserialisation"},
    {[](Control& c) { return c.protectedLogQuery("c \"1\"", 25); }, R"(rpc_getProtectedLog(SourceName="c \"1\"", Fps=25))",
     "ProtectedLog_ProtectedLog__size=1, " + under("ProtectedLog_ProtectedLog__ProtectedLogRecord_set0__",
           R"(ProtectedStartDate=12943620000000000, ProtectedEndDate=12943623600000000, )"
           R"(ValidityStartDate=12943627200000001, ValidityEndDate=-1, Details="why")"),
     {R"(ProtectedStartDate="03/03/2011 10:00:00.000000UTC",ProtectedEndDate="03/03/2011 11:00:00.000000UTC",)"
      R"(ValidityStartDate="03/03/2011 12:00:00.000001UTC",ValidityEndDate="01/19/2038 03:14:07.551615UTC",Details="why")"},
     "Get Protected Log Failed: Not connected to Manager", "Get Protected Log Failed: RPC",
     "Get Protected Log Failed: Result Deserialisation"},
    {[](Control& c) { return c.alarmLogQuery("c", 0); }, R"(rpc_getAlarmLog(SourceName="c", Fps=0))",
     "AlarmLog_AlarmLog__size=1, " + under("AlarmLog_AlarmLog__AlarmLogRecord_set0__",
           R"(SpanStartDate=12943620000000000, SpanEndDate=12943623600000000, AlarmDate=12943627200000001, Name="door")"),
     {R"(Name="door",SpanStartDate="03/03/2011 10:00:00.000000UTC",SpanEndDate="03/03/2011 11:00:00.000000UTC",)"
      R"(AlarmDate="03/03/2011 12:00:00.000001UTC")"},
     "Get Alarm Log Failed: Not connected to Manager", "Get Alarm Log Failed: RPC",
     "Get Alarm Log Failed: Result Deserialisation"},
    {[](Control& c) { return c.metaDataLogQuery("c", 25); }, R"(rpc_getMetaDataLog(SourceName="c", Fps=25))",
     "MetaDataLog_MetaDataLog__size=1, " + under("MetaDataLog_MetaDataLog__MetaDataLogRecord_set0__",
           R"(SpanStartDate=12943620000000000, SpanEndDate=12943623600000000, MetaData="lane=2,colour=\"red\"")"),
     {R"(SpanStartDate="03/03/2011 10:00:00.000000UTC",SpanEndDate="03/03/2011 11:00:00.000000UTC",colour="red", lane=2)"},
     "Get MetaData Log Failed: Not connected to Manager", "Get MetaData Log Failed: RPC",
     "Get MetaData Log Failed: Result Deserialisation"},
    {[](Control& c) { return c.analyticsSourceQuery("*", 5); }, R"(rpc_analyticsSourceQuery(SourceName="*", Fps=5))",
     "AnalyticsSourceResultSet_AnalyticsSourceResultSet__size=1, " +
         under("AnalyticsSourceResultSet_AnalyticsSourceResultSet__AnalyticsSourceItem_vec0__",
               R"(SourceName="c", FPS=5, AnalyticsSourceName="ca", GridWidth=22, AnalyticsName="m", AnalyticsType="motion")"),
     {R"(Sourcename="c",AnalyticsSourceName="ca",AnalyticsName="m",AnalyticsType="motion",Fps=5,GridWidth=22,GridHeight=0)"},
     "analyticsSourceQuery failed: not connected to Manager", "analyticsSourceQuery Failed: RPC",
     "analyticsSourceQuery Failed: Results Deserialisation"},
};
// clang-format on

TEST(ArchiveQueries, AskOnceAndGiveTheirRowsOneByOne) {
  ReferenceLink link;
  for (const Query& query : kQueries) {
    SCOPED_TRACE(query.sRequest);
    link.manager.answer(functionOf(query.sRequest), query.sAnswer);
    const std::int32_t iRead = query.run(link.control);
    const std::int32_t iDropped = query.run(link.control);
    EXPECT_THAT(link.manager.takeRequests(), ElementsAre(query.sRequest, query.sRequest));
    EXPECT_NE(iRead, iDropped);
    std::vector<std::string> rows;
    for (std::string sRow = link.control.getNext(iRead); !sRow.empty(); sRow = link.control.getNext(iRead)) {
      rows.push_back(sRow);
    }
    EXPECT_THAT(rows, ElementsAreArray(query.rows));
    EXPECT_EQ(link.control.getNext(iRead), "");
    EXPECT_EQ(link.control.releaseQuery(iRead), -1) << "is gone with its last row";

    EXPECT_EQ(link.control.getNext(iDropped), query.rows.front());
    EXPECT_EQ(link.control.releaseQuery(iDropped), 0);
    EXPECT_EQ(link.control.getNext(iDropped), "");
    EXPECT_EQ(StorageAccessController3X4X(link.client, -1).getNext(query.run(link.control)), "")
        << "an id is of one controller";
    EXPECT_THAT(link.messages(), IsEmpty());
    link.manager.takeRequests();
  }
  EXPECT_EQ(link.control.getNext(0), "");
}

TEST(ArchiveQueries, TellWhyTheyFailed) {
  const qm_test::LogCapture log;
  for (const Query& query : kQueries) {
    SCOPED_TRACE(query.sRequest);
    const std::string sFunction = functionOf(query.sRequest);
    ReferenceLink link;
    const auto expectFailure = [&](const std::string& sText) {
      EXPECT_EQ(query.run(link.control), 0);
      EXPECT_THAT(link.messages(), ElementsAre(sText));
      EXPECT_TRUE(log.has(qm_err::kLogError, sText));
    };
    link.manager.answer(sFunction, query.sAnswer.substr(0, query.sAnswer.rfind(", ")));
    expectFailure(query.sDeserialisation);
    link.manager.refuse(sFunction, "no such source");
    EXPECT_EQ(query.run(link.control), 0);
    EXPECT_THAT(link.messages(), ElementsAre("no such source"));
    link.manager.fail(sFunction, "broken");
    expectFailure(query.sRpc);
    link.manager.hangUp(sFunction);
    expectFailure(query.sRpc);

    ReferenceLink none(false);
    EXPECT_EQ(query.run(none.control), 0);
    EXPECT_THAT(none.messages(), ElementsAre(query.sNotConnected));
  }
}

TEST(ArchiveQueries, ApplyTheCriteriaInTheirOrder) {
  const std::pair<const char*, std::string> kRows[] = {
      {"no list at all", search({})},
      {"FileType=\"audio\",Fps=25,MaxFps=30",
       search({{"DataType", "\"audio/*\""}, {"MinFPS", "25"}, {"MaxFPS", "30"}})},
      {"FileType=\"pictures\",Fps=\"many\",RequireAlarm=\"perhaps\",MinFps=5", search({{"MinFPS", "5"}})},
      {"ExcludeAlarm=true,RequireAlarm=true", search({{"ExcludeAlarm", "true"}})},
      {"StartDate=\"03/03/2011 10:00:00.000000UTC\"", search({{"StartDate", "12943620000000000"}})}};
  ReferenceLink link;
  for (const auto& [szCriteria, sRequest] : kRows) {
    EXPECT_EQ(link.control.databaseQuery(szCriteria), 0);
    EXPECT_THAT(link.manager.takeRequests(), ElementsAre(sRequest)) << szCriteria;
  }
  link.messages();
  EXPECT_EQ(link.control.databaseQuery("EndDate=\"x\",StartDate=\"x\""), 0);
  EXPECT_EQ(link.control.databaseQuery("EndDate=\"\""), 0);
  EXPECT_THAT(link.messages(),
              ElementsAre("Database Query Failed: Bad format for end date (see documentation)",
                          "Database Query Failed: Bad format for start date (see documentation)"));
  EXPECT_THAT(link.manager.requests(), IsEmpty());
}

}  // namespace
