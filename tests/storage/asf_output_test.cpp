#include <array>
#include <bit>
#include <gmock/gmock.h>

#include "coreapi/qmci/audioinfonoxml.h"
#include "coreapi/qmci/videoinfonoxml.h"
#include "coreapi/qmutils/socket/jdirectiosocket.h"
#include "storage/ASFIO/ASFFileInfoIn.h"
#include "storage/ASFIO/ASFOutput.h"
#include "storage/ASFIO/asfformat.h"
#include "tests/storage/writersupport.h"
#include "tests/support/logcapture.h"

namespace {

using namespace qm_test;

const std::string kFamily = "DA 35 D1 11 90 34 00 A0 C9 03 49 BE";
const std::string kParamsId = hex("31 88 71 6F D3 11 B9 09 E0 00 D8 A0 E1 1C 10 81");
const std::string kDataId = hex("BB DB CB EF B3 8B DB 47 B0 0D 7F B2 56 05 9D 23");
const std::string kIndexId = hex("BF DB CB EF B3 8B DB 47 B0 0D 7F B2 56 05 9D 23");
const std::string kFileParams =
    "authoringApp=\"app\", supportAuthentication=true, syntheticFlag=true, "
    "validKeyFrameFlag=true";

std::string object(const std::string& sId, const std::string& sBody) {
  return sId + le(sBody.size() + 24, 8) + sBody;
}

std::string family(const std::string& sFirst) {
  return hex(sFirst + kFamily);
}

std::string extension(const std::string& sId, const std::string& sContent) {
  return object(family("0F 2A E2 D6"), sId + le(0, 2) + le(sContent.size(), 4) + sContent);
}

std::string unit(const Frame& frame) {
  return le(1, 4) + le(frame.sPayload.size(), 4) + le(frame.wPictureType, 2) + le(frame.wAccessFlags, 2) +
         le(frame.ullTimeStamp, 8) + le(frame.ullFrameNumber, 8) + le(5, 4) + "\x34" + zeros(3) +
         frame.sPayload;
}

std::string entry(std::uint64_t uPosition, const Frame& frame) {
  return le(uPosition, 8) + le(frame.ullTimeStamp, 8) + le(frame.ullFrameNumber, 8) +
         le(frame.wAccessFlags, 4) + le(0x1234, 4);
}

/// Three frames of a stream of 12.5 frames a second; the second authenticates the first.
const std::array<Frame, 3> kFrames = {
    {{"abcd", 1000, 7, 1, 3}, {"sig", 1001, 8, 6, 0}, {"efghij", 2000, 9, 2, 1}}};

/// The whole file of those frames, given what isn't known beforehand.
std::string expectedFile(bool bFinished, std::uint64_t ullCreationDate) {
  const std::string sUnits = unit(kFrames[0]) + unit(kFrames[1]) + unit(kFrames[2]);
  const auto known = [bFinished](std::uint64_t uValue) { return bFinished ? uValue : 0; };
  const std::string sProperties = zeros(16) + le(ullCreationDate, 8) + zeros(8) + le(known(80), 8) +
                                  le(known(80), 8) + le(bFinished ? 2 : 3, 4) + zeros(4) +
                                  le(known(4200), 4) + le(known(41), 4) + le(known(42), 4) + le(known(2), 4) +
                                  le(1, 2);
  const std::string sType = le(25, 4) + le(2, 4) + le(500, 4) + "<d/>" + zeros(1);
  const std::string sMime = "application/x-qmpluginstream" + zeros(1);
  const std::string sStream =
      hex("DF 8A 91 63 C9 4A C0 17 C5 79 A8 AC 37 D4 04 F1") + le(known(1000), 8) + le(known(2000), 8) +
      le(known(8098), 4) + le(known(4200), 4) + le(known(41), 4) + le(known(42), 4) + zeros(4) + le(7, 4) +
      le(1, 2) + zeros(4) + le(sMime.size(), 1) + sMime + le(sType.size(), 2) + sType +
      extension(kParamsId, "sourceName=\"cam\"" + zeros(1)) +
      extension(hex("74 0E 09 18 4D 36 CE 4C AF 0D 1C FB 56 81 89 49"), "A=1" + zeros(1)) +
      extension(zeros(16), "");
  const std::string sHeader = object(
      family("D1 29 E2 D6"), object(family("D0 29 E2 D6"), sProperties) +
                                 object(family("E1 29 E2 D6"), le(1, 2) + "\x10" + "American English") +
                                 object(family("D4 29 E2 D6"), sStream) + object(kParamsId, kFileParams));
  return sHeader + kDataId + le(known(sUnits.size() + 24), 8) + sUnits +
         (bFinished ? object(kIndexId, entry(0, kFrames[0]) + entry(79, kFrames[2])) : "");
}

TEST(AsfOutput, WritesEveryByteOfASmallFile) {
  const TempDir dir;
  const std::string sPath = dir.path("a.asf");
  const JTime before = JTime::now();
  auto pOutput = writerOf("asf", sPath);
  pOutput->getParams().add("authoringApp", "app");
  JParams params;
  params.add("sourceName", "cam");
  const qm_ci::StreamInfo stream = dataStream("A=1");
  pOutput->open(&stream, &params, nullptr);
  // What is changed behind the start doesn't move the header's parts.
  pOutput->getStreamParams(1)->add("sourceName", "another name");
  std::uint32_t uTime = 0;
  for (const Frame& frame : kFrames) {
    write(*pOutput, 1, frame, uTime);
    uTime += 40;
  }
  const std::string sOpen = readFile(sPath);
  const std::uint64_t ullDate = at(sOpen, 24 + 40, 8);
  EXPECT_GE(ullDate, before.getMicroseconds() * 10);
  EXPECT_LE(ullDate, JTime::now().getMicroseconds() * 10);
  EXPECT_EQ(sOpen, expectedFile(false, ullDate));
  EXPECT_EQ(pOutput->getPosition(), 40U + 39 + 42);
  pOutput.reset();
  EXPECT_EQ(readFile(sPath), expectedFile(true, ullDate));
}

/// Where the type-specific data of the first stream starts, and its size.
std::pair<std::size_t, std::uint64_t> typeData(const std::string& sFile) {
  const std::size_t stream = 24 + 98 + 43;
  return {stream + 89, at(sFile, stream + 87, 2)};
}

TEST(AsfOutput, DescribesVideoAndAudio) {
  const TempDir dir;
  for (const qm_ci::StreamInfo& stream : {videoStream(), audioStream()}) {
    writerOf("asfv2", dir.path("a"))->open(&stream, nullptr, nullptr);
    const std::string sFile = readFile(dir.path("a"));
    const auto [place, size] = typeData(sFile);
    const std::string sData = sFile.substr(place, size);
    if (stream.isVideo()) {
      const auto bitmap = qm_ci::QMVideoInfoNoXml(*stream.getVideoInfo()).createBMI();
      const std::string sRate = le(std::bit_cast<std::uint64_t>(25.0), 8);
      EXPECT_EQ(sData, hex("72 B0 19 0E D3 11 AA 09 E0 00 D8 A0 E1 1C 10 81") + family("EC 29 E2 D6") +
                           sRate + sRate + sRate + zeros(10) + le(352, 2) + le(288, 2) + le(352, 2) +
                           le(288, 2) + le(0, 2) + le(bitmap.size() + 8, 2) + zeros(2) +
                           std::string(6, '\xFF') + std::string(bitmap.begin(), bitmap.end()));
    } else {
      const auto wave = qm_ci::QMAudioInfoNoXml(*stream.getAudioInfo()).createWFX();
      const std::uint64_t waveSize = 18U + qm_ci::readWaveHeader(wave.data()).cbSize;
      EXPECT_EQ(sData, hex("01 00 00 00 10 00 00 00 AA 00 00 80 71 9B 38 00") + family("EA 29 E2 D6") +
                           le(16, 4) + le(8000, 4) + le(160 * 2 * 2, 4) + zeros(4) + le(160, 4) + zeros(2) +
                           le(2, 2) + zeros(2) + le(waveSize, 2) +
                           std::string(wave.begin(), wave.begin() + static_cast<std::ptrdiff_t>(waveSize)));
    }
  }
}

TEST(AsfOutput, RefusesADescriptionThatTheHeaderCantHold) {
  const TempDir dir;
  const auto started = [&](const qm_ci::StreamInfo& stream, const char* szParam) {
    JParams params;
    params.add("p", szParam);
    return thrownBy([&] { writerOf("asf", dir.path("a"))->open(&stream, &params, nullptr); });
  };
  EXPECT_EQ(started(dataStream("", "application/x", std::string(65522, 'x')), ""), "");
  EXPECT_EQ(started(dataStream("", "application/x", std::string(65523, 'x')), ""),
            "the description of a stream is too long for an ASF file");
  EXPECT_EQ(started(dataStream("", std::string(255, 'x').c_str()), ""),
            "the MIME type of a stream is too long for an ASF file");
  EXPECT_EQ(started(dataStream(), std::string(0x100000, 'x').c_str()), "ASF header too long");
}

TEST(AsfOutput, LeavesAFileUnfinishedWhenAStreamHasNoFrame) {
  const TempDir dir;
  const LogCapture log;
  auto pOutput = writerOf("asf", dir.path("a"));
  EXPECT_EQ(pOutput->addStream(dataStream()), 1U);
  EXPECT_EQ(pOutput->addStream(dataStream()), 2U);
  pOutput->start(nullptr);
  write(*pOutput, 1, kFrames[0]);
  const std::string sOpen = readFile(dir.path("a"));
  EXPECT_EQ(thrownBy([&] { write(*pOutput, 3, kFrames[0]); }), "the file has no stream 3");
  EXPECT_EQ(pOutput->getStreamParams(0), nullptr);
  EXPECT_EQ(pOutput->getStreamParams(3), nullptr);
  pOutput.reset();
  EXPECT_TRUE(log.has(qm_err::kLogException, "Unable to write CI index"));
  EXPECT_EQ(readFile(dir.path("a")), sOpen);
}

TEST(AsfOutput, HandsOutItsDescription) {
  const TempDir dir;
  auto pOutput = writerOf("asf", dir.path("a"));
  pOutput->addStream(dataStream());
  pOutput->addStream(videoStream());
  const FileAttributes attributes{false, true, true, 3};
  pOutput->start(&attributes);
  write(*pOutput, 1, kFrames[0]);
  write(*pOutput, 2, kFrames[2]);
  const std::unique_ptr<FileInfo> pInfo(pOutput->detachFileInfo());
  pOutput.reset();
  EXPECT_FALSE(pInfo->isOnFlyIndexing());
  EXPECT_STREQ(pInfo->getFileExtension(true), "asf");
  EXPECT_EQ(pInfo->getAttributes().toText(","), "allowRecording=0,original=1,crc=1,scrambling=3");
  EXPECT_EQ(pInfo->getFirstDataStream(), 1U);
  EXPECT_EQ(pInfo->getFirstVideoStream(), 2U);
  EXPECT_EQ(pInfo->getStream(2)->getPeriod(), (FramePeriod{1000, 25}));
  EXPECT_EQ(readIndexEntry(pInfo->getStream(2)->getEntries(), FILEINDEX_CI),
            (IndexEntry{40, 2000, 9, 1, 0x1234}));
  std::pair<std::uint32_t, std::uint32_t> size;
  pInfo->getVideoSize(&size.first, &size.second);
  EXPECT_EQ(size, (std::pair{352U, 288U}));
}

/// A file that demands an alignment.
class Aligned : public JFileSocket {
 public:
  Aligned(const std::string& sPath, std::uint32_t uAlignment)
      : JFileSocket(sPath, kWrite, true), m_uAlignment(uAlignment) {}
  std::uint32_t getAlignment() const override { return m_uAlignment; }

 private:
  std::uint32_t m_uAlignment;
};

TEST(AsfOutput, TellsItsBlockSizeInTheFlags) {
  const TempDir dir;
  const auto flags = [&](std::uint32_t uSize) {
    FileOutput::create(std::make_unique<Aligned>(dir.path("a"), uSize), "asf", "")->start(nullptr);
    return at(readFile(dir.path("a")), 24 + 72, 4) & ~3U;
  };
  EXPECT_EQ(flags(8), 0x0E000000U);
  EXPECT_EQ(flags(256), 0x09000000U);
  EXPECT_EQ(flags(512), 0x01000000U);
  EXPECT_EQ(flags(4096), 0x04000000U);
  EXPECT_EQ(flags(32768), 0x07000000U);
  for (const std::uint32_t uSize : {4U, 65536U, 520U}) {
    EXPECT_EQ(thrownBy([&] { flags(uSize); }), "Unsupported direct i/o block size");
  }
  for (std::uint32_t uSize = 8; uSize <= 32768; uSize *= 2) {
    EXPECT_EQ(asf_layout::blockSize(asf_layout::blockFlags(uSize)), uSize);
  }
}

TEST(AsfOutput, WritesBlocksUnderDirectIO) {
  const TempDir dir;
  const std::string sPath = dir.path("a");
  auto pOutput =
      FileOutput::create(std::make_unique<JDirectIOSocket>(sPath, JFileSocket::kWrite, true), "asf", sPath);
  pOutput->addStream(dataStream());
  pOutput->addStream(dataStream());
  pOutput->addStream(dataStream());  // gets no frame
  pOutput->start(nullptr);
  const std::uint64_t uStart = readFile(sPath).size();
  std::vector<std::string> payloads = {std::string(100, 'a'), std::string(476, 'b'), std::string(477, 'c')};
  for (const std::uint32_t uStream : {1U, 2U}) {
    for (std::size_t i = 0; i < payloads.size(); ++i) {
      write(*pOutput, uStream, {payloads[i], 1000 + i, i, 1, 3});
    }
  }
  pOutput.reset();
  const std::string sFile = readFile(sPath);
  const std::uint64_t uHeader = at(sFile, 16, 8);
  EXPECT_EQ(uStart % 512, 0U);
  EXPECT_EQ(sFile.substr(uHeader + 24, uStart - uHeader - 24), zeros(uStart - uHeader - 24));
  EXPECT_EQ(at(sFile, uHeader + 16, 8), uStart + 4096 - uHeader);
  EXPECT_EQ(sFile.substr(uStart + 36, 476), payloads[0] + zeros(376));
  EXPECT_EQ(sFile.substr(uStart + 1024 + 36, 988), payloads[2] + zeros(511));
  const std::size_t index = uStart + 4096;
  ASSERT_EQ(sFile.size(), index + 512);
  for (const std::size_t place : {index, index + 120}) {
    EXPECT_EQ(sFile.substr(place, 16), kIndexId);
    EXPECT_EQ(at(sFile, place + 16, 8), 120U);
    const std::uint64_t uFirst = place == index ? 0 : 2048;
    EXPECT_EQ(at(sFile, place + 24, 8), uFirst);
    EXPECT_EQ(at(sFile, place + 24 + 32, 8), uFirst + 512);
    EXPECT_EQ(at(sFile, place + 24 + 64, 8), uFirst + 1024);
  }
  EXPECT_EQ(sFile.substr(index + 240),
            hex("30 88 71 6F D3 11 B9 09 E0 00 D8 A0 E1 1C 10 81") + le(272, 8) + zeros(248));
}

TEST(AsfOutput, FinishesAFileUnderDirectIOWhoseFirstStreamHasNoFrame) {
  const TempDir dir;
  const std::string sPath = dir.path("a");
  auto pOutput = FileOutput::create(std::make_unique<Aligned>(sPath, 512), "asf", sPath);
  pOutput->addStream(dataStream());
  pOutput->addStream(dataStream());
  pOutput->start(nullptr);
  write(*pOutput, 2, kFrames[0]);
  pOutput.reset();
  JFileSocket socket(sPath, JFileSocket::kRead, true);
  ASFFileInfoIn info(socket, sPath, false);
  EXPECT_FALSE(info.lacksIndex());
  EXPECT_EQ(info.getStream(1)->getCount(), 0U);
  EXPECT_EQ(info.getStream(2)->getTimeByNumber(0).getMicroseconds(), kFrames[0].ullTimeStamp);
}

TEST(AsfOutput, GivesNotifyObjectsOutAndTakesThemBack) {
  const TempDir dir;
  ASFOutput output(std::make_unique<JFileSocket>(dir.path("a"), JFileSocket::kWrite, true), "");
  AsyncIONotifyPool pool(output);
  std::vector<std::unique_ptr<AsyncIONotifyBitstream>> taken;
  for (const std::size_t expected : {1U, 2U, 4U, 4U, 8U}) {
    taken.push_back(pool.get());
    EXPECT_EQ(pool.getMaxSize(), expected);
  }
  for (auto& pNotify : taken) {
    pool.put(std::move(pNotify));
  }
  EXPECT_EQ(pool.getSize(), 8U);
}

TEST(FileStreamInfo, KeepsEntriesWhileItGrowsAndWhenItIsCopied) {
  FileInfo info("");
  info.resetStreams(1);
  info.setOnFlyIndexing(true);
  FileStreamInfo& stream = *info.getStream(1);
  stream.setIndexType(FILEINDEX_NTP);
  info.addNtpEntry(1, 1, 0, 0);  // isn't the next one
  for (std::uint32_t i = 0; i < 5000; ++i) {
    info.addNtpEntry(1, i, 10 * i, 100 * i);
  }
  FileStreamInfo copy(stream);
  copy.append({1, 2, 0, 0, 0});
  EXPECT_EQ(copy.getCount(), 5001U);
  for (std::uint32_t i = 0; i < 5000; ++i) {
    EXPECT_EQ(readIndexEntry(copy.getEntries() + 16 * i, FILEINDEX_NTP),
              (IndexEntry{10 * i, 100 * i, 0, 0, 0}));
  }
  EXPECT_EQ(readIndexEntry(copy.getEntries() + 80000, FILEINDEX_NTP), (IndexEntry{1, 2, 0, 0, 0}));
}

}  // namespace
