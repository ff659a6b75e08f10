#include <filesystem>
#include <gtest/gtest.h>

#include "storage/AnalyticsData.h"
#include "storage/ArchiveUnit.h"
#include "storage/SourceTable.h"
#include "storage/StorageQueryImpl.h"
#include "storage/StorageSearch.h"
#include "tests/storage/readersupport.h"
#include "tests/storage/wiretext.h"

namespace {

using namespace qm_test;

/// The rows of a result, each "source/rate start-end", dates in milliseconds behind a date in 2011.
std::string rowsOf(const StorageSearchResultSet& results) {
  std::string sRows;
  const auto milliseconds = [](JTime time) {
    return std::to_string((time.getMicroseconds() - kBegin) / 1000);
  };
  for (std::uint32_t i = 0; i < results.size(); ++i) {
    const StorageSearchItem& item = *results.at(i);
    sRows += (i == 0 ? "" : " ") + item.getSourceName() + "/" + std::to_string(item.getFps()) + ":" +
             milliseconds(item.getStart()) + "-" + milliseconds(item.getEnd());
  }
  return sRows;
}

TimeSpan ms(std::uint64_t uStart, std::uint64_t uEnd) {
  return span(kBegin + uStart * 1000, kBegin + uEnd * 1000);
}

/// Three sources: "a" with video at two rates, one of them with logs; "b" with sound; "c" with analytics of
/// "a". Each unit has one file, from 0 to 400 ms.
class SourceTableTest : public testing::Test {
 protected:
  SourceTableTest() {
    FileInfo::initCache(4);
    add("a", 12, wholeVideoStream());
    ArchiveUnit& logged = add("a", 25, wholeVideoStream());
    add("b", 0, audioStream("", "audio/x-qmpcm-internal"));
    add("c", 25,
        dataStream("processorName=\"gate\",processorType=\"motion\",processedSourceName=\"a\",gridWidth=4,"
                   "gridHeight=3"));
    logged.getAlarmLog().addRecord(std::make_unique<AlarmLogRecord>("door", at(1), ms(100, 200)), true);
    logged.getProtectedLog().addRecord(std::make_unique<ProtectedLogRecord>(ms(150, 300), TimeSpan(), "d"),
                                       true);
    logged.getMetaDataLog().addMetaData("speed=7,plate=\"AB\"", ms(50, 80), true);
    logged.getMetaDataLog().addMetaData("plate=\"CD\"", ms(90, 95), true);
  }
  ~SourceTableTest() override { FileInfo::closeCache(); }

  ArchiveUnit& add(const std::string& sSource, std::int32_t iFps, const qm_ci::StreamInfo& stream) {
    const std::string sDirectory = temp.path(sSource + std::to_string(iFps));
    std::filesystem::create_directory(sDirectory);
    {
      const auto pOutput = writerOf("asf", sDirectory + "/new");
      pOutput->open(&stream, nullptr, nullptr);
      for (std::uint64_t i = 0; i <= 10; ++i) {
        write(*pOutput, 1, numbered(1, i));
      }
    }
    auto pUnit = std::make_shared<ArchiveUnit>(sDirectory, ArchiveUnit::Settings{.iFps = iFps});
    pUnit->open();
    table.add(sSource, iFps, pUnit);
    return *pUnit;
  }

  std::string search(const std::string& sCriteria, const TimeSpan& searched = TimeSpan()) {
    StorageQueryImpl query;
    EXPECT_TRUE(query.parse(sCriteria)) << sCriteria;
    query.setDates(searched.startDate, searched.endDate);
    return rowsOf(*query.execute(table));
  }

  TempDir temp;
  SourceTable table;
};

TEST_F(SourceTableTest, IsSearchedByEveryCriterion) {
  const struct {
    const char* szCriteria;
    const char* szRows;
  } kRows[] = {
      {"", "a/12:0-400 a/25:0-400 b/0:0-400 c/25:0-400"},
      {"SourceName=\"[bc]\"", "b/0:0-400 c/25:0-400"},
      {"FileType=\"video\"", "a/12:0-400 a/25:0-400"},
      {"FileType=\"audio\"", "b/0:0-400"},
      {"FileType=\"data\"", "c/25:0-400"},
      {"MinFps=1,MaxFps=12", "a/12:0-400"},
      {"MinFps=12,MaxFps=1", ""},
      {"RequireProtected=true", "a/25:150-300"},
      {"ExcludeProtected=true,SourceName=\"a\",Fps=25", "a/25:0-149 a/25:300-400"},
      {"RequireAlarm=true", "a/25:100-200"},
      {"RequireAlarm=true,AlarmName=\"d*\"", "a/25:100-200"},
      {"RequireAlarm=true,AlarmName=\"gate\"", ""},
      {"ExcludeAlarm=true,SourceName=\"a\",Fps=25", "a/25:0-99 a/25:200-400"},
      {"RequireMetaDataByName=true", "a/25:50-80 a/25:90-95"},
      {"RequireMetaDataByName=true,MetaData=\"height,sp*\"", "a/25:50-80"},
      {"RequireMetaDataByValue=true,MetaData=\"plate=\\\"C?\\\"\"", "a/25:90-95"},
      {"ExcludeMetaDataByName=true,MetaData=\"speed\",SourceName=\"a\",Fps=25", "a/25:0-49 a/25:80-400"},
      {"ExcludeMetaDataByValue=true,MetaData=\"*\",SourceName=\"a\",Fps=25",
       "a/25:0-49 a/25:80-89 a/25:95-400"},
      {"RequireSrcAnalytics=true", "c/25:0-400"},
      {"RequireSrcAnalytics=true,AnalyticsType=\"face\"", ""},
      {"ExcludeSrcAnalytics=true,AnalyticsType=\"mo*\"", "a/12:0-400 a/25:0-400 b/0:0-400"},
      {"RequireSrcWithAnalytics=true", "a/25:0-400"},
      {"RequireSrcWithAnalytics=true,AnalyticsType=\"face\"", ""},
      {"ExcludeSrcWithAnalytics=true", "a/12:0-400 b/0:0-400 c/25:0-400"},
  };
  for (const auto& row : kRows) {
    EXPECT_EQ(search(row.szCriteria), row.szRows) << row.szCriteria;
  }
  EXPECT_EQ(search("SourceName=\"b\"", ms(100, 900)), "b/0:100-400");
  EXPECT_EQ(search("", ms(500, 900)), "");
}

TEST_F(SourceTableTest, KnowsNoOtherPatternsOfTypesThanItsOwn) {
  StorageQueryImpl query;
  readFrom(
      "StorageQuery_X__DataType=\"video/x-qmv1\", StorageQuery_X__MinFPS=0, StorageQuery_X__MaxFPS=99, "
      "StorageQuery_X__SourceName=\"*\", StorageQuery_X__AlarmName=\"*\", "
      "StorageQuery_X__RequireAlarm=false, StorageQuery_X__RequireProtected=false, "
      "StorageQuery_X__StartDate=0, StorageQuery_X__EndDate=18446744073709551615",
      query);
  EXPECT_EQ(query.getDataType(), "video/x-qmv1");
  EXPECT_EQ(query.execute(table)->size(), 0);
}

TEST_F(SourceTableTest, JoinsSlicesThatTouchAndNamesTheirType) {
  ArchiveUnit& unit = *table.find("b", 0);
  unit.addSlice(std::make_unique<Slice>(ms(400, 500), "x", 1));
  unit.addSlice(std::make_unique<Slice>(ms(501, 600), "y", 1));
  EXPECT_EQ(search("SourceName=\"b\""), "b/0:0-500 b/0:501-600");
  StorageQueryImpl query;
  query.setSourceName("b");
  EXPECT_EQ(query.execute(table)->at(0)->getDataType(), "audio/x-qmpcm-internal");
}

TEST_F(SourceTableTest, ListsAnalyticsByTheSourceThatTheyLookAt) {
  const auto pList = listAnalyticsSources(table, "[ab]", 25);
  ASSERT_EQ(pList->size(), 1);
  EXPECT_EQ(
      pList->at(0)->toString(),
      "Sourcename=\"a\",AnalyticsSourceName=\"c\",AnalyticsName=\"gate\",AnalyticsType=\"motion\",Fps=25,"
      "GridWidth=4,GridHeight=3");
  EXPECT_EQ(listAnalyticsSources(table, "c", 25)->size(), 0);
  EXPECT_EQ(listAnalyticsSources(table, "*", 12)->size(), 0);
}

TEST_F(SourceTableTest, LosesASourceWithItsLastUnit) {
  EXPECT_TRUE(table.remove("b", 0));
  EXPECT_FALSE(table.remove("b", 0));
  EXPECT_EQ(table.copy().size(), 2);
  EXPECT_EQ(table.find("b", 0), nullptr);
}

}  // namespace
