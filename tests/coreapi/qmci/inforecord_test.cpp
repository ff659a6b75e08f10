#include <cstring>
#include <gmock/gmock.h>

#include "coreapi/qmci/audioinfo.h"
#include "coreapi/qmci/datainfo.h"
#include "coreapi/qmci/videoinfo.h"
#include "coreapi/qmxml/qmxml.h"
#include "tests/coreapi/qmci/infosupport.h"
#include "tests/support/logcapture.h"

namespace {

using namespace qm_ci;
using qm_platform::readLE32;
using qm_test::Bytes;
using qm_test::bytesOf;
using qm_test::thrownBy;
using qm_test::withWord;

/// A video record as a file has it, written by hand.
Bytes videoRecord() {
  static constexpr std::uint32_t kWords[22] = {120, 0x10000, 720, 576, 25, 1, 9000, 20, 12, 11,  1,
                                               2,   710,     570, 3,   5,  4, 2,    1,  88, 101, 108};
  Bytes block(120);
  for (std::size_t i = 0; i < std::size(kWords); ++i) {
    qm_platform::writeLE32(block.data() + 4 * i, kWords[i]);
  }
  std::memcpy(block.data() + 88, "video/x-qmv1\0linear\0 <a>1</a>\n", 31);
  return block;
}

TEST(InfoRecord, DefaultsAreAsFilesHaveThem) {
  const QMVideoInfoNoXml video;
  Bytes expected(188);
  for (const auto& [at, uValue] : {std::pair<std::size_t, std::uint32_t>{0, 188},
                                   {4, 0x10000},
                                   {32, 99},
                                   {36, 99},
                                   {60, 1},
                                   {64, 0xFFFFFFFF},
                                   {76, 88},
                                   {80, 158},
                                   {84, 187}}) {
    expected = withWord(std::move(expected), at, uValue);
  }
  EXPECT_EQ(bytesOf(video.getCIInfo()), expected);
}

TEST(InfoRecord, VideoIsReadFieldByField) {
  const Bytes record = videoRecord();
  const QMVideoInfoNoXml info(record);
  EXPECT_EQ(info.getVersion(), 0x10000U);
  EXPECT_EQ(info.getWidth(), 720U);
  EXPECT_EQ(info.getHeight(), 576U);
  EXPECT_EQ(info.getPictureRate(), (Fraction{25, 1}));
  EXPECT_EQ(info.getNomMaxBitstreamSize(), 9000U);
  EXPECT_EQ(info.getInterlace(), 20U);
  EXPECT_EQ(info.getFieldsPerPicture(), 2U);
  EXPECT_EQ(info.getPixelAspectRatio(), (Fraction{12, 11}));
  EXPECT_EQ(info.getVisibleRegion(), (VisibleRegion{1, 2, 710, 570}));
  EXPECT_EQ(info.getMaxNonDisposableAccLvl(), 3U);
  EXPECT_EQ(info.getStreamIndexStep(), 5U);
  EXPECT_EQ(info.getGDRPeriod(), 4);
  EXPECT_EQ(info.getDecoderPipe(), 2U);
  EXPECT_TRUE(info.getTimeReversed());
  EXPECT_EQ(info.getMIMEType(), "video/x-qmv1");
  EXPECT_EQ(info.getCodingName(), "x-qmv1");
  EXPECT_EQ(info.getPacketizedFormat(), "linear");
  EXPECT_EQ(info.getStreamParams(), "<a>1</a>");
  const QMCIVideoInfo view(record);
  EXPECT_EQ(view.getStreamParams(), " <a>1</a>\n");
  EXPECT_EQ(view.getDecoderPipe(), 2U);
}

TEST(InfoRecord, InitRewritesTheTextsAndGrows) {
  QMVideoInfoNoXml info(videoRecord(), "video/x-qmv2-longer", "rtp");
  EXPECT_EQ(info.getSize(), 120U + 7) << "the growth of the longer text alone";
  const std::uint8_t* pBlock = info.getCIInfo().data();
  EXPECT_EQ(readLE32(pBlock + 76), 88U);
  EXPECT_EQ(readLE32(pBlock + 80), 88U + 20);
  EXPECT_EQ(readLE32(pBlock + 84), 88U + 20 + 4);
  EXPECT_STREQ(reinterpret_cast<const char*>(pBlock) + 112, "<a>1</a>");
  info.init(videoRecord(), nullptr, nullptr, 500);
  EXPECT_EQ(info.getSize(), 500U);
  EXPECT_EQ(info.getAllocatedSize(), 500U);
  info.init(info.getCIInfo(), "m");
  EXPECT_EQ(info.getMIMEType(), "m");
  EXPECT_EQ(info.getSize(), 500U);
}

TEST(InfoRecord, TextsThatOutgrowTheBlockGiveItRoom) {
  QMAudioInfoNoXml info;
  const std::string sLong(200, 'x');
  info.setMIMEType(sLong + "\0hidden");
  EXPECT_EQ(info.getSize(), 36U + 200 + 3 + 20);
  info.setPacketizedFormat("12345678901234567890");
  EXPECT_EQ(info.getSize(), 36U + 200 + 3 + 20);
  info.setMIMEType("audio/a");
  EXPECT_EQ(info.getSize(), 36U + 200 + 3 + 20);
  const QMAudioInfoNoXml again(info.getCIInfo());
  EXPECT_EQ(again.getMIMEType(), "audio/a");
  EXPECT_EQ(again.getPacketizedFormat(), "12345678901234567890");
  EXPECT_EQ(qm_test::textOf(info.getCIInfo()).find("xxx"), std::string::npos);
}

struct HostileCase {
  const char* name;
  std::size_t at;
  std::uint32_t uValue;
  bool bAccepted;
};

TEST(HostileInfoRecord, IsRefusedOrReadInside) {
  const HostileCase rows[] = {{"SizeZero", 0, 0, false},
                              {"SizeBelowFixedPart", 0, 87, false},
                              {"SizeOverMemory", 0, 121, false},
                              {"SizeHuge", 0, 0xFFFFFFFF, false},
                              {"MimeInFixedPart", 76, 87, false},
                              {"MimeAtEnd", 76, 120, false},
                              {"MimeHuge", 76, 0xFFFFFFF0, false},
                              {"FormatZero", 80, 0, false},
                              {"FormatAtEnd", 80, 120, false},
                              {"ParamsZero", 84, 0, false},
                              {"ParamsHuge", 84, 0x80000000, false},
                              {"ParamsLastByte", 84, 119, true},
                              {"TextsOverlap", 76, 90, true},
                              {"TextsPointAtEachOther", 80, 88, true}};
  for (const HostileCase& row : rows) {
    SCOPED_TRACE(row.name);
    const qm_test::LogCapture log;
    const Bytes record = withWord(videoRecord(), row.at, row.uValue);
    QMVideoInfoNoXml info;
    info.setWidth(77);
    const std::string sFailure = thrownBy([&] { info.init(record); });
    EXPECT_EQ(sFailure, row.bAccepted ? "" : "invalid QMCIVideoInfo record");
    EXPECT_EQ(info.getWidth(), row.bAccepted ? 720U : 77U);
    EXPECT_EQ(log.messages().size(), row.bAccepted ? 0U : 1U);
  }
}

TEST(InfoRecord, ATextWithoutItsZeroIsRefused) {
  Bytes record = videoRecord();
  std::fill(record.begin() + 101, record.end(), 'x');
  EXPECT_NE(thrownBy([&] { QMVideoInfoNoXml{record}; }), "");
  record[119] = 0;
  EXPECT_EQ(thrownBy([&] { QMVideoInfoNoXml{record}; }), "");
  for (std::size_t size = 0; size < 120; ++size) {
    EXPECT_NE(thrownBy([&] { QMVideoInfoNoXml{std::span(record).first(size)}; }), "") << size;
  }
}

TEST(InfoRecord, ThreeTextsInOnePlaceStillFit) {
  Bytes record(300, 'x');
  record = withWord(std::move(record), 0, 300);
  for (const std::size_t at : {76U, 80U, 84U}) {
    record = withWord(std::move(record), at, 88);
  }
  record[299] = 0;
  const QMVideoInfoNoXml info(record);
  EXPECT_EQ(info.getSize(), 88U + 3 * 212);
  EXPECT_EQ(info.getStreamParams(), std::string(211, 'x'));
}

TEST(InfoRecord, DataRecordsHaveTheirOwnBounds) {
  QMDataInfoNoXml info;
  info.setMIMEType("application/x");
  info.setStreamParams(" <p/> ");
  info.setNomMaxBitstreamSize(5);
  const Bytes record = bytesOf(info.getCIInfo());
  EXPECT_EQ(QMDataInfoNoXml(record).getStreamParams(), "<p/>");
  EXPECT_EQ(QMDataInfoNoXml(record, "other").getMIMEType(), "other");
  EXPECT_NE(thrownBy([&] { QMDataInfoNoXml bad(withWord(record, 12, 19)); }), "");
  EXPECT_NE(thrownBy([&] { QMDataInfoNoXml bad(withWord(record, 16, 20)); }), "");
}

TEST(InfoRecord, SameStreamsAreTold) {
  const QMXmlUse use;
  static constexpr VisibleRegion kMoved{0, 2, 710, 570};
  static constexpr Fraction kSquare{12, 12};
  static constexpr Fraction kUnreduced{24, 22};
  const struct {
    const char* name;
    void (*change)(QMVideoInfoNoXml&);
    bool same;
  } kRows[] = {
      {"Nothing", [](QMVideoInfoNoXml&) {}, true},
      {"Width", [](QMVideoInfoNoXml& info) { info.setWidth(1); }, false},
      {"Height", [](QMVideoInfoNoXml& info) { info.setHeight(1); }, false},
      {"Nominal", [](QMVideoInfoNoXml& info) { info.setNomMaxBitstreamSize(1); }, false},
      {"Interlace", [](QMVideoInfoNoXml& info) { info.setInterlace(100); }, false},
      {"Region", [](QMVideoInfoNoXml& info) { info.setVisibleRegion(kMoved); }, false},
      {"AccessLevel", [](QMVideoInfoNoXml& info) { info.setMaxNonDisposableAccLvl(9); }, false},
      {"GDR", [](QMVideoInfoNoXml& info) { info.setGDRPeriod(-1); }, false},
      {"Pipe", [](QMVideoInfoNoXml& info) { info.setDecoderPipe(9); }, false},
      {"Reversed", [](QMVideoInfoNoXml& info) { info.setTimeReversed(false); }, false},
      {"Rate", [](QMVideoInfoNoXml& info) { info.setPictureRate(30, 1); }, false},
      {"Aspect", [](QMVideoInfoNoXml& info) { info.setPixelAspectRatio(kSquare); }, false},
      {"AspectUnreduced", [](QMVideoInfoNoXml& info) { info.setPixelAspectRatio(kUnreduced); }, true},
      {"Step", [](QMVideoInfoNoXml& info) { info.setStreamIndexStep(9); }, true},
      {"Params", [](QMVideoInfoNoXml& info) { info.setStreamParams(""); }, true},
      {"MimeCase", [](QMVideoInfoNoXml& info) { info.setMIMEType("VIDEO/X-QMV1"); }, true},
      {"Mime", [](QMVideoInfoNoXml& info) { info.setMIMEType("video/x-qmv2"); }, false},
      {"FormatCase", [](QMVideoInfoNoXml& info) { info.setPacketizedFormat("Linear"); }, false},
  };
  const QMVideoInfoNoXml info(videoRecord());
  for (const auto& row : kRows) {
    QMVideoInfoNoXml other(info);
    row.change(other);
    EXPECT_EQ(info.isSameStream(other, false), row.same) << row.name;
  }
  const QMVideoInfoNoXml twice(withWord(withWord(videoRecord(), 16, 50), 20, 2));
  EXPECT_TRUE(info.isSameStream(twice, true)) << "25/1 is 50/2";
  QMVideoInfoNoXml larger;
  larger.init(videoRecord(), nullptr, nullptr, 300);
  EXPECT_TRUE(info.isSameStream(larger, false));
  EXPECT_FALSE(info.isSameStream(larger, true));
}

struct SizeCase {
  const char* name;
  VisibleRegion before;
  Fraction aspect;
  std::uint32_t uWidth, uHeight;
  VisibleRegion after;
  Fraction aspectAfter;
};

TEST(ChangedSize, KeepsTheShape) {
  const SizeCase rows[] = {
      {"Same", {0, 0, 720, 576}, {99, 99}, 720, 576, {0, 0, 720, 576}, {99, 99}},
      {"HalfBothWays", {0, 0, 720, 576}, {12, 11}, 360, 288, {0, 0, 360, 288}, {12, 11}},
      {"HalfAcross", {0, 0, 720, 576}, {1, 1}, 360, 576, {0, 0, 360, 576}, {2, 1}},
      {"HalfDown", {0, 0, 720, 576}, {16, 15}, 720, 288, {0, 0, 720, 288}, {8, 15}},
      {"SameLine", {0, 0, 720, 576}, {12, 11}, 690, 576, {0, 0, 690, 576}, {12, 11}},
      {"NarrowerThanALine", {0, 0, 720, 576}, {1, 1}, 689, 576, {0, 0, 689, 576}, {720, 689}},
      {"TopRoundsUp", {3, 3, 100, 100}, {1, 1}, 50, 50, {1, 2, 49, 48}, {48, 49}},
      {"Huge", {0, 0, 0xFFFFFFFF, 1}, {0xFFFFFFFF, 1}, 1, 0xFFFFFFFF, {0, 0, 1, 0xFFFFFFFF}, {0xFFFFFFFF, 1}},
      {"NothingVisible", {5, 5, 0, 0}, {1, 1}, 10, 20, {0, 0, 10, 20}, {1, 1}},
      {"NewSizeZero", {0, 0, 10, 10}, {1, 1}, 0, 0, {0, 0, 0, 0}, {1, 1}}};
  for (const SizeCase& row : rows) {
    SCOPED_TRACE(row.name);
    QMVideoInfoNoXml info;
    info.setVisibleRegion(row.before);
    info.setPixelAspectRatio(row.aspect);
    info.setSize(row.uWidth, row.uHeight);
    EXPECT_EQ(info.getWidth(), row.uWidth);
    EXPECT_EQ(info.getHeight(), row.uHeight);
    EXPECT_EQ(info.getVisibleRegion(), row.after);
    EXPECT_EQ(info.getPixelAspectRatio(), row.aspectAfter);
  }
}

}  // namespace
