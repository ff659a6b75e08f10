#include "coreapi/qmci/streaminfonet.h"

#include <functional>
#include <gmock/gmock.h>
#include <vector>

#include "coreapi/platform/byteorder.h"
#include "coreapi/qmci/audioinfonoxml.h"
#include "coreapi/qmci/videoinfonoxml.h"
#include "coreapi/qmutils/params/jparams.h"
#include "coreapi/qmxml/qmxml.h"
#include "tests/coreapi/qmci/streamsamples.h"
#include "tests/support/logcapture.h"

namespace qm_ci {
namespace {

using qm_platform::readBE16;
using qm_platform::readBE32;
using qm_platform::readLE16;
using qm_platform::readLE32;
using qm_platform::writeLE32;
using qm_test::audioStream;
using qm_test::dataStream;
using qm_test::LogCapture;
using qm_test::thrownBy;
using qm_test::videoStream;
using qm_test::damage::audio;
using qm_test::damage::data;
using qm_test::damage::video;
using qm_test::damage::word;
using testing::HasSubstr;

std::vector<std::uint8_t> blockOf(const JParams& params) {
  std::unique_ptr<std::uint8_t[]> pBytes;
  std::uint32_t uSize = 0;
  params.get("StreamInfo", pBytes, uSize, true);
  return {pBytes.get(), pBytes.get() + uSize};
}

std::string textAt(const std::vector<std::uint8_t>& block, std::size_t at) {
  return {block.begin() + static_cast<std::ptrdiff_t>(at), block.end()};
}

JParams paramsWith(const std::vector<std::uint8_t>& block) {
  JParams params;
  params.add("StreamInfo", block.data(), static_cast<std::uint32_t>(block.size()), JVariant::T_BINARY);
  return params;
}

class StreamInfoNet : public testing::Test {
 protected:
  std::vector<std::uint8_t> r30Of(const StreamInfo& info) {
    JParams params;
    m_uWritten = writeStreamInfoR30(info, params);
    return blockOf(params);
  }

  /// Reads a block with further parameters beside it.
  std::string readR30(const std::vector<std::uint8_t>& block, const JParams& beside = {}) {
    JParams params = paramsWith(block);
    params.add(&beside);
    m_pRead.reset();
    return thrownBy([&] { m_uRead = readStreamInfoR30(params, &m_pRead); });
  }

  const QMXmlUse m_xml;
  std::unique_ptr<StreamInfo> m_pRead;
  std::uint32_t m_uWritten = 0;
  std::uint32_t m_uRead = 0;
};

TEST_F(StreamInfoNet, NativeFormSwapsTheNumbersOfTheDescription) {
  JParams params;
  const StreamInfo video = videoStream("a=1");
  EXPECT_EQ(writeStreamInfo(video, params), video.getInfoSize());
  const std::vector<std::uint8_t> block = blockOf(params);
  EXPECT_EQ(block.size(), video.getInfoSize());
  EXPECT_EQ(readLE32(&block[0]), 1U);
  EXPECT_EQ(readLE32(&block[4]), video.getInfoSize());
  for (std::size_t at = 8; at < 8 + 88; at += 4) {
    EXPECT_EQ(readBE32(&block[at]), readLE32(video.getBytes().data() + at)) << at;
  }
  EXPECT_EQ(textAt(block, 96), textAt({video.getBytes().begin(), video.getBytes().end()}, 96));

  const StreamInfo audio = audioStream();
  writeStreamInfo(audio, params);
  const std::vector<std::uint8_t> sound = blockOf(params);
  EXPECT_EQ(readBE32(&sound[16]), 8000U);
  EXPECT_EQ(readBE16(&sound[20]), 16U);
  EXPECT_EQ(readBE16(&sound[22]), 2U);
  EXPECT_EQ(readBE32(&sound[40]), readLE32(audio.getBytes().data() + 40));
}

TEST_F(StreamInfoNet, NativeFormComesBackAsItWas) {
  for (const StreamInfo& info : {videoStream("a=1"), audioStream("b=\"x\""), dataStream("c=2")}) {
    JParams params;
    writeStreamInfo(info, params);
    EXPECT_EQ(readStreamInfo(params, &m_pRead), info.getInfoSize());
    EXPECT_TRUE(std::ranges::equal(m_pRead->getBytes(), info.getBytes()));
  }
  EXPECT_THAT(thrownBy([&] { readStreamInfo(JParams(), &m_pRead); }), HasSubstr("StreamInfo"));
  const LogCapture log;
  EXPECT_EQ(readStreamInfo(JParams(), nullptr), 0U);
  EXPECT_TRUE(log.has(11, "ASSERTION FAILED (ppsOut)"));
}

TEST_F(StreamInfoNet, NativeFormThatIsCutIsRefused) {
  const LogCapture log;
  for (const StreamInfo& info : {videoStream("a=1"), audioStream("a=1"), dataStream("a=1")}) {
    JParams params;
    writeStreamInfo(info, params);
    std::vector<std::uint8_t> block = blockOf(params);
    while (!block.empty()) {
      block.pop_back();
      EXPECT_NE(thrownBy([&] { readStreamInfo(paramsWith(block), &m_pRead); }), "") << block.size();
    }
  }
}

TEST_F(StreamInfoNet, R30VideoStandsAtItsOffsets) {
  const std::vector<std::uint8_t> block = r30Of(videoStream("a=1"));
  const std::uint32_t uInfoSize = 44 + readLE32(&block[44]);
  const std::uint32_t kHead[] = {1, 3, 6, uInfoSize, 352, 288, 4614, 25, 1, 0, 1};
  for (std::size_t i = 0; i < std::size(kHead); ++i) {
    EXPECT_EQ(readLE32(&block[4 * i]), kHead[i]) << 4 * i;
  }
  EXPECT_EQ(m_uWritten, uInfoSize);
  EXPECT_EQ(textAt(block, 44 + 16).substr(0, 4), "QMV1");
  EXPECT_EQ(textAt(block, uInfoSize), std::string("Decimation=3, a=1\0", 18));

  ASSERT_EQ(readR30(block), "");
  EXPECT_EQ(m_uRead, m_pRead->getInfoSize());
  EXPECT_STREQ(m_pRead->getProperties(), "a=1");
  const QMVideoInfoNoXml info(m_pRead->getBytes().subspan(8));
  EXPECT_EQ(info.getMIMEType(), "video/x-qmv1");
  EXPECT_EQ(info.getWidth(), 352U);
  EXPECT_EQ(info.getInterlace(), 19U);
  EXPECT_EQ(info.getStreamIndexStep(), 3U);
  EXPECT_EQ(info.getPictureRate(), (Fraction{25, 1}));
}

TEST_F(StreamInfoNet, R30VideoOfAnotherFrameKindIsOfSingleFields) {
  std::vector<std::uint8_t> block = r30Of(videoStream("", "video/x-qmv2"));
  writeLE32(&block[36], 3);
  ASSERT_EQ(readR30(block), "");
  const QMVideoInfoNoXml info(m_pRead->getBytes().subspan(8));
  EXPECT_EQ(info.getMIMEType(), "video/x-qmv2");
  EXPECT_EQ(info.getInterlace(), 10U);
}

TEST_F(StreamInfoNet, R30VideoWithoutTextTakesTheDecimationBesideIt) {
  std::vector<std::uint8_t> block = r30Of(videoStream("a=1"));
  block.resize(m_uWritten);
  EXPECT_THAT(readR30(block), HasSubstr("Decimation"));
  EXPECT_EQ(m_pRead, nullptr);
  JParams beside;
  beside.add("Decimation", 5);
  ASSERT_EQ(readR30(block, beside), "");
  EXPECT_EQ(QMVideoInfoNoXml(m_pRead->getBytes().subspan(8)).getStreamIndexStep(), 5U);
  EXPECT_STREQ(m_pRead->getProperties(), "");
}

TEST_F(StreamInfoNet, R30AudioIsAWaveHeader) {
  std::vector<std::uint8_t> block = r30Of(audioStream("a=1"));
  EXPECT_EQ(m_uWritten, 40U);
  EXPECT_EQ(readLE32(&block[12]), 40U);
  EXPECT_EQ(readLE32(&block[16]), 160U);
  EXPECT_EQ(readLE16(&block[20]), 1U);
  EXPECT_EQ(readLE16(&block[22]), 2U);
  EXPECT_EQ(readLE32(&block[24]), 8000U);
  EXPECT_EQ(readLE32(&block[28]), 32000U);
  EXPECT_EQ(readLE16(&block[32]), 4U);
  EXPECT_EQ(readLE16(&block[34]), 16U);
  EXPECT_EQ(readLE32(&block[36]), 0U);
  EXPECT_EQ(textAt(block, 40), std::string("a=1\0", 4));

  ASSERT_EQ(readR30(block), "");
  EXPECT_EQ(m_pRead->getMIMEType(), "audio/x-qmpcm");
  EXPECT_EQ(m_pRead->getMaxFrameSize(), 640U);
  EXPECT_STREQ(m_pRead->getProperties(), "a=1");
  writeLE32(&block[16], 0);
  ASSERT_EQ(readR30(block), "");
  EXPECT_EQ(m_pRead->getMaxFrameSize(), 96000U);

  block = r30Of(audioStream("", "audio/x-qmmp3-internal"));
  EXPECT_EQ(readLE16(&block[20]), 85U);
  qm_platform::writeLE16(&block[34], 0);
  ASSERT_EQ(readR30(block), "");
  const QMAudioInfoNoXml info(m_pRead->getBytes().subspan(8));
  EXPECT_EQ(info.getMIMEType(), "audio/x-qmmp3");
  EXPECT_EQ(info.getNomMaxBitstreamSize(), 1952U);
  EXPECT_EQ(info.getBitsPerSample(), 16U);
  EXPECT_EQ(info.getSamplingsPerFrame(), 1152U);
}

TEST_F(StreamInfoNet, R30DataCountsTheFramesHeaderIn) {
  std::vector<std::uint8_t> block = r30Of(dataStream("a=1"));
  const std::uint32_t uTexts = 29 + 5;
  const std::uint32_t kHead[] = {4, 3, 6, uTexts + 32, 25, 2, 500, uTexts + 16};
  for (std::size_t i = 0; i < std::size(kHead); ++i) {
    EXPECT_EQ(readLE32(&block[4 * i]), kHead[i]) << 4 * i;
  }
  EXPECT_EQ(textAt(block, 32), std::string("application/x-qmpluginstream\0<d/>\0a=1\0", uTexts + 4));
  ASSERT_EQ(readR30(block), "");
  EXPECT_EQ(m_pRead->getMaxFrameSize(), 572U);
  EXPECT_EQ(m_pRead->getMIMEType(), "application/x-qmpluginstream");
  EXPECT_STREQ(m_pRead->getProperties(), "a=1");
  writeLE32(&block[24], 0xFFFFFFFF);
  ASSERT_EQ(readR30(block), "");
  EXPECT_EQ(m_pRead->getMaxFrameSize(), 0xFFFFFFFFU) << "the largest number there is";
}

TEST_F(StreamInfoNet, OnlyKnownTypesAndCodingsCross) {
  EXPECT_EQ(thrownBy([&] { r30Of(videoStream("", "video/H264")); }),
            "R30 stream info compatibility only for QMV1-2");
  EXPECT_EQ(thrownBy([&] { r30Of(audioStream("", "audio/x-qmpcm")); }), "invalid MIMETYPE type");
  const std::vector<std::uint8_t> bytes = {3, 0, 0, 0, 9, 0, 0, 0, 0};
  EXPECT_EQ(thrownBy([&] { r30Of(StreamInfo(bytes)); }), "invalid StreamInfo type");
  EXPECT_EQ(thrownBy([&] { readStreamInfo(paramsWith(bytes), &m_pRead); }), "invalid StreamInfo type");
}

/// Damage done to a good block of the R30 form, which must then be refused.
struct R30DamageCase {
  const char* name;
  StreamInfo (*make)();
  std::function<void(std::vector<std::uint8_t>&)> damage;
  const char* text;
};

class DamagedR30 : public StreamInfoNet, public testing::WithParamInterface<R30DamageCase> {};

TEST_P(DamagedR30, IsRefused) {
  const LogCapture log;
  std::vector<std::uint8_t> block = r30Of(GetParam().make());
  GetParam().damage(block);
  block.shrink_to_fit();
  EXPECT_THAT(readR30(block), HasSubstr(GetParam().text));
  EXPECT_EQ(m_pRead, nullptr);
}

constexpr const char* kSize = "invalid StreamInfo size";
constexpr const char* kVideo = "couldn't update QMCIVideoInfo from BITMAPINFOHEADER";
constexpr const char* kAudio = "couldn't update QMCIAudioInfo from WAVEFORMATEX";

INSTANTIATE_TEST_SUITE_P(
    R30, DamagedR30,
    testing::Values(
        R30DamageCase{"Empty", video, [](auto& block) { block.clear(); }, kSize},
        R30DamageCase{"Short", video, [](auto& block) { block.resize(15); }, kSize},
        R30DamageCase{"InfoSizeTooLarge", video, word(12, 0xFFFFFFFF), kSize},
        R30DamageCase{"InfoSizeInHead", video, word(12, 15), kSize},
        R30DamageCase{"TextWithoutZero", data, [](auto& block) { block.back() = 'x'; }, kSize},
        R30DamageCase{"TextEndsEarly", data, [](auto& block) { block[block.size() - 3] = 0; }, kSize},
        R30DamageCase{"TextIsNoList", data, [](auto& block) { block[block.size() - 3] = '!'; }, "garbage"},
        R30DamageCase{"Type", data, word(0, 3), "invalid StreamInfo type"},
        R30DamageCase{"NoDecimation", video,
                      [](auto& block) {
                        block.resize(readLE32(&block[12]));
                        block.push_back(0);
                      },
                      "Decimation"},
        R30DamageCase{"VideoWithoutHeader", video,
                      [](auto& block) {
                        block.erase(block.begin() + 44 + 39, block.begin() + readLE32(&block[12]));
                        writeLE32(&block[12], 44 + 39);
                      },
                      kVideo},
        R30DamageCase{"BitmapSizeTooLarge", video, word(44, 0x7FFFFFFF), kVideo},
        R30DamageCase{"BitmapSizeTooSmall", video, word(44, 39), kVideo},
        R30DamageCase{"PictureTooLarge", video, word(44 + 8, 0x80000000), kVideo},
        R30DamageCase{"AudioWithoutHeader", audio,
                      [](auto& block) {
                        block.erase(block.begin() + 37, block.begin() + 40);
                        writeLE32(&block[12], 37);
                      },
                      kAudio},
        R30DamageCase{"AudioFrameTooLarge", audio, word(16, 0xFFFFFFFF), kAudio},
        R30DamageCase{"WaveFormat", audio, word(20, 0x00020007), "Unimplemented!"},
        R30DamageCase{"TextsTooLong", data, word(28, 29 + 5 + 16 + 1), kSize},
        R30DamageCase{"TextsWrap", data, word(28, 15), kSize},
        R30DamageCase{"TextsWithoutZero", data, word(28, 16 + 29 + 4), "invalid StreamDataInfo text"}),
    [](const auto& row) { return std::string(row.param.name); });

TEST(PictureStandard, FollowsFromTheSize) {
  const struct {
    std::uint32_t uWidth, uHeight, uStandard, uFrameKind, uDecimation;
  } rows[] = {
      {720, 576, 4614, 0, 0}, {690, 566, 4614, 0, 0}, {689, 576, 0, 3, 1},
      {352, 288, 4614, 0, 1}, {176, 144, 4614, 0, 2}, {88, 72, 4614, 0, 3},
      {44, 36, 4614, 0, 4},   {720, 480, 8448, 0, 0}, {352, 240, 8448, 0, 1},
      {176, 120, 8448, 0, 2}, {88, 60, 8448, 0, 3},   {44, 30, 8448, 0, 4},
      {44, 31, 8448, 0, 4},   {100, 100, 0, 3, 2},    {100, 31, 0, 3, 4},
      {100, 32, 0, 3, 3},     {100, 63, 0, 3, 3},     {100, 64, 0, 3, 2},
      {100, 127, 0, 3, 2},    {100, 128, 0, 3, 1},    {0, 0, 0, 3, 4},
      {704, 576, 4614, 0, 0}, {1920, 1080, 0, 3, 1},  {0xFFFFFFFF, 0xFFFFFFFF, 0, 3, 1},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(std::to_string(row.uWidth) + "x" + std::to_string(row.uHeight));
    const qm_ci::PictureStandard standard = getPictureStandard(row.uWidth, row.uHeight);
    EXPECT_EQ(standard.uStandard, row.uStandard);
    EXPECT_EQ(standard.uFrameKind, row.uFrameKind);
    EXPECT_EQ(standard.uDecimation, row.uDecimation);
  }
}

}  // namespace
}  // namespace qm_ci
