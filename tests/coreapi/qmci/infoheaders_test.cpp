#include <cmath>
#include <cstdlib>
#include <gmock/gmock.h>
#include <limits>

#include "coreapi/qmci/audioinfo.h"
#include "coreapi/qmci/fraction.h"
#include "coreapi/qmci/qmcicodes.h"
#include "coreapi/qmci/videoinfo.h"
#include "coreapi/qmxml/qmxml.h"
#include "tests/coreapi/qmci/infosupport.h"
#include "tests/support/logcapture.h"
#include "tests/support/tempdir.h"

namespace {

using namespace qm_ci;
using qm_test::Bytes;
using qm_test::thrownBy;

Bytes blockOf(const BitmapInfoHeader& header, std::string_view extra = {}) {
  Bytes block(kBitmapHeaderSize);
  writeBitmapHeader(header, block.data());
  block.insert(block.end(), extra.begin(), extra.end());
  return block;
}

Bytes blockOf(const WaveFormatEx& header, std::string_view extra = {}) {
  Bytes block(kWaveHeaderSize);
  writeWaveHeader(header, block.data());
  block.insert(block.end(), extra.begin(), extra.end());
  return block;
}

/// Makes a file with ffmpeg and gives the content of its first chunk of a name.
Bytes chunkOfFfmpeg(const std::string& sOptions, const std::string& sFile, const std::string& sChunk) {
  const qm_test::TempDir dir;
  const std::string sCommand = "ffmpeg -v error -f lavfi " + sOptions + " " + dir.path(sFile) + " </dev/null";
  if (std::system(sCommand.c_str()) != 0) {
    ADD_FAILURE() << sCommand;
    return {};
  }
  const std::string sContent = qm_test::readFile(dir.path(sFile));
  const std::size_t at = sContent.find(sChunk);
  const std::size_t size = qm_platform::readLE32(sContent.data() + at + 4);
  return qm_test::bytesOf(qm_test::bytesOf(std::string_view(sContent).substr(at + 8, size)));
}

class InfoHeaders : public testing::Test {
 protected:
  const QMXmlUse m_use;
  const qm_test::LogCapture m_log;
};

TEST_F(InfoHeaders, BitmapHeadersOfFfmpegAreReadAndMade) {
  const struct {
    const char* name;
    const char* coding;
    const char* mime;
  } kRows[] = {
      {"Rgb", "rawvideo -pix_fmt bgr24", "video/x-VfW-RGB24"},
      {"Rgb16", "rawvideo -pix_fmt rgb555le", "video/x-VfW-RGB16"},
      {"Mjpeg", "mjpeg", "video/x-VfW-MJPG"},
      {"Mpeg4", "mpeg4", "video/x-VfW-FMP4"},
      {"H264", "libx264", "video/H264"},
  };
  for (const auto& row : kRows) {
    SCOPED_TRACE(row.name);
    const Bytes strf = chunkOfFfmpeg(
        "-i testsrc=size=66x48:rate=25 -frames:v 1 -c:v " + std::string(row.coding), "file.avi", "strf");
    ASSERT_GE(strf.size(), kBitmapHeaderSize);
    QMVideoInfo info;
    ASSERT_TRUE(info.updateFromBMI(strf, 0));
    EXPECT_EQ(info.getMIMEType(), row.mime);
    EXPECT_EQ(info.getWidth(), 66U);
    EXPECT_EQ(info.getHeight(), 48U);
    EXPECT_EQ(info.getVisibleRegion(), (VisibleRegion{0, 0, 66, 48}));
    EXPECT_EQ(info.getInterlace(), 100U);
    EXPECT_EQ(info.getPictureRate(), (Fraction{1, 1}));
    BitmapInfoHeader theirs = readBitmapHeader(strf.data());
    EXPECT_EQ(info.getNomMaxBitstreamSize(), theirs.biSizeImage + 100);
    if (info.getMIMEType().starts_with("video/x-VfW-")) {
      theirs.biSize = 40;  // what stands behind their header are coding parameters here
      theirs.biHeight = std::abs(theirs.biHeight);
      const Bytes ours = info.createBMI();
      ASSERT_EQ(ours.size(), kBitmapHeaderSize);
      if (theirs.biBitCount != 24 || theirs.biSizeImage != 66U * 48 * 3) {
        theirs.biSizeImage = 66U * 48 * theirs.biBitCount / 8;  // they count the padding of lines
      }
      EXPECT_EQ(readBitmapHeader(ours.data()), theirs);
    }
  }
}

TEST_F(InfoHeaders, WaveHeadersOfFfmpegAreReadAndMade) {
  const Bytes pcm =
      chunkOfFfmpeg("-i sine=duration=0.1:sample_rate=32000 -ac 2 -c:a pcm_s16le", "f.wav", "fmt ");
  QMAudioInfo info;
  ASSERT_TRUE(info.updateNotQMCIFromWFX(pcm));
  EXPECT_EQ(info.getMIMEType(), "audio/x-AfW-PCM");
  EXPECT_EQ(info.getPacketizedFormat(), "linear");
  EXPECT_EQ(info.getSamplingRate(), 32000U);
  const Bytes ours = info.createWFXWithCodingParams();
  EXPECT_EQ(Bytes(ours.begin(), ours.begin() + 16), pcm);
  EXPECT_EQ(ours.size(), 18U);

  // MPEG layer 3 has 12 extra bytes, and is read from its header.
  const Bytes mp3 = chunkOfFfmpeg("-i sine=duration=0.1 -c:a libmp3lame", "f.wav", "fmt ");
  ASSERT_EQ(readWaveHeader(mp3.data()).cbSize, 12U);
  ASSERT_TRUE(info.updateFromWFX(mp3));
  EXPECT_TRUE(m_log.has(9, "updateAudioInfoFromWFX(): file is not compressed with QMCI"));
  EXPECT_EQ(info.getCodingParams(), Bytes(mp3.begin() + 18, mp3.end()));
  EXPECT_EQ(info.getNumberOfChannels(), 1U);
  EXPECT_EQ(info.createWFXWithCodingParams().size(), 30U);
}

TEST_F(InfoHeaders, OwnCodingsTakeTheirInterlaceFromTheCaller) {
  const BitmapInfoHeader header{.biWidth = 720, .biHeight = 576, .biCompression = fourcc("QMV2")};
  QMVideoInfo info;
  ASSERT_TRUE(info.updateFromBMI(blockOf(header), QMCI_SEPARATE_FIELDS));
  EXPECT_TRUE(m_log.has(9, "updateVideoInfoFromBMI(): file is not compressed with QMCI"));
  EXPECT_TRUE(m_log.has(3, "updateVideoInfoFromBMI(): file compression is QMV2"));
  EXPECT_EQ(info.getMIMEType(), "video/x-qmv2");
  EXPECT_EQ(info.getPacketizedFormat(), "linear");
  EXPECT_EQ(info.getNomMaxBitstreamSize(), 0x20044U);
  EXPECT_EQ(info.getGDRPeriod(), 3);
  EXPECT_EQ(info.getDecoderPipe(), 2U);
  EXPECT_EQ(info.getInterlace(), 19U);
  EXPECT_EQ(info.getStreamParams(), "<CodingParams/>");
  ASSERT_TRUE(info.updateFromBMI(blockOf(header), 0));
  EXPECT_TRUE(m_log.has(11, "ASSERTION FAILED (eInterlace!=QMCI_NOT_INITIALIZED_INTERLACE)"));
}

TEST_F(InfoHeaders, OwnHeadersCarryTheXmlForm) {
  QMVideoInfo info;
  ASSERT_TRUE(info.updateFromBMI(blockOf({.biWidth = 720, .biHeight = 576, .biCompression = fourcc("QMV1")}),
                                 QMCI_TOP_FIELD));
  info.setInt("quality", 7);
  const Bytes bitmap = info.createBMI();
  EXPECT_EQ(readBitmapHeader(bitmap.data()).biCompression, fourcc("QMCI"));
  EXPECT_EQ(readBitmapHeader(bitmap.data()).biSize, bitmap.size());
  EXPECT_EQ(qm_test::textOf(std::span(bitmap).subspan(40)), info.getXML());
  QMVideoInfo again;
  ASSERT_TRUE(again.updateFromBMI(bitmap, 0));
  EXPECT_TRUE(info.isSameStream(again, false));
  EXPECT_EQ(again.getXML(), info.getXML());

  QMAudioInfo audio;
  const WaveFormatEx wave{.nChannels = 2, .nSamplesPerSec = 48000, .wBitsPerSample = 16};
  ASSERT_TRUE(audio.updateNotQMCIFromWFX(blockOf(wave)));
  audio.setSamplingsPerFrame(960);
  const Bytes own = audio.createWFX();
  EXPECT_EQ(own.size() % 2, 0U);
  const WaveFormatEx header = readWaveHeader(own.data());
  EXPECT_EQ(header.nBlockAlign, 4);
  EXPECT_EQ(header.nAvgBytesPerSec, 192000U);
  EXPECT_EQ(header.cbSize, audio.getXML().size());
  QMAudioInfo audioAgain;
  ASSERT_TRUE(audioAgain.updateFromWFX(own));
  EXPECT_EQ(audioAgain.getXML(), audio.getXML());
}

TEST_F(InfoHeaders, RgbKeepsItsBitsAndTurnsOver) {
  QMVideoInfo info;
  ASSERT_TRUE(info.updateFromBMI(blockOf({.biWidth = 10, .biHeight = 20, .biBitCount = 24}), 0));
  EXPECT_EQ(info.getMIMEType(), "video/x-VfW-WINRGB24");
  EXPECT_EQ(info.getNomMaxBitstreamSize(), 10U * 20 * 3 + 100);
  EXPECT_EQ(info.getGDRPeriod(), 0);
  const BitmapInfoHeader header = readBitmapHeader(info.createBMI().data());
  EXPECT_EQ(header.biHeight, -20);
  EXPECT_EQ(header.biBitCount, 24);
  EXPECT_EQ(header.biSizeImage, 600U);
  info.setMIMEType("video/x-VfW-WINRGB");
  EXPECT_EQ(thrownBy([&] { info.createBMI(); }), "invalid video/x-VfW-WINRGB MIME type");
  info.setMIMEType("video/x-VfW-RGB70000");
  EXPECT_EQ(thrownBy([&] { info.createBMI(); }), "invalid video/x-VfW-RGB MIME type");
  info.setMIMEType("video/x-VfW-RGB32");
  info.setWidth(0x7FFFFFFF);
  info.setHeight(0x7FFFFFFF);
  EXPECT_EQ(readBitmapHeader(info.createBMI().data()).biSizeImage, 0U) << "32 bits can't hold it";
  info.setHeight(0x80000000);
  EXPECT_NE(thrownBy([&] { info.createBMI(); }), "");
}

TEST_F(InfoHeaders, ShortAndNumericCodesComeBack) {
  for (const std::uint32_t uCode : {3U, fourcc("Y8  "), fourcc("abcd"), 0x00003859U}) {
    QMVideoInfo info;
    ASSERT_TRUE(info.updateFromBMI(blockOf({.biWidth = 4, .biHeight = 4, .biCompression = uCode}, ""), 0));
    EXPECT_EQ(readBitmapHeader(info.createBMI().data()).biCompression, uCode);
  }
}

TEST_F(InfoHeaders, BitCountFollowsFromTheNominalSize) {
  const struct {
    std::uint32_t uNominal;
    std::uint16_t wBits;
  } kRows[] = {{100 + 100 * 12 / 8, 12},
               {100 + 100 * 4, 32},
               {100 + 100, 8},
               {100 + 100 * 5, 0},
               {100 + 151, 0},
               {100, 0},
               {0, 0},
               {0xFFFFFFFF, 0}};
  QMVideoInfoNoXml info;
  info.setMIMEType("video/x-VfW-YV12");
  info.setWidth(10);
  info.setHeight(10);
  for (const auto& row : kRows) {
    info.setNomMaxBitstreamSize(row.uNominal);
    EXPECT_EQ(readBitmapHeader(info.createBMI().data()).biBitCount, row.wBits) << row.uNominal;
  }
  info.setWidth(0);
  EXPECT_EQ(readBitmapHeader(info.createBMI().data()).biBitCount, 0);
}

TEST_F(InfoHeaders, HostileBitmapHeadersAreRefused) {
  constexpr std::int32_t kMin = std::numeric_limits<std::int32_t>::min();
  constexpr std::int32_t kMax = std::numeric_limits<std::int32_t>::max();
  const struct {
    const char* name;
    BitmapInfoHeader header;
    bool bTaken;
  } kRows[] = {
      {"NoTwin", {.biWidth = 1, .biHeight = kMin, .biBitCount = 1}, false},
      {"NegativeWidth", {.biWidth = -1, .biHeight = 1}, false},
      {"Product", {.biWidth = kMax, .biHeight = kMax, .biBitCount = 65535}, false},
      {"ProductTopDown", {.biWidth = kMax, .biHeight = -kMax, .biBitCount = 1}, false},
      {"SizeImage", {.biWidth = 1, .biHeight = 1, .biSizeImage = 0xFFFFFFFF}, false},
      {"SizeBelowHeader", {.biSize = 39}, false},
      {"SizeOverMemory", {.biSize = 41}, false},
      {"SizeHuge", {.biSize = 0xFFFFFFFF}, false},
      {"NoForm", {.biCompression = fourcc("QMCI")}, false},
      {"Largest", {.biWidth = kMax, .biHeight = -1, .biBitCount = 8}, true},
      {"ProductGiven", {.biWidth = kMax, .biHeight = kMax, .biBitCount = 24, .biSizeImage = 1}, true},
  };
  for (const auto& row : kRows) {
    QMVideoInfo info;
    info.setDecoderPipe(77);
    EXPECT_EQ(info.updateFromBMI(blockOf(row.header), 0), row.bTaken) << row.name;
    EXPECT_EQ(info.getDecoderPipe(), row.bTaken ? 0U : 77U) << row.name;
  }
  QMVideoInfo info;
  const Bytes block = blockOf(BitmapInfoHeader{});
  for (std::size_t size = 0; size < 40; ++size) {
    EXPECT_FALSE(info.updateFromBMI(std::span(block).first(size), 0));
  }
}

TEST_F(InfoHeaders, HostileWaveHeadersAreRefused) {
  QMAudioInfo info;
  const Bytes block = blockOf({.cbSize = 12}, "123456789012");
  ASSERT_TRUE(info.updateFromWFX(block));
  for (std::size_t size = 0; size < block.size(); ++size) {
    EXPECT_FALSE(info.updateFromWFX(std::span(block).first(size))) << size;
  }
  EXPECT_FALSE(info.updateFromWFX(blockOf({.cbSize = 0}))) << "no XML form";
  EXPECT_TRUE(info.updateNotQMCIFromWFX(blockOf({.cbSize = 0})));
  info.setBitsPerSample(65535);
  info.setNumberOfChannels(65535);
  EXPECT_NE(thrownBy([&] { info.createWFX(); }), "");
  info.setNumberOfChannels(1);
  info.setSamplingRate(0xFFFFFFFF);
  EXPECT_NE(thrownBy([&] { info.createWFX(); }), "");
  info.setSamplingRate(1);
  info.setString("long", std::string(70000, 'x'));
  EXPECT_NE(thrownBy([&] { info.createWFX(); }), "");
}

TEST(FractionSearch, FindsTheSimplestFractionWithinTheTolerance) {
  constexpr double kTolerance = 5e-05;
  const struct {
    double value;
    double tolerance;
    std::uint32_t uNumerator, uDenominator;
  } kRows[] = {{25.0, kTolerance, 25, 1},
               {1.0, kTolerance, 1, 1},
               {0.0, kTolerance, 0, 1},
               {12.5, kTolerance, 25, 2},
               {29.97, kTolerance, 2997, 100},
               {30000.0 / 1001, 1e-9, 30000, 1001},
               {24000.0 / 1001, 1e-7, 24000, 1001},
               {1.0 / 3, kTolerance, 1, 3},
               {3.14159265, 0.01, 22, 7},
               {0.5, 0.0, 1, 2},
               {4294967295.0, 0.0, 4294967295U, 1}};
  for (const auto& row : kRows) {
    EXPECT_EQ(findFraction(row.value, row.tolerance), (Fraction{row.uNumerator, row.uDenominator}))
        << row.value;
  }
  const double kNone[] = {-1.0, 5e9, std::numeric_limits<double>::quiet_NaN(),
                          std::numeric_limits<double>::infinity()};
  for (const double value : kNone) {
    EXPECT_EQ(findFraction(value, kTolerance), std::nullopt) << value;
  }
  QMVideoInfoNoXml info;
  info.setPictureRate(50, 2);
  EXPECT_EQ(info.getPictureRate(), (Fraction{25, 1}));
  EXPECT_FALSE(info.setPictureRate(-1.0, kTolerance));
  EXPECT_EQ(info.getPictureRate(), (Fraction{25, 1}));
  info.setPictureRate(0, 0);
  EXPECT_EQ(info.getPictureRate(), (Fraction{0, 0}));
}

/// The smallest denominator of the fractions within a tolerance, found the long way.
std::uint32_t smallestDenominator(double value, double tolerance) {
  std::uint32_t uDenominator = 1;
  while (std::abs(std::round(value * uDenominator) / uDenominator - value) > tolerance) {
    ++uDenominator;
  }
  return uDenominator;
}

TEST(FractionSearch, AgreesWithASearchOfAllDenominators) {
  for (int i = 1; i < 4000; ++i) {
    const double value = i * 0.01237;
    const auto found = findFraction(value, 5e-05);
    ASSERT_TRUE(found.has_value());
    // A fraction on the very edge may fall on either side of it.
    EXPECT_GE(found->uDenominator, smallestDenominator(value, 5.00001e-05)) << value;
    EXPECT_LE(found->uDenominator, smallestDenominator(value, 4.99999e-05)) << value;
    EXPECT_LE(std::abs(double(found->uNumerator) / found->uDenominator - value), 5.00001e-05);
  }
}

}  // namespace
