#include <array>
#include <cmath>
#include <gmock/gmock.h>
#include <vector>

#include "storage/jmp3.h"
#include "tests/storage/writersupport.h"

namespace {

using namespace qm_test;

const std::string kOnes(8, '\xFF');

TEST(Mp3Output, EndsInWhatReadersFindFromTheEnd) {
  const std::string sEntries = le(0, 8) + le(1000, 8) + le(3, 8) + le(2000, 8);
  const std::string sIndex = sEntries + le(5, 8) + kOnes + "QM_TAG_1" + le(2, 4);
  const std::string sName(31, 'n');
  struct Case {
    const char* szName;
    const char* szSource;
    const char* szApp;
    std::string sParams;
    std::string sTag;
  };
  const std::string sLongText = "sourceName=\"" + sName + "\"";
  const std::array<Case, 4> cases = {{
      {"no parameters", nullptr, nullptr, "", ""},
      {"source", sName.c_str(), nullptr,
       zeros(1) + sLongText + zeros(1) + "QM_TAG_2" + le(sLongText.size() + 2, 4),
       "TAG" + sName.substr(1) + zeros(94) + "\x2B"},
      {"application", nullptr, "app", "authoringApp=\"app\"" + zeros(2) + "QM_TAG_2" + le(20, 4),
       "TAG" + zeros(30) + "app" + zeros(91) + "\x2B"},
      {"both", "s", "a",
       "authoringApp=\"a\"" + zeros(1) + "sourceName=\"s\"" + zeros(1) + "QM_TAG_2" + le(32, 4),
       "TAG" + ("s" + zeros(29)) + "a" + zeros(93) + "\x2B"},
  }};
  for (const Case& row : cases) {
    SCOPED_TRACE(row.szName);
    const TempDir dir;
    auto pOutput = writerOf("mp3", dir.path("a"));
    JParams params;
    if (row.szSource != nullptr) {
      params.add("sourceName", row.szSource);
    }
    if (row.szApp != nullptr) {
      pOutput->getParams().add("authoringApp", row.szApp);
    }
    const qm_ci::StreamInfo stream = audioStream("", "audio/x-qmmp3");
    pOutput->open(&stream, &params, nullptr);
    write(*pOutput, 1, {"abc", 1000, 1, 1, 3});
    write(*pOutput, 1, {"signature", 1000, 1, 6, 3});
    write(*pOutput, 1, {"de", 2000, 2, 1, 3});
    pOutput.reset();
    EXPECT_EQ(readFile(dir.path("a")), "abcde" + row.sParams + sIndex + row.sTag);
  }
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

TEST(MpegHeader, IsTakenApartOrRefused) {
  struct Case {
    const char* szBytes;
    bool bValid;
    std::uint32_t uBitRate;
    int iVersion;
    std::uint32_t uSampleRate;
    int iChannels;
    bool bPadding;
    bool bCrc;
  };
  const std::array<Case, 11> cases = {{
      {"FF FB 90 64", true, 128000, 1, 44100, 2, false, false},
      {"FF FA E6 00", true, 320000, 1, 48000, 2, true, true},
      {"FF F3 88 C0", true, 64000, 2, 16000, 1, false, false},
      {"FF E3 14 80", true, 8000, 3, 12000, 2, false, false},
      {"FF FB 00 00", true, 0, 1, 44100, 2, false, false},
      {"FF FB F0 64", false, 0, 0, 0, 0, false, false},  // bit rate index 15
      {"FF FB 9C 64", false, 0, 0, 0, 0, false, false},  // sampling rate index 3
      {"FF EB 90 64", false, 0, 0, 0, 0, false, false},  // version 1
      {"FF FD 90 64", false, 0, 0, 0, 0, false, false},  // layer II
      {"FF DB 90 64", false, 0, 0, 0, 0, false, false},  // sync
      {"00 00 00 00", false, 0, 0, 0, 0, false, false},
  }};
  for (const Case& row : cases) {
    SCOPED_TRACE(row.szBytes);
    const std::string sBytes = hex(row.szBytes);
    const auto* const pBytes = reinterpret_cast<const std::uint8_t*>(sBytes.data());
    std::uint32_t uBitRate = 0;
    int iVersion = 0;
    std::uint32_t uSampleRate = 0;
    int iChannels = 0;
    bool bPadding = false;
    bool bCrc = false;
    EXPECT_EQ(parseMPEGHeader(pBytes, &uBitRate, &iVersion, &uSampleRate, &iChannels, &bPadding, &bCrc),
              row.bValid);
    EXPECT_EQ(parseMPEGHeader(pBytes, nullptr), row.bValid);
    EXPECT_EQ(uBitRate, row.uBitRate);
    EXPECT_EQ(iVersion, row.iVersion);
    EXPECT_EQ(uSampleRate, row.uSampleRate);
    EXPECT_EQ(iChannels, row.iChannels);
    EXPECT_EQ(bPadding, row.bPadding);
    EXPECT_EQ(bCrc, row.bCrc);
  }
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
    int iBitRate, iSampleRate, iChannels, iMode, iFrameBytes, iFrameSamples;
  };
  for (const Case& row : {Case{128000, 44100, 2, 1, 417, 1152}, Case{32000, 16000, 1, 1, 144, 576}}) {
    JMP3Encoder encoder;
    encoder.open(row.iBitRate, row.iSampleRate, row.iChannels, false);
    EXPECT_EQ(encoder.getBitRate(), row.iBitRate);
    EXPECT_EQ(encoder.getMode(), row.iMode);
    EXPECT_EQ(encoder.getFrameBytes(), row.iFrameBytes);
    EXPECT_EQ(encoder.getFrameSamples(), row.iFrameSamples);
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
    EXPECT_EQ(decoder.getSampleRate(), row.iSampleRate);
    EXPECT_EQ(decoder.getChannels(), row.iChannels);
    EXPECT_EQ(decoder.getBitRate(), row.iBitRate);
    EXPECT_EQ(decoder.getFrameBytes(), row.iFrameBytes);
    EXPECT_EQ(decoder.getFrameSamples(), row.iFrameSamples);
    EXPECT_EQ(decoder.getMode(), row.iMode);

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
  JMP3Decoder decoder;
  std::vector<std::int16_t> pcm(JMP3Decoder::kOutputSize / 2);
  const std::string sNoise(2000, 'x');
  EXPECT_LE(decoder.decode(reinterpret_cast<const std::uint8_t*>(sNoise.data()), sNoise.size(), pcm.data()),
            0);
}

}  // namespace
