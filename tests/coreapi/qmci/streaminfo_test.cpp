#include "coreapi/qmci/streaminfo.h"

#include <functional>
#include <gmock/gmock.h>
#include <locale>
#include <sstream>
#include <vector>

#include "coreapi/platform/byteorder.h"
#include "coreapi/qmci/videoinfonoxml.h"
#include "coreapi/qmutils/params/jparams.h"
#include "tests/coreapi/qmci/streamsamples.h"
#include "tests/support/logcapture.h"

namespace qm_ci {
namespace {

using qm_platform::readLE32;
using qm_test::audioStream;
using qm_test::dataStream;
using qm_test::LogCapture;
using qm_test::thrownBy;
using qm_test::videoStream;
using qm_test::damage::audio;
using qm_test::damage::data;
using qm_test::damage::video;
using qm_test::damage::word;
using testing::StartsWith;

/// Prints 2,000 as 2.000.
struct ThousandsPoint : std::numpunct<char> {
  char do_thousands_sep() const override { return '.'; }
  std::string do_grouping() const override { return "\3"; }
};

std::string listing(const StreamInfo& info, bool bDetailed = false) {
  std::ostringstream stream;
  bDetailed ? info.toDetailedText(stream, "|") : info.toText(stream, "|");
  return stream.str();
}

TEST(StreamInfo, IsOneBlockOfDescriptionAndProperties) {
  const StreamInfo info = dataStream();
  EXPECT_EQ(info.getInfoSize(), 16U + 29 + 5 + 9) << "description and 9 bytes more";
  EXPECT_EQ(std::string(info.getBytes().begin() + 24, info.getBytes().end()),
            std::string("application/x-qmpluginstream\0<d/>\0\0", 29 + 5 + 1));
  EXPECT_EQ(readLE32(info.getBytes().data()), 4U);
  EXPECT_EQ(readLE32(info.getBytes().data() + 8), 25U);
  EXPECT_EQ(readLE32(info.getBytes().data() + 20), info.getInfoSize() - 9);
  EXPECT_EQ(info.getBytes().back(), 0);
  EXPECT_STREQ(info.getProperties(), "");

  const StreamInfo more = dataStream("a=1");
  EXPECT_EQ(more.getInfoSize(), info.getInfoSize() + 3);
  EXPECT_STREQ(more.getProperties(), "a=1");
  EXPECT_EQ(StreamInfo(more.getBytes()).getMIMEType(), "application/x-qmpluginstream");
}

TEST(StreamInfo, TellsKindAndRates) {
  const struct {
    const char* szName;
    StreamInfo info;
    bool bVideo, bAudio, bSynthetic;
    std::uint32_t uNumerator, uDenominator, uMaxFrame;
  } rows[] = {
      {"video", videoStream(), true, false, false, 25, 1, 1000},
      {"audio", audioStream(), false, true, false, 8000, 160, 640},
      {"data", dataStream(), false, false, false, 25, 2, 500},
      {"video as data", dataStream("", "Image/jpeg"), true, false, false, 25, 2, 500},
      {"audio as data", dataStream("", "AUDIO/x"), false, true, false, 25, 2, 500},
      {"synthetic", dataStream("", "application/x-qmsyntheticstream"), false, false, true, 25, 2, 500},
      {"no slash", dataStream("", "video"), false, false, false, 25, 2, 500},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.szName);
    std::uint32_t uNumerator = 0;
    std::uint32_t uDenominator = 0;
    row.info.getRate(uNumerator, uDenominator);
    EXPECT_EQ(row.info.isVideo(), row.bVideo);
    EXPECT_EQ(row.info.isAudio(), row.bAudio);
    EXPECT_EQ(row.info.isSynthetic(), row.bSynthetic);
    EXPECT_EQ(uNumerator, row.uNumerator);
    EXPECT_EQ(uDenominator, row.uDenominator);
    EXPECT_EQ(row.info.getMaxFrameSize(), row.uMaxFrame);
  }
}

TEST(StreamInfo, TimeBaseIsMillisecondsAFrameInBoundedNumbers) {
  std::uint64_t ullNumerator = 7;
  std::uint64_t ullDenominator = 7;
  dataStream().getTimeBase(&ullNumerator, &ullDenominator);
  EXPECT_EQ(ullNumerator, 25U);
  EXPECT_EQ(ullDenominator, 2000U);
  EXPECT_DOUBLE_EQ(dataStream().getFramePeriod(), 80.0);

  videoStream("", "video/x-qmv1", 5000000).getTimeBase(&ullNumerator, &ullDenominator);
  EXPECT_EQ(ullNumerator, 2500000U);
  EXPECT_EQ(ullDenominator, 500U);
  EXPECT_DOUBLE_EQ(videoStream("", "video/x-qmv1", 0).getFramePeriod(), 0.0);

  const LogCapture log;
  dataStream().getTimeBase(nullptr, &ullDenominator);
  EXPECT_TRUE(log.has(11, "ASSERTION FAILED (numerator && denominator)"));
}

TEST(StreamInfo, AuthenticationCanMakeFramesLarger) {
  const struct {
    const char* szProperties;
    std::uint32_t uAuth, uMax;
  } rows[] = {
      {"", 0, 1000},
      {"x=1", 0, 1000},
      {"AuthFrameSize=\"no\"", 0, 1000},
      {"AuthFrameSize=1000", 1000, 1000},
      {"AuthFrameSize=1001", 1001, 1069},
      {"AuthFrameSize=\"2000\"", 2000, 2068},
      {"AuthFrameSize=-1", 0, 1000},
      {"AuthFrameSize=99999999999", 0xFFFFFFFF, 0xFFFFFFFF},
      {"not a list", 0, 1000},
  };
  const LogCapture log;
  for (const auto& row : rows) {
    EXPECT_EQ(videoStream(row.szProperties).getAuthFrameSize(), row.uAuth) << row.szProperties;
    EXPECT_EQ(videoStream(row.szProperties).getMaxFrameSize(), row.uMax) << row.szProperties;
  }
}

TEST(StreamInfo, PropertiesGrowAndAreRead) {
  JParams params;
  params.add("PlayRateNumerator", 3);
  const StreamInfo one = dataStream().withProperties(params);
  EXPECT_STREQ(one.getProperties(), "PlayRateNumerator=3");
  std::int32_t iNumerator = -1;
  std::int32_t iDenominator = -1;
  EXPECT_FALSE(one.getPlayRate(iNumerator, iDenominator));
  EXPECT_EQ(iNumerator, -1);
  EXPECT_STREQ(one.withProperties(JParams()).getProperties(), "PlayRateNumerator=3");

  params.clear();
  params.add("PlayRateDenominator", 2);
  const StreamInfo both = one.withProperties(params);
  EXPECT_STREQ(both.getProperties(), "PlayRateNumerator=3,PlayRateDenominator=2");
  EXPECT_EQ(both.getInfoSize(), readLE32(both.getBytes().data() + 4));
  EXPECT_EQ(both.getMIMEType(), one.getMIMEType());
  EXPECT_TRUE(both.getPlayRate(iNumerator, iDenominator));
  EXPECT_EQ(iNumerator, 3);
  EXPECT_EQ(iDenominator, 2);

  EXPECT_EQ(thrownBy([&] { both.getProperties(nullptr); }), "NULL pointer");
}

TEST(StreamInfo, StoresTheNominalFrameSizeOfMediaOnly) {
  StreamInfo video = videoStream();
  StreamInfo audio = audioStream();
  StreamInfo data = dataStream();
  for (StreamInfo* pInfo : {&video, &audio, &data}) {
    pInfo->setNomMaxBitstreamSize(77);
  }
  EXPECT_EQ(video.getMaxFrameSize(), 77U);
  EXPECT_EQ(audio.getMaxFrameSize(), 77U);
  EXPECT_EQ(data.getMaxFrameSize(), 500U);
}

TEST(StreamInfo, UnknownTypeIsKeptButNotRead) {
  const LogCapture log;
  std::vector<std::uint8_t> bytes = {3, 0, 0, 0, 9, 0, 0, 0, 'x', 'y'};
  const StreamInfo info(bytes);
  EXPECT_EQ(info.getInfoSize(), 9U);
  EXPECT_EQ(info.getMIMEType(), "");
  EXPECT_EQ(info.getProperties(), nullptr);
  EXPECT_EQ(info.getMaxFrameSize(), 0U);
  EXPECT_EQ(info.getFramePeriod(), 0.0);
  EXPECT_FALSE(info.getVideoInfo() || info.getAudioInfo() || info.getDataInfo() || info.getStreamDataInfo());
  for (const char* szText :
       {"Content is not video", "Content is not audio", "Content is not data", "Unknown type"}) {
    EXPECT_TRUE(log.has(11, szText)) << szText;
  }
  EXPECT_EQ(thrownBy([&] { info.withProperties(JParams()); }), "invalid StreamInfo type");
  EXPECT_EQ(listing(info), "type=Unknown|infoSize=9|properties=\"\"|");
}

/// Damage done to a good record, which must then be refused.
struct DamageCase {
  const char* name;
  StreamInfo (*make)();
  std::function<void(std::vector<std::uint8_t>&)> damage;
};

TEST(DamagedStreamInfo, IsLoggedAndRefused) {
  const DamageCase rows[] = {
      {"Empty", video, [](auto& bytes) { bytes.clear(); }},
      {"SevenBytes", video, [](auto& bytes) { bytes.resize(7); }},
      {"SizeZero", video, word(4, 0)},
      {"SizeTooLarge", video, word(4, 0xFFFFFFFF)},
      {"OneByteShort", video, [](auto& bytes) { bytes.pop_back(); }},
      {"NoRoomForProperties", data,
       [](auto& bytes) { qm_platform::writeLE32(&bytes[4], 8 + readLE32(&bytes[8 + 12])); }},
      {"PropertiesWithoutZero", audio, [](auto& bytes) { bytes.back() = 'x'; }},
      {"VideoSize", video, word(8, 0x7FFFFFFF)},
      {"VideoSizeZero", video, word(8, 0)},
      {"VideoMimeOffset", video, word(8 + 76, 0xFFFFFFFF)},
      {"VideoParamsOffset", video, word(8 + 84, 0xFFFFFFFF)},
      {"AudioSize", audio, word(8, 0xFFFFFFF8)},
      {"AudioMimeOffset", audio, word(8 + 24, 0x80000000)},
      {"DataSize", data, word(8 + 12, 0xFFFFFFFF)},
      {"DataSizeZero", data, word(8 + 12, 0)},
      {"DataMimeWithoutZero", data, word(8 + 12, 18)},
      {"DataDescriptionWithoutZero", data, word(8 + 12, 16 + 29 + 4)}};
  for (const DamageCase& row : rows) {
    SCOPED_TRACE(row.name);
    const LogCapture log;
    const StreamInfo good = row.make();
    std::vector<std::uint8_t> bytes(good.getBytes().begin(), good.getBytes().end());
    row.damage(bytes);
    bytes.shrink_to_fit();
    EXPECT_NE(thrownBy([&] { StreamInfo{bytes}; }), "");
    ASSERT_FALSE(log.messages().empty());
    EXPECT_THAT(log.messages()[0].text, StartsWith("ASSERTION FAILED ("));
  }
}

struct CompatibleCase {
  const char* name;
  StreamInfo one;
  StreamInfo other;
  const char* difference;  ///< "" when there is none
};

StreamInfo withParams(const char* szParams) {
  StreamInfo info = videoStream();
  QMVideoInfoNoXml changed(info.getBytes().subspan(8));
  changed.setStreamParams(szParams);
  return makeStreamInfo(QMCIVideoInfo(changed.getCIInfo()));
}

TEST(StreamCompatibility, NamesTheFirstDifferenceAndLogsBoth) {
  const CompatibleCase rows[] = {
      {"Same", videoStream("a=1"), videoStream("a=1"), ""},
      {"MimeType", videoStream(), audioStream(),
       "MIME type [\"video/x-qmv1\" != \"audio/x-qmpcm-internal\"]"},
      {"Type", videoStream(), dataStream("", "video/x-qmv1"), "type [1 != 4]"},
      {"GenericFields", videoStream(), videoStream("", "video/x-qmv1", 30), "generic fields"},
      {"StreamParams", withParams("<Quality>1234567890123456789012345678901</Quality>"),
       withParams("<Quality>7</Quality>"),
       "XML stream params [\"123456789012345678901234567890\" != \"7</Quality>\"]"},
      {"DataInfo", dataStream("", "x/y", "<a/>"), dataStream("", "x/y", "<b/>"), "data info"},
      {"Properties", dataStream("a=1"), dataStream("a=2"), "on properties"}};
  for (const CompatibleCase& row : rows) {
    SCOPED_TRACE(row.name);
    const LogCapture log;
    const StreamInfo& one = row.one;
    const StreamInfo& other = row.other;
    const std::string sDifference = row.difference;
    EXPECT_EQ(one.isCompatible(&other, false), sDifference.empty());
    if (!sDifference.empty()) {
      const std::string sText = "Incompatible stream: differing " + sDifference;
      EXPECT_EQ(thrownBy([&] { one.checkCompatible(&other, false); }), sText);
      ASSERT_THAT(log.messages(), testing::SizeIs(4));
      EXPECT_EQ(log.messages()[2].text, sText);
      EXPECT_EQ(log.messages()[2].level, 10);
      EXPECT_EQ(log.messages()[2].tag, "Exception CATCH");
      EXPECT_EQ(log.messages()[3].level, 1);
      EXPECT_THAT(log.messages()[3].text, StartsWith("Current stream:\r\ntype="));
      EXPECT_THAT(log.messages()[3].text, testing::HasSubstr("\"\r\n\r\nOther stream:\r\ntype="));
      EXPECT_TRUE(log.messages()[3].text.ends_with("\"\r\n\r\n"));
    }
    EXPECT_EQ(one.isCompatible(&other, true), one.getMIMEType() == other.getMIMEType());
  }
}

TEST(StreamInfo, ListingsKeepTheirLabelsWhateverTheHostsLocale) {
  const std::locale previous = std::locale::global(std::locale(std::locale(), new ThousandsPoint));
  EXPECT_EQ(listing(dataStream("a=1", "x/y", std::string(2000, 'd'))),
            "type=Data|infoSize=2033|fps=12.50|ledwFPSNum=25|ledwFPSDen=2|ledwFrameSize=500|ledwSize=2021|"
            "type=x/y|description=" +
                std::string(2000, 'd') + "|properties=\"a=1\"|");
  std::locale::global(previous);
  EXPECT_EQ(listing(dataStream("", "x/y", "<d/>"), true),
            "Type=\"Data\"|InfoSize=\"34\"|Fps=12.50|FpsNumerator=25|FpsDenominator=2|MaxFrameSize=500|"
            "DataInfoSize=25|MIMEType=\"x/y\"|Description=\"<d/>\"|Properties=\"\"|");
  const StreamInfo video = videoStream("a=1");
  EXPECT_EQ(listing(video), "type=Video|infoSize=" + std::to_string(video.getInfoSize()) +
                                "|MIMEType=\"video/x-qmv1\"|XMLDescription=\"" +
                                QMVideoInfoNoXml(video.getBytes().subspan(8)).getXML() +
                                "\"|XMLStreamParams=\"<Quality>7</Quality>\"|properties=\"a=1\"|");
}

}  // namespace
}  // namespace qm_ci
