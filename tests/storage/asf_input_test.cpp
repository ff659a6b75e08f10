#include <cstdint>
#include <filesystem>
#include <gmock/gmock.h>
#include <random>
#include <sys/wait.h>
#include <unistd.h>

#include "coreapi/qmutils/socket/jdirectiosocket.h"
#include "coreapi/qmutils/socket/jtcpsocket.h"
#include "storage/ASFIO/ASFFileInfoIn.h"
#include "storage/ASFIO/ASFInput.h"
#include "storage/ASFIO/asfkinds.h"
#include "tests/storage/readersupport.h"
#include "tests/support/filesizelimit.h"
#include "tests/support/logcapture.h"

namespace {

using namespace qm_test;
using namespace asf_layout;

constexpr JTime kNoDate = JTime::lastQueryTime();

std::unique_ptr<ASFFileInfoIn> describe(const std::string& sPath) {
  JFileSocket socket(sPath, JFileSocket::kRead, true);
  return std::make_unique<ASFFileInfoIn>(socket, sPath, false);
}

std::string textOf(const JParams& params) {
  std::string sText;
  params.toText(sText);
  return sText;
}

/// Three streams whose frames take turns, one stream at half the rate.
std::vector<Read> writeStreams(const std::string& sPath) {
  std::vector<Read> written;
  const auto pOutput = writerOf("asf", sPath);
  pOutput->addStream(wholeVideoStream("note=1"));
  pOutput->addStream(audioStream("", "audio/x-qmpcm"));
  pOutput->addStream(dataStream());
  pOutput->getStreamParams(2)->add("mic", "left");
  pOutput->getParams().add("authoringApp", "app");
  pOutput->start(nullptr);
  for (std::uint64_t i = 0; i < 40; ++i) {
    for (std::uint32_t uStream = 1; uStream <= 3; ++uStream) {
      if (uStream != 3 || i % 2 == 0) {
        const Frame frame = numbered(uStream, i, 30 + i);
        write(*pOutput, uStream, frame);
        written.push_back(asRead(uStream, frame));
      }
    }
  }
  return written;
}

TEST(AsfFile, GivesBackWhatWasWritten) {
  const TempDir dir;
  const std::string sPath = dir.path("a.asf");
  const std::vector<Read> written = writeStreams(sPath);
  EXPECT_EQ(framesOf(sPath), written);

  const auto pInfo = describe(sPath);
  EXPECT_TRUE(pInfo->hasIndex());
  EXPECT_EQ(pInfo->getKind(), 2);
  EXPECT_EQ(textOf(pInfo->getParams()),
            "authoringApp=\"app\", supportAuthentication=true, syntheticFlag=true, validKeyFrameFlag=true");
  EXPECT_EQ(textOf(pInfo->getStream(2)->getParams()), "mic=\"left\"");
  EXPECT_STREQ(pInfo->getStream(1)->getStreamInfo()->getProperties(), "note=1");
  EXPECT_EQ(pInfo->getStream(2)->getStreamInfo()->getMIMEType(), "audio/x-qmpcm");
  EXPECT_EQ(pInfo->getStream(3)->getStreamInfo()->getMIMEType(), "application/x-qmpluginstream");
  EXPECT_EQ(pInfo->getFirstVideoStream(), 1U);
  EXPECT_EQ(pInfo->getFirstAudioStream(), 2U);
  EXPECT_EQ(pInfo->getFirstDataStream(), 3U);
  EXPECT_EQ(pInfo->getStream(1)->getFirstDate().getMicroseconds(), kBegin);
  EXPECT_EQ(pInfo->getStream(3)->getLastDate().getMicroseconds(), kBegin + 38 * kPeriod);
  std::uint32_t uWidth = 0;
  std::uint32_t uHeight = 0;
  pInfo->getVideoSize(&uWidth, &uHeight);
  EXPECT_EQ(uWidth * 1000 + uHeight, 352288U);
  EXPECT_STREQ(pInfo->getFileExtension(true), "asf");
}

TEST(AsfInput, SeeksAndGoesOnWithAllStreams) {
  const TempDir dir;
  const std::string sPath = dir.path("a.asf");
  const std::vector<Read> written = writeStreams(sPath);
  const auto pInput = readerOf(sPath);
  std::uint32_t uSize = 0;
  ASSERT_EQ(pInput->seekFrame(1, 22, &uSize, nullptr, true), FileInput::kFrame);
  EXPECT_EQ(pInput->getLastNumber(1), 20);
  EXPECT_EQ(pInput->getLastNumber(2), 19);
  EXPECT_EQ(pInput->getLastNumber(3), 9);
  EXPECT_EQ(payload(*pInput, uSize), numbered(1, 20, 50).sPayload);
  const std::vector<Read> rest = readAll(*pInput);
  EXPECT_EQ(rest, std::vector<Read>(written.begin() + 51, written.end()));

  ASSERT_EQ(pInput->seekTime(3, &uSize, JTime::fromMicroseconds(kBegin + 9 * kPeriod), nullptr, false),
            FileInput::kFrame);
  EXPECT_EQ(payload(*pInput, uSize), numbered(3, 8, 38).sPayload);
  EXPECT_EQ(thrownBy([&] { pInput->seekFrame(4, 0, nullptr, nullptr, false); }),
            thrownBy([] { QM_THROW(EndOfFileError); }));
  EXPECT_EQ(thrownBy([&] { pInput->seekFrame(1, 40, nullptr, nullptr, false); }),
            "getPosByNumber(): seek past end");
}

TEST(AsfInput, LoopsOrEnds) {
  const TempDir dir;
  writeAsf(dir.path("a.asf"), 3);
  const auto pInput = readerOf(dir.path("a.asf"));
  EXPECT_EQ(readAll(*pInput).size(), 3U);
  std::uint32_t uStream = 0;
  EXPECT_EQ(pInput->getNextFrame(&uStream, nullptr, nullptr, false), FileInput::kEnd);
  EXPECT_EQ(pInput->getLastNumber(1), 2);
  pInput->setLoop(true);
  EXPECT_EQ(pInput->getNextFrame(&uStream, nullptr, nullptr, false), FileInput::kWrapped);
  EXPECT_EQ(pInput->getLastNumber(1), 0);
  EXPECT_EQ(pInput->getNextFrame(&uStream, nullptr, nullptr, false), FileInput::kFrame);
}

/// A file as its writer leaves it when it dies: a copy from before the end.
std::string unfinishedCopy(const TempDir& dir, std::uint64_t uFrames, std::size_t uCut = 0) {
  const std::string sWhole = dir.path("whole.asf");
  auto pOutput = writerOf("asf", sWhole);
  const auto stream = dataStream();
  pOutput->open(&stream, nullptr, nullptr);
  for (std::uint64_t i = 0; i < uFrames; ++i) {
    write(*pOutput, 1, numbered(1, i));
  }
  std::string sBytes = readFile(sWhole);
  sBytes.resize(sBytes.size() - uCut);
  return dir.write("copy.asf", sBytes);
}

class Progress : public FileProgress {
 public:
  void progress(const std::string& sText) override { m_sLast = sText; }
  std::string m_sLast;
};

TEST(UnfinishedAsfFile, IsIndexedWhileItIsReadAndMended) {
  const TempDir dir;
  const std::string sPath = unfinishedCopy(dir, 120, 10);
  const auto pInput = readerOf(sPath);
  EXPECT_EQ(readAll(*pInput).size(), 119U);
  EXPECT_EQ(pInput->getFileInfo().getStream(1)->getCount(), 119U);
  EXPECT_EQ(pInput->seekFrame(1, 60, nullptr, nullptr, false), FileInput::kFrame);

  Progress progress;
  describe(sPath)->rebuildIndex(true, &progress, kNoDate);
  EXPECT_EQ(progress.m_sLast, "..");
  const auto pMended = describe(sPath);
  EXPECT_TRUE(pMended->hasIndex());
  EXPECT_EQ(pMended->getStream(1)->getCount(), 118U);
  EXPECT_EQ(pMended->getStream(1)->getLastDate().getMicroseconds(), kBegin + 117 * kPeriod);
  std::vector<Read> expected;
  for (std::uint64_t i = 0; i < 118; ++i) {
    expected.push_back(asRead(1, numbered(1, i)));
  }
  EXPECT_EQ(framesOf(sPath), expected);
  const std::string sMended = readFile(sPath);
  pMended->rebuildIndex(true, nullptr, kNoDate);
  EXPECT_EQ(readFile(sPath), sMended);
}

TEST(UnfinishedAsfFile, IsLeftAsItIsByAFullDisk) {
  const TempDir dir;
  const std::string sPath = unfinishedCopy(dir, 120, 0);
  const std::string sBefore = readFile(sPath);
  const auto pInfo = describe(sPath);
  {
    const qm_test::FileSizeLimit full(sBefore.size());
    EXPECT_NE(thrownBy([&] { pInfo->rebuildIndex(true, nullptr, kNoDate); }), "");
  }
  EXPECT_EQ(readFile(sPath), sBefore);
  pInfo->rebuildIndex(true, nullptr, kNoDate);
  EXPECT_TRUE(describe(sPath)->hasIndex());
  EXPECT_EQ(framesOf(sPath).size(), 119U);
}

TEST(UnfinishedAsfFile, CanBeDatedAnew) {
  const TempDir dir;
  const std::string sPath = dir.path("a.asf");
  writeAsf(sPath, 10);
  const JTime date = JTime::fromMicroseconds(kBegin + 1'000'000'000);
  describe(sPath)->rebuildIndex(true, nullptr, date);
  const auto pInfo = describe(sPath);
  EXPECT_EQ(pInfo->getStream(1)->getFirstDate(), date);
  // 12.5 frames a second.
  EXPECT_EQ(pInfo->getStream(1)->getTimeByNumber(5), JTime(date).add(5 * 80'000));
  EXPECT_EQ(pInfo->getStream(1)->getCount(), 9U);
}

TEST(AsfFile, IsCutAtADate) {
  const TempDir dir;
  const std::string sPath = dir.path("a.asf");
  struct Row {
    std::uint64_t ullAt;
    std::size_t uLeft;
  };
  for (const Row& row : {Row{kBegin, 10}, Row{kBegin + 4 * kPeriod, 4}, Row{kBegin + 4 * kPeriod + 1, 5},
                         Row{kBegin + 9 * kPeriod + 5, 10}}) {
    writeAsf(sPath, 10);
    describe(sPath)->truncate(JTime::fromMicroseconds(row.ullAt));
    EXPECT_EQ(framesOf(sPath).size(), row.uLeft);
    EXPECT_EQ(describe(sPath)->getStream(1)->getCount(), row.uLeft);
  }
  EXPECT_EQ(thrownBy([&] { describe(sPath)->truncate(JTime::fromMicroseconds(1)); }), "seek before start");
  // An index that puts the fourth frame far behind the end must not make the file as long as that.
  std::string sBytes = readFile(sPath);
  sBytes.replace(sBytes.size() - 7 * index_layout::kCISize, 8, le(std::uint64_t{1} << 33, 8));
  const auto pDamaged = describe(dir.write("damaged.asf", sBytes));
  EXPECT_EQ(thrownBy([&] { pDamaged->truncate(JTime::fromMicroseconds(kBegin + 3 * kPeriod)); }),
            "the index is damaged: it puts a frame behind the data");
  EXPECT_EQ(readFile(dir.path("damaged.asf")), sBytes);
  JFileSocket socket(sPath, JFileSocket::kRead, true);
  ASFFileInfoIn mapped(socket, sPath, true);
  EXPECT_EQ(thrownBy([&] { mapped.truncate(JTime::fromMicroseconds(kBegin)); }),
            "the index must not be mapped!");
}

TEST(AlignedAsfFile, ReadsPlainlyAndPastTheCache) {
  for (const std::uint32_t uBlock : {512U, 4096U}) {
    const TempDir dir;
    const std::string sPath = dir.path("a.asf");
    std::vector<Read> written;
    {
      auto pSocket = std::make_unique<JDirectIOSocket>(sPath, JFileSocket::kWrite, true);
      pSocket->setAlignment(uBlock);
      const auto pOutput = FileOutput::create(std::move(pSocket), "asf", sPath);
      const auto stream = wholeVideoStream();
      pOutput->open(&stream, nullptr, nullptr);
      for (const std::size_t uSize : {10U, 475U, 476U, 477U, 988U, 1000U}) {
        const Frame frame = numbered(1, written.size(), uSize);
        write(*pOutput, 1, frame);
        written.push_back(asRead(1, frame));
      }
    }
    EXPECT_EQ(framesOf(sPath), written);
    auto pDirect = std::make_unique<JDirectIOSocket>(sPath, JFileSocket::kRead, true);
    pDirect->setAlignment(uBlock);
    const auto pInfo = describe(sPath);
    EXPECT_EQ(pInfo->getIOAlignBlockSize(), uBlock);
    ASFInput input(std::move(pDirect), *pInfo);
    input.setLoop(false);
    EXPECT_EQ(readAll(input), written);
    std::uint32_t uSize = 0;
    ASSERT_EQ(input.seekFrame(1, 3, &uSize, nullptr, false), FileInput::kFrame);
    EXPECT_EQ(payload(input, uSize), written[3].sPayload);
    std::uint32_t uStream = 0;
    EXPECT_EQ(input.getNextFrame(&uStream, &uSize, nullptr, false), FileInput::kFrame);
    EXPECT_EQ(payload(input, uSize), written[4].sPayload);
  }
  const TempDir dir;
  writeAsf(dir.path("a.asf"), 1);
  const auto pInfo = describe(dir.path("a.asf"));
  EXPECT_EQ(thrownBy([&] {
              ASFInput(std::make_unique<JDirectIOSocket>(dir.path("a.asf"), JFileSocket::kRead, true),
                       *pInfo);
            }),
            "File not aligned for direct i/o");
}

/// Makes a file of an earlier kind out of a finished one: another data object, other data units, no index.
std::string ofKind(const TempDir& dir, int iKind) {
  writeAsf(dir.path("k2.asf"), 5);
  const std::string sBytes = readFile(dir.path("k2.asf"));
  const auto pInfo = describe(dir.path("k2.asf"));
  std::string sFile = sBytes.substr(0, pInfo->getDataStart() - kObjectHeadSize);
  std::string sUnits;
  std::string sIndex;
  for (std::uint64_t i = 0; i < 5; ++i) {
    const Frame frame = numbered(1, i);
    const bool bKey = (frame.wAccessFlags & 3) == 3;
    const std::uint64_t uMark = bKey ? std::uint64_t{1} << 63 : 0;
    sIndex += le(sUnits.size() | uMark, 8) + (iKind == 1 ? le(frame.ullTimeStamp, 8) : "");
    if (iKind == 1) {
      sUnits += le(frame.sPayload.size(), 4) + le(frame.ullFrameNumber, 4) +
                le(frame.ullTimeStamp | uMark, 8) + le(0, 4) + zeros(12) + frame.sPayload;
    } else {
      sUnits += le(frame.sPayload.size() + 12, 4) + le(1, 2) + le(9, 4) + zeros(2) + frame.sPayload;
    }
  }
  const auto id = [](const Guid& guid) { return std::string(guid.begin(), guid.end()); };
  sFile += id(dataObjectOf(iKind)) + le(sUnits.size() + 24, 8) + sUnits;
  if (iKind == 1) {
    sFile += id(kIndexObject1) + le(sIndex.size() + 24, 8) + sIndex;
  }
  return dir.write("old.asf", sFile);
}

TEST(EarlierAsfKinds, AreRead) {
  const TempDir dir;
  const std::vector<Read> frames1 = framesOf(ofKind(dir, 1));
  std::vector<Read> expected;
  for (std::uint64_t i = 0; i < 5; ++i) {
    expected.push_back(asRead(1, numbered(1, i)));
  }
  EXPECT_EQ(frames1, expected);

  const std::vector<Read> frames0 = framesOf(ofKind(dir, 0));
  ASSERT_EQ(frames0.size(), 5U);
  EXPECT_EQ(frames0[4].sPayload, expected[4].sPayload);
  EXPECT_EQ(frames0[4].ullTimeStamp, kBegin + 4 * 80'000);
  EXPECT_EQ(frames0[4].ullFrameNumber, 4U);
}

struct Damage {
  const char* name;
  std::size_t place;
  std::string sBytes;
  const char* szText;
};

TEST(AsfHeader, IsRefusedInWords) {
  const TempDir dir;
  writeAsf(dir.path("a.asf"), 1);
  const std::string sWhole = readFile(dir.path("a.asf"));
  const auto pInfo = describe(dir.path("a.asf"));
  const std::size_t uDataObject = pInfo->getDataStart() - kObjectHeadSize;
  const Damage rows[] = {
      {"HeadTooSmall", 16, le(23, 8), "not an ASF file"},
      {"TooLong", 16, le(0x100001, 8), "ASF header too long"},
      {"FarTooLong", 20, le(1, 4), "ASF header too long"},
      {"BeyondTheFile", 16, le(0x100000, 8), "not an ASF file"},
      {"Short", 16, le(100, 8), "ASF header error #2"},
      {"WrongObjectLength", 24 + 16, le(97, 8), "ASF header error #9"},
      {"UnknownObject", 24, "\x77", "ASF header error #8"},
      {"UnknownObjectOfNoLength", 24, "\x77" + sWhole.substr(25, 15) + zeros(8), "ASF header error #8"},
      {"MoreStreams", 24 + 96, le(0, 2), "ASF header error #6"},
      {"Reserved", 24 + 48, le(1, 8), "bad header object"},
      {"DataObject", uDataObject, "\x01", "bad data object"}};
  for (const Damage& row : rows) {
    std::string sBytes = sWhole;
    sBytes.replace(row.place, row.sBytes.size(), row.sBytes);
    const std::string sPath = dir.write("b.asf", sBytes);
    EXPECT_EQ(thrownBy([&] { describe(sPath); }), row.szText) << row.name;
  }
}

TEST(AsfFile, CutAnywhereGivesWholeFramesOrAnError) {
  const LogCapture log;
  for (const int iKind : {2, 1, 0}) {
    SCOPED_TRACE(iKind);
    const TempDir dir;
    const std::string sPath = iKind == 2 ? dir.path("a.asf") : ofKind(dir, iKind);
    if (iKind == 2) {
      writeAsf(sPath, 12);
    }
    const std::vector<Read> whole = framesOf(sPath);
    ASSERT_GE(whole.size(), 5U);
    std::size_t uMost = 0;
    for (std::uintmax_t size = std::filesystem::file_size(sPath); size-- > 0;) {
      std::filesystem::resize_file(sPath, size);
      const std::vector<Read> frames = framesThereAre(sPath);
      ASSERT_LE(frames.size(), whole.size()) << size;
      ASSERT_TRUE(std::equal(frames.begin(), frames.end(), whole.begin())) << size;
      uMost = std::max(uMost, frames.size());
    }
    // Kind 0 has no index behind its frames here.
    EXPECT_EQ(uMost, iKind == 0 ? whole.size() - 1 : whole.size());
  }
}

/// A stream whose frames begin later has none in front of the place that was gone to.
TEST(UnfinishedAsfFile, CountsEachStreamFromItsFirstFrame) {
  const TempDir dir;
  const std::string sPath = dir.path("w.asf");
  auto pOutput = writerOf("asf", sPath);
  pOutput->addStream(dataStream());
  pOutput->addStream(dataStream());
  pOutput->start(nullptr);
  for (std::uint64_t i = 0; i < 6; ++i) {
    write(*pOutput, i < 3 ? 1 : 2, numbered(1, i));
  }
  const auto pInput = readerOf(dir.write("left.asf", readFile(sPath)));
  std::uint32_t uStream = 0;
  for (int i = 0; i < 2; ++i) {
    pInput->getNextFrame(&uStream, nullptr, nullptr, false);
  }
  ASSERT_EQ(pInput->seekFrame(1, 0, nullptr, nullptr, false), FileInput::kFrame);
  EXPECT_EQ(readAll(*pInput).size(), 5U);
  EXPECT_EQ(pInput->getLastNumber(2), 2);
  EXPECT_TRUE(pInput->getFileInfo().getStream(2)->getEntry(2));
}

TEST(AsfInput, PassesOverUnitsOfStreamsThatAreNotThere) {
  const TempDir dir;
  writeAsf(dir.path("a.asf"), 3);
  std::string sBytes = readFile(dir.path("a.asf"));
  const auto uStart = describe(dir.path("a.asf"))->getDataStart();
  sBytes[uStart + 86] = 9;
  const LogCapture log;
  EXPECT_EQ(framesOf(dir.write("b.asf", sBytes)).size(), 2U);
  EXPECT_TRUE(log.has(qm_err::kLogError, "Invalid frame header in file " + dir.path("b.asf") +
                                             ": stream number=9, frame size=50 bytes\n"));
}

/// A writer that is killed at any moment leaves a file that gives every whole frame but the last back.
TEST(KilledWriter, LosesTheLastFrameAtMost) {
  std::mt19937 random(3);
  const TempDir dir;
  for (int iRound = 0; iRound < 200; ++iRound) {
    const std::string sPath = dir.path("k" + std::to_string(iRound) + ".asf");
    const pid_t iPid = fork();
    if (iPid == 0) {
      auto pOutput = writerOf("asf", sPath);
      const auto stream = dataStream();
      pOutput->open(&stream, nullptr, nullptr);
      for (std::uint64_t i = 0;; ++i) {
        write(*pOutput, 1, numbered(1, i, 400));
      }
    }
    // Each round kills it somewhere in the frames, however slow the machine is.
    std::error_code error;
    while (std::filesystem::file_size(sPath, error) < 4096 || error) {
      usleep(100);
    }
    usleep(static_cast<useconds_t>(random() % 2000));
    kill(iPid, SIGKILL);
    waitpid(iPid, nullptr, 0);
    const std::size_t uWhole = (readFile(sPath).size() - describe(sPath)->getDataStart()) / 436;
    ASSERT_GT(uWhole, 1U);
    ASSERT_EQ(thrownBy([&] { describe(sPath)->rebuildIndex(true, nullptr, kNoDate); }), "");
    ASSERT_TRUE(describe(sPath)->hasIndex());
    const std::vector<Read> frames = framesOf(sPath);
    ASSERT_EQ(frames.size(), uWhole - 1) << iRound;
    for (std::size_t i = 0; i < frames.size(); ++i) {
      ASSERT_EQ(frames[i], asRead(1, numbered(1, i, 400)));
    }
  }
}

}  // namespace
