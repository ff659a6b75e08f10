#include <gmock/gmock.h>
#include <string>
#include <vector>

#include "coreapi/qmutils/log/JLogMsg.h"

namespace {

using Bytes = std::vector<std::uint8_t>;

JLog::Msg fullRecord() {
  JLog::Msg record;
  record.uLevel = 11;
  record.sMessage = "disk gone";
  record.time = JTime::fromMicroseconds(0x0102030405060708);
  record.uProcessId = 0x1234;
  record.uThreadId = 0xFEDCBA98;
  record.sInstance = "cam 1";
  record.sUnit = "qmctl";
  record.sHost = "h";
  record.sFile = "a.cpp";
  record.uLine = 77;
  record.sClass = "JFoo";
  return record;
}

template <std::size_t N>
Bytes bytesOf(const char (&sText)[N]) {
  return Bytes(sText, sText + N - 1);
}

Bytes serialised(const JLog::Msg& record, std::size_t uLimit = 4096) {
  Bytes bytes(uLimit + 1, 0xEE);
  bytes.resize(record.serialise(bytes.data(), uLimit));
  return bytes;
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

TEST(LogRecord, BinaryFormIsAsCaptured) {
  EXPECT_EQ(serialised(fullRecord()), kFullBytes);
  JLog::Msg record;
  ASSERT_TRUE(JLog::Msg::deserialise(kFullBytes.data(), kFullBytes.size(), record));
  EXPECT_EQ(record, fullRecord());
}

TEST(LogRecord, EmptyStringsAreLeftOutAndReadBackEmpty) {
  JLog::Msg record = fullRecord();
  record.sFile.clear();
  record.sClass.clear();
  const Bytes bytes = serialised(record);
  EXPECT_EQ(bytes.size(), kFullBytes.size() - (5 + 5) - (5 + 4));
  JLog::Msg read = fullRecord();
  ASSERT_TRUE(JLog::Msg::deserialise(bytes.data(), bytes.size(), read));
  EXPECT_EQ(read, record);
}

/// Where the fields of `kFullBytes` end, in order, and what a record holds that ends there.
TEST(LogRecord, InputCutAnywhereGivesTheFieldsThatCameWhole) {
  for (std::size_t uSize = 0; uSize <= kFullBytes.size(); ++uSize) {
    SCOPED_TRACE(uSize);
    const Bytes input(kFullBytes.begin(), kFullBytes.begin() + static_cast<std::ptrdiff_t>(uSize));
    JLog::Msg record = fullRecord();
    EXPECT_EQ(JLog::Msg::deserialise(input.data(), input.size(), record), uSize >= 2);
    EXPECT_EQ(record.uLevel, uSize >= 9 ? 11U : 0U);
    EXPECT_EQ(record.time.getMicroseconds(), uSize >= 22 ? 0x0102030405060708U : 0U);
    EXPECT_EQ(record.uProcessId, uSize >= 31 ? 0x1234U : 0U);
    EXPECT_EQ(record.uThreadId, uSize >= 40 ? 0xFEDCBA98U : 0U);
    // A string is taken as far as it goes.
    EXPECT_EQ(record.sInstance, uSize <= 45 ? "" : std::string("cam 1").substr(0, uSize - 45));
    const std::size_t uMessage = kFullBytes.size() - 9;
    EXPECT_EQ(record.sMessage, uSize <= uMessage ? "" : std::string("disk gone").substr(0, uSize - uMessage));
  }
}

struct InputCase {
  const char* name;
  Bytes input;
  bool bRecord;
  JLog::Msg record;
};

JLog::Msg withMessage(const char* szMessage) {
  JLog::Msg record;
  record.sMessage = szMessage;
  return record;
}

class LogRecordInput : public testing::TestWithParam<InputCase> {};

TEST_P(LogRecordInput, IsReadAsFarAsItMakesSense) {
  JLog::Msg record = fullRecord();
  EXPECT_EQ(JLog::Msg::deserialise(GetParam().input.data(), GetParam().input.size(), record),
            GetParam().bRecord);
  EXPECT_EQ(record, GetParam().record);
}

INSTANTIATE_TEST_SUITE_P(
    Log, LogRecordInput,
    testing::Values(
        InputCase{"Nothing", {}, false, {}}, InputCase{"OneByte", bytesOf("m"), false, {}},
        InputCase{"TwoBytes", bytesOf("m\0"), true, {}},
        InputCase{"UnknownTagSkipped", bytesOf("z\0\0\0\2abm\0\0\0\1x"), true, withMessage("x")},
        InputCase{"UnknownTagBeyondTheEnd", bytesOf("z\xFF\xFF\xFF\xFFm\0\0\0\1x"), true, {}},
        InputCase{"StringBeyondTheEnd", bytesOf("m\xFF\xFF\xFF\xFFxyz"), true, withMessage("xyz")},
        InputCase{"EmptyString", bytesOf("i\0\0\0\0m\0\0\0\1x"), true, withMessage("x")},
        InputCase{"ShortNumberSkipped", bytesOf("w\0\0\0\2\0\7m\0\0\0\1x"), true, withMessage("x")},
        InputCase{"LongNumberSkipped",
                  bytesOf("d\0\0\0\x9"
                          "123456789m\0\0\0\1x"),
                  true, withMessage("x")},
        InputCase{"OtherOrderAndTwice", bytesOf("m\0\0\0\1am\0\0\0\1b"), true, withMessage("b")}),
    [](const auto& row) { return std::string(row.param.name); });

struct LimitCase {
  const char* name;
  std::size_t uLimit;
  std::size_t uSize;  ///< of what is written
};

class LogRecordLimit : public testing::TestWithParam<LimitCase> {};

// Ends of the fields of `kFullBytes`: w 9, d 22, p 31, t 40, i 50, u 60, h 66, l 75, f 85, c 94, m 108.
TEST_P(LogRecordLimit, EndsTheFormAtAFieldOrCutsFileAndMessage) {
  Bytes bytes(GetParam().uLimit + 1, 0xEE);
  const std::size_t uSize = fullRecord().serialise(bytes.data(), GetParam().uLimit);
  EXPECT_EQ(uSize, GetParam().uSize);
  EXPECT_EQ(bytes[GetParam().uLimit], 0xEE);
  JLog::Msg record;
  JLog::Msg::deserialise(bytes.data(), uSize, record);
  const std::size_t uFile = uSize < 75 + 5 ? 0 : std::min<std::size_t>(uSize - 80, 5);
  EXPECT_EQ(record.sFile, std::string("a.cpp").substr(0, uFile));
  const std::size_t uMessage = uSize < 94 + 5 ? 0 : uSize - 99;
  EXPECT_EQ(record.sMessage, std::string("disk gone").substr(0, uMessage));
}

INSTANTIATE_TEST_SUITE_P(
    Log, LogRecordLimit,
    testing::Values(LimitCase{"None", 0, 0}, LimitCase{"NotTheFirst", 8, 0},
                    LimitCase{"ExactlyTheFirst", 9, 9}, LimitCase{"NotTheInstance", 49, 40},
                    LimitCase{"NoByteOfTheFile", 80, 75}, LimitCase{"OneByteOfTheFile", 81, 81},
                    LimitCase{"AllOfTheFile", 85, 85}, LimitCase{"NotTheClass", 93, 85},
                    LimitCase{"NoByteOfTheMessage", 99, 94}, LimitCase{"OneByteOfTheMessage", 100, 100},
                    LimitCase{"Everything", 108, 108}),
    [](const auto& row) { return std::string(row.param.name); });

TEST(LogLevel, HasANameAndAShortOne) {
  EXPECT_STREQ(JLog::getLevelName(0), "NOLOG");
  EXPECT_STREQ(JLog::getLevelName(1), "FULLDEBUG");
  EXPECT_STREQ(JLog::getShortLevelName(1), "DEBUG");
  EXPECT_STREQ(JLog::getLevelName(7), "TRACE_STEP_BY_STEP");
  EXPECT_STREQ(JLog::getShortLevelName(7), "TRACE");
  EXPECT_STREQ(JLog::getShortLevelName(13), "TRACE_DEBUG");
  EXPECT_STREQ(JLog::getLevelName(22), "TRACE_DRIVER");
  EXPECT_STREQ(JLog::getLevelName(23), "UNKNOWW");
  EXPECT_STREQ(JLog::getShortLevelName(0xFFFFFFFF), "UNKNOWW");
}

}  // namespace
