#include "coreapi/qmci/qmcicodes.h"

#include <gmock/gmock.h>
#include <limits>

#include "coreapi/qmci/qmcibitstream.h"

namespace qm_ci {
namespace {

TEST(MediaCodes, HaveTheirNames) {
  EXPECT_EQ(retToString(QMCI_RET_OK), "QMCI_RET_OK");
  EXPECT_EQ(retToString(7), "QMCI_RET_AUDIO_INFO_CHANGE");
  EXPECT_EQ(retToString(11), "QMCI_RET_MISS_DATA");
  EXPECT_EQ(retToString(12), "QMCI_RET_<UNKNOWN>");
  EXPECT_EQ(retToString(-1), "QMCI_ERROR_NOT_SUPPORTED");
  EXPECT_EQ(retToString(-16), "QMCI_ERROR_MISS_LAST_GROUP");
  EXPECT_EQ(retToString(-23), "QMCI_ERROR_NODES_NO_MATCH");
  EXPECT_EQ(retToString(-24), "QMCI_ERROR_<UNKNOWN>");
  EXPECT_EQ(retToString(std::numeric_limits<int>::min()), "QMCI_ERROR_<UNKNOWN>");
  EXPECT_EQ(stateToString(0x20000), "QMCI_ST_RESTART");
  EXPECT_EQ(stateToString(3), "unknown state (??)");
}

TEST(MediaCodes, InterlaceNamesGoBothWays) {
  const struct {
    std::uint32_t uCode;
    const char* szName;
    unsigned uFields;
  } rows[] = {{0, "NOT_INITIALIZED_INTERLACE", 0},
              {10, "TOP_FIELD", 1},
              {11, "BOTTOM_FIELD", 1},
              {19, "SEPARATE_FIELDS", 1},
              {20, "TWO_FIELDS_TOP_FIRST", 2},
              {21, "TWO_FIELDS_BOTTOM_FIRST", 2},
              {100, "PROGRESSIVE", 1},
              {200, "DOUBLE_PROGRESSIVE", 2}};
  for (const auto& row : rows) {
    EXPECT_EQ(interlaceToString(row.uCode), row.szName);
    EXPECT_EQ(interlaceFromString(row.szName), row.uCode);
    EXPECT_EQ(getFieldsPerPicture(row.uCode), row.uFields);
  }
  EXPECT_EQ(interlaceFromString("progressive"), 0U);
  EXPECT_EQ(getFieldsPerPicture(12), 0U);
}

TEST(PictureType, TellsKindsAndCounter) {
  const char* const kLetters[] = {"", "D", "N", "V", "C", "", "A", "F", "S", "T", ""};
  for (std::uint16_t wKind = 0; wKind < std::size(kLetters); ++wKind) {
    const std::uint16_t wType = withFrameKind(0xFFF0, wKind);
    EXPECT_EQ(pictureTypeToString(wType), kLetters[wKind]);
    EXPECT_EQ(isFrame(wType), wKind != 0);
    EXPECT_EQ(isServiceFrame(wType), wKind == 5 || wKind == 6);
    EXPECT_EQ(isMediaFrame(wType), wKind != 0 && wKind != 5 && wKind != 6);
    EXPECT_TRUE(isSameFrameKind(wType, wKind));
  }
  EXPECT_EQ(withPictureCounter(0xFFFF, 1), 0xFFBF);
  EXPECT_EQ(withNextPictureCounter(0x0066), 0x0006) << "3 wraps and touches no other bit";
  EXPECT_TRUE(isAccessPoint(11));
  EXPECT_FALSE(isAccessPoint(10));
}

TEST(PictureType, FormatWordsSpellTheirText) {
  EXPECT_EQ(QMCI_FMT_PACKET, 0x5F544B50U);
  EXPECT_EQ(QMCI_FMT_SUBSTREAM, 0x73627573U);
  EXPECT_EQ(QMCI_FMT_LINEAR, 0x706E696CU);
  EXPECT_EQ(QMCI_FMT_CHUNK, 0x6B6E6863U);
  EXPECT_EQ(QMCI_FMT_NONE, 0x5F4E4F4EU);
}

}  // namespace
}  // namespace qm_ci
