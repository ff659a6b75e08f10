#include <gmock/gmock.h>
#include <memory>
#include <string>

#include "coreapi/qmutils/log/JLog.h"
#include "storage/AnalyticsData.h"
#include "storage/StorageSearchImpl.h"
#include "tests/coreapi/qmutils/rpc/thrownby.h"
#include "tests/storage/wiretext.h"
#include "tests/support/logcapture.h"

namespace {

using qm_test::march;
using qm_test::readFrom;
using qm_test::span;
using qm_test::textOf;
using qm_test::thrownBy;
using testing::HasSubstr;

const char* const kRest =
    "TimeSpan_X__FPS=25, TimeSpan_X__SourceName=\"c\", TimeSpan_X__StartDate=10, TimeSpan_X__EndDate=25";

TEST(SearchItem, TravelsAndShowsAsARow) {
  const StorageSearchItemImpl item({march(10), march(11)}, "cam \"1\"", 25, "video/x-qmv2");
  EXPECT_EQ(
      textOf(item),
      "TimeSpan_X__DataType=\"video/x-qmv2\", TimeSpan_X__EndDate=12943623600000000, TimeSpan_X__FPS=25, "
      "TimeSpan_X__SourceName=\"cam \\\"1\\\"\", TimeSpan_X__StartDate=12943620000000000");
  EXPECT_EQ(item.toString(),
            "Sourcename=\"cam \"1\"\",FileType=1,Fps=25,StartDate=\"03/03/2011 10:00:00.000000UTC\","
            "EndDate=\"03/03/2011 11:00:00.000000UTC\"");
  StorageSearchItemImpl read;
  readFrom(textOf(item), read);
  EXPECT_EQ(read.toString(), item.toString());
  EXPECT_EQ(StorageSearchItemImpl(TimeSpan(), "", 0, "application/x").toString(),
            "Sourcename=\"\",FileType=3,Fps=0,StartDate=\"12/13/1901 20:45:52.000000UTC\","
            "EndDate=\"01/19/2038 03:14:07.551615UTC\"");
  EXPECT_EQ(StorageSearchItemImpl(span(10, 25), "", 0, "").getDuration(), qm_test::at(15));
  EXPECT_EQ(StorageSearchItemImpl(span(25, 10), "", 0, "text/plain").getDuration(), qm_test::at(0));
}

TEST(SearchItem, ReadsTheTypesOfBothGenerations) {
  struct Row {
    std::string name;
    std::string type;
    std::string dataType;  ///< empty: the message is bad
    std::string error;
  };
  const Row rows[] = {
      {"of today", "TimeSpan_X__DataType=\"a/b\"", "a/b", ""},
      {"any", "TimeSpan_X__Type=0", "*", ""},
      {"video", "TimeSpan_X__Type=1, TimeSpan_X__DataType=\"a/b\"", "video/x-qmv[1-2]", ""},
      {"audio", "TimeSpan_X__Type=\"2\"", "audio/x-qmmp3", ""},
      {"a number that isn't one", "TimeSpan_X__Type=\"x\", TimeSpan_X__DataType=\"a/b\"", "a/b", ""},
      {"neither", "TimeSpan_X__Other=1", "", "deserialise(DataType)"},
      {"unknown number", "TimeSpan_X__Type=3, TimeSpan_X__DataType=\"a/b\"", "", "Unsupported file type"},
  };
  for (const Row& row : rows) {
    StorageSearchItemImpl item;
    const qm_test::LogCapture log;
    const std::string sError = thrownBy([&] { readFrom(row.type + ", " + kRest, item); });
    EXPECT_THAT(sError, HasSubstr(row.error)) << row.name;
    EXPECT_EQ(sError.empty(), row.error.empty()) << row.name;
    EXPECT_EQ(item.getDataType(), row.dataType) << row.name;
    EXPECT_EQ(log.has(qm_err::kLogCritical, "FATAL ASSERTION FAILED !! (Unsupported file type)"),
              row.error == "Unsupported file type")
        << row.name;
  }
}

TEST(SearchItem, TellsOfAMissingOldTypeOnlyToALogThatTakesIt) {
  class Output : public JLog::GenericOutput {
   public:
    explicit Output(std::uint32_t uLevel) : GenericOutput("test"), m_uLevel(uLevel) {}
    void write(const JLog::Msg&) override {}
    bool takes(std::uint32_t uLevel) const noexcept override { return uLevel == m_uLevel; }

   private:
    std::uint32_t m_uLevel;
  };
  JLog::init(JLog::kConsoleIfNoOther);
  JLog::deleteOutputs();
  StorageSearchItemImpl item;
  const auto tellingLines = [&item](std::uint32_t uTakenLevel) {
    JLog::addLogOutput(std::make_unique<Output>(uTakenLevel));
    const qm_test::LogCapture log;
    readFrom(std::string("TimeSpan_X__DataType=\"a/b\", ") + kRest, item);
    return log.messages().size();
  };
  EXPECT_EQ(tellingLines(qm_err::kLogError), 0U);
  EXPECT_EQ(tellingLines(qm_err::kLogException), 1U);
  JLog::deleteOutputs();
}

TEST(ResultSet, TravelsInItsOwnOrderAndAppends) {
  StorageSearchResultSetImpl set;
  set.add(new StorageSearchItemImpl(span(20, 30), "b", 1, "*"));
  set.add(new StorageSearchItemImpl(span(10, 30), "a", 1, "*"));
  const std::string sText = textOf(set);
  EXPECT_THAT(sText, HasSubstr("StorageSearchResultSet_X__TimeSpan_vec1__SourceName=\"a\""));
  EXPECT_THAT(sText, HasSubstr("StorageSearchResultSet_X__size=2"));
  StorageSearchResultSetImpl read;
  readFrom(sText, read);
  readFrom(sText, read);
  ASSERT_EQ(read.size(), 4U);
  EXPECT_EQ(read.at(2)->getSourceName(), "b");
  EXPECT_NE(thrownBy([&] { readFrom("StorageSearchResultSet_X__size=4294967295", read); }), "");
}

TEST(ResultSet, IsWalkedByItsPlaces) {
  const qm_test::LogCapture log;
  StorageSearchResultSetImpl set;
  EXPECT_TRUE(set.begin() == set.end());
  EXPECT_EQ(set.nth(0), nullptr);
  for (const char* szName : {"a", "b", "c"}) {
    set.add(new StorageSearchItemImpl(span(1, 2), szName, 1, "*"));
  }
  std::string sNames;
  for (auto it = set.begin(); !(it == set.end()); ++it) {
    sNames += it->getSourceName();
  }
  EXPECT_EQ(sNames, "abc");
  const std::unique_ptr<StorageSearchItem> pErased(set.nth(2));
  EXPECT_TRUE(set.erase({set, 2}) == set.end());
  EXPECT_TRUE(set.erase(set.end()) == set.end());
  EXPECT_EQ(set.indexOf(set.end()), 2U);
  EXPECT_EQ(set.nth(2), nullptr);
  EXPECT_TRUE(log.messages().empty());

  StorageSearchResultSetImpl other;
  EXPECT_FALSE(other.end() == set.end());
  EXPECT_TRUE(log.has(qm_err::kLogError, "ASSERTION FAILED (it.Cstit::m_pSet==Cstit::m_pSet)"));
  other.erase(set.begin());
  EXPECT_TRUE(log.has(qm_err::kLogError, "ASSERTION FAILED (it.m_pSet==m_pSet)"));
  EXPECT_EQ(other.at(7), nullptr);
}

TEST(AnalyticsSources, TravelWithAndWithoutGrids) {
  const std::string sItem = "AnalyticsSourceResultSet_X__AnalyticsSourceItem_vec0__";
  const std::string sText = sItem + "SourceName=\"s\", " + sItem + "AnalyticsSourceName=\"x\", " + sItem +
                            "AnalyticsName=\"y\", " + sItem + "AnalyticsType=\"z\", " + sItem + "FPS=5";
  AnalyticsSourceResultSet set;
  readFrom("AnalyticsSourceResultSet_X__size=1, " + sText, set);
  ASSERT_EQ(set.size(), 1U);
  EXPECT_EQ(set.at(0)->toString(),
            "Sourcename=\"s\",AnalyticsSourceName=\"x\",AnalyticsName=\"y\",AnalyticsType=\"z\",Fps=5,"
            "GridWidth=0,GridHeight=0");
  EXPECT_EQ(set.at(1), nullptr);
  EXPECT_THAT(textOf(set), HasSubstr("GridHeight=0"));
  EXPECT_NE(thrownBy([&] { readFrom("AnalyticsSourceResultSet_X__size=2, " + sText, set); }), "");
}

}  // namespace
