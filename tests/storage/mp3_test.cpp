#include <cmath>
#include <gmock/gmock.h>
#include <vector>

#include "coreapi/qmutils/text/jtext.h"
#include "storage/jmp3.h"
#include "tests/storage/writersupport.h"

namespace {

using namespace qm_test;

TEST(Mp3Output, EndsInWhatReadersFindFromTheEnd) {
  const TempDir dir;
  const qm_ci::StreamInfo stream = audioStream("", "audio/x-qmmp3");
  const auto written = [&](const std::string& sSource, const std::string& sApp) {
    auto pOutput = writerOf("mp3", dir.path("a"));
    JParams params;
    params.parse(sSource);
    pOutput->getParams().parse(sApp);
    pOutput->open(&stream, &params, nullptr);
    write(*pOutput, 1, {"abc", 1000, 1, 1, 3});
    write(*pOutput, 1, {"signature", 1000, 1, 6, 3});
    write(*pOutput, 1, {"de", 2000, 2, 1, 3});
    pOutput.reset();
    return readFile(dir.path("a"));
  };
  const std::string sIndex = le(0, 8) + le(1000, 8) + le(3, 8) + le(2000, 8) + le(5, 8) +
                             std::string(8, '\xFF') + "QM_TAG_1" + le(2, 4);
  const std::string sName(31, 'n');
  const std::string sLong = "sourceName=\"" + sName + "\"";
  EXPECT_EQ(written("", ""), "abcde" + sIndex);
  EXPECT_EQ(written(sLong, ""), "abcde" + zeros(1) + sLong + zeros(1) + "QM_TAG_2" + le(sLong.size() + 2, 4) +
                                    sIndex + "TAG" + sName.substr(1) + zeros(94) + "\x2B");
  EXPECT_EQ(written("", "authoringApp=\"app\""), "abcdeauthoringApp=\"app\"" + zeros(2) + "QM_TAG_2" +
                                                     le(20, 4) + sIndex + "TAG" + zeros(30) + "app" +
                                                     zeros(91) + "\x2B");
  EXPECT_EQ(written("other=1", ""),
            "abcde" + zeros(1) + "other=1" + zeros(1) + "QM_TAG_2" + le(9, 4) + sIndex);
}

TEST(Mp3Output, TakesOneStreamOfMp3) {
  const TempDir dir;
  auto pOutput = writerOf("mp3", dir.path("a"));
  const char* const szOther = "MP3 files can only be used with MP3 encoded audio";
  EXPECT_EQ(thrownBy([&] { pOutput->addStream(audioStream()); }), szOther);
  EXPECT_EQ(thrownBy([&] { pOutput->addStream(dataStream("", "audio/x-qmmp3")); }), szOther);
  EXPECT_EQ(pOutput->addStream(audioStream("", "audio/x-qmmp3")), 1U);
  EXPECT_EQ(thrownBy([&] { pOutput->addStream(audioStream("", "audio/x-qmmp3")); }),
            "MP3 files can only contain one stream");
}

/// Bit rate, version, sampling rate, channels, padding and checksum of a header.
std::string describe(const std::string& sHeader) {
  const auto* const pBytes = reinterpret_cast<const std::uint8_t*>(sHeader.data());
  std::uint32_t uBitRate = 0;
  std::uint32_t uSampleRate = 0;
  int iVersion = 0;
  int iChannels = 0;
  bool bPadding = false;
  bool bCrc = false;
  const bool bValid =
      parseMPEGHeader(pBytes, &uBitRate, &iVersion, &uSampleRate, &iChannels, &bPadding, &bCrc);
  EXPECT_EQ(parseMPEGHeader(pBytes, nullptr), bValid);
  return bValid ? qm_utils::format("%u %d %u %d %d %d", uBitRate, iVersion, uSampleRate, iChannels, bPadding,
                                   bCrc)
                : "refused";
}

TEST(MpegHeader, IsTakenApartOrRefused) {
  EXPECT_EQ(describe(hex("FF FB 90 64")), "128000 1 44100 2 0 0");
  EXPECT_EQ(describe(hex("FF FA E6 00")), "320000 1 48000 2 1 1");
  EXPECT_EQ(describe(hex("FF F3 88 C0")), "64000 2 16000 1 0 0");
  EXPECT_EQ(describe(hex("FF E3 14 80")), "8000 3 12000 2 0 0");
  EXPECT_EQ(describe(hex("FF FB 00 00")), "0 1 44100 2 0 0");
  EXPECT_EQ(describe(hex("FF FB F0 64")), "refused") << "bit rate index 15";
  EXPECT_EQ(describe(hex("FF FB 9C 64")), "refused") << "sampling rate index 3";
  EXPECT_EQ(describe(hex("FF EB 90 64")), "refused") << "version 1";
  EXPECT_EQ(describe(hex("FF FD 90 64")), "refused") << "layer II";
  EXPECT_EQ(describe(hex("FF DB 90 64")), "refused") << "no sync word";
}

std::string describe(const JMP3& coder) {
  return qm_utils::format("%d %d %d %d %d %d", coder.getFrameBytes(), coder.getFrameSamples(),
                          coder.getSampleRate(), coder.getChannels(), coder.getBitRate(), coder.getMode());
}

/// A second of a tone, coded frame by frame.
std::vector<std::string> codedTone(JMP3Encoder& encoder) {
  std::vector<std::string> frames;
  const int iChannels = encoder.getChannels();
  std::vector<std::int16_t> pcm(static_cast<std::size_t>(encoder.getFrameSamples() * iChannels));
  std::string sFrame(static_cast<std::size_t>(encoder.getFrameBytes()) + 1, '\0');
  const int iFrames = encoder.getSampleRate() / encoder.getFrameSamples();
  for (int i = 0; i < iFrames; ++i) {
    for (std::size_t k = 0; k < pcm.size(); ++k) {
      const double position =
          i * encoder.getFrameSamples() + static_cast<double>(k / static_cast<std::size_t>(iChannels));
      pcm[k] =
          static_cast<std::int16_t>(10000 * std::sin(position * 440 * 6.283185 / encoder.getSampleRate()));
    }
    const int iBytes = encoder.encode(pcm.data(), reinterpret_cast<std::uint8_t*>(sFrame.data()));
    if (iBytes > 0) {
      frames.push_back(sFrame.substr(0, static_cast<std::size_t>(iBytes)));
    }
  }
  return frames;
}

TEST(Mp3Coder, MakesFramesThatPlayersAndItsDecoderPlay) {
  struct Case {
    int iBitRate, iSampleRate, iChannels, iFrameSamples;
    const char* szStream;
  };
  for (const Case& row : {Case{128000, 44100, 2, 1152, "417 1152 44100 2 128000 1"},
                          Case{32000, 16000, 1, 576, "144 576 16000 1 32000 1"}}) {
    JMP3Encoder encoder;
    encoder.open(row.iBitRate, row.iSampleRate, row.iChannels, false);
    EXPECT_EQ(describe(encoder), row.szStream);
    const std::vector<std::string> frames = codedTone(encoder);
    const int iSlots = row.iSampleRate / row.iFrameSamples;
    ASSERT_GE(static_cast<int>(frames.size()), iSlots - 3);
    EXPECT_LT(static_cast<int>(frames.size()), iSlots);  // the first calls give none

    const TempDir dir;
    const std::string sPath = dir.path("a.mp3");
    auto pOutput = writerOf("mp3", sPath);
    pOutput->getParams().add("authoringApp", "app");
    const qm_ci::StreamInfo stream = audioStream("", "audio/x-qmmp3");
    pOutput->open(&stream, nullptr, nullptr);
    JMP3Decoder decoder;
    std::vector<std::int16_t> pcm(JMP3Decoder::kOutputSize / 2);
    int iSamples = 0;
    int iLoudest = 0;
    for (const std::string& sFrame : frames) {
      write(*pOutput, 1, {sFrame, 1000, 1, 1, 3});
      const int iDecoded =
          decoder.decode(reinterpret_cast<const std::uint8_t*>(sFrame.data()), sFrame.size(), pcm.data());
      ASSERT_GE(iDecoded, 0);
      for (int i = 0; i < iDecoded; ++i) {
        iLoudest = std::max<int>(iLoudest, pcm[static_cast<std::size_t>(i)]);
      }
      iSamples += iDecoded;
    }
    pOutput.reset();
    const int iFrames = static_cast<int>(frames.size());
    EXPECT_GE(iSamples, (iFrames - 2) * row.iFrameSamples * row.iChannels);
    EXPECT_NEAR(iLoudest, 10000, 1500);
    EXPECT_EQ(describe(decoder), row.szStream);
    // The trailer comes out as one packet more, which holds no sound.
    EXPECT_EQ(
        runTool("ffprobe -v error -f mp3 -count_packets -show_entries stream=nb_read_packets -of csv=p=0 " +
                sPath),
        std::to_string(iFrames + 1) + "\n");
    EXPECT_EQ(runTool("mpg123 -q -s " + sPath + " | wc -c"),
              std::to_string(iFrames * row.iFrameSamples * row.iChannels * 2) + "\n");
  }
}

TEST(Mp3Coder, RefusesWhatItCantDo) {
  JMP3Encoder encoder;
  EXPECT_EQ(encoder.getFrameBytes(), 0);
  EXPECT_EQ(encoder.encode(nullptr, nullptr), -1);
  for (const auto& [iRate, iChannels] : {std::pair{44100, 0}, {44100, 3}, {44000, 2}, {0, 2}}) {
    EXPECT_EQ(
        thrownBy([&, rate = iRate, channels = iChannels] { encoder.open(128000, rate, channels, true); }),
        "lame init params failed");
  }
}

}  // namespace
