#include <cstdint>
#include <gmock/gmock.h>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

#include "coreapi/qmutils/params/jparams.h"
#include "tests/support/logcapture.h"

namespace {

using namespace std::string_literals;
using testing::ElementsAre;

JVariant bytes(JVariant::Type eType, std::string_view sBytes, std::string_view sName = "a") {
  return {sName, reinterpret_cast<const std::uint8_t*>(sBytes.data()),
          static_cast<std::uint32_t>(sBytes.size()), eType};
}

JVariant binary(std::string_view sBytes) {
  return bytes(JVariant::T_BINARY, sBytes);
}
JVariant blob(std::string_view sBytes) {
  return bytes(JVariant::T_BLOB, sBytes);
}

/// The text in a buffer of just its size, so that a checked build sees a read beyond its end.
class ExactText {
 public:
  explicit ExactText(std::string_view sText) : m_chars(sText.begin(), sText.end()) {
    m_chars.shrink_to_fit();
  }
  std::string_view view() const { return {m_chars.data(), m_chars.size()}; }

 private:
  std::vector<char> m_chars;
};

/// What a failed parse says: the error's parameter and its message.
struct Failure {
  std::string parameter;
  std::string message;
  bool operator==(const Failure&) const = default;
};

void PrintTo(const Failure& failure, std::ostream* out) {
  *out << "'" << failure.parameter << "' ('" << failure.message << "')";
}

template <class Parse>
Failure failureOf(Parse parse) {
  try {
    parse();
  } catch (JVariant::SyntaxError* pError) {
    const qm_err::CaughtError error(pError);
    return {pError->getParameter(), pError->getReason()};
  }
  return {"", "no error"};
}

constexpr std::size_t kAll = std::string::npos;

struct ValueCase {
  const char* name;
  std::string text;
  std::size_t consumed;
  JVariant expected;
};

class ParsedValue : public testing::TestWithParam<ValueCase> {};

TEST_P(ParsedValue, IsReadByEveryEntry) {
  const ValueCase& row = GetParam();
  const ExactText text(row.text);
  const std::size_t consumed = row.consumed == kAll ? row.text.size() : row.consumed;
  const std::string sName = row.expected.getName();

  JParams params;
  EXPECT_EQ(params.parse(text.view()), consumed);
  EXPECT_THAT(params.getNames(), ElementsAre(sName));
  const JVariant* const pEntry = params.find(sName, true);
  EXPECT_EQ(pEntry->getType(), row.expected.getType());
  EXPECT_TRUE(*pEntry == row.expected) << "got " << [&] {
    std::string s;
    params.toText(s);
    return s;
  }();

  JVariant chain;
  EXPECT_EQ(chain.parse(text.view()), consumed);
  EXPECT_EQ(chain.getName(), sName);
  EXPECT_TRUE(chain == row.expected);
  EXPECT_EQ(chain.getNext(), nullptr);

  JVariant single;
  EXPECT_TRUE(single.parse(text.view(), sName));
  EXPECT_TRUE(single == row.expected);
  EXPECT_FALSE(single.parse(text.view(), "other"));
  EXPECT_TRUE(single == row.expected);
}

INSTANTIATE_TEST_SUITE_P(
    Number, ParsedValue,
    testing::Values(
        ValueCase{"Decimal", "a=25", kAll, {"a", 25}}, ValueCase{"Plus", "a=+7", kAll, {"a", 7}},
        ValueCase{"Minus", "a=-7", kAll, {"a", -7}}, ValueCase{"Zero", "a=0", kAll, {"a", 0}},
        ValueCase{"Octal", "a = +031", kAll, {"a", 25}},
        ValueCase{"NegativeOctal", "a=-010", kAll, {"a", -8}},
        ValueCase{"OctalStopsAtNine", "a=09", 3, {"a", 0}},
        ValueCase{"OctalStopsAtEight", "a=0178", 5, {"a", 15}},
        ValueCase{"Hexadecimal", "a=0x1F", kAll, {"a", 31}},
        ValueCase{"HexadecimalUpperX", "a=-0Xfg", 6, {"a", -15}},
        ValueCase{"HexadecimalTakesE", "a=0x1e3", kAll, {"a", 0x1e3}},
        ValueCase{"HexadecimalWithoutDigits", "a=0x", kAll, {"a", 0}},
        ValueCase{"SignAlone", "a=-", kAll, {"a", 0}}, ValueCase{"PlusAlone", "a=+ b", 4, {"a", 0}},
        ValueCase{"TwoSigns", "a=+-1", 3, {"a", 0}},
        ValueCase{"Largest", "a=9223372036854775807", kAll, {"a", std::numeric_limits<std::int64_t>::max()}},
        ValueCase{
            "Smallest", "a=-9223372036854775808", kAll, {"a", std::numeric_limits<std::int64_t>::min()}},
        ValueCase{"WrapsTo0", "a=18446744073709551616", kAll, {"a", 0}},
        ValueCase{"WrapsInHexadecimal", "a=0x123456789abcdef01", kAll, {"a", 0x23456789abcdef01}},
        ValueCase{"Point", "a=2.5", kAll, {"a", 2.5}}, ValueCase{"LeadingPoint", "a=-.5", kAll, {"a", -.5}},
        ValueCase{"TrailingPoint", "a=+7.", kAll, {"a", 7.}}, ValueCase{"E", "a=1e3", kAll, {"a", 1000.}},
        ValueCase{"D", "a=1d3", kAll, {"a", 1000.}}, ValueCase{"UpperD", "a=1.5D-2", kAll, {"a", .015}},
        ValueCase{"OneMarkerOnly", "a=1d3d4", 5, {"a", 1000.}},
        ValueCase{"MarkerWithoutDigits", "a=1e", 3, {"a", 1.}},
        ValueCase{"ForeignMarkerWithoutDigits", "a=1d+", 3, {"a", 1.}},
        ValueCase{"PointOfOctalLook", "a=010.5", kAll, {"a", 10.5}},
        ValueCase{"PointAlone", "a=.", 2, {"a", 0.}}, ValueCase{"SignAndMarker", "a=-e5", 2, {"a", 0.}},
        ValueCase{"BeyondDouble", "a=1e999", kAll, {"a", std::numeric_limits<double>::infinity()}},
        ValueCase{"BelowDouble", "a=-1d-999", kAll, {"a", 0.}}),
    [](const auto& row) { return std::string(row.param.name); });

INSTANTIATE_TEST_SUITE_P(Boolean, ParsedValue,
                         testing::Values(ValueCase{"True", "a=true", kAll, {"a", true}},
                                         ValueCase{"Ok", "a=ok", kAll, {"a", true}},
                                         ValueCase{"OkMixed", "a=oK", kAll, {"a", true}},
                                         ValueCase{"False", "a=false", kAll, {"a", false}},
                                         ValueCase{"Failed", "a=FAILED", kAll, {"a", false}},
                                         ValueCase{"NoLookBehindFailed", "a=failedX=1", 8, {"a", false}},
                                         ValueCase{"NoLookBehindOk", "a=Okay", 4, {"a", true}}),
                         [](const auto& row) { return std::string(row.param.name); });

INSTANTIATE_TEST_SUITE_P(
    Quoted, ParsedValue,
    testing::Values(ValueCase{"Empty", R"(a="")", kAll, {"a", ""}},
                    ValueCase{"Plain", "a=\"x, b=1)\"", kAll, {"a", "x, b=1)"}},
                    ValueCase{"RawControls", "a=\"\r\n\x7f\xc3\xa4\"", kAll, {"a", "\r\n\x7f\xc3\xa4"}},
                    ValueCase{"Letters", R"(a="\r\n\t\"\'\\")", kAll, {"a", "\r\n\t\"'\\"}},
                    ValueCase{"UnknownLetter", R"(a="\q")", kAll, {"a", "\\q"}},
                    ValueCase{"UpperLetter", R"(a="\N\X41")", kAll, {"a", "\\N\\X41"}},
                    ValueCase{"OtherDigit", R"(a="\101")", kAll, {"a", "\\101"}},
                    ValueCase{"UnknownThenQuote", R"(a="\q\"")", kAll, {"a", "\\q\""}},
                    ValueCase{"OneHexDigit", R"(a="\x4")", kAll, {"a", "\x04"}},
                    ValueCase{"TwoHexDigits",
                              R"(a="\xfFf")",
                              kAll,
                              {"a",
                               "\xff"
                               "f"}},
                    ValueCase{"NoHexDigit", R"(a="\xg")", kAll, {"a", "\\xg"}},
                    ValueCase{"HexNulEnds", R"(a="b\x00c")", kAll, {"a", "b"}},
                    ValueCase{"Octal", R"(a="\0101")", kAll, {"a", "A"}},
                    ValueCase{"OctalOfThreeDigits", R"(a="\01012")", kAll, {"a", "A2"}},
                    ValueCase{"OctalModulo256", R"(a="\0501x")", kAll, {"a", "Ax"}},
                    ValueCase{"OctalNulEnds", R"(a="b\0c")", kAll, {"a", "b"}},
                    ValueCase{"OctalStopsAtEight",
                              R"(a="\078")",
                              kAll,
                              {"a",
                               "\x07"
                               "8"}}),
    [](const auto& row) { return std::string(row.param.name); });

INSTANTIATE_TEST_SUITE_P(
    Block, ParsedValue,
    testing::Values(ValueCase{"BinaryEmpty", "a=[]", kAll, binary("")},
                    ValueCase{"BinaryOneDigit", "a=[1]", kAll, binary("\x01")},
                    ValueCase{"BinaryOddDigits", "a=[123]", kAll, binary("\x12\x03")},
                    ValueCase{"BinaryLoneDigit", "a=[12 3]", kAll, binary("\x12\x03")},
                    ValueCase{"BinaryColon", "a=[0a:ff]", kAll, binary("\x0a\xff")},
                    ValueCase{"BinaryAllSeparators", "a=[ 0:1.2,F\tFe]", kAll, binary("\0\1\2\x0f\xfe"s)},
                    ValueCase{"BinaryOfSeparators", "a=[ :.,]", kAll, binary("")},
                    ValueCase{"BinaryEndsAtFirstBracket", "a=[12]]", 6, binary("\x12")},
                    ValueCase{"BlobEmpty", "a=[[0]]", kAll, blob("")},
                    ValueCase{"BlobEscapes", "a=[[4]$$$0$n$r]", kAll, blob("$\0\n\r"s)},
                    ValueCase{"BlobPlain", "a=[[3]a$$$n]", kAll, blob("a$\n")},
                    ValueCase{"BlobOfBrackets", "a=[[4]]]]]]", kAll, blob("]]]]")},
                    ValueCase{"BlobOfSyntax", "a=[[5]\",= \n]", kAll, blob("\",= \n")},
                    ValueCase{"BlobHighBytes", "a=[[2]\x80\xff]", kAll, blob("\x80\xff")},
                    ValueCase{"BlobCountWithZeros", "a=[[0002]ab]", kAll, blob("ab")}),
    [](const auto& row) { return std::string(row.param.name); });

INSTANTIATE_TEST_SUITE_P(
    Around, ParsedValue,
    testing::Values(ValueCase{"Blanks", "\t a \t=\t 1 \t", kAll, {"a", 1}},
                    ValueCase{"NextWithoutComma", "a=1 b=2", 4, {"a", 1}},
                    ValueCase{"Bracket", "a=1 )x", 4, {"a", 1}}, ValueCase{"LineEnd", "a=1\r\n", 3, {"a", 1}},
                    ValueCase{"Nul", "a=1\0,b=2"s, 3, {"a", 1}},
                    ValueCase{"NameCharacters", "Z_9[3].b-\x80\xff=1", kAll, {"Z_9[3].b-\x80\xff", 1}},
                    ValueCase{"NameOfBrackets", "]=1", kAll, {"]", 1}}),
    [](const auto& row) { return std::string(row.param.name); });

struct FailureCase {
  const char* name;
  std::string text;
  Failure expected;
};

const std::string kGarbage = "garbage instead of '='";
const std::string kNoName = "cannot parse missing parameter name";
const std::string kUnknown = "unknown parameter type";
const std::string kQuoted = "unterminated quoted string";
const std::string kCharacter = "unexpected character";
const std::string kBlock = "unterminated binary block text";

TEST(FailedParse, LeavesEverythingAsItWasAndLogs) {
  const FailureCase rows[] = {{"TrailingComma", "a=1,", {"", kGarbage}},
                              {"CommaThenBlanks", "a=1, \t", {"", kGarbage}},
                              {"TwoCommas", "a=1,,b=2", {",b=2", kGarbage}},
                              {"CommaThenBracket", "a=1, )", {")", kGarbage}},
                              {"NoName", "=1", {"=1", kNoName}},
                              {"BlankName", " \t =1 ", {"=1 ", kNoName}},
                              {"NoNameLater", "a=1, =2, b=3", {"=2, b=3", kNoName}},
                              {"NoEquals", "a 1", {"a 1", kGarbage}},
                              {"NoEqualsLater", "a=1, b c=2", {"b c=2", kGarbage}},
                              {"NameAlone", "a", {"a", kGarbage}},
                              {"NameWithPlus", "a+b=1", {"a+b=1", kGarbage}},
                              {"LineEndIsNoBlank", "\na=1", {"\na=1", kGarbage}},
                              {"RestEndsAtNul", "a \0=1"s, {"a ", kGarbage}},
                              {"NoValue", "a=", {"a", kUnknown}},
                              {"BlankValue", "a= \t", {"a", kUnknown}},
                              {"CommaForValue", "a=,b=1", {"a", kUnknown}},
                              {"TrueInOtherCase", "a=True", {"a", kUnknown}},
                              {"FalseInOtherCase", "a=FALSE", {"a", kUnknown}},
                              {"On", "a=on", {"a", kUnknown}},
                              {"CutWord", "a=tru", {"a", kUnknown}},
                              {"OtherQuotes", "a='x'", {"a", kUnknown}},
                              {"LineEndForValue", "a=\n1", {"a", kUnknown}},
                              {"ValueLater", "b=1, a=", {"a", kUnknown}},
                              {"NoClosingQuote", "a=\"x", {"a", kQuoted}},
                              {"EscapedQuote", R"(a="x\")", {"a", kQuoted}},
                              {"BackslashAtEnd", R"(a="x\)", {"a", kQuoted}},
                              {"HexEscapeAtEnd", R"(a="\x)", {"a", kQuoted}},
                              {"OctalEscapeAtEnd", R"(a="\0)", {"a", kQuoted}},
                              {"BinaryLetters", "a=[xy]", {"a", kCharacter}},
                              {"BinaryDash", "a=[1-2]", {"a", kCharacter}},
                              {"BinaryLineEnd", "a=[1\n2]", {"a", kCharacter}},
                              {"BinaryOpen", "a=[12", {"a", kBlock}},
                              {"BinaryOpenOdd", "a=[1", {"a", kBlock}},
                              {"BinaryBare", "a=[", {"a", kBlock}},
                              {"BlobShort", "a=[[3]ab]", {"a", kBlock}},
                              {"BlobEscape", "a=[[2]a$xb]", {"a", kBlock}},
                              {"BlobLong", "a=[[1]ab]", {"a", kBlock}},
                              {"BlobOpen", "a=[[1]a", {"a", kBlock}},
                              {"BlobEscapeAtEnd", "a=[[1]$", {"a", kBlock}},
                              {"BlobCountOpen", "a=[[1", {"a", kBlock}},
                              {"BlobBare", "a=[[", {"a", kBlock}},
                              {"BlobCountIsText", "a=[[x]]", {"a", kBlock}},
                              {"BlobCountNegative", "a=[[-1]]", {"a", kBlock}},
                              {"BlobCountBlank", "a=[[1 ]a]", {"a", kBlock}},
                              {"BlobCountLargest", "a=[[4294967295]ab]", {"a", kBlock}},
                              {"BlobCountBeyond32Bits", "a=[[4294967297]a]", {"a", kBlock}},
                              {"BlobCountBeyond64Bits", "a=[[18446744073709551617]a]", {"a", kBlock}}};
  for (const FailureCase& row : rows) {
    SCOPED_TRACE(row.name);
    const ExactText text(row.text);

    JParams params;
    params.parse("a=11, keep=[01]");
    const qm_test::LogCapture log;
    EXPECT_EQ(failureOf([&] { params.parse(text.view()); }), row.expected);
    std::string sLeft;
    params.toText(sLeft);
    EXPECT_EQ(sLeft, "a=11, keep=[01]");
    ASSERT_EQ(log.messages().size(), 1U);
    EXPECT_EQ(log.messages()[0].level, qm_err::kLogException);
    EXPECT_EQ(log.messages()[0].tag, "Exception CATCH");
    EXPECT_THAT(log.messages()[0].text, testing::HasSubstr("('" + row.expected.message + "')"));

    JVariant next("next", 2);
    JVariant variant("old", 1, &next);
    EXPECT_EQ(failureOf([&] { variant.parse(text.view()); }), row.expected);
    EXPECT_EQ(failureOf([&] { variant.parse(text.view(), "a"); }), row.expected);
    // The name in the error of a parameter that is only stepped over is free; its message isn't.
    EXPECT_EQ(failureOf([&] { variant.parse(text.view(), "other"); }).message, row.expected.message);
    EXPECT_STREQ(variant.getName(), "old");
    EXPECT_EQ(variant.asInt32(), 1);
    EXPECT_EQ(variant.getNext(), &next);
  }
}

TEST(EmptyList, IsNoErrorForParamsAndOneForAChain) {
  const qm_test::LogCapture log;
  for (const auto& [sText, consumed] :
       {std::pair{""s, 0U}, {" \t ", 3U}, {")", 0U}, {"\t)a=1", 1U}, {"\0a=1"s, 0U}}) {
    SCOPED_TRACE(sText);
    JParams params;
    params.add("kept", 1);
    EXPECT_EQ(params.parse(sText), consumed);
    EXPECT_EQ(params.getCount(), 1U);
    JVariant variant;
    const std::string& sList = sText;
    EXPECT_EQ(failureOf([&] { variant.parse(sList); }).message, kGarbage);
    EXPECT_EQ(failureOf([&] { variant.parse(sList, "a"); }).message, kGarbage);
  }
  EXPECT_TRUE(log.messages().empty());
}

TEST(ChainParse, KeepsTheOrderOfTheText) {
  JVariant stale("stale", 1);
  JVariant chain("head", 1, &stale);
  EXPECT_EQ(chain.parse("z=1, a=\"x\", z=true rest"), 19U);
  std::string sText;
  chain.toText(sText);
  EXPECT_EQ(sText, "z=1, a=\"x\", z=true");
  chain.deleteSuccessors();
  EXPECT_EQ(chain.getNext(), nullptr);
}

TEST(NamedParse, TakesTheLastOfANameAndKeepsNext) {
  JVariant next("next", 1);
  JVariant variant("old", 1, &next);
  EXPECT_TRUE(variant.parse("ab=1, a=2, A=3, a=\"4\", aa=5", "a"));
  EXPECT_STREQ(variant.getName(), "a");
  EXPECT_TRUE(variant == JVariant("a", "4"));
  EXPECT_EQ(variant.getNext(), &next);
  EXPECT_FALSE(variant.parse("ab=1, A=2", "a"));
  EXPECT_TRUE(variant == JVariant("a", "4"));
  EXPECT_FALSE(variant.parse("ab=1", ""));
}

/// A number may be cut in its middle; all else is either there as it stood, or an error.
TEST(CutText, GivesAnErrorOrTheBeginningOfTheList) {
  const std::string sWhole =
      R"(Big = [[5]a$$$n$0]], Count=25 , Data=[0A:ff,3] ,Done=true, No=Failed, Name="a\"b\x41\0101\\", Rate=-2.5e+1, x[0].y=0x1F)";
  JVariant whole;
  ASSERT_EQ(whole.parse(sWhole), sWhole.size());
  for (std::size_t size = 0; size < sWhole.size(); ++size) {
    SCOPED_TRACE(size);
    const ExactText cut(std::string_view(sWhole).substr(0, size));
    JVariant chain;
    const Failure failure = failureOf([&] { EXPECT_LE(chain.parse(cut.view()), size); });
    if (failure.message == "no error") {
      const JVariant* pWhole = &whole;
      for (const JVariant* p = &chain; p != nullptr; p = p->getNext(), pWhole = pWhole->getNext()) {
        ASSERT_NE(pWhole, nullptr);
        EXPECT_STREQ(p->getName(), pWhole->getName());
        const bool bNumber = pWhole->getType() == JVariant::T_INT || pWhole->getType() == JVariant::T_DOUBLE;
        EXPECT_TRUE(*p == *pWhole || (p->getNext() == nullptr && bNumber));
      }
      JParams params;
      EXPECT_LE(params.parse(cut.view()), size);
    }
    chain.deleteSuccessors();
  }
  whole.deleteSuccessors();
}

TEST(HostileText, OfAMegabyteIsReadOrRefusedInWhole) {
  const qm_test::LogCapture log;
  const std::string sName(1U << 20, 'n');
  JParams params;
  EXPECT_EQ(params.parse(sName + "x=1," + sName + "=2," + sName + "=3"), 3 * sName.size() + 9);
  EXPECT_THAT(params.getNames(), ElementsAre(sName, sName + "x"));
  EXPECT_EQ(params.find(sName, true)->asInt32(), 3);
  EXPECT_EQ(params.getMaxLength(), 2 * sName.size() + 1 + 2 * 22 + 2);

  EXPECT_EQ(failureOf([&] { params.parse(sName + " 1"); }), (Failure{sName + " 1", kGarbage}));
  EXPECT_EQ(failureOf([&] { params.parse(sName + "=[[9999]"); }), (Failure{sName, kBlock}));
  EXPECT_EQ(failureOf([&] { params.parse("a=" + std::string(1U << 20, '[')); }), (Failure{"a", kBlock}));
  EXPECT_EQ(failureOf([&] { params.parse("a=\"" + std::string((1U << 20) + 1, '\\')); }),
            (Failure{"a", kQuoted}));
  EXPECT_EQ(params.parse("a=" + std::string(1U << 20, '9')), (1U << 20) + 2);
  EXPECT_EQ(params.parse("a=" + std::string(1U << 20, '9') + "."), (1U << 20) + 3);
  EXPECT_EQ(params.getCount(), 3U);
}

}  // namespace
