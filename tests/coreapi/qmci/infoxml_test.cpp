#include <gmock/gmock.h>

#include "coreapi/qmci/audioinfo.h"
#include "coreapi/qmci/base64.h"
#include "coreapi/qmci/datainfo.h"
#include "coreapi/qmci/videoinfo.h"
#include "coreapi/qmxml/qmxml.h"
#include "tests/coreapi/qmci/infosupport.h"
#include "tests/support/logcapture.h"
#include "tests/support/xmllint.h"

namespace {

using namespace qm_ci;
using qm_test::bytesOf;
using qm_test::replaced;
using qm_test::thrownBy;
using testing::HasSubstr;

constexpr const char* kVideo =
    "<?xml version=\"1.0\"?>\n<VideoInfo version=\"1.0\">\n"
    "<FrameSize>\n\t<Width>720</Width>\n\t<Height>576</Height>\n</FrameSize>\n"
    "<PictureRate>\n\t<Num>25</Num>\n\t<Den>1</Den>\n</PictureRate>\n"
    "<StreamIndexStep>2</StreamIndexStep>\n<NomMaxBitstreamSize>9000</NomMaxBitstreamSize>\n"
    "<Interlace>SEPARATE_FIELDS</Interlace>\n"
    "<PixelAspectRatio>\n\t<Num>12</Num>\n\t<Den>11</Den>\n</PixelAspectRatio>\n"
    "<VisibleRegion>\n\t<Left>1</Left>\n\t<Top>2</Top>\n\t<Width>710</Width>\n\t<Height>570</Height>\n"
    "</VisibleRegion>\n<AccessInfo>\n\t<MaxNonDisposableAccLvl>3</MaxNonDisposableAccLvl>\n"
    "\t<GDRPeriod>-1</GDRPeriod>\n\t<DecoderPipe>2</DecoderPipe>\n\t<TimeReversed>1</TimeReversed>\n"
    "</AccessInfo>\n<MIMEType>video/x-qmv1</MIMEType>\n<PacketizedFormat>linear</PacketizedFormat>\n"
    "<StreamParams>\n\t<quality>7</quality><net><port>80</port></net>\n</StreamParams>\n</VideoInfo>";

constexpr const char* kAudio =
    "<AudioInfo version=\"1.0\">\n<SamplingRate>48000</SamplingRate>\n"
    "<SamplingsPerFrame>1152</SamplingsPerFrame>\n<NumberOfChannels>2</NumberOfChannels>\n"
    "<BitsPerSample>16</BitsPerSample>\n<NomMaxBitstreamSize>1952</NomMaxBitstreamSize>\n"
    "<MIMEType>audio/x-qmmp3</MIMEType>\n<PacketizedFormat>linear</PacketizedFormat>\n</AudioInfo>";

constexpr const char* kData =
    "<DataInfo version=\"1.0\">\n<NomMaxBitstreamSize>77</NomMaxBitstreamSize>\n"
    "<MIMEType>application/x</MIMEType>\n<StreamParams>\n\t<a/>\n</StreamParams>\n</DataInfo>";

/// The form of a description, and how its update calls itself in the log.
using Kind = std::pair<const char*, const char*>;

Kind kindOf(const QMVideoInfo&) {
  return {kVideo, "updateVideoInfoFromXMLDesc(): "};
}
Kind kindOf(const QMAudioInfo&) {
  return {kAudio, "updateAudioInfoFromXMLDesc(): "};
}
Kind kindOf(const QMDataInfo&) {
  return {kData, "updateDataInfoFromXMLDesc(): "};
}

bool update(QMVideoInfo& info, const std::string& sText) {
  return info.updateVideoInfoFromXMLDesc(sText.data(), sText.size());
}
bool update(QMAudioInfo& info, const std::string& sText) {
  return info.updateAudioInfoFromXMLDesc(sText.data(), sText.size());
}
bool update(QMDataInfo& info, const std::string& sText) {
  return info.updateDataInfoFromXMLDesc(sText.data(), sText.size());
}

template <typename Info>
class InfoXml : public testing::Test {
 protected:
  const QMXmlUse m_use;
  const std::string m_sForm = kindOf(Info()).first;
};

using Kinds = testing::Types<QMVideoInfo, QMAudioInfo, QMDataInfo>;
TYPED_TEST_SUITE(InfoXml, Kinds);

TYPED_TEST(InfoXml, ComesBackToTheCharacter) {
  TypeParam info;
  ASSERT_TRUE(update(info, this->m_sForm));
  EXPECT_EQ(info.getXML(), this->m_sForm);
  const TypeParam again(info.getCIInfo());
  EXPECT_EQ(again.getXML(), this->m_sForm);
  EXPECT_TRUE(info.isSameStream(again, true));
}

TYPED_TEST(InfoXml, SchemaAcceptsWhatTheLibrarysOwnProgramAccepts) {
  const std::string& sSchema = TypeParam::getSchema();
  const std::string& sForm = this->m_sForm;
  ASSERT_TRUE(qm_test::isRelaxNg(sSchema));
  const std::string kRows[] = {
      sForm,
      replaced(sForm, " version=\"1.0\"", ""),
      replaced(sForm, " version=\"1.0\"", " other=\"1\""),
      replaced(sForm, "<NomMaxBitstreamSize>", "<NomMaxBitstreamSize>-"),
      replaced(sForm, "<MIMEType>", "<MIMEType/><MIMEType>"),
      replaced(sForm, "</MIMEType>", "</MIMEType><StreamParams><a b='1'>t<c/></a></StreamParams>"),
      replaced(sForm, "</MIMEType>", "</MIMEType><StreamParams><a/>text<b/></StreamParams>"),
      replaced(sForm, "</MIMEType>",
               "</MIMEType><StreamParams><a/></StreamParams><StreamParams><b/></StreamParams>"),
      replaced(sForm, "Info>", "Info><none/>"),
      replaced(sForm, "<SamplingsPerFrame>1152", "<SamplingsPerFrame>0"),
      replaced(sForm, "<TimeReversed>1", "<TimeReversed>2"),
      replaced(sForm, "<GDRPeriod>-1</GDRPeriod>", ""),
      replaced(sForm, "<StreamIndexStep>2</StreamIndexStep>", ""),
  };
  for (const std::string& sText : kRows) {
    TypeParam info;
    EXPECT_EQ(update(info, sText), qm_test::validUnderRelaxNg(sText, sSchema)) << sText;
  }
}

TYPED_TEST(InfoXml, HoldsAsManyParametersAsATextCan) {
  std::string sParams = "<z/><!-- - -->";
  while (sParams.size() < 200000) {
    sParams += "<a/>";
  }
  TypeParam from;
  ASSERT_TRUE(update(from, this->m_sForm));
  ASSERT_TRUE(from.setStreamParams(sParams));
  TypeParam info;
  EXPECT_TRUE(update(info, from.getXML()));
  EXPECT_EQ(info.getStreamParams(), sParams);
}

TYPED_TEST(InfoXml, VersionsOfTheSameMajorAreRead) {
  const qm_test::LogCapture log;
  TypeParam info;
  EXPECT_TRUE(update(info, replaced(this->m_sForm, "info version=\"1.0\"", "info version=\"1.5\"")));
  EXPECT_TRUE(update(info, replaced(this->m_sForm, "Info version=\"1.0\"", "Info version=\"1.5\"")));
  EXPECT_FALSE(update(info, replaced(this->m_sForm, "Info version=\"1.0\"", "Info version=\"2.0\"")));
  EXPECT_THAT(log.messages().back().text, HasSubstr("(2.0 major version incompatible with 1.0)"));
  EXPECT_EQ(log.messages().back().level, 9);
}

TYPED_TEST(InfoXml, ABadFormChangesNothingAndSaysWhy) {
  TypeParam info;
  ASSERT_TRUE(update(info, this->m_sForm));
  const qm_test::LogCapture log;
  const std::string sOperation = kindOf(info).second;
  EXPECT_FALSE(update(info, ""));
  EXPECT_TRUE(log.has(9, sOperation + "xml setConfig failed"));
  EXPECT_FALSE(update(info, this->m_sForm.substr(0, this->m_sForm.size() - 1)));
  EXPECT_FALSE(update(
      info, replaced(this->m_sForm, "<NomMaxBitstreamSize>", "<NomMaxBitstreamSize>99999999999999999999")));
  EXPECT_TRUE(log.has(9, sOperation + "FALSE: no NomMaxBitstreamSize given !"));
  EXPECT_EQ(info.getXML(), this->m_sForm);
}

TEST(VideoInfoXml, EveryNumberTooLargeForItsFieldIsRefused) {
  const QMXmlUse use;
  const struct {
    const char* before;
    const char* message;
  } kRows[] = {{"<Width>", "Size: no Width given !"},
               {"<Height>", "Size: no Height given !"},
               {"<Num>", "PictureRate: no Num given !"},
               {"<Den>", "PictureRate: no Den given !"},
               {"<PixelAspectRatio>\n\t<Num>", "PixelAspectRatio: no Num given !"},
               {"<Left>", "VisibleRegion: no Left given !"},
               {"<Top>", "VisibleRegion: no Top given !"},
               {"<Top>2</Top>\n\t<Width>", "VisibleRegion: no Width given !"}};
  for (const auto& row : kRows) {
    const qm_test::LogCapture log;
    QMVideoInfo info;
    EXPECT_FALSE(update(info, replaced(kVideo, row.before, std::string(row.before) + "99999999999")));
    EXPECT_TRUE(log.has(9, std::string("updateVideoInfoFromXMLDesc(): FALSE: ") + row.message)) << row.before;
  }
}

TEST(VideoInfoXml, AccessInfoMayBeMissingAndTheVisibleRegionMayNot) {
  const QMXmlUse use;
  const std::string sForm = kVideo;
  const auto without = [&](const char* szElement) {
    const std::string sEnd = "</" + std::string(szElement) + ">";
    const std::size_t from = sForm.find("<" + std::string(szElement) + ">");
    return sForm.substr(0, from) + sForm.substr(sForm.find(sEnd) + sEnd.size());
  };
  QMVideoInfo info;
  info.setGDRPeriod(12);
  EXPECT_TRUE(update(info, without("AccessInfo")));
  EXPECT_EQ(info.getGDRPeriod(), 12);
  EXPECT_EQ(info.getInterlace(), 19U);
  EXPECT_EQ(info.getFieldsPerPicture(), 1U);
  EXPECT_FALSE(update(info, without("VisibleRegion")));
  const qm_test::LogCapture log;
  EXPECT_TRUE(update(info, without("PacketizedFormat")));
  EXPECT_TRUE(log.has(9, "updateVideoInfoFromXMLDesc(): No packetized format given !"));
  EXPECT_EQ(info.getPacketizedFormat(), "");
}

TEST(VideoInfoXml, WhatIsEmptyIsLeftOutAndMarkupIsEscaped) {
  const QMXmlUse use;
  QMVideoInfo info;
  info.setStreamIndexStep(0);
  const std::string sXML = info.getXML();
  for (const char* szElement :
       {"StreamIndexStep", "TimeReversed", "MIMEType", "PacketizedFormat", "StreamParams"}) {
    EXPECT_THAT(sXML, testing::Not(HasSubstr(szElement)));
  }
  ASSERT_TRUE(update(info, kVideo));
  info.setMIMEType("video/<&>");
  QMVideoInfo again;
  ASSERT_TRUE(update(again, info.getXML()));
  EXPECT_EQ(again.getMIMEType(), "video/<&>");
  info.setMIMEType("video/x-VfW-\x03\xff");
  EXPECT_THAT(info.getXML(), HasSubstr("<MIMEType>video/x-VfW-??</MIMEType>"));
}

TEST(AdditionalParams, AreTheRecordsTextInTypes) {
  const QMXmlUse use;
  QMVideoInfo info;
  ASSERT_TRUE(update(info, kVideo));
  EXPECT_EQ(info.getInt("quality"), 7);
  EXPECT_EQ(info.getInt("port", "net"), 80);
  EXPECT_EQ(thrownBy([&] { info.getInt("none", "net"); }),
            "XmlParamsError: Param none in SubNode StreamParams\\net");
  EXPECT_TRUE(info.setLong("port", 1LL << 40, "net"));
  EXPECT_TRUE(info.setDouble("rate", 2.5, "new\\path"));
  EXPECT_TRUE(info.setBool("on", true));
  EXPECT_TRUE(info.setString("name", "<camera & co>"));
  EXPECT_FALSE(info.setString("bad name", "x"));
  EXPECT_FALSE(info.setString("name", "\x01"));
  EXPECT_EQ(
      info.getStreamParams(),
      "<quality>7</quality><net><port>1099511627776</port></net><new><path><rate>2.5</rate></path></new>"
      "<on>true</on><name>&lt;camera &amp; co&gt;</name>");
  const QMVideoInfo again(info.getCIInfo());
  EXPECT_EQ(again.getLong("port", "net"), 1LL << 40);
  EXPECT_EQ(again.getDouble("rate", "new\\path"), 2.5);
  EXPECT_TRUE(again.getBool("on"));
  EXPECT_EQ(again.getString("name"), "<camera & co>");
  QMVideoInfo copy;
  copy = again;
  EXPECT_TRUE(copy.setInt("quality", 8));
  EXPECT_EQ(copy.getInt("quality"), 8);
  EXPECT_EQ(again.getInt("quality"), 7);
}

TEST(AdditionalParams, BinariesAreBase64) {
  const QMXmlUse use;
  QMAudioInfo info;
  const std::string sBytes("\0\xff\x10<", 4);
  EXPECT_TRUE(info.setBinary("b", bytesOf(sBytes)));
  EXPECT_EQ(info.getStreamParams(), "<b>AP8QPA==</b>");
  EXPECT_EQ(qm_test::textOf(info.getBinary("b")), sBytes);
  EXPECT_TRUE(info.setBinary("b", {}));
  EXPECT_EQ(info.getStreamParams(), "<b/>");
  EXPECT_TRUE(info.getBinary("b").empty());
  EXPECT_TRUE(info.setString("b", "no base64!"));
  EXPECT_NE(thrownBy([&] { info.getBinary("b"); }), "");

  info.setCodingParams(bytesOf(sBytes));
  QMAudioInfo again(info.getCIInfo());
  EXPECT_EQ(qm_test::textOf(again.getCodingParams()), sBytes);
  EXPECT_TRUE(again.setBinary("CodingParams", bytesOf(std::string("12"))));
  EXPECT_EQ(qm_test::textOf(again.getCodingParams()), "12");
  again.reset();
  EXPECT_EQ(again.getStreamParams(), "<CodingParams/>");
  EXPECT_TRUE(again.getCodingParams().empty());
}

TEST(AdditionalParams, TextThatIsNoXmlIsRefused) {
  const QMXmlUse use;
  const qm_test::LogCapture log;
  QMVideoInfoNoXml bad;
  bad.setStreamParams("<a>");
  QMVideoInfo info;
  info.setWidth(5);
  EXPECT_EQ(thrownBy([&] { info.init(bad.getCIInfo()); }), "QMVideoInfo::init(): xml setConfig failed");
  EXPECT_TRUE(log.has(9, "init(): xml additional parameters could no be retrieve"));
  EXPECT_EQ(info.getWidth(), 5U);
  EXPECT_FALSE(info.setStreamParams("</StreamParams>"));
  EXPECT_EQ(info.getStreamParams(), "");
  bad.setStreamParams("x");
  EXPECT_EQ(thrownBy([&] { info.init(bad.getCIInfo()); }), "") << "one character is no text of parameters";
}

TEST(Base64, IsThePublishedCoding) {
  // The examples of RFC 4648, section 10.
  const struct {
    const char* plain;
    const char* coded;
  } kRows[] = {{"", ""},
               {"f", "Zg=="},
               {"fo", "Zm8="},
               {"foo", "Zm9v"},
               {"foob", "Zm9vYg=="},
               {"fooba", "Zm9vYmE="},
               {"foobar", "Zm9vYmFy"}};
  for (const auto& row : kRows) {
    EXPECT_EQ(encodeBase64(bytesOf(std::string_view(row.plain))), row.coded);
    EXPECT_EQ(base64Size(std::string_view(row.plain).size()), std::string_view(row.coded).size() + 1);
    ASSERT_TRUE(decodeBase64(row.coded).has_value());
    EXPECT_EQ(qm_test::textOf(*decodeBase64(row.coded)), row.plain);
  }
  EXPECT_EQ(qm_test::textOf(*decodeBase64(" Zm\n9v\tYg = =\r\n")), "foob");
  for (const char* szBad :
       {"Z", "Zg", "Zg=", "Zg===", "Z===", "====", "Zg==Zg==", "Zg=a", "Zm9v!", "Zm9vY"}) {
    EXPECT_FALSE(decodeBase64(szBad).has_value()) << szBad;
  }
}

}  // namespace
