#include "qmmanager/recorder.h"

#include <cerrno>
#include <filesystem>
#include <gmock/gmock.h>
#include <set>

#include "coreapi/platform/faultseam.h"
#include "tests/storage/readersupport.h"
#include "tests/support/logcapture.h"

namespace {

namespace fs = std::filesystem;
using namespace qm_manager;
using namespace qm_test;
using testing::HasSubstr;

constexpr std::uint64_t kSecond = 1'000'000;

JTime date(std::uint64_t ullSince = 0) {
  return JTime::fromMicroseconds(kBegin + 86400 * kSecond + ullSince);
}

class RecorderTest : public testing::Test {
 protected:
  RecorderTest() { FileInfo::initCache(4); }
  ~RecorderTest() override { FileInfo::closeCache(); }

  /// A file of one stream; `change` may change each frame.
  template <typename Change>
  std::string makeFile(const std::string& sName, std::uint64_t uFrames, Change change,
                       const qm_ci::StreamInfo& stream = wholeVideoStream()) const {
    const std::string sPath = temp.path(sName);
    const auto pOutput = writerOf(sName, sPath);
    JParams params;
    params.add("lens", "wide");
    pOutput->getParams().add("equipment", "dome");
    pOutput->getParams().add("startTimeStamp", "then");
    pOutput->open(&stream, &params, nullptr);
    for (std::uint64_t i = 0; i < uFrames; ++i) {
      Frame frame = numbered(1, i);
      change(i, frame);
      write(*pOutput, 1, frame);
    }
    return sPath;
  }
  std::string makeFile(const std::string& sName, std::uint64_t uFrames) const {
    return makeFile(sName, uFrames, [](std::uint64_t, Frame&) {});
  }

  /// A new unit.
  ArchiveUnit& unit(const std::string& sName = "unit") {
    fs::create_directory(temp.path(sName));
    pUnit = std::make_unique<ArchiveUnit>(temp.path(sName), ArchiveUnit::Settings());
    pUnit->open();
    return *pUnit;
  }

  static std::vector<Read> framesOf(const std::vector<Slice>& slices) {
    std::vector<Read> frames;
    for (const Slice& slice : slices) {
      const auto more = qm_test::framesOf(slice.getPath());
      EXPECT_TRUE(more.at(0).bKeyFrame) << slice.getPath();
      EXPECT_EQ(JTime::fromMicroseconds(more.front().ullTimeStamp), slice.getSpan().startDate);
      EXPECT_EQ(JTime::fromMicroseconds(more.back().ullTimeStamp), slice.getSpan().endDate);
      frames.insert(frames.end(), more.begin(), more.end());
    }
    return frames;
  }

  /// Media files of a directory: each must be what its name says.
  static std::vector<Slice> wholeSlicesOf(const std::string& sDirectory) {
    std::set<std::string> names;
    std::vector<Slice> slices;
    for (const auto& entry : fs::directory_iterator(sDirectory)) {
      if (entry.path().extension() != ".log") {
        names.insert(entry.path().filename().string());
      }
    }
    for (const std::string& sName : names) {
      const auto name = Slice::parseFileName(sName);
      const std::string sPath = sDirectory + "/" + sName;
      EXPECT_TRUE(name && fs::file_size(sPath) == name->uSize) << sName;
      if (name) {
        slices.emplace_back(name->span, sPath, name->uSize);
      }
    }
    framesOf(slices);
    return slices;
  }

  TempDir temp;
  std::unique_ptr<ArchiveUnit> pUnit;
};

TEST_F(RecorderTest, KeepsEveryFrameAndItsTime) {
  // Uneven times, and a pause of a minute.
  const auto uneven = [](std::uint64_t i, Frame& frame) {
    frame.ullTimeStamp += i * i + (i >= 50 ? 60 * kSecond : 0);
  };
  for (const char* const szName : {"clip.asf", "clip.avi"}) {
    SCOPED_TRACE(szName);
    const std::string sPath = makeFile(szName, 100, uneven);
    std::vector<Read> expected = qm_test::framesOf(sPath);
    ASSERT_EQ(expected.size(), 100U);
    for (const bool bOwnDates : {false, true}) {
      const MediaSurvey survey = surveyMedia(sPath, {});
      EXPECT_EQ(survey.fps, 25);
      EXPECT_TRUE(survey.bDated);
      const JTime start = bOwnDates ? JTime::fromMicroseconds(survey.ullBegin) : date();
      Recorder recorder(unit(std::string(szName) + (bOwnDates ? "own" : "given")), survey, start, 1);
      recorder.run({});
      for (Read& frame : expected) {
        frame.ullTimeStamp += start.getMicroseconds() - kBegin;
      }
      EXPECT_EQ(framesOf(recorder.getSlices()), expected);
      EXPECT_EQ(recorder.getFrames(), 100U);
      EXPECT_GE(recorder.getSlices().size(), 4U);
      EXPECT_EQ(wholeSlicesOf(pUnit->getDirectory()).size(), recorder.getSlices().size());
      EXPECT_EQ(pUnit->getSlices({}).size(), recorder.getSlices().size());
      EXPECT_EQ(recorder.getSpan(), TimeSpan(recorder.getSlices().front().getSpan().startDate,
                                             recorder.getSlices().back().getSpan().endDate));
      for (Read& frame : expected) {
        frame.ullTimeStamp -= start.getMicroseconds() - kBegin;
      }
    }
  }
}

TEST_F(RecorderTest, KeepsParametersButThoseOfAnotherRecording) {
  Recorder recorder(unit(), surveyMedia(makeFile("clip.asf", 5), {}), date());
  recorder.run({});
  const FileInfo::Ptr pInfo = recorder.getSlices().at(0).getFileInfo();
  std::string sText;
  EXPECT_TRUE(pInfo->getParams().get("equipment", sText));
  EXPECT_FALSE(pInfo->getParams().get("startTimeStamp", sText));
  EXPECT_TRUE(pInfo->getStream(1)->getParams().get("lens", sText));
}

TEST_F(RecorderTest, CutsAtTheFirstKeyFrameBehindTheLength) {
  Recorder recorder(unit(), surveyMedia(makeFile("clip.asf", 100), {}), date(), 1);
  recorder.run({});
  std::vector<std::uint64_t> starts;
  for (const Slice& slice : recorder.getSlices()) {
    starts.push_back(slice.getSpan().startDate.wrappingDifference(date()));
  }
  // A key frame each 160 ms.
  EXPECT_THAT(starts, testing::ElementsAre(0, 1'120'000, 2'240'000, 3'360'000));
  EXPECT_EQ(recorder.getSlices().back().getSpan().endDate, date(99 * kPeriod));
}

TEST_F(RecorderTest, BeginsAtAKeyFrameAndKeepsWhatProvesTheFrames) {
  const auto change = [](std::uint64_t i, Frame& frame) {
    frame.wAccessFlags = i == 6 ? 3 : 0;
    frame.wPictureType = i == 8 ? qm_ci::kFrameKindAuthentication : 1;
  };
  const MediaSurvey survey = surveyMedia(makeFile("clip.asf", 20, change), {});
  Recorder recorder(unit(), survey, date());
  recorder.run({});
  EXPECT_THAT(recorder.getNotes(), testing::ElementsAre(HasSubstr("the first 6 frames aren't taken")));
  EXPECT_EQ(recorder.getFrames(), 13U);
  ASSERT_EQ(recorder.getSlices().size(), 1U);
  EXPECT_EQ(recorder.getSlices()[0].getSpan(), TimeSpan(date(6 * kPeriod), date(19 * kPeriod)));
  FrameWalk walk(recorder.getSlices()[0].getPath(), {});
  std::uint64_t uProofs = 0;
  while (walk.next()) {
    uProofs += walk.getInput().isAuthentication() ? 1 : 0;
  }
  EXPECT_EQ(uProofs, 1U);
}

TEST_F(RecorderTest, MarksEachFrameOfDataWithoutMarks) {
  const auto unmarked = [](std::uint64_t, Frame& frame) { frame.wAccessFlags = 0; };
  const MediaSurvey survey = surveyMedia(makeFile("clip.asf", 50, unmarked, dataStream()), {});
  EXPECT_EQ(survey.fps, 0);
  Recorder recorder(unit(), survey, date(), 1);
  recorder.run({});
  EXPECT_EQ(framesOf(recorder.getSlices()).size(), 50U);
  EXPECT_EQ(recorder.getSlices().size(), 2U);
}

TEST_F(RecorderTest, RefusesWhatItCanNotRecord) {
  const auto none = [](std::uint64_t, Frame&) {};
  const auto back = [](std::uint64_t i, Frame& frame) { frame.ullTimeStamp -= i == 7 ? 2 * kPeriod : 0; };
  const auto same = [](std::uint64_t, Frame& frame) { frame.ullTimeStamp = kBegin; };
  const auto noKey = [](std::uint64_t, Frame& frame) { frame.wAccessFlags = 0; };
  struct {
    std::string sPath;
    const char* szReason;
  } const rows[] = {
      {makeFile("empty.asf", 0, none), "no frames"},
      {makeFile("back.asf", 10, back), "frame 7 is dated earlier"},
      {makeFile("same.asf", 10, same), "no times"},
      {makeFile("nokey.asf", 10, noKey), "no key frame"},
      {temp.write("text.avi", "not a media file"), "not a media file"},
      {temp.path("none.avi"), "CreateFile"},
      {"/dev/null", "is no plain file"},
  };
  for (const auto& row : rows) {
    EXPECT_THAT(thrownBy([&] { surveyMedia(row.sPath, {}); }), HasSubstr(row.szReason)) << row.sPath;
  }
}

TEST_F(RecorderTest, RefusesDatesThatAreTakenOrOutOfRange) {
  const MediaSurvey survey = surveyMedia(makeFile("clip.asf", 50), {});
  constexpr std::uint64_t kLength = 49 * kPeriod;
  ArchiveUnit& target = unit();
  Recorder(target, survey, date(), 1).run({});
  const auto before = wholeSlicesOf(target.getDirectory()).size();
  struct {
    JTime start;
    const char* szReason;  ///< empty: taken
  } const rows[] = {
      {date(), "already"},
      {date(1 * kSecond), "already"},
      {date(kLength - 1), "already"},
      {JTime::zero(), "between 1970"},
      {JTime::fromMicroseconds(JTime::kValidHigh), "between 1970"},
      {JTime::max(), "between 1970"},
      {date(kLength), ""},
  };
  for (const auto& row : rows) {
    const std::string sThrown = thrownBy([&] { Recorder(target, survey, row.start); });
    EXPECT_THAT(sThrown, HasSubstr(row.szReason));
    EXPECT_EQ(sThrown.empty(), *row.szReason == '\0') << sThrown;
  }
  EXPECT_EQ(wholeSlicesOf(target.getDirectory()).size(), before);
}

TEST_F(RecorderTest, TellsOfHiddenSpans) {
  ArchiveUnit& target = unit();
  target.hide({TimeSpan(date(kSecond), date(2 * kSecond))});
  const Recorder recorder(target, surveyMedia(makeFile("clip.asf", 50), {}), date());
  EXPECT_THAT(recorder.getNotes(), testing::ElementsAre(HasSubstr("hidden or erased")));
}

TEST_F(RecorderTest, EndedEarlyLeavesWholeSlices) {
  const std::string sPath = makeFile("clip.asf", 100);
  const MediaSurvey survey = surveyMedia(sPath, {});
  for (const int iFrames : {0, 1, 28, 29, 60, 99}) {
    int iLeft = iFrames;
    Recorder recorder(unit("after" + std::to_string(iFrames)), survey, date(), 1);
    EXPECT_EQ(thrownBy([&] { recorder.run([&](auto, auto) { return iLeft-- > 0; }); }), "interrupted");
    EXPECT_EQ(recorder.getSlices().size(), static_cast<std::size_t>(std::max(iFrames - 1, 0) / 28));
    EXPECT_EQ(wholeSlicesOf(pUnit->getDirectory()).size(), recorder.getSlices().size());
  }
  EXPECT_EQ(thrownBy([&] { surveyMedia(sPath, [](auto, auto) { return false; }); }), "interrupted");
}

#ifdef QM_FAULT_SEAMS
TEST_F(RecorderTest, FailingAnywhereLeavesWholeSlices) {
  const LogCapture log;
  const MediaSurvey survey = surveyMedia(makeFile("clip.asf", 30), {});
  bool bFailed = true;
  for (std::uint64_t uCall = 1; bFailed; ++uCall) {
    SCOPED_TRACE(uCall);
    Recorder recorder(unit("call" + std::to_string(uCall)), survey, date(), 1);
    qm_platform::FaultPlan plan;
    plan.seams = static_cast<std::uint32_t>(qm_platform::Seam::kFile);
    plan.nth = uCall;
    plan.error = ENOSPC;
    qm_platform::armFaults(plan);
    const std::string sThrown = thrownBy([&] { recorder.run({}); });
    bFailed = qm_platform::disarmFaults();
    const auto slices = wholeSlicesOf(pUnit->getDirectory());
    // A file may have got its name when the sync of its directory fails.
    EXPECT_GE(slices.size(), recorder.getSlices().size());
    EXPECT_LE(slices.size(), recorder.getSlices().size() + 1);
    if (sThrown.empty()) {
      EXPECT_EQ(framesOf(slices).size(), 30U);
    }
    ASSERT_TRUE(bFailed || sThrown.empty()) << sThrown;
    fs::remove_all(pUnit->getDirectory());
  }
}
#endif

}  // namespace
