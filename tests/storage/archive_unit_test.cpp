#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <set>
#include <sys/stat.h>

#include "coreapi/qmutils/socket/fileoperations.h"
#include "storage/ArchiveUnit.h"
#include "tests/storage/readersupport.h"
#include "tests/storage/wiretext.h"
#include "tests/support/logcapture.h"

namespace {

namespace fs = std::filesystem;
using namespace qm_test;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

/// A unit in a directory of its own, with the process's cache.
class ArchiveUnitTest : public testing::Test {
 protected:
  ArchiveUnitTest() {
    FileInfo::initCache(4);
    fs::create_directory(directory());
  }
  ~ArchiveUnitTest() override { FileInfo::closeCache(); }

  std::string directory() const { return temp.path("unit"); }
  std::string path(const std::string& sName) const { return directory() + "/" + sName; }

  /// An empty file with the name of a slice; dates in microseconds behind a date in 2011.
  void touch(std::uint64_t uStart, std::uint64_t uEnd, std::uint64_t uSize = 10) const {
    std::ofstream(path(name(uStart, uEnd, uSize)));
  }

  static std::string name(std::uint64_t uStart, std::uint64_t uEnd, std::uint64_t uSize = 10) {
    return Slice::computeFileName(span(kBegin + uStart, kBegin + uEnd), uSize, ".asf");
  }

  std::unique_ptr<ArchiveUnit> opened(const ArchiveUnit::Settings& settings = {}) const {
    auto pUnit = std::make_unique<ArchiveUnit>(directory(), settings);
    pUnit->open();
    return pUnit;
  }

  /// All that the directory holds.
  std::set<std::string> names() const {
    std::set<std::string> result;
    for (const auto& entry : fs::directory_iterator(directory())) {
      result.insert(entry.path().filename().string());
    }
    return result;
  }

  TempDir temp;
};

/// "start-end" behind the date in 2011.
std::string relative(const TimeSpanList& spans) {
  TimeSpanList moved;
  for (const TimeSpan& each : spans) {
    moved.push_back(span(each.startDate.getMicroseconds() - kBegin, each.endDate.getMicroseconds() - kBegin));
  }
  return spansText(moved);
}

std::string indexOf(const ArchiveUnit& unit) {
  return relative(unit.getStoredSpans(TimeSpan()));
}

TimeSpan behind(std::uint64_t uStart, std::uint64_t uEnd) {
  return span(kBegin + uStart, kBegin + uEnd);
}

TEST(SliceName, IsReadBackAsItWasMade) {
  const TimeSpan day(JTime::fromMicroseconds(kBegin), JTime::fromMicroseconds(kBegin + 86'400'000'001));
  EXPECT_EQ(Slice::computeFileName(day, 5, ".asf"),
            "20110303-080000000000-20110304-080000000001-000000000005.asf");
  for (const std::uint64_t uSize : {std::uint64_t{0}, Slice::kMaxNamedSize, Slice::kMaxNamedSize + 1}) {
    const LogCapture log;
    const std::string sName = Slice::computeFileName(day, uSize, "");
    const auto read = Slice::parseFileName(sName);
    ASSERT_TRUE(read) << sName;
    EXPECT_TRUE(read->span == day && read->uSize == uSize && read->sExtension.empty()) << sName;
    EXPECT_EQ(log.messages().size(), uSize > Slice::kMaxNamedSize ? 1 : 0);
  }
  const TimeSpan late(JTime::fromUnixSeconds(4'107'542'399), JTime::fromUnixSeconds(4'107'542'400));
  EXPECT_TRUE(Slice::parseFileName(Slice::computeFileName(late, 1, ".mp3"))->span == late);
}

TEST(SliceName, IsNothingElse) {
  const char* const kForeign[] = {
      "",
      "current.asf",
      "20110303-000000000000-20110304-000000000001-00000000005.asf",
      "20110229-000000000000-20110304-000000000001-000000000005.asf",   // no leap year
      "20110303-240000000000-20110304-000000000001-000000000005.asf",   // no such hour
      "20110304-000000000001-20110304-000000000000-000000000005.asf",   // ends before it starts
      "20110303-000000000000-20110304-000000000001-0000000000005.asf",  // a digit too many
      "20110303-000000000000-20110304-000000000001-000000000005.asf.4711",
      "20110303-00000000000 -20110304-000000000001-000000000005.asf",
      "+0110303-000000000000-20110304-000000000001-000000000005.asf",
      "20110303-000000000000-20110304-000000000001-99999999999999999999999.asf",
      "15010303-000000000000-20110304-000000000001-000000000005.asf"};
  for (const char* const szName : kForeign) {
    EXPECT_FALSE(Slice::parseFileName(szName)) << szName;
  }
}

struct OverlapRow {
  const char* szName;
  std::vector<std::pair<int, int>> added;
  const char* szIndex;
  std::uint64_t uUsed;  ///< each slice has 10 bytes
};

TEST(SliceMap, NeverHoldsAnOverlap) {
  const OverlapRow kRows[] = {
      {"apart and touching", {{20, 30}, {0, 10}, {10, 20}}, "0-10 10-20 20-30", 30},
      {"the same again", {{0, 10}, {0, 10}}, "0-10", 10},
      {"around others", {{2, 4}, {5, 6}, {0, 10}}, "0-10", 10},
      {"inside another", {{0, 10}, {2, 4}}, "0-10", 10},
      {"over an end", {{0, 10}, {8, 20}}, "0-7 8-20", 20},
      {"over a start", {{8, 20}, {0, 10}}, "0-7 8-20", 20},
      {"over both and more", {{0, 10}, {12, 14}, {16, 30}, {8, 20}}, "0-7 8-15 16-30", 30},
      {"an instant inside", {{5, 5}, {0, 10}, {7, 7}}, "0-10", 10},
      {"shortened to an instant that is there", {{5, 5}, {6, 10}, {5, 8}}, "5-5 6-10", 20},
  };
  const LogCapture log;
  for (const OverlapRow& row : kRows) {
    SliceMap slices;
    for (const auto& [iStart, iEnd] : row.added) {
      slices.add(std::make_unique<Slice>(span(iStart, iEnd), "x", 10));
    }
    TimeSpanList spans;
    for (const auto& [each, pSlice] : slices) {
      EXPECT_TRUE(each == pSlice->getSpan());
      spans.push_back(each);
    }
    EXPECT_EQ(spansText(spans), row.szIndex) << row.szName;
    EXPECT_EQ(slices.getUsedSpace(), row.uUsed) << row.szName;
  }
  EXPECT_TRUE(
      log.has(qm_err::kLogWarning,
              "addSlice: because of overlapped time stamps, 'x' (the FileMaster will therefore ignore "
              "this slice!) will be replaced by 'x'"));
}

TEST(SliceMap, FindsByTimeInEachMode) {
  SliceMap slices;
  for (const auto& [uStart, uEnd] : {std::pair(10, 20), {20, 30}, {40, 50}}) {
    slices.add(std::make_unique<Slice>(span(uStart, uEnd), "", 1));
  }
  const auto found = [&](std::uint64_t uStart, std::uint64_t uEnd, int iMode) {
    const auto position = slices.find(span(uStart, uEnd), iMode);
    return position == slices.end() ? 0 : static_cast<int>(position->first.startDate.getMicroseconds());
  };
  EXPECT_THAT((std::vector{found(10, 20, 0), found(15, 15, 0), found(20, 20, 0), found(35, 45, 0)}),
              ElementsAre(10, 10, 20, 40));
  EXPECT_THAT((std::vector{found(35, 36, 0), found(35, 36, 1), found(35, 36, 2)}), ElementsAre(0, 40, 20));
  EXPECT_THAT((std::vector{found(60, 60, 1), found(60, 60, 2), found(1, 2, 1), found(1, 2, 2)}),
              ElementsAre(0, 40, 10, 0));
}

TEST_F(ArchiveUnitTest, RecoversUnfinishedFilesAndSetsBrokenOnesAside) {
  writeAsf(path("whole.asf"), 3);
  {
    // A writer that was killed: the header as at the start, no index.
    const auto pOutput = writerOf("asf", temp.path("left.asf"));
    const auto stream = dataStream();
    pOutput->open(&stream, nullptr, nullptr);
    for (std::uint64_t i = 1000; i < 1010; ++i) {
      write(*pOutput, 1, numbered(1, i));
    }
    fs::copy_file(temp.path("left.asf"), path("killed.tmp"));
  }
  temp.write("unit/junk", "not a media file");
  temp.write("unit/stub.asf", readFile(path("whole.asf")).substr(0, 40));
  temp.write("unit/alarm.log.4711", "left of an update");
  fs::create_directory(path("folder"));

  const auto pUnit = opened({.sQuarantine = temp.path("quarantine")});
  EXPECT_EQ(indexOf(*pUnit), "0-80000 40000000-40320000");  // the last frame may be cut short
  EXPECT_TRUE(fs::exists(temp.path("quarantine/junk")));
  EXPECT_TRUE(fs::exists(temp.path("quarantine/stub.asf")));
  std::set<std::string> expected = {"alarm.log", "protection.log", "metadata.log", "folder"};
  for (const Slice& slice : pUnit->getSlices(TimeSpan())) {
    EXPECT_EQ(slice.getSize(), fs::file_size(slice.getPath()));
    EXPECT_EQ(fs::path(slice.getPath()).filename(),
              Slice::computeFileName(slice.getSpan(), slice.getSize(), ".asf"));
    expected.insert(fs::path(slice.getPath()).filename());
  }
  const auto pAgain = opened();
  EXPECT_EQ(indexOf(*pAgain), indexOf(*pUnit));
  EXPECT_EQ(names(), expected);
  EXPECT_EQ(framesOf(pAgain->getSlices(behind(40'000'000, 50'000'000)).at(0).getPath()).size(), 9);
}

TEST_F(ArchiveUnitTest, DeletesBrokenFilesByItselfButNoneInUse) {
  temp.write("unit/junk", "not a media file");
  const std::string sUsed = temp.write("unit/used", "written just now");
  const JFileSocket writer(sUsed, JFileSocket::kReadWrite, true);
  ArchiveUnit::setRecoveryReadOnly(true);
  opened();
  EXPECT_TRUE(names().contains("junk"));
  ArchiveUnit::setRecoveryReadOnly(false);
  opened();
  EXPECT_FALSE(names().contains("junk"));
  EXPECT_TRUE(names().contains("used"));
}

TEST_F(ArchiveUnitTest, TellsOfWhatCantBeOpenedAndGoesOn) {
  const LogCapture log;
  fs::create_directory(path("alarm.log"));
  touch(0, 10);
  EXPECT_EQ(indexOf(*opened()), "0-10");
  EXPECT_TRUE(log.has(qm_err::kLogError, "Could not initialize the alarm log in " + directory() + "\n"));
  ArchiveUnit missing(temp.path("missing"), {});
  missing.open();
  EXPECT_EQ(missing.getSliceCount(), 0);
}

TEST_F(ArchiveUnitTest, NeitherWaitsForPipesNorMendsFilesElsewhere) {
  ASSERT_EQ(mkfifo(path("metadata.log").c_str(), 0600), 0);
  ASSERT_EQ(mkfifo(path(name(0, 10)).c_str(), 0600), 0);
  writeAsf(temp.path("whole.asf"), 3);
  const std::string sCut = readFile(temp.path("whole.asf")).substr(0, 1000);
  temp.write("elsewhere.asf", sCut);
  fs::create_symlink(temp.path("elsewhere.asf"), path("link.asf"));
  const auto pUnit = opened();
  EXPECT_EQ(pUnit->getMedia().sDataType, "");
  EXPECT_NE(thrownBy([&] { pUnit->openFile(behind(0, 10), nullptr, nullptr, 0); }), "");
  EXPECT_EQ(readFile(temp.path("elsewhere.asf")), sCut);
  EXPECT_TRUE(names().contains("link.asf"));
}

TEST_F(ArchiveUnitTest, OpensFilesByTimeAndWalksThem) {
  writeAsf(path("a"), 3);
  const auto pUnit = opened();
  touch(1'000'000, 1'080'000);  // there is nothing in this one
  pUnit->addSlice(std::make_unique<Slice>(behind(1'000'000, 1'080'000), path(name(1'000'000, 1'080'000)), 0));
  JTime start;
  JTime end;
  auto pInput = pUnit->openFile(behind(500, 500), &start, &end, SliceMap::kExact);
  EXPECT_EQ(readAll(*pInput).size() > 0, true);
  EXPECT_TRUE(TimeSpan(start, end) == behind(0, 80'000));
  EXPECT_NE(thrownBy([&] { pUnit->openFile(behind(90'000, 90'000), nullptr, nullptr, 0); }), "");
  EXPECT_NE(thrownBy([&] { pUnit->openNextFile(end, &start, &end); }), "");
  EXPECT_TRUE(TimeSpan(start, end) == behind(1'000'000, 1'080'000)) << "the walk passes it over";
  EXPECT_EQ(pUnit->openNextFile(end, nullptr, nullptr), nullptr);
  EXPECT_NE(pUnit->openFile(behind(500'000, 500'000), nullptr, nullptr, SliceMap::kPrevious), nullptr);
  EXPECT_EQ(pUnit->getMedia().sDataType, "application/x-qmpluginstream");
}

TEST_F(ArchiveUnitTest, JoinsStoredSpansOverSmallGapsAndLeavesHiddenOnesOut) {
  for (const auto& [uStart, uEnd] :
       {std::pair(0, 100'000), {180'000, 300'000}, {380'001, 500'000}, {500'000, 600'000}}) {
    touch(uStart, uEnd);
  }
  EXPECT_EQ(indexOf(*opened()), "0-100000 180000-300000 380001-500000 500000-600000");
  const auto pUnit = opened({.iFps = 25, .bJoinGaps = true});
  EXPECT_EQ(indexOf(*pUnit), "0-300000 380001-600000");
  EXPECT_EQ(relative(pUnit->getStoredSpans(behind(120'000, 130'000))), "0-300000")
      << "in a gap that counts as none";
  EXPECT_EQ(relative(pUnit->getStoredSpans(behind(700'000, 800'000))), "");
  pUnit->hide({behind(50'000, 250'000), behind(390'000, 700'000)});
  pUnit->unhide({behind(100'000, 150'000)});
  const auto pAgain = opened({.iFps = 25, .bJoinGaps = true});
  EXPECT_EQ(indexOf(*pAgain), "0-49999 100000-150000 250001-300000 380001-389999");
  EXPECT_EQ(indexOf(*pAgain), indexOf(*pUnit));
}

TEST_F(ArchiveUnitTest, JoinsStoredSpansByTheMediaWhereTheKeyIsFaster) {
  writeAsf(path("a"), 3);  // up to 80 ms; 12.5 frames a second by its description
  touch(240'000, 300'000);
  touch(460'001, 500'000);
  EXPECT_EQ(indexOf(*opened({.iFps = 25, .bJoinGaps = true})), "0-300000 460001-500000");
}

TEST_F(ArchiveUnitTest, GivesUpTheOldestSlicesThatNothingProtects) {
  for (std::uint64_t i = 0; i < 5; ++i) {
    touch(i * 100, i * 100 + 50, 100);
  }
  const auto protect = [&](ArchiveUnit& unit, const TimeSpan& media, const TimeSpan& validity) {
    unit.getProtectedLog().addRecord(std::make_unique<ProtectedLogRecord>(media, validity, "d"), true);
  };
  const auto expired = [&](std::uint64_t uMaxSpace) {
    std::vector<Slice> slices;
    opened({.uMaxSpace = uMaxSpace})->getExpiredSlicesbySpace(slices);
    std::string sStarts;
    for (const Slice& slice : slices) {
      sStarts += std::to_string((slice.getSpan().startDate.getMicroseconds() - kBegin) / 100);
    }
    return sStarts;
  };
  EXPECT_EQ(expired(0), "");
  EXPECT_EQ(expired(500), "");
  EXPECT_EQ(expired(250), "012");
  const auto pUnit = opened();
  protect(*pUnit, behind(0, 50), span(0, 0));     // open at both ends
  protect(*pUnit, behind(100, 150), span(0, 1));  // over since 1601
  protect(*pUnit, behind(200, 225), TimeSpan());  // half of a slice
  EXPECT_EQ(expired(350), "");
  EXPECT_EQ(expired(250), "1");
  const LogCapture log;
  EXPECT_EQ(expired(20), "134") << "the rest of the half is too much";
  EXPECT_TRUE(log.has(qm_err::kLogWarning,
                      "getExpiredSlicesbySpace() -\tCould not remove 30 of space in unprotected slices to "
                      "assure MaxSpace 20\n"));

  // Behind a line that can't be read anything may be protected.
  temp.write("unit/protection.log", "no protection\n" + readFile(path("protection.log")));
  EXPECT_EQ(expired(20), "");
  EXPECT_NE(thrownBy([&] { opened()->erase(behind(300, 350)); }), "");
  EXPECT_EQ(opened()->getSliceCount(), 5);
}

TEST_F(ArchiveUnitTest, ErasesWhatNoProtectionHoldsAndKeepsMediaFilesWhole) {
  for (std::uint64_t i = 0; i < 5; ++i) {
    touch(i * 100, i * 100 + 50, 100);
  }
  const auto pUnit = opened();
  pUnit->getProtectedLog().addRecord(std::make_unique<ProtectedLogRecord>(behind(210, 220), TimeSpan(), "d"),
                                     true);
  pUnit->erase(behind(30, 420));
  EXPECT_EQ(indexOf(*pUnit), "0-29 210-220 421-450");
  EXPECT_EQ(indexOf(*opened()), "0-29 210-220 421-450");
  EXPECT_EQ(pUnit->getUsedSpace(), 300) << "cut and protected slices keep their files";
  EXPECT_FALSE(names().contains(name(100, 150, 100)));
  touch(110, 120);
  EXPECT_EQ(indexOf(*opened()), "0-29 110-120 210-220 421-450") << "what comes later shows";
  EXPECT_EQ(pUnit->getSizeWithin(behind(25, 210)), 50 + 20);
}

TEST_F(ArchiveUnitTest, ShowsTheFileBeingWritten) {
  touch(0, 10);
  const auto pUnit = opened({.iFps = 25, .bJoinGaps = true});
  auto pOutput = writerOf("asf", temp.path("current.asf"));
  const auto stream = dataStream();
  pOutput->open(&stream, nullptr, nullptr);
  pUnit->setCurrentFile(FileInfo::Ptr(pOutput->detachFileInfo()));
  EXPECT_EQ(indexOf(*pUnit), "0-10");
  for (std::uint64_t i = 10; i < 13; ++i) {
    write(*pOutput, 1, numbered(1, i));
  }
  EXPECT_EQ(indexOf(*pUnit), "0-10 400000-480000");
  pOutput.reset();
  pUnit->addSlice(nullptr);
  EXPECT_EQ(indexOf(*pUnit), "0-10");
}

TEST_F(ArchiveUnitTest, EstimatesBuffersByTheNewestFile) {
  const auto pEmpty = opened();
  EXPECT_EQ(pEmpty->updateMaxBufferSize(), 0);
  writeAsf(path("a"), 5, 400);
  const auto pUnit = opened();
  EXPECT_GE(pUnit->updateMaxBufferSize(), 500);
  EXPECT_EQ(pUnit->getMaxFrameDuration(), 80'000);
  EXPECT_EQ(thrownBy([&] { opened({.iType = 4})->updateMaxBufferSize(); }), "Bad archive unit type");
}

}  // namespace
