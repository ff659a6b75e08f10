#include <algorithm>
#include <array>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "coreapi/qmci/streaminfonet.h"
#include "coreapi/qmstream/qmrcpy30.h"
#include "coreapi/qmstream/qmtpkt.h"
#include "coreapi/qmutils/socket/jtcpsocket.h"
#include "coreapi/qmxml/qmxml.h"
#include "storage/FileOutput.h"
#include "tests/qmmanager/servedarchive.h"
#include "tests/storage/readersupport.h"
#include "tests/support/logcapture.h"

namespace {

namespace fs = std::filesystem;
using namespace qm_test;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr const char* kHostDown = "Remote Backup Failed: Remote host must be down";

/// A date so many microseconds behind frame 0.
std::string dateAt(std::uint64_t uMicroseconds) {
  return JTime::fromMicroseconds(kBegin + uMicroseconds).toUSFormat();
}

/// The numbers of the frames of a file, "4-49 88", each of which must be as it was recorded.
std::string framesIn(const std::string& sPath, std::size_t uSize = 50) {
  std::string sRanges;
  std::uint64_t uLast = 0;
  bool bOpen = false;
  for (const Read& read : framesOf(sPath)) {
    const std::uint64_t uNumber = read.ullFrameNumber - 100;
    EXPECT_EQ(read, asRead(1, numbered(1, uNumber, uSize)));
    if (sRanges.empty() || uNumber != uLast + 1) {
      sRanges +=
          (bOpen ? "-" + std::to_string(uLast) : "") + (sRanges.empty() ? "" : " ") + std::to_string(uNumber);
      bOpen = false;
    } else {
      bOpen = true;
    }
    uLast = uNumber;
  }
  return sRanges + (bOpen ? "-" + std::to_string(uLast) : "");
}

/// Frames of up to a mebibyte.
qm_ci::StreamInfo largeStream() {
  const qm_ci::InfoBlock block = qm_ci::StreamDataInfo::make("application/x-test", "<d/>", 25, 1, 2U << 20);
  return makeStreamInfo(qm_ci::StreamDataInfo(block));
}

/// What a client without this library's control would do: asks for a copy and takes it as it likes.
class Puller {
 public:
  Puller(const ServedArchive& archive, const std::string& sSource, const std::string& sProtocol)
      : m_sAnswer(archive.ask("rpc_remoteCopy(SourceName=\"" + sSource + "\", Fps=25, " + span() +
                              ", BackupPort=" + std::to_string(m_listener.getLocalPort()) +
                              ", ProtocolVersion=\"" + sProtocol + "\")")) {}

  static std::string span() {
    return "TsBackupStartDate=" + std::to_string(kBegin) +
           ", TsBackupEndDate=" + std::to_string(kBegin + 10'000 * kPeriod);
  }

  const std::string& answer() const { return m_sAnswer; }

  std::unique_ptr<JSocket> accept() {
    m_listener.setAcceptTimeout(10'000);
    auto pSocket = m_listener.accept();
    pSocket->setReadTimeout(10'000);
    return pSocket;
  }

 private:
  JTCPSocket m_listener{std::uint16_t{0}};
  std::string m_sAnswer;
};

class CopiesTest : public testing::Test {
 protected:
  std::string copied(const std::string& sSource, std::uint64_t uFrom, std::uint64_t uTo,
                     const std::string& sName) {
    const std::string sPath = archive.temp.path(sName);
    const std::int32_t iResult = archive.pControl->remoteCopy(sSource, 25, sPath, dateAt(uFrom), dateAt(uTo));
    return iResult == 0 ? framesIn(sPath) : archive.message();
  }

  std::int32_t copyAll(const std::string& sSource, const std::string& sPath) {
    return archive.pControl->remoteCopy(sSource, 25, sPath, frameDate(0), frameDate(10'000));
  }

  std::int32_t copyHere(const std::string& sSource, const std::string& sName) {
    return archive.pControl->localCopy(sSource, 25, sName, frameDate(0), frameDate(10'000));
  }

  std::vector<std::string> copyNames() const {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(archive.temp.path("copies"))) {
      names.push_back(entry.path().filename());
    }
    std::sort(names.begin(), names.end());
    return names;
  }

  void serveWithDirectory() {
    fs::create_directory(archive.temp.path("copies"));
    archive.serve({.sCopyDirectory = archive.temp.path("copies")});
  }

  QMXmlUse xmlUse;
  ServedArchive archive;
};

TEST_F(CopiesTest, HoldWhatIsRecordedOfTheSpan) {
  const struct {
    const char* szName;
    std::uint64_t uFrom;
    std::uint64_t uTo;
    const char* szVideo;  ///< the key frames are the multiples of four
    const char* szData;
  } rows[] = {
      {"all", 0, 9999 * kPeriod, "0-99 150-199", "0-99 150-199"},
      {"a file to the instant", 0, 49 * kPeriod, "0-49", "0-49"},
      {"from mid-file", 6 * kPeriod, 9 * kPeriod, "4-9", "6-9"},
      {"between frames", 7 * kPeriod + 1, 9 * kPeriod - 1, "4-8", "8"},
      {"across files", 40 * kPeriod, 60 * kPeriod, "40-60", "40-60"},
      {"over a gap", 90 * kPeriod, 160 * kPeriod, "88-99 150-160", "90-99 150-160"},
      {"from a gap", 120 * kPeriod, 151 * kPeriod, "150-151", "150-151"},
      {"one instant", 9 * kPeriod, 9 * kPeriod, "8-9", "9"},
      {"from a file's first frame", 50 * kPeriod, 51 * kPeriod, "50-51", "50-51"},
      {"the last frame", 199 * kPeriod, 260 * kPeriod, "196-199", "199"},
  };
  for (const char* const szSource : {"video", "data"}) {
    const auto stream = szSource == std::string("video") ? wholeVideoStream() : dataStream();
    archive.record(szSource, 25, 0, 50, stream);
    archive.record(szSource, 25, 50, 50, stream);
    archive.record(szSource, 25, 150, 50, stream);
  }
  archive.serve();
  for (const auto& row : rows) {
    EXPECT_EQ(copied("video", row.uFrom, row.uTo, std::string("v ") + row.szName + ".asf"), row.szVideo)
        << row.szName;
    EXPECT_EQ(copied("data", row.uFrom, row.uTo, std::string("d ") + row.szName + ".asf"), row.szData)
        << row.szName;
  }
  EXPECT_THAT(copied("video", 110 * kPeriod, 120 * kPeriod, "gap.asf"),
              HasSubstr("nothing is recorded of \"video\" at the frame rate 25"));
  EXPECT_THAT(copied("none", 0, 1, "none.asf"), HasSubstr("there is no recording of \"none\""));
}

TEST_F(CopiesTest, TellWhatTheyAre) {
  archive.record("cam 1", 25, 0, 50, wholeVideoStream("Note=\"a, b\",Error=\"none\""));
  archive.serve();
  const std::string sRequest = "rpc_getStreamInfo(SourceName=\"cam 1\", Fps=25, " + Puller::span();
  EXPECT_THAT(
      archive.ask(sRequest + ", SupportedProtocols=\"QM_RCPY30 QM_TPKT\")"),
      testing::AllOf(HasSubstr("ProtocolVersion=\"QM_TPKT\""), HasSubstr("authoringApp=\""),
                     HasSubstr("startTimeStamp=\"" + dateAt(0)),
                     HasSubstr("endTimeStamp=\"" + dateAt(49 * kPeriod)), testing::Not(HasSubstr("Error="))));
  EXPECT_THAT(archive.ask(sRequest + ")"), testing::Not(HasSubstr("ProtocolVersion=")));
  EXPECT_THAT(archive.ask(sRequest + ", SupportedProtocols=\"QM_SP40\")"),
              HasSubstr("Error=\"none of the stream"));
  ASSERT_EQ(copyAll("cam 1", archive.temp.path("a.asf")), 0) << archive.message();
  const auto pCopy = readerOf(archive.temp.path("a.asf"));
  JParams properties;
  pCopy->getFileInfo().getStream(1)->getStreamInfo()->getProperties(&properties);
  std::string sNote;
  EXPECT_TRUE(properties.get("Note", sNote));
  EXPECT_EQ(sNote, "a, b");
}

TEST_F(CopiesTest, LeaveHiddenPartsOutProtectedOrNot) {
  for (std::uint64_t uFirst = 0; uFirst < 200; uFirst += 50) {
    archive.record("cam 1", 25, uFirst, 50, wholeVideoStream());
  }
  archive.serve();
  const auto size = [&] {
    return archive.pControl->getRecordingSize("cam 1", 25, frameDate(0), frameDate(300));
  };
  const std::int32_t iAll = size();
  EXPECT_GT(iAll, 200 * 50);
  ASSERT_EQ(archive.pControl->protect("cam 1", 25, frameDate(0), frameDate(90), "", "", "evidence"), 0);
  ASSERT_EQ(archive.pControl->hideIntervals("cam 1", 25,
                                            frameDate(10) + "-" + frameDate(19) + ";" + frameDate(45) + "-" +
                                                frameDate(104) + ";" + frameDate(190) + "-" + frameDate(400)),
            0)
      << archive.message();
  EXPECT_EQ(copied("cam 1", 0, 300 * kPeriod, "a.asf"), "0-9 20-44 105-189");
  EXPECT_EQ(copied("cam 1", 12 * kPeriod, 30 * kPeriod, "b.asf"), "20-30");
  EXPECT_THAT(copied("cam 1", 46 * kPeriod, 100 * kPeriod, "c.asf"), HasSubstr("nothing is recorded"));
  EXPECT_LT(size(), iAll * 7 / 10);
  EXPECT_GT(size(), iAll / 2);
  EXPECT_EQ(archive.pControl->getRecordingSize("cam 1", 25, frameDate(46), frameDate(100)), 0);
  EXPECT_THAT(archive.message(), HasSubstr("nothing is recorded"));
}

TEST_F(CopiesTest, BeginAFileWhereTheDescriptionChanges) {
  archive.record("cam 1", 25, 0, 10, wholeVideoStream("Part=1"));
  archive.record("cam 1", 25, 10, 10, wholeVideoStream("Part=2"));  // other properties, the same stream
  archive.record("cam 1", 25, 20, 10, dataStream());
  archive.record("cam 1", 25, 30, 10, wholeVideoStream());
  serveWithDirectory();
  const std::string sPath = archive.temp.path("path.asf");
  ASSERT_EQ(copyAll("cam 1", sPath), 0) << archive.message();
  EXPECT_EQ(framesIn(sPath), "0-19");
  EXPECT_EQ(framesIn(archive.temp.path("path1.asf")), "20-29");
  EXPECT_EQ(framesIn(archive.temp.path("path2.asf")), "30-39");
  ASSERT_EQ(copyHere("cam 1", "path.asf"), 0) << archive.message();
  EXPECT_THAT(copyNames(), ElementsAre("path.asf", "path1.asf", "path2.asf"));
  EXPECT_EQ(framesIn(archive.temp.path("copies/path1.asf")), "20-29");
  EXPECT_THAT(Puller(archive, "cam 1", "QM_RCPY30").answer(),
              HasSubstr("Error=\"the recording changes its form"));
}

TEST_F(CopiesTest, PassDamageOverAndTellWhenTheEndIsMissing) {
  std::vector<std::string> paths;
  for (std::uint64_t uFirst = 0; uFirst < 60; uFirst += 20) {
    paths.push_back(archive.record("cam 1", 25, uFirst, 20, wholeVideoStream()));
  }
  const auto spoil = [&](std::size_t uFile) {
    std::ofstream(paths[uFile], std::ios::trunc) << "no media file";
  };
  spoil(1);
  serveWithDirectory();
  EXPECT_EQ(copied("cam 1", 0, 100 * kPeriod, "a.asf"), "0-19 40-59");
  spoil(2);
  archive.serve({.sCopyDirectory = archive.temp.path("copies")});
  const std::string sPath = archive.temp.path("b.asf");
  EXPECT_EQ(copyAll("cam 1", sPath), -1);
  EXPECT_EQ(archive.message(), kHostDown);
  EXPECT_EQ(framesIn(sPath), "0-19");
  EXPECT_EQ(copyHere("cam 1", "b.asf"), -1);
  EXPECT_EQ(archive.message(), "the recording can't be read to its end");
  EXPECT_THAT(copyNames(), IsEmpty());
  EXPECT_EQ(copied("cam 1", 0, 15 * kPeriod, "c.asf"), "0-15");
  spoil(0);
  archive.serve();
  EXPECT_THAT(copied("cam 1", 0, 100 * kPeriod, "d.asf"), HasSubstr("can't be read"));
}

TEST_F(CopiesTest, LeaveOutAFrameThatNoStreamTakes) {
  const std::string sWork = archive.temp.path("large.asf");
  const qm_ci::InfoBlock block = qm_ci::StreamDataInfo::make("application/x-test", "<d/>", 25, 1, 100U << 20);
  const auto stream = makeStreamInfo(qm_ci::StreamDataInfo(block));
  auto pWriter = writerOf("asf", sWork);
  pWriter->open(&stream, nullptr, nullptr);
  for (std::uint64_t i = 0; i < 3; ++i) {
    write(*pWriter, 1, numbered(1, i, i == 1 ? std::size_t{64} << 20 : 50));
  }
  pWriter.reset();
  const TimeSpan span(JTime::fromMicroseconds(kBegin), JTime::fromMicroseconds(kBegin + 2 * kPeriod));
  fs::rename(sWork, archive.unit("cam 1", 25) + "/" + Slice::computeFileName(span, 1, ".asf"));
  archive.serve();
  const LogCapture log;
  EXPECT_EQ(copied("cam 1", 0, 100 * kPeriod, "a.asf"), "0 2");
  const auto messages = log.messages();
  EXPECT_TRUE(std::any_of(messages.begin(), messages.end(), [](const LoggedMessage& message) {
    return message.text.starts_with("A frame of 67108864 bytes in");
  }));
}

TEST_F(CopiesTest, TakeTheFileThatIsBeingWrittenAsFarAsItHasGot) {
  archive.record("cam 1", 25, 0, 10, wholeVideoStream());
  archive.serve();
  const auto pUnit = archive.pArchive->requireUnit("cam 1", 25);
  const auto stream = wholeVideoStream();
  auto pWriter = writerOf("asf", archive.unit("cam 1", 25) + "/current.asf");
  pWriter->open(&stream, nullptr, nullptr);
  for (std::uint64_t i = 10; i < 15; ++i) {
    write(*pWriter, 1, numbered(1, i));
  }
  pUnit->setCurrentFile(FileInfo::Ptr(pWriter->detachFileInfo()));
  EXPECT_EQ(copied("cam 1", 0, 100 * kPeriod, "a.asf"), "0-14");
  write(*pWriter, 1, numbered(1, 15));
  EXPECT_EQ(copied("cam 1", 0, 100 * kPeriod, "b.asf"), "0-15");
  EXPECT_EQ(copied("cam 1", 13 * kPeriod, 14 * kPeriod, "c.asf"), "12-14");
  pWriter.reset();
  pUnit->addSlice(nullptr);
}

TEST_F(CopiesTest, AreWrittenOnTheManagersSideByTheirName) {
  archive.record("cam 1", 25, 0, 30, wholeVideoStream());
  archive.record("sound", 25, 0, 30, audioStream());
  archive.serve();
  EXPECT_EQ(copyHere("cam 1", "a.asf"), -1);
  EXPECT_THAT(archive.message(), HasSubstr("this Manager writes no copies"));
  serveWithDirectory();
  fs::create_symlink(archive.temp.path("elsewhere"), archive.temp.path("copies/a.asf.copying"));
  ASSERT_EQ(copyHere("cam 1", "a.asf"), 0) << archive.message();
  EXPECT_FALSE(fs::exists(archive.temp.path("elsewhere")));
  ASSERT_EQ(copyHere("cam 1", "b c.AVI"), 0) << archive.message();
  EXPECT_EQ(framesIn(archive.temp.path("copies/a.asf")), "0-29");
  EXPECT_EQ(framesOf(archive.temp.path("copies/b c.AVI")).size(), 30);
  const std::string sLong(300, 'x');
  const struct {
    std::string sName;
    const char* szReason;
  } rows[] = {
      {"a.asf", "there is a copy \"a.asf\" already"},
      {"", "plain name"},
      {".", "plain name"},
      {"..", "plain name"},
      {".asf", "plain name"},
      {"/etc/x.asf", "plain name"},
      {"../x.asf", "plain name"},
      {"sub/x.asf", "plain name"},
      {"..\\x.asf", "plain name"},
      {"C:\\x.asf", "plain name"},
      {"x\x01.asf", "plain name"},
      {"x\n.asf", "plain name"},
      {"x\x7f.asf", "plain name"},
      {sLong + ".asf", "plain name"},
      {"asf", "needs an extension"},
      {"x.", "needs an extension"},
      {"x.asf.copying", "no writer"},
      {"x.mov", "no writer"},
      {"x.wav", ""},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(copyHere("cam 1", row.sName), -1) << row.sName;
    EXPECT_THAT(archive.message(), HasSubstr(row.szReason)) << row.sName;
  }
  EXPECT_THAT(copyNames(), ElementsAre("a.asf", "b c.AVI"));
  EXPECT_EQ(archive.pControl->localCopy("cam 1", 25, "d.asf", frameDate(40), frameDate(50)), -1);
  EXPECT_THAT(archive.message(), HasSubstr("nothing is recorded"));
  EXPECT_THAT(
      archive.ask("rpc_localCopy(SourceName=\"cam 1\", Fps=25, BackupPath=\"e.asf\", TsBackupStartDate=1, "
                  "TsBackupEndDate=259200000002)"),
      HasSubstr("longer than 72 hours"));
}

TEST_F(CopiesTest, TravelInTheOlderProtocolWhereItCanCarryThem) {
  archive.record("cam 1", 25, 0, 30, wholeVideoStream(), 900, 0);
  archive.record("data", 25, 0, 30, dataStream());
  archive.serve();
  Puller puller(archive, "cam 1", "QM_RCPY30");
  ASSERT_EQ(puller.answer(), "OK ");
  qm_stream::IRCPYSocket30 input(puller.accept());
  std::string sPayload(2000, '\0');
  qm_stream::RemoteCopyFrameHeader header;
  for (std::uint64_t i = 0;; ++i) {
    JIoBuf buffers[] = {{header.data(), header.kSize}, {sPayload.data(), 2000}};
    input.readv(buffers, 2);
    if (header.getFrameSize() == 0) {
      EXPECT_EQ(i, 30);
      break;
    }
    const Frame frame = numbered(1, i, 900);
    EXPECT_EQ(sPayload.substr(0, header.getFrameSize()), frame.sPayload);
    EXPECT_EQ(header.getTimeStamp(), frame.ullTimeStamp);
    EXPECT_EQ(header.getFrameNumber(), frame.ullFrameNumber);
    EXPECT_EQ(header.isAccessPoint(), i % 4 == 0);
  }
  EXPECT_THAT(Puller(archive, "data", "QM_RCPY30").answer(), HasSubstr("Error=\"a recording of the type"));
  EXPECT_THAT(Puller(archive, "data", "QM_SP40").answer(), HasSubstr("isn't served"));
  const std::string sAnswer = archive.ask("rpc_getStreamInfo(SourceName=\"cam 1\", Fps=25, " +
                                          Puller::span() + ", SupportedProtocols=\"QM_RCPY30\")");
  ASSERT_THAT(sAnswer, testing::StartsWith("OK "));
  JParams answer;
  answer.parse(sAnswer.substr(3));
  std::unique_ptr<qm_ci::StreamInfo> pInfo;
  qm_ci::readStreamInfoR30(answer, &pInfo);
  EXPECT_EQ(pInfo->getMIMEType(), "video/x-qmv1");
}

TEST_F(CopiesTest, GoIntoAProcess) {
  archive.record("cam 1", 25, 0, 30, wholeVideoStream());
  archive.serve();
  std::int32_t iStatus = -1;
  const std::string sPath = archive.temp.path("piped.asf");
  EXPECT_EQ(archive.pControl->remoteCopyToProcess("cam 1", 25, "asf", "dd status=none of=" + sPath, nullptr,
                                                  frameDate(0), frameDate(50), nullptr, nullptr, iStatus),
            0)
      << archive.message();
  EXPECT_EQ(iStatus, 0);
  EXPECT_EQ(fs::file_size(sPath) > 30 * 50, true);
}

/// With frames of a mebibyte, more than the connection holds.
class LargeCopiesTest : public CopiesTest {
 protected:
  static constexpr std::size_t kSize = 1 << 20;
  static constexpr std::uint64_t kFrames = 24;

  void serveLarge(const qm_manager::Copies::Settings& settings = {}) {
    archive.record("cam 1", 25, 0, kFrames, largeStream(), kSize);
    archive.serve({.copies = settings});
  }
  void expectServed(const std::string& sName) {
    const std::string sPath = archive.temp.path(sName);
    EXPECT_EQ(copyAll("cam 1", sPath), 0) << archive.message();
    EXPECT_EQ(framesIn(sPath, kSize), "0-23");
  }
};

TEST_F(LargeCopiesTest, EndWithTheirClientAlone) {
  qm_manager::Copies::Settings settings;
  settings.uMost = 2;
  settings.push.iStall = 300;
  serveLarge(settings);
  for (const char* const szPort : {"1", "0", "65536", "-1"}) {
    EXPECT_THAT(archive.ask("rpc_remoteCopy(SourceName=\"cam 1\", Fps=25, " + Puller::span() +
                            ", BackupPort=" + szPort + ", ProtocolVersion=\"QM_TPKT\")"),
                HasSubstr("Error=\""))
        << szPort;
  }
  Puller stalling(archive, "cam 1", "QM_TPKT");
  const auto pStalled = stalling.accept();
  expectServed("beside.asf");
  Puller closing(archive, "cam 1", "QM_TPKT");
  closing.accept()->close();
  // Each gives its place up by itself: the one at once, the other when it has stalled for too long.
  std::vector<std::unique_ptr<Puller>> both;
  while (both.size() < 2) {
    auto pNext = std::make_unique<Puller>(archive, "cam 1", "QM_TPKT");
    if (pNext->answer() == "OK ") {
      both.push_back(std::move(pNext));
    } else {
      ASSERT_THAT(pNext->answer(), HasSubstr("2 copies are on their way"));
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
  }
  std::string sTaken(1 << 16, '\0');
  std::size_t uTaken = 0;
  EXPECT_NE(thrownBy([&] {
              for (std::size_t uRead = 1; uRead != 0;) {
                uRead = pStalled->read(sTaken.data(), sTaken.size());
                uTaken += uRead;
              }
            }),
            "");
  EXPECT_LT(uTaken, kFrames * kSize);
}

TEST_F(LargeCopiesTest, AreLimitedInNumberAndEndWithTheManager) {
  qm_manager::Copies::Settings settings;
  settings.uMost = 3;
  serveLarge(settings);
  std::vector<std::unique_ptr<Puller>> pullers;
  std::vector<std::unique_ptr<JSocket>> stalled;
  for (int i = 0; i < 3; ++i) {
    pullers.push_back(std::make_unique<Puller>(archive, "cam 1", "QM_TPKT"));
    stalled.push_back(pullers.back()->accept());
  }
  EXPECT_THAT(Puller(archive, "cam 1", "QM_TPKT").answer(),
              HasSubstr("Error=\"3 copies are on their way already"));
  const auto start = std::chrono::steady_clock::now();
  archive.stop();
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
}

TEST_F(LargeCopiesTest, GoOnEightAtOnce) {
  serveLarge();
  std::vector<std::thread> clients;
  std::array<std::int32_t, 8> results{};
  for (std::size_t i = 0; i < results.size(); ++i) {
    clients.emplace_back([&, i] {
      StorageAccessController control(nullptr);
      control.setHost("127.0.0.1");
      control.setPort(archive.pManager->getPort());
      control.setTimeOut(60'000);
      control.setBlocking(true);
      control.connect();
      results[i] = control.remoteCopy("cam 1", 25, archive.temp.path(std::to_string(i) + ".asf"),
                                      frameDate(0), frameDate(kFrames));
    });
  }
  for (std::thread& client : clients) {
    client.join();
  }
  EXPECT_THAT(results, testing::Each(0));
  for (std::size_t i = 0; i < results.size(); ++i) {
    EXPECT_EQ(framesIn(archive.temp.path(std::to_string(i) + ".asf"), kSize), "0-23");
  }
}

}  // namespace
