#include <cstdint>
#include <gmock/gmock.h>
#include <limits>
#include <string>
#include <string_view>

#include "coreapi/qmutils/params/jparams.h"

namespace {

using namespace std::string_literals;

JVariant block(JVariant::Type eType, std::string_view sBytes) {
  return {"a", reinterpret_cast<const std::uint8_t*>(sBytes.data()),
          static_cast<std::uint32_t>(sBytes.size()), eType};
}

/// Through the buffer form, which must write neither behind its end nor beyond its bound.
template <class Source>
std::string textInBuffer(const Source& source) {
  std::string sBuffer(source.getMaxLength() + 1, '#');
  const std::size_t size = source.toText(sBuffer.data());
  EXPECT_LE(size, source.getMaxLength());
  EXPECT_EQ(sBuffer.substr(size), std::string(sBuffer.size() - size, '#'));
  return sBuffer.substr(0, size);
}

template <class Source>
std::string textOf(const Source& source) {
  std::string sText = "old";
  source.toText(sText);
  EXPECT_EQ(textInBuffer(source), sText);
  return sText;
}

struct WriteCase {
  const char* name;
  JVariant variant;
  std::string text;
  std::size_t maxLength;
};

class WrittenVariant : public testing::TestWithParam<WriteCase> {};

TEST_P(WrittenVariant, HasItsFormWithinItsBound) {
  EXPECT_EQ(textOf(GetParam().variant), GetParam().text);
  EXPECT_EQ(GetParam().variant.getMaxLength(), GetParam().maxLength);
}

TEST_P(WrittenVariant, IsTheSameInAList) {
  JParams params;
  params.add(std::make_unique<JVariant>(GetParam().variant));
  EXPECT_EQ(textOf(params), GetParam().text);
  EXPECT_EQ(params.getMaxLength(), GetParam().maxLength);
}

constexpr double kInfinity = std::numeric_limits<double>::infinity();

INSTANTIATE_TEST_SUITE_P(
    Params, WrittenVariant,
    testing::Values(
        WriteCase{"Empty", JVariant(), "", 1}, WriteCase{"EmptyWithName", JVariant(JVariant(), "abc"), "", 1},
        WriteCase{"Binary", block(JVariant::T_BINARY, "\x0a\xff"), "a=[0AFF]", 9},
        WriteCase{"BinaryOfNothing", block(JVariant::T_BINARY, ""), "a=[]", 5},
        WriteCase{"True", JVariant("a", true), "a=true", 7},
        WriteCase{"False", JVariant("a", false), "a=false", 8},
        WriteCase{"Int", JVariant("a", 25), "a=25", 23},
        WriteCase{"IntLowest", JVariant("a", std::numeric_limits<std::int64_t>::min()),
                  "a=-9223372036854775808", 23},
        WriteCase{"IntSignExtended", JVariant("a", std::int32_t{-1}), "a=-1", 23},
        WriteCase{"IntUnsigned", JVariant("a", std::numeric_limits<std::uint64_t>::max()), "a=-1", 23},
        WriteCase{"Double", JVariant("a", 2.5), "a=2.5", 35},
        WriteCase{"DoubleSixDigits", JVariant("a", 123456.789), "a=123457", 35},
        WriteCase{"DoubleExponent", JVariant("a", 1e6), "a=1e+06", 35},
        WriteCase{"DoubleSmall", JVariant("a", 0.0000123456789), "a=1.23457e-05", 35},
        WriteCase{"DoubleWhole", JVariant("a", 1000.0), "a=1000", 35},
        WriteCase{"DoubleLongest", JVariant("a", -1.23456e-300), "a=-1.23456e-300", 35},
        WriteCase{"DoubleInfinite", JVariant("a", -kInfinity), "a=-inf", 35},
        WriteCase{"String", JVariant("a", "x"), "a=\"x\"", 6},
        WriteCase{"StringOfNothing", JVariant("a", ""), "a=\"\"", 5},
        WriteCase{"StringEscapes", JVariant("a", "\r\n\t\"\\'"), R"(a="\r\n\t\"\\'")", 26},
        WriteCase{"StringControls",
                  JVariant("a",
                           "\x01\x0b\x1f"
                           "f"),
                  R"(a="\x01\x0B\x1Ff")", 18},
        WriteCase{"StringHighBytes", JVariant("a", " \x7f\x80\xff$"), "a=\" \x7f\x80\xff$\"", 10},
        WriteCase{"Blob", block(JVariant::T_BLOB, "a$\n"), "a=[[3]a$$$n]", 22},
        WriteCase{"BlobEscapes", block(JVariant::T_BLOB, "\0\r]\"\t\xff"s), "a=[[6]$0$r]\"\t\xff]", 25},
        WriteCase{"BlobOfNothing", block(JVariant::T_BLOB, ""), "a=[[0]]", 17}),
    [](const auto& row) { return std::string(row.param.name); });

TEST(Chain, StartsWithTheLastOneLinked) {
  JVariant w("W", 1);
  JVariant x("X", true);
  JVariant y("Y", "s");
  JVariant z("Z", 2.5);
  JVariant& head = w.link(x).link(y).link(z);
  EXPECT_EQ(&head, &z);
  EXPECT_EQ(textOf(head), "Z=2.5, Y=\"s\", X=true, W=1");
  EXPECT_EQ(textOf(x), "X=true, W=1");
  EXPECT_EQ(head.getMaxLength(), 34U + 1 + 2 + 6 + 2 + 7 + 2 + 23);
}

TEST(Chain, WritesAnEmptyVariantAsNothingBetweenItsSeparators) {
  JVariant last("b", 2);
  JVariant empty;
  JVariant first("a", 1);
  EXPECT_EQ(textOf(last.link(empty).link(first)), "a=1, , b=2");
}

TEST(ListText, IsTheSystemsOwnToTheCharacterAndReadsBack) {
  const std::string sExpected = R"(Big=[[3]a$$$n], Count=25, Data=[0AFF], Done=true, Name="a\"b", Rate=2.5)";
  const std::uint8_t big[] = {0x61, 0x24, 0x0A};
  const std::uint8_t data[] = {0x0A, 0xFF};
  JParams params;
  params.add("Rate", 2.5);
  params.add("Name", "a\"b");
  params.add("Done", true);
  params.add("Data", data, 2, JVariant::T_BINARY);
  params.add("Count", 25);
  params.add("Big", big, 3, JVariant::T_BLOB);
  EXPECT_EQ(textOf(params), sExpected);

  JParams read;
  EXPECT_EQ(read.parse(sExpected), sExpected.size());
  EXPECT_EQ(textOf(read), sExpected);
  EXPECT_EQ(read.getTypes(), params.getTypes());
}

TEST(ListText, IsJoinedByTheSeparatorAskedFor) {
  JParams params;
  EXPECT_EQ(textOf(params), "");
  EXPECT_EQ(params.getMaxLength(), 0U);
  params.parse("b=1, a=true, c=\"\"");
  EXPECT_EQ(textOf(params), "a=true, b=1, c=\"\"");
  EXPECT_EQ(params.getMaxLength(), 7U + 2 + 23 + 2 + 5);
  std::string sText = "old";
  params.toText(sText, ';');
  EXPECT_EQ(sText, "a=true; b=1; c=\"\"");
  params.toTextSeparatedBy(sText, "&");
  EXPECT_EQ(sText, "a=true&b=1&c=\"\"");
  params.toTextSeparatedBy(sText, "");
  EXPECT_EQ(sText, "a=trueb=1c=\"\"");
}

/// Lists travel over a protocol of lines.
TEST(ListText, IsOneLineWhateverItHolds) {
  std::string sAll;
  for (int c = 0; c < 256; ++c) {
    sAll.push_back(static_cast<char>(c));
  }
  const auto* const pAll = reinterpret_cast<const std::uint8_t*>(sAll.data());
  JParams params;
  params.add("blob", pAll, 256, JVariant::T_BLOB);
  params.add("binary", pAll, 256, JVariant::T_BINARY);
  params.add("text", sAll.substr(1));
  const std::string sText = textOf(params);
  EXPECT_EQ(sText.find_first_of("\r\n\0"s), std::string::npos);

  JParams read;
  EXPECT_EQ(read.parse(sText), sText.size());
  for (const char* const szName : {"blob", "binary", "text"}) {
    EXPECT_TRUE(*read.find(szName, true) == *params.find(szName, true)) << szName;
  }
}

}  // namespace
