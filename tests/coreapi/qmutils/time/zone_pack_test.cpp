#include <cstdint>
#include <gmock/gmock.h>
#include <string>
#include <vector>

#include "coreapi/qmutils/time/tzifzone.h"
#include "coreapi/qmutils/time/zonepack.h"
#include "tests/coreapi/qmutils/time/zonepackwriter.h"

namespace {

using qm_test::PackZone;
using qm_utils::buildTzifImage;
using qm_utils::TzifZone;
using Bytes = std::vector<std::uint8_t>;

/// A zone with one change at -1, two types and all indicators.
PackZone smallZone() {
  PackZone zone;
  zone.sName = "A/B";
  zone.times = {-1};
  zone.indices = {1};
  zone.types = {{-3600, false, 0, true, false}, {7200, true, 2, false, true}};
  zone.sCharacters = std::string("X\0YZ\0", 5);
  return zone;
}

TEST(ZonePack, RecordBecomesThisImage) {
  const Bytes record = qm_test::packRecord(smallZone());
  const Bytes expectedRecord = {0x43, 0x00, 0x81, 0x02, 'A',  '/',  'B',  0xFF, 0xFF, 0xFF, 0xFF, 1, 0xF0,
                                0xF1, 0x0F, 0x40, 0x20, 0x1C, 0x20, 0xA0, 'X',  0,    'Y',  'Z',  0};
  ASSERT_EQ(record, expectedRecord);

  const Bytes expectedImage = {
      'T',  'Z',  'i',  'f',  0,    0,    0,    0,    0,    0,    0, 0,
      0,    0,    0,    0,    0,    0,    0,    0,  // magic and 16 zeros
      0,    0,    0,    2,    0,    0,    0,    2,    0,    0,    0, 0,
      0,    0,    0,    1,    0,    0,    0,    2,                       // counts
      0,    0,    0,    5,    0xFF, 0xFF, 0xFF, 0xFF, 1,                 // count, transition, its type
      0xFF, 0xFF, 0xF1, 0xF0, 0,    0,    0,    0,    0x1C, 0x20, 1, 2,  // types
      'X',  0,    'Y',  'Z',  0,    1,    0,    0,    1};                // abbreviations, indicators
  EXPECT_EQ(buildTzifImage(record, "A/B"), expectedImage);
}

TEST(ZonePack, LeapSecondsAreThePublishedOnes) {
  PackZone zone = qm_test::fixedZone("right", 0, "UTC");
  zone.bLeapSeconds = true;
  const auto image = buildTzifImage(qm_test::packRecord(zone), "right");
  ASSERT_TRUE(image);
  const std::string sOwn(image->begin() + 44 + 6 + 4, image->begin() + 44 + 6 + 4 + 176);
  const std::string sMachine = qm_test::machineZoneFile("right/UTC");
  EXPECT_NE(sMachine.find(sOwn), std::string::npos);
  EXPECT_EQ(sOwn.substr(0, 8), (std::string{"\x04\xB2\x58\x00\x00\x00\x00\x01", 8}));
}

TEST(ZonePack, NamesAreFoundWhole) {
  const Bytes pack =
      qm_test::pack({qm_test::fixedZone("Zone", 1, "A"), qm_test::fixedZone("Zone/Long", 2, "B"),
                     qm_test::fixedZone("Zone", 3, "C"), qm_test::fixedZone("", 4, "D")});
  const auto offsetOf = [&pack](const char* szName) {
    const auto image = buildTzifImage(pack, szName);
    return image ? TzifZone::parse(*image)->at(0).iWallSeconds : -1;
  };
  EXPECT_EQ(offsetOf("Zone"), 1);
  EXPECT_EQ(offsetOf("Zone/Long"), 2);
  EXPECT_EQ(offsetOf(""), 4);
  EXPECT_EQ(offsetOf("Zon"), -1);
  EXPECT_EQ(offsetOf("zone"), -1);
  EXPECT_EQ(offsetOf("Zone/"), -1);
}

TEST(ZonePack, LargestRecordComesThroughWhole) {
  PackZone zone;
  zone.sName = std::string(63, 'n');
  zone.sCharacters = std::string(254, 'c') + '\0';
  for (int i = 0; i < 255; ++i) {
    zone.types.push_back({-524288 + i, i % 2 != 0, static_cast<unsigned>(i), false, false});
  }
  for (int i = 0; i < 511; ++i) {
    zone.times.push_back(i * 1000 - 200'000);
    zone.indices.push_back(static_cast<std::uint8_t>(i % 255));
  }
  const auto image = buildTzifImage(qm_test::packRecord(zone), zone.sName);
  ASSERT_TRUE(image);
  const auto pZone = TzifZone::parse(*image);
  ASSERT_NE(pZone, nullptr);
  EXPECT_EQ(pZone->at(310'000).iWallSeconds, 310'000 - 524'288);
  EXPECT_EQ(pZone->at(54'999).iWallSeconds, 54'999 - 524'288 + 254);
  EXPECT_TRUE(pZone->at(53'500).bDaylight);
  EXPECT_EQ(pZone->at(53'500).sAbbreviation, "c");
}

TEST(ZonePack, CutPacksHoldWhatIsWholeBeforeTheCut) {
  const Bytes first = qm_test::packRecord(qm_test::fixedZone("First", 1, "A"));
  const Bytes whole = qm_test::pack({qm_test::fixedZone("First", 1, "A"), smallZone()});
  for (std::size_t size = 0; size <= whole.size(); ++size) {
    const Bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
    EXPECT_EQ(buildTzifImage(cut, "First").has_value(), size >= first.size()) << size;
    EXPECT_EQ(buildTzifImage(cut, "A/B").has_value(), size == whole.size()) << size;
  }
}

struct RefusedCase {
  const char* name;
  void (*damage)(PackZone& zone);
};

TEST(RefusedZone, IsNoZone) {
  const RefusedCase rows[] = {
      {"NoTypes",
       [](PackZone& zone) {
         zone.types.clear();
         zone.times.clear();
         zone.indices.clear();
       }},
      {"NoCharacters", [](PackZone& zone) { zone.sCharacters.clear(); }},
      {"TypeBeyondTheTypes", [](PackZone& zone) { zone.indices[1] = 2; }},
      {"AbbreviationBeyondTheCharacters", [](PackZone& zone) { zone.types[1].uAbbreviation = 5; }},
      {"AbbreviationBeyondAByte", [](PackZone& zone) { zone.types[1].uAbbreviation = 256; }},
      {"TimesDescend", [](PackZone& zone) { zone.times[1] = 4; }},
      {"TimesRepeat", [](PackZone& zone) { zone.times[1] = 5; }}};
  for (const RefusedCase& row : rows) {
    SCOPED_TRACE(row.name);
    PackZone zone = smallZone();
    zone.times = {5, 6};
    zone.indices = {0, 1};
    ASSERT_NE(TzifZone::parse(*buildTzifImage(qm_test::packRecord(zone), zone.sName)), nullptr);
    row.damage(zone);
    EXPECT_EQ(TzifZone::parse(*buildTzifImage(qm_test::packRecord(zone), zone.sName)), nullptr);
  }
}

TEST(TzifImage, IsRefusedWhenItIsCutOrNoImage) {
  Bytes image = *buildTzifImage(qm_test::packRecord(smallZone()), "A/B");
  for (std::size_t size = 0; size < image.size(); ++size) {
    EXPECT_EQ(TzifZone::parse({image.data(), size}), nullptr) << size;
  }
  image[35] = 0xFF;  // a count of transitions that no file holds
  image[32] = 0xFF;
  EXPECT_EQ(TzifZone::parse(image), nullptr);
  image[0] = 'X';
  EXPECT_EQ(TzifZone::parse(image), nullptr);
}

TEST(TzifImage, LastAbbreviationNeedsNoEnd) {
  PackZone zone = smallZone();
  zone.sCharacters.pop_back();
  EXPECT_EQ(TzifZone::parse(*buildTzifImage(qm_test::packRecord(zone), "A/B"))->at(0).sAbbreviation, "YZ");
}

TEST(TzifImage, BeforeTheFirstChangeTheFirstStandardTypeHolds) {
  PackZone zone = smallZone();
  zone.types = {{60, true, 0}, {120, false, 0}, {180, false, 0}};
  zone.indices = {2};
  const auto wallAtMinusTen = [&zone] {
    return TzifZone::parse(*buildTzifImage(qm_test::packRecord(zone), "A/B"))->at(-10).iWallSeconds;
  };
  EXPECT_EQ(wallAtMinusTen(), 110);
  zone.types[1].bDaylight = zone.types[2].bDaylight = true;
  EXPECT_EQ(wallAtMinusTen(), 50);
}

}  // namespace
