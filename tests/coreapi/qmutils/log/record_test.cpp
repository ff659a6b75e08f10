#include <algorithm>
#include <gmock/gmock.h>

#include "tests/coreapi/qmutils/log/log_test_support.h"

namespace {

using qm_test::fullRecord;
using Bytes = std::vector<std::uint8_t>;

template <std::size_t N>
Bytes bytesOf(const char (&sText)[N]) {
  return Bytes(sText, sText + N - 1);
}

/// `fullRecord` as it travels between processes.
const Bytes kFullBytes = bytesOf(
    "w\0\0\0\4\0\0\0\x0B"
    "d\0\0\0\x8\1\2\3\4\5\6\7\x8"
    "p\0\0\0\4\0\0\x12\x34"
    "t\0\0\0\4\xFE\xDC\xBA\x98"
    "i\0\0\0\5cam 1"
    "u\0\0\0\5qmctl"
    "h\0\0\0\1h"
    "l\0\0\0\4\0\0\0\x4D"
    "f\0\0\0\5a.cpp"
    "c\0\0\0\4JFoo"
    "m\0\0\0\x9"
    "disk gone");

/// Where its fields end.
constexpr std::size_t kEnds[] = {0, 9, 22, 31, 40, 50, 60, 66, 75, 85, 94, 108};

TEST(LogRecord, BinaryFormIsAsCaptured) {
  Bytes bytes(4096);
  bytes.resize(fullRecord().serialise(bytes.data(), bytes.size()));
  EXPECT_EQ(bytes, kFullBytes);
  JLog::Msg record;
  ASSERT_TRUE(JLog::Msg::deserialise(kFullBytes.data(), kFullBytes.size(), record));
  EXPECT_EQ(record, fullRecord());
}

TEST(LogRecord, EmptyStringsAreLeftOutAndReadBackEmpty) {
  JLog::Msg record = fullRecord();
  record.sFile.clear();
  record.sClass.clear();
  Bytes bytes(4096);
  bytes.resize(record.serialise(bytes.data(), bytes.size()));
  EXPECT_EQ(bytes.size(), kFullBytes.size() - (5 + 5) - (5 + 4));
  JLog::Msg read = fullRecord();
  ASSERT_TRUE(JLog::Msg::deserialise(bytes.data(), bytes.size(), read));
  EXPECT_EQ(read, record);
}

TEST(LogRecord, InputCutAnywhereGivesTheFieldsThatCame) {
  for (std::size_t uSize = 0; uSize <= kFullBytes.size(); ++uSize) {
    SCOPED_TRACE(uSize);
    const Bytes input(kFullBytes.data(), kFullBytes.data() + uSize);
    JLog::Msg record = fullRecord();
    EXPECT_EQ(JLog::Msg::deserialise(input.data(), input.size(), record), uSize >= 2);
    EXPECT_EQ(record.uLevel, uSize >= 9 ? 11U : 0U);
    EXPECT_EQ(record.time.getMicroseconds(), uSize >= 22 ? 0x0102030405060708U : 0U);
    EXPECT_EQ(record.uThreadId, uSize >= 40 ? 0xFEDCBA98U : 0U);
    EXPECT_EQ(record.sInstance, uSize <= 45 ? "" : std::string("cam 1").substr(0, uSize - 45));
    EXPECT_EQ(record.sMessage, uSize <= 99 ? "" : std::string("disk gone").substr(0, uSize - 99));
  }
}

TEST(LogRecord, LimitEndsTheFormAtAFieldOrCutsFileAndMessage) {
  for (std::size_t uLimit = 0; uLimit <= kFullBytes.size(); ++uLimit) {
    SCOPED_TRACE(uLimit);
    Bytes bytes(uLimit + 1, 0xEE);
    const std::size_t uSize = fullRecord().serialise(bytes.data(), uLimit);
    const bool bCut = (uLimit > 75 + 5 && uLimit < 85) || (uLimit > 94 + 5 && uLimit < 108);
    EXPECT_EQ(uSize, bCut ? uLimit : *(std::upper_bound(std::begin(kEnds), std::end(kEnds), uLimit) - 1));
    EXPECT_EQ(bytes[uLimit], 0xEE);
    JLog::Msg record;
    JLog::Msg::deserialise(bytes.data(), uSize, record);
    EXPECT_EQ(record.sFile, uSize <= 80 ? "" : std::string("a.cpp").substr(0, uSize - 80));
    EXPECT_EQ(record.sMessage, uSize <= 99 ? "" : std::string("disk gone").substr(0, uSize - 99));
  }
}

struct InputCase {
  const char* name;
  Bytes input;
  const char* message;
};

TEST(LogRecordInput, IsReadAsFarAsItMakesSense) {
  const InputCase rows[] = {{"UnknownTagSkipped", bytesOf("z\0\0\0\2abm\0\0\0\1x"), "x"},
                            {"UnknownTagBeyondTheEnd", bytesOf("z\xFF\xFF\xFF\xFFm\0\0\0\1x"), ""},
                            {"StringBeyondTheEnd", bytesOf("m\xFF\xFF\xFF\xFFxyz"), "xyz"},
                            {"EmptyString", bytesOf("i\0\0\0\0m\0\0\0\1x"), "x"},
                            {"ShortNumberSkipped", bytesOf("w\0\0\0\2\0\7m\0\0\0\1x"), "x"},
                            {"LongNumberSkipped",
                             bytesOf("d\0\0\0\x9"
                                     "123456789m\0\0\0\1x"),
                             "x"},
                            {"LastOfTwo", bytesOf("m\0\0\0\1am\0\0\0\1b"), "b"}};
  for (const InputCase& row : rows) {
    SCOPED_TRACE(row.name);
    JLog::Msg record = fullRecord();
    EXPECT_TRUE(JLog::Msg::deserialise(row.input.data(), row.input.size(), record));
    JLog::Msg expected;
    expected.sMessage = row.message;
    EXPECT_EQ(record, expected);
  }
}

TEST(LogLevel, HasANameAndAShortOne) {
  EXPECT_STREQ(JLog::getLevelName(1), "FULLDEBUG");
  EXPECT_STREQ(JLog::getShortLevelName(1), "DEBUG");
  EXPECT_STREQ(JLog::getLevelName(7), "TRACE_STEP_BY_STEP");
  EXPECT_STREQ(JLog::getShortLevelName(7), "TRACE");
  EXPECT_STREQ(JLog::getShortLevelName(22), "TRACE_DRIVER");
  EXPECT_STREQ(JLog::getLevelName(23), "UNKNOWW");
  EXPECT_STREQ(JLog::getShortLevelName(0xFFFFFFFF), "UNKNOWW");
}

}  // namespace
