#include <array>
#include <gmock/gmock.h>

#include "coreapi/qmci/audioinfonoxml.h"
#include "coreapi/qmci/videoinfonoxml.h"
#include "storage/AVIIO/AVIOutput.h"
#include "storage/FileInput.h"
#include "storage/WAVEIO/WAVEOutput.h"
#include "tests/storage/writersupport.h"

namespace {

using namespace qm_test;
using testing::HasSubstr;
using testing::StartsWith;

std::string chunk(const std::string& sCode, const std::string& sBody) {
  return sCode + le(sBody.size(), 4) + sBody + zeros(sBody.size() % 2);
}

std::string aviFrame(const std::string& sCode, const Frame& frame) {
  return chunk(sCode, le(frame.ullTimeStamp, 8) + le(frame.ullFrameNumber, 8) + le(frame.wPictureType, 2) +
                          le(frame.wAccessFlags, 2) + le(5, 4) + "\x34\xB1\xBA\xD2" + zeros(4) +
                          frame.sPayload);
}

/// The whole file of a key frame, a block of audio and a frame that isn't a key frame.
std::string expectedAvi(const Frame& key, const Frame& audio, const Frame& other) {
  const auto bitmap = qm_ci::QMVideoInfoNoXml(*videoStream().getVideoInfo()).createBMI();
  const auto wave = qm_ci::QMAudioInfoNoXml(*audioStream().getAudioInfo()).createWFX();
  const auto waveSize = static_cast<std::ptrdiff_t>(18U + qm_ci::readWaveHeader(wave.data()).cbSize);
  const std::string sAvih = le(40000, 4) + le(4000000, 4) + le(2, 4) + le(0x10130, 4) + le(2, 4) + zeros(4) +
                            le(2, 4) + le(1000, 4) + le(352, 4) + le(288, 4) + zeros(16);
  const std::string sVideo = "vidsQMCI" + zeros(12) + le(1, 4) + le(25, 4) + zeros(4) + le(2, 4) +
                             le(1000, 4) + std::string(4, '\xFF') + zeros(8) + le(352, 2) + le(288, 2);
  const std::string sAudio = "auds" + zeros(16) + le(4, 4) + le(32000, 4) + zeros(4) + le(160, 4) +
                             le(640, 4) + std::string(4, '\xFF') + le(4, 4) + zeros(8);
  const std::string sHeaderList =
      chunk("LIST", "hdrl" + chunk("avih", sAvih) +
                        chunk("LIST", "strl" + chunk("strh", sVideo) +
                                          chunk("strf", std::string(bitmap.begin(), bitmap.end()))) +
                        chunk("LIST", "strl" + chunk("strh", sAudio) +
                                          chunk("strf", std::string(wave.begin(), wave.begin() + waveSize))));
  const std::size_t uBeforeMedia = 12 + sHeaderList.size() + 8 + 12;
  const std::string sKey = aviFrame("00dc", key);
  const std::string sSound = aviFrame("01wb", audio);
  const std::string sOther = aviFrame("00dc", other);
  const auto entry = [](const std::string& sCode, std::uint64_t uFlags, std::size_t place,
                        const Frame& frame) {
    return sCode + le(uFlags, 4) + le(4 + place, 4) + le(frame.sPayload.size() + 32, 4);
  };
  return chunk("RIFF", "AVI " + sHeaderList + chunk("JUNK", zeros((512 - uBeforeMedia % 512) % 512)) +
                           chunk("LIST", "movi" + sKey + sSound + sOther) +
                           chunk("idx1", entry("00dc", 16, 0, key) + entry("01wb", 0, sKey.size(), audio) +
                                             entry("00dc", 0, sKey.size() + sSound.size(), other)));
}

TEST(AviOutput, WritesEveryByteOfASmallFile) {
  const TempDir dir;
  const std::string sPath = dir.path("a.avi");
  const Frame key = {"odd", 1000, 1, 1, 3};
  const Frame audio = {"even", 1500, 1, 1, 3};
  const Frame other = {"x", 2000, 2, 2, 0};
  auto pOutput = writerOf("avi", sPath);
  EXPECT_EQ(pOutput->addStream(audioStream()), 2U);
  EXPECT_EQ(pOutput->addStream(videoStream()), 1U);
  EXPECT_EQ(thrownBy([&] { pOutput->addStream(videoStream()); }),
            "Only one video stream per AVI file is supported");
  EXPECT_EQ(thrownBy([&] { pOutput->addStream(audioStream()); }),
            "Only one audio stream per AVI file is supported");
  EXPECT_EQ(thrownBy([&] { pOutput->addStream(dataStream()); }),
            "AVI files can only contain video and audio streams");
  pOutput->start(nullptr);
  const std::size_t header = readFile(sPath).size();
  write(*pOutput, 1, key);
  write(*pOutput, 2, audio);
  write(*pOutput, 1, {"signature", 1000, 1, 6, 0});
  write(*pOutput, 1, other);
  const FileInfo::Ptr pInfo(pOutput->detachFileInfo());
  pOutput.reset();
  const std::string sFile = readFile(sPath);
  EXPECT_EQ(sFile, expectedAvi(key, audio, other));
  const auto pInput = pInfo->createInput();
  for (const Frame& frame : {key, audio, other}) {
    std::uint32_t uSize = 0;
    EXPECT_EQ(pInput->getNextFrame(nullptr, &uSize, nullptr, false), FileInput::kFrame);
    EXPECT_EQ(uSize, frame.sPayload.size());
  }
  EXPECT_EQ(sFile.substr(header, 4), "00dc");
  EXPECT_EQ(header % 512, 0U);
  EXPECT_EQ(
      runTool("ffprobe -v error -count_packets -show_entries stream=codec_type,nb_read_packets -of csv=p=0 " +
              sPath),
      "video,2\naudio,1\n");
  EXPECT_EQ(runTool("mediainfo --Inform='General;%Format%,%VideoCount%,%AudioCount%' " + sPath), "AVI,1,1\n");
}

TEST(AviOutput, HoldsOneStreamAlone) {
  const TempDir dir;
  auto pOutput = writerOf("Backup.AVI", dir.path("a"));
  const qm_ci::StreamInfo stream = audioStream();
  pOutput->open(&stream, nullptr, nullptr);
  write(*pOutput, 2, {"0123", 1, 1, 1, 0});
  pOutput.reset();
  const std::string sFile = readFile(dir.path("a"));
  EXPECT_EQ(sFile.substr(32, 56),
            le(1000000, 4) + le(4000000, 4) + le(2, 4) + le(0x10030, 4) + zeros(8) + le(1, 4) + zeros(28));

  std::unique_ptr<FileInfo> pInfo;
  AVIOutput output(std::make_unique<JFileSocket>(dir.path("a"), JFileSocket::kWrite, true), "");
  output.addVideoStream(qm_ci::QMVideoInfoNoXml(*videoStream().getVideoInfo()), nullptr);
  pInfo.reset(output.detachFileInfo());
  EXPECT_EQ(pInfo->getFirstVideoStream(), 1U);
  EXPECT_EQ(thrownBy([&] { output.addStream(audioStream()); }), "the file is started already");
}

qm_ci::StreamInfo sound(const char* szMIMEType, std::uint32_t uRate, std::uint16_t wChannels,
                        std::uint16_t wBits) {
  qm_ci::QMAudioInfoNoXml info;
  info.setMIMEType(szMIMEType);
  info.setSamplingRate(uRate);
  info.setNumberOfChannels(wChannels);
  info.setBitsPerSample(wBits);
  info.setSamplingsPerFrame(160);
  return makeStreamInfo(qm_ci::QMCIAudioInfo(info.getCIInfo()));
}

struct WaveCase {
  const char* szName;
  qm_ci::StreamInfo stream;
  std::string sFormat;  ///< expected
  std::string sFact;
  std::size_t bytes;  ///< of audio
  std::uint32_t uSteps;
  const char* szCodec;
  const char* szMilliseconds;
  const char* szDecoded;  ///< bytes of 16-bit PCM
};

TEST(WaveOutput, WritesWhatPlayersPlay) {
  const std::array<WaveCase, 4> cases = {{
      {"PCM", sound("audio/x-qmpcm", 8000, 2, 16),
       le(1, 2) + le(2, 2) + le(8000, 4) + le(32000, 4) + le(4, 2) + le(16, 2), "", 32000, 40, "pcm_s16le",
       "1000", "32000"},
      {"G.711", sound("audio/x-qmg711", 8000, 1, 8),
       le(7, 2) + le(1, 2) + le(8000, 4) + le(8000, 4) + le(1, 2) + le(8, 2), "", 4001, 21, "pcm_mulaw",
       "500", "8002"},
      {"G.726", sound("audio/x-qmg726", 8000, 1, 16),
       le(0x45, 2) + le(1, 2) + le(8000, 4) + le(4000, 4) + le(2, 2) + le(4, 2), "fact" + zeros(4), 8000, 20,
       "adpcm_g726", "2000", "32000"},
      {"G726-32", sound("audio/G726-32", 16000, 1, 16),
       le(0x45, 2) + le(1, 2) + le(16000, 4) + le(8000, 4) + le(2, 2) + le(4, 2), "fact" + zeros(4), 8000, 10,
       "adpcm_g726", "1000", "32000"},
  }};
  for (const WaveCase& wave : cases) {
    SCOPED_TRACE(wave.szName);
    const TempDir dir;
    const std::string sPath = dir.path("a.wav");
    auto pOutput = writerOf("wav", sPath);
    pOutput->open(&wave.stream, nullptr, nullptr);
    const std::string sAudio(wave.bytes, 'a');
    write(*pOutput, 1, {sAudio.substr(0, 1000), 1, 1, 1, 0});
    write(*pOutput, 1, {"signature", 1, 1, 6, 0});
    write(*pOutput, 1, {sAudio.substr(1000), 2, 2, 1, 0});
    const std::unique_ptr<FileInfo> pInfo(pOutput->detachFileInfo());
    pOutput.reset();
    EXPECT_EQ(pInfo->getStream(1)->getCount(), wave.uSteps);
    EXPECT_EQ(readFile(sPath), "RIFF" + le(wave.bytes + wave.sFact.size() + 36, 4) + "WAVE" +
                                   chunk("fmt ", wave.sFormat) + wave.sFact + "data" + le(wave.bytes, 4) +
                                   sAudio);
    EXPECT_EQ(runTool("ffprobe -v error -show_entries stream=codec_name -of csv=p=0 " + sPath),
              std::string(wave.szCodec) + "\n");
    EXPECT_EQ(runTool("mediainfo --Inform='Audio;%Duration%' " + sPath),
              std::string(wave.szMilliseconds) + "\n");
    EXPECT_EQ(runTool("ffmpeg -v error -i " + sPath + " -f s16le - | wc -c"),
              std::string(wave.szDecoded) + "\n");
  }
}

TEST(WaveOutput, RefusesInTheOrderOfItsReasons) {
  const TempDir dir;
  auto pOutput = writerOf("wav", dir.path("a"));
  EXPECT_EQ(thrownBy([&] { pOutput->start(nullptr); }), "no audio");
  EXPECT_EQ(thrownBy([&] { pOutput->addStream(videoStream()); }), "WAVE files can only be used with audio");
  const qm_ci::StreamInfo pcm = sound("audio/x-qmpcm", 8000, 2, 16);
  pOutput->addStream(pcm);
  EXPECT_EQ(thrownBy([&] { pOutput->addStream(audioStream("", "audio/x-qmmp3")); }),
            "WAVE files can only be used with PCM encoded audio or G726");
  EXPECT_EQ(thrownBy([&] { pOutput->addStream(pcm); }), "WAVE files can only contain one stream");
  pOutput->start(nullptr);
  pOutput.reset();
  EXPECT_EQ(readFile(dir.path("a")).size(), 44U);
  EXPECT_EQ(at(readFile(dir.path("a")), 4, 4), 36U);
}

TEST(FileOutput, IsChosenByItsType) {
  const TempDir dir;
  EXPECT_EQ(writerOf("recording.mov", dir.path("a")), nullptr);
  EXPECT_EQ(writerOf("", dir.path("a")), nullptr);
  EXPECT_NE(dynamic_cast<WAVEOutput*>(writerOf("wav", dir.path("a")).get()), nullptr);
  EXPECT_NE(dynamic_cast<AVIOutput*>(writerOf("a.wav.AvI", dir.path("a")).get()), nullptr);
  writerOf("Backup.ASF", dir.path("a"))->open(nullptr, nullptr, nullptr);
  EXPECT_THAT(readFile(dir.path("a")), StartsWith("\xD1\x29\xE2\xD6"));
}

}  // namespace
