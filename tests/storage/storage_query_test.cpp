#include <gmock/gmock.h>
#include <string>

#include "storage/StorageQueryImpl.h"
#include "tests/coreapi/qmutils/rpc/thrownby.h"
#include "tests/storage/wiretext.h"
#include "tests/support/logcapture.h"

namespace {

using qm_test::at;
using qm_test::march;
using qm_test::readFrom;
using qm_test::textOf;
using testing::HasSubstr;

/// The flags that are set, as they travel, in the order of their names.
std::string flagsOf(const StorageQueryImpl& query) {
  std::string sText = textOf(query);
  std::string sFlags;
  for (std::size_t end = sText.find("=true"); end != std::string::npos; end = sText.find("=true", end + 1)) {
    const std::size_t start = sText.rfind('_', end) + 1;
    sFlags += " " + sText.substr(start, end - start);
  }
  return sFlags;
}

const char* const kMandatory =
    "StorageQuery_X__DataType=\"video/*\", StorageQuery_X__MinFPS=1, StorageQuery_X__MaxFPS=2, "
    "StorageQuery_X__SourceName=\"s\", StorageQuery_X__AlarmName=\"a\", StorageQuery_X__RequireAlarm=false, "
    "StorageQuery_X__RequireProtected=false, StorageQuery_X__StartDate=3, StorageQuery_X__EndDate=4";

TEST(StorageQuery, TravelsWithEveryField) {
  StorageQueryImpl query;
  query.setFileType(2);
  query.setFPS(25);
  query.setMaxFPS(30);
  query.setDates(at(1), JTime::max());
  query.setExcludeAlarm(true);
  query.setRequireSrcWithAnalytics(true);
  EXPECT_EQ(
      textOf(query),
      "StorageQuery_X__AlarmName=\"*\", StorageQuery_X__AnalyticsType=\"*\", "
      "StorageQuery_X__DataType=\"audio/*\", StorageQuery_X__EndDate=-1, StorageQuery_X__ExcludeAlarm=true, "
      "StorageQuery_X__ExcludeMetaDataByName=false, StorageQuery_X__ExcludeMetaDataByValue=false, "
      "StorageQuery_X__ExcludeProtected=false, StorageQuery_X__ExcludeSrcAnalytics=false, "
      "StorageQuery_X__ExcludeSrcWithAnalytics=false, StorageQuery_X__MaxFPS=30, "
      "StorageQuery_X__MetaData=\"*\", StorageQuery_X__MinFPS=25, StorageQuery_X__RequireAlarm=false, "
      "StorageQuery_X__RequireMetaDataByName=false, StorageQuery_X__RequireMetaDataByValue=false, "
      "StorageQuery_X__RequireProtected=false, StorageQuery_X__RequireSrcAnalytics=false, "
      "StorageQuery_X__RequireSrcWithAnalytics=true, StorageQuery_X__SourceName=\"*\", "
      "StorageQuery_X__StartDate=1, StorageQuery_X__Type=0");
  StorageQueryImpl read;
  readFrom(textOf(query), read);
  EXPECT_EQ(read.toString(), query.toString());
  EXPECT_EQ(query.clone()->toString(), query.toString());
}

TEST(StorageQuery, TellsOldPeersTheTypesThatTheyKnow) {
  StorageQueryImpl query;
  for (const auto& [sType, sOldType] :
       {std::pair{"video/x-qmv[1-2]", "1"}, {"audio/x-qmmp3", "2"}, {"video/*", "0"}}) {
    std::string sText = kMandatory;
    readFrom(sText.replace(sText.find("video/*"), 7, sType), query);
    EXPECT_THAT(textOf(query), HasSubstr(std::string("StorageQuery_X__Type=") + sOldType)) << sType;
  }
}

TEST(StorageQuery, ReadsOlderPeersAndKeepsOneFlagOfEachGroup) {
  struct Row {
    std::string name;
    std::string extra;
    std::string flags;
  };
  const std::string sX = ", StorageQuery_X__";
  const Row rows[] = {
      {"mandatory keys alone", "", ""},
      {"alarm", sX + "RequireAlarm=true" + sX + "ExcludeAlarm=true", " RequireAlarm"},
      {"protected", sX + "ExcludeProtected=1", " ExcludeProtected"},
      {"by name first",
       sX + "RequireMetaDataByValue=true" + sX + "RequireMetaDataByName=true" + sX +
           "ExcludeMetaDataByName=true",
       " RequireMetaDataByName"},
      {"required first", sX + "ExcludeMetaDataByName=true" + sX + "RequireMetaDataByValue=true",
       " RequireMetaDataByValue"},
      {"excluded by name first", sX + "ExcludeMetaDataByName=true" + sX + "ExcludeMetaDataByValue=true",
       " ExcludeMetaDataByName"},
      {"analytics first", sX + "RequireSrcWithAnalytics=true" + sX + "RequireSrcAnalytics=true",
       " RequireSrcAnalytics"},
      {"with before excluded", sX + "ExcludeSrcAnalytics=true" + sX + "RequireSrcWithAnalytics=true",
       " RequireSrcWithAnalytics"},
      {"excluded", sX + "ExcludeSrcAnalytics=true" + sX + "ExcludeSrcWithAnalytics=true",
       " ExcludeSrcAnalytics"},
  };
  for (const Row& row : rows) {
    StorageQueryImpl query;
    query.setMetaData("before");
    query.setExcludeProtected(true);
    readFrom(kMandatory + row.extra, query);
    EXPECT_EQ(flagsOf(query), row.flags) << row.name;
    EXPECT_EQ(query.getFields().metaData, "*") << row.name;
    EXPECT_EQ(query.getFields().searchSpan, qm_test::span(3, 4)) << row.name;
  }
  StorageQueryImpl query;
  query.setDates(at(7), at(8));
  EXPECT_THAT(qm_test::thrownBy([&] { readFrom("StorageQuery_X__DataType=\"d\"", query); }),
              HasSubstr("deserialise(MinFPS)"));
  EXPECT_EQ(query.getDataType(), "d");
  EXPECT_EQ(query.getFields().searchSpan, qm_test::span(7, 8));
}

TEST(StorageQuery, SettersOfAGroupClearEachOther) {
  StorageQueryImpl query;
  query.setRequireAlarm(true);
  query.setExcludeProtected(true);
  query.setRequireMetaDataByName(true);
  query.setExcludeMetaDataByValue(true);
  query.setRequireSrcAnalytics(true);
  query.setExcludeSrcWithAnalytics(true);
  EXPECT_EQ(flagsOf(query), " ExcludeMetaDataByValue ExcludeProtected ExcludeSrcWithAnalytics RequireAlarm");
  query.setExcludeAlarm(false);
  query.setExcludeSrcWithAnalytics(false);
  EXPECT_EQ(flagsOf(query), " ExcludeMetaDataByValue ExcludeProtected RequireAlarm");
  const qm_test::LogCapture log;
  query.setFileType(4);
  EXPECT_TRUE(log.has(qm_err::kLogCritical, "FATAL ASSERTION FAILED !! (Unsupported file type)"));
  EXPECT_EQ(query.getDataType(), "*");
}

TEST(StorageQuery, TakesCriteriaInTheirOrder) {
  struct Row {
    std::string name;
    std::string criteria;
    std::string part;  ///< of the query's text
  };
  const Row rows[] = {
      {"nothing", "", "Data Type: *, Source Name: *, FPS Interval: [0,2147483647]"},
      {"no list", "=,", "Data Type: *, Source Name: *, FPS Interval: [0,2147483647]"},
      {"source", "SourceName=\"c\",Fps=25,MaxFps=30", "Source Name: c, FPS Interval: [25,30]"},
      {"rate that isn't one", "Fps=\"x\",MinFps=5", "FPS Interval: [5,2147483647]"},
      {"small letters", "FileType=\"metadata\"", "Data Type: application/*"},
      {"video", "FileType=\"VIDEO\"", "Data Type: video/*"},
      {"unknown type", "FileType=\"film\"", "Data Type: *"},
      {"alarm, excluded last", "ExcludeAlarm=true,RequireAlarm=true",
       "Require Alarm: false, Exclude Alarm: true"},
      {"metadata, the last wins", "ExcludeMetaDataByName=true,RequireMetaDataByValue=true,MetaData=\"a,b\"",
       "Require MetaData By Value: false, Exclude MetaData By Name: true, Exclude MetaData By Value: false, "
       "MetaData: a,b"},
      {"analytics, the last wins",
       "AnalyticsType=\"t\",ExcludeSrcAnalytics=true,RequireSrcWithAnalytics=true",
       "Require Src With Analytics: true, Exclude Src Analytics: false, Exclude Src With Analytics: false, "
       "AnalyticsType: t"},
      {"dates", "StartDate=\"03/03/2011 10:00:00.0\",EndDate=\"03/03/2011 11:00:00.000000UTC\"",
       "Search Interval: [03/03/2011 10:00:00.000000UTC,03/03/2011 11:00:00.000000UTC]"},
      {"open dates", "", "[12/13/1901 20:45:52.000000UTC,01/19/2038 03:14:07.551615UTC]"},
  };
  for (const Row& row : rows) {
    StorageQueryImpl query;
    EXPECT_TRUE(query.parse(row.criteria)) << row.name;
    EXPECT_THAT(query.toString(), HasSubstr(row.part)) << row.name;
  }
}

TEST(StorageQuery, StaysAsItWasWhenADateIsBad) {
  StorageQueryImpl query;
  query.setSourceName("before");
  const std::string sBefore = query.toString();
  const qm_test::LogCapture log;
  EXPECT_FALSE(query.parse("SourceName=\"new\",StartDate=\"03/03/2011\",EndDate=\"x\""));
  EXPECT_TRUE(
      log.has(qm_err::kLogError, "Database Query Failed: Bad format for start date (see documentation)"));
  EXPECT_FALSE(query.parse("SourceName=\"new\",EndDate=\"13/03/2011 10:00:00.000000UTC\""));
  EXPECT_TRUE(
      log.has(qm_err::kLogError, "Database Query Failed: Bad format for end date (see documentation)"));
  EXPECT_EQ(log.messages().size(), 2U);
  EXPECT_EQ(query.toString(), sBefore);
}

TEST(StorageQuery, DumpsOneLineAField) {
  StorageQueryImpl query;
  query.setDates(at(5), JTime::max());
  testing::internal::CaptureStdout();
  query.dump();
  const std::string sDump = testing::internal::GetCapturedStdout();
  EXPECT_THAT(
      sDump, testing::StartsWith("\nQuery dump:\nData Type\t              : *\nSource Name              : *\n"
                                 "FPS Interval             : [0,2147483647]\n"
                                 "Search Interval          : [5,18446744073709551615]\n"));
  EXPECT_THAT(sDump, testing::EndsWith("Exclude Src With Analytics: false\nAnalyticsType String    : *\n\n"));
}

}  // namespace
