#include "qmmanager/addfile.h"

#include <filesystem>
#include <gmock/gmock.h>

#include "coreapi/qmutils/params/jparams.h"
#include "qmmanager/archive.h"
#include "qmmanager/request.h"
#include "tests/storage/readersupport.h"

namespace {

namespace fs = std::filesystem;
using namespace qm_manager;
using namespace qm_test;
using testing::HasSubstr;

constexpr const char* kDate = "03/05/2011 10:00:00.000000UTC";

class AddFileTest : public testing::Test {
 protected:
  AddFileTest() {
    FileInfo::initCache(4);
    pArchive = std::make_unique<Archive>(temp.path("archive"), ArchiveRoot::Creation::kWhenEmpty);
    fs::create_directories(temp.path("import/inner"));
    writeAsf(temp.path("import/clip.asf"), 50);
    writeAsf(temp.path("import/inner/deep.asf"), 5);
    writeAsf(temp.path("outside.asf"), 5);
    fs::create_symlink("../outside.asf", temp.path("import/out.asf"));
    fs::create_symlink("clip.asf", temp.path("import/link.asf"));
    fs::create_symlink("loop.asf", temp.path("import/loop.asf"));
    addAddFileHandlers(handlers, *pArchive, temp.path("import"), [this] { return isEnding(); });
    addAddFileHandlers(withoutDirectory, *pArchive, "", [] { return false; });
  }
  ~AddFileTest() override {
    pArchive.reset();
    FileInfo::closeCache();
  }

  /// The reason of a refusal; empty when the file was added.
  std::string add(const std::string& sFile, const std::string& sSource = "gate",
                  const std::string& sAlarm = {}, const std::string& sStart = kDate) const {
    JParams params;
    params.add("FileName", sFile);
    params.add("DiskSpaceName", "D:");
    params.add("SourceName", sSource);
    params.add("AlarmName", sAlarm);
    params.add("StartDate", sStart);
    JParams answer;
    return thrownBy([&] { handlers.at("rpc_addFile")(Request(params), answer); });
  }

  std::size_t slicesOf(const std::string& sSource) const {
    return pArchive->makeUnit(sSource, 0)->getSliceCount();
  }

  TempDir temp;
  std::unique_ptr<Archive> pArchive;
  Handlers handlers;
  Handlers withoutDirectory;
  std::function<bool()> isEnding = [] { return false; };
};

TEST_F(AddFileTest, RecordsAFileWithAnAlarmOverIt) {
  EXPECT_EQ(add("clip.asf", "gate", "door"), "");
  EXPECT_EQ(add("link.asf", "gate", {}, {}), "");
  const auto pUnit = pArchive->requireUnit("gate", 0);
  const auto slices = pUnit->getSlices({});
  ASSERT_EQ(slices.size(), 2U);
  EXPECT_EQ(slices[0].getSpan().startDate.getMicroseconds(), kBegin);
  EXPECT_EQ(slices[1].getSpan().startDate.toUSFormat(), kDate);
  const AlarmLog stored(pUnit->getDirectory() + "/alarm.log");
  ASSERT_EQ(stored.getRecords().size(), 1U);
  const AlarmLogRecord& alarm = **stored.getRecords().begin();
  EXPECT_EQ(alarm.name, "door");
  EXPECT_EQ(alarm.span, slices[1].getSpan());
  EXPECT_EQ(alarm.alarmDate, alarm.span.startDate);
}

TEST_F(AddFileTest, RefusesEveryOtherName) {
  const std::string sAbsolute = temp.path("outside.asf");
  for (const std::string& sName : {std::string(),
                                   std::string("."),
                                   std::string(".."),
                                   std::string("../outside.asf"),
                                   sAbsolute,
                                   std::string("inner/deep.asf"),
                                   std::string("./clip.asf"),
                                   std::string("inner\\deep.asf"),
                                   std::string("..\\outside.asf"),
                                   std::string("C:\\outside.asf"),
                                   std::string("clip.asf/"),
                                   std::string("clip.asf\n"),
                                   std::string("%2e%2e%2foutside.asf"),
                                   std::string("out.asf"),
                                   std::string("loop.asf"),
                                   std::string("inner"),
                                   std::string("none.asf"),
                                   std::string("~"),
                                   std::string("*"),
                                   std::string("import-.work"),
                                   std::string(300, 'a'),
                                   std::string(70000, '/')}) {
    EXPECT_NE(add(sName), "") << sName.substr(0, 40);
  }
  EXPECT_EQ(slicesOf("gate"), 0U);
  EXPECT_THAT(add("out.asf"), HasSubstr("out of the import directory"));
  EXPECT_EQ(add("none.asf"), "there is no file \"none.asf\" in the import directory");
  JParams params;
  params.add("FileName", "clip.asf");
  params.add("SourceName", "gate");
  JParams answer;
  EXPECT_THAT(thrownBy([&] { withoutDirectory.at("rpc_addFile")(Request(params), answer); }),
              HasSubstr("no import directory"));
}

TEST_F(AddFileTest, RefusesInWordsAndChangesNothing) {
  temp.write("import/clip.txt", "no media");
  struct {
    const char* szFile;
    std::string sSource;
    std::string sAlarm;
    const char* szStart;
    const char* szReason;
  } const rows[] = {
      {"clip.txt", "gate", "", kDate, "not a media file"},
      {"clip.asf", "", "", kDate, "needs a name"},
      {"clip.asf", std::string(200, '/'), "", kDate, "too long"},
      {"clip.asf", "gate", "a\tb", kDate, "tab"},
      {"clip.asf", "gate", "", "02/30/2011 10:00:00.000000UTC", "no date"},
      {"clip.asf", "gate", "", "03/05/2011 10:00:00.000000CET", "no date"},
      {"clip.asf", "gate", "", "tomorrow", "no date"},
      {"clip.asf", "gate", "", "01/19/2038 03:14:07.000000UTC", "between 1970"},
  };
  for (const auto& row : rows) {
    EXPECT_THAT(add(row.szFile, row.sSource, row.sAlarm, row.szStart), HasSubstr(row.szReason));
  }
  EXPECT_EQ(slicesOf("gate"), 0U);
  EXPECT_EQ(add("clip.asf"), "");
  EXPECT_THAT(add("clip.asf", "gate", "door"), HasSubstr("already"));
  EXPECT_EQ(pArchive->requireUnit("gate", 0)->getAlarmSpans("*").size(), 0U);
}

TEST_F(AddFileTest, EndsWithTheManagerAndTakesOneFileAtATime) {
  constexpr int kInTheRecording = 70;  // the file's 50 frames are looked at first
  int iCalls = 0;
  isEnding = [&] { return ++iCalls == kInTheRecording; };
  EXPECT_THAT(add("clip.asf", "gate", "door"), HasSubstr("interrupted; nothing was recorded"));
  EXPECT_EQ(pArchive->requireUnit("gate", 0)->getAlarmSpans("*").size(), 0U);
  std::string sSecond;
  std::string sOther;
  iCalls = 0;
  isEnding = [&] {
    if (++iCalls == kInTheRecording) {
      sSecond = add("link.asf", "gate", {}, {});
      sOther = add("link.asf", "door");
    }
    return false;
  };
  EXPECT_EQ(add("clip.asf"), "");
  EXPECT_THAT(sSecond, HasSubstr("another file is being added"));
  EXPECT_EQ(sOther, "");
  EXPECT_EQ(slicesOf("gate"), 1U);
}

}  // namespace
