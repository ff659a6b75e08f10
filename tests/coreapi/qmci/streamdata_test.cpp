#include <gmock/gmock.h>

#include "coreapi/qmci/datainfonoxml.h"
#include "coreapi/qmci/streaminfo.h"
#include "coreapi/qmci/videoinfonoxml.h"
#include "coreapi/qmxml/qmxml.h"
#include "tests/coreapi/qmci/streamsamples.h"
#include "tests/support/logcapture.h"
#include "tests/support/xmllint.h"

namespace qm_ci {
namespace {

using qm_test::dataStream;
using qm_test::LogCapture;
using testing::StartsWith;

/// A bitmap description with some of its fields and what follows them.
std::string bitmapXML(const std::string& sBits, const std::string& sCompression = "0",
                      const std::string& sUsed = "0", const std::string& sBehind = "") {
  return "<BITMAPINFOHEADER><biSize>40</biSize><biWidth>16</biWidth><biHeight>-8</biHeight>"
         "<biPlanes>1</biPlanes><biBitCount>" +
         sBits + "</biBitCount><biCompression>" + sCompression +
         "</biCompression><biSizeImage>384</biSizeImage><biXPelsPerMeter>0</biXPelsPerMeter>"
         "<biYPelsPerMeter>0</biYPelsPerMeter><biClrUsed>" +
         sUsed + "</biClrUsed><biClrImportant>0</biClrImportant>" + sBehind + "</BITMAPINFOHEADER>";
}

const std::string kColor = "<color><red>1</red><green>2</green><blue>3</blue></color>";
const std::string kWave =
    "<WAVEFORMATEX><wFormatTag>1</wFormatTag><nChannels>1</nChannels><nSamplesPerSec>8000</nSamplesPerSec>"
    "<nAvgBytesPerSec>8000</nAvgBytesPerSec><nBlockAlign>1</nBlockAlign><wBitsPerSample>8</wBitsPerSample>"
    "<cbSize>0</cbSize>";

struct DataInfoCase {
  const char* name;
  const char* mime;
  std::string xml;
  bool valid;
};

class DataInfoSchema : public testing::TestWithParam<DataInfoCase> {
 protected:
  const QMXmlUse m_xml;
};

TEST_P(DataInfoSchema, AgreesWithTheXmlLibrarysOwnProgram) {
  const LogCapture log;
  const auto info = makeDataInfo(GetParam().mime, GetParam().xml, 25, 1, 99);
  EXPECT_EQ(info.has_value(), GetParam().valid);
  EXPECT_EQ(log.has(11, "Invalid data description"), !GetParam().valid);
  const std::string sMIMEType = GetParam().mime;
  if (!sMIMEType.starts_with("application")) {
    const bool bVideo = sMIMEType.starts_with("video");
    EXPECT_EQ(qm_test::validUnderXmlSchema(
                  GetParam().xml, std::string(bVideo ? kBitmapInfoHeaderSchema : kWaveFormatExSchema)),
              GetParam().valid);
  }
}

INSTANTIATE_TEST_SUITE_P(
    StreamDataInfo, DataInfoSchema,
    testing::Values(
        DataInfoCase{"Bitmap", "video/x-test", bitmapXML("24"), true},
        DataInfoCase{
            "EveryPart", "video/x-test",
            bitmapXML("4", "3", "1",
                      "<colorMasks><red>1</red><green>2</green><blue>3</blue></colorMasks><colorTable>" +
                          kColor + "</colorTable><extraInformation>AAEC</extraInformation>"),
            true},
        DataInfoCase{"NegativeWord", "video/x-test", bitmapXML("-1"), false},
        DataInfoCase{"EmptyTable", "video/x-test", bitmapXML("8", "0", "0", "<colorTable/>"), false},
        DataInfoCase{
            "MasksBehindTable", "video/x-test",
            bitmapXML("8", "0", "0",
                      "<colorTable>" + kColor +
                          "</colorTable><colorMasks><red>1</red><green>2</green><blue>3</blue></colorMasks>"),
            false},
        DataInfoCase{"NotBase64", "video/x-test",
                     bitmapXML("24", "0", "0", "<extraInformation>A</extraInformation>"), false},
        DataInfoCase{"MissingField", "video/x-test", "<BITMAPINFOHEADER/>", false},
        DataInfoCase{"NotXml", "video/x-test", "", false},
        DataInfoCase{"WaveAsVideo", "video/x-test", kWave + "</WAVEFORMATEX>", false},
        DataInfoCase{"Wave", "audio/x-test", kWave + "</WAVEFORMATEX>", true},
        DataInfoCase{"WaveExtra", "audio/x-test",
                     kWave + "<extraInformation>AA==</extraInformation></WAVEFORMATEX>", true},
        DataInfoCase{"WaveUnknownField", "audio/x-test", kWave + "<other/></WAVEFORMATEX>", false},
        DataInfoCase{"OtherTypesAreNotChecked", "application/x", "", true}),
    [](const auto& row) { return std::string(row.param.name); });

TEST(StreamDataInfo, LowersTheFirstPartOfItsType) {
  const QMXmlUse xml;
  const std::string sLong = "APPLICATION/" + std::string(300, 'X');
  const auto info = makeDataInfo(sLong, "<D/>", 30000, 1001, 7);
  ASSERT_TRUE(info);
  const StreamDataInfo read(*info);
  EXPECT_EQ(read.getMIMEType(), "application/" + std::string(243, 'x') + std::string(57, 'X'));
  EXPECT_EQ(read.getDescription(), "<D/>");
  EXPECT_EQ(read.getSize(), 312 + 4 + 18U);
  EXPECT_EQ(read.getFPSNum(), 30000U);
  EXPECT_EQ(read.getFPSDen(), 1001U);
  EXPECT_EQ(read.getFrameSize(), 7U);

  const LogCapture log;
  EXPECT_FALSE(makeDataInfo("VIDEO/X", "<other/>", 1, 1, 1)) << "the schema is found by the lowered type";
  ASSERT_EQ(log.messages().size(), 2U);
  EXPECT_THAT(log.messages()[0].text, StartsWith("Validation failed: "));
  EXPECT_FALSE(makeDataInfo("video/x", "<", 1, 1, 1));
  EXPECT_THAT(log.messages()[2].text, StartsWith("An error occured during the validation: "));
}

TEST(StreamDataInfo, BitmapDescriptionBecomesAVideoDescription) {
  const QMXmlUse xml;
  const auto info =
      dataStream("", "video/x-test", "<?xml version=\"1.0\"?>\n" + bitmapXML("24")).getVideoInfo();
  ASSERT_TRUE(info);
  const QMVideoInfoNoXml video(*info);
  EXPECT_EQ(video.getMIMEType(), "video/x-VfW-RGB24");
  EXPECT_EQ(video.getWidth(), 16U);
  EXPECT_EQ(video.getHeight(), 8U);
  EXPECT_EQ(video.getNomMaxBitstreamSize(), 484U);
}

TEST(StreamDataInfo, MasksTableAndExtraBytesBecomeCodingParameters) {
  const QMXmlUse xml;
  const std::string sBehind =
      "<colorMasks><red>258</red><green>0</green><blue>4294967295</blue></colorMasks>"
      "<colorTable>" +
      kColor + kColor + "</colorTable><extraInformation>/+8=</extraInformation>";
  const auto info = dataStream("", "video/x-test", bitmapXML("1", "3", "0", sBehind)).getVideoInfo();
  ASSERT_TRUE(info);
  // 02 01 00 00, 00 00 00 00, FF FF FF FF; 03 02 01 00 twice; FF EF
  EXPECT_THAT(std::string(QMVideoInfoNoXml(*info).getStreamParams()),
              testing::HasSubstr("AgEAAAAAAAD/////AwIBAAMCAQD/7w=="));
}

TEST(StreamDataInfo, ColorTableMustBeOfItsSize) {
  const QMXmlUse xml;
  const struct {
    const char* szBits;
    const char* szUsed;
    int nColors, nExpected;
  } rows[] = {{"24", "0", 0, 0}, {"24", "0", 1, 0},          {"1", "0", 2, 2},   {"1", "0", 1, 2},
              {"8", "3", 3, 3},  {"8", "4294967295", 3, -1}, {"8", "0", 3, 256}, {"0", "0", 0, 0}};
  for (const auto& row : rows) {
    SCOPED_TRACE(std::string(row.szBits) + " " + row.szUsed + " " + std::to_string(row.nColors));
    const LogCapture log;
    std::string sTable;
    for (int i = 0; i < row.nColors; ++i) {
      sTable += kColor;
    }
    const auto info =
        dataStream("", "video/x",
                   bitmapXML(row.szBits, "0", row.szUsed, "<colorTable>" + sTable + "</colorTable>"))
            .getVideoInfo();
    EXPECT_EQ(info.has_value(), row.nColors == row.nExpected);
    if (!info) {
      EXPECT_TRUE(log.has(11, "Invalid color table size! Found " + std::to_string(row.nColors) +
                                  " entries whereas there should be " +
                                  std::to_string(static_cast<unsigned>(row.nExpected)) + " entries"));
    }
  }
}

TEST(StreamDataInfo, BadXmlGivesNoVideoDescription) {
  const QMXmlUse xml;
  for (const std::string& sXML :
       {std::string(), std::string("<BITMAPINFOHEADER>"), std::string("<other/>"), bitmapXML("x"),
        bitmapXML("24", "0", "0", "<extraInformation>!</extraInformation>"), bitmapXML("16", "3")}) {
    const LogCapture log;
    EXPECT_FALSE(dataStream("", "video/x", sXML).getVideoInfo()) << sXML;
    ASSERT_FALSE(log.messages().empty());
    EXPECT_THAT(log.messages().back().text,
                StartsWith("An error occured during the parsing of the data description: "));
  }
}

TEST(StreamDataInfo, OtherFormsOfADescription) {
  const LogCapture log;
  const StreamInfo data = dataStream("", "audio/x", "<d/>");
  EXPECT_FALSE(data.getAudioInfo());
  const auto info = data.getDataInfo();
  ASSERT_TRUE(info);
  EXPECT_EQ(QMCIDataInfo(*info).getMIMEType(), "audio/x");
  EXPECT_EQ(QMCIDataInfo(*info).getStreamParams(), "<d/>");
  EXPECT_EQ(QMCIDataInfo(*info).getNomMaxBitstreamSize(), 500U);
  const auto raw = data.getStreamDataInfo();
  ASSERT_TRUE(raw);
  EXPECT_EQ(StreamDataInfo(*raw).getFPSNum(), 25U);

  const StreamInfo again = makeStreamInfoFromData(QMDataInfoNoXml(*info), "p=1");
  EXPECT_EQ(again.getMaxFrameSize(), 500U);
  EXPECT_DOUBLE_EQ(again.getFramePeriod(), 1000.0);
  EXPECT_STREQ(again.getProperties(), "p=1");

  EXPECT_TRUE(qm_test::audioStream().getAudioInfo());
  EXPECT_EQ(qm_test::videoStream().getVideoInfo()->size(), qm_test::videoStream().getInfoSize() - 9);
  EXPECT_FALSE(qm_test::videoStream().getStreamDataInfo());
}

}  // namespace
}  // namespace qm_ci
