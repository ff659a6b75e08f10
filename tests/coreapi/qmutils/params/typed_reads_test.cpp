#include <cstdint>
#include <cstring>
#include <gmock/gmock.h>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "coreapi/qmutils/params/jparams.h"

namespace {

using namespace std::string_literals;

constexpr std::nullopt_t kMismatch = std::nullopt;
constexpr std::int32_t kLow32 = std::numeric_limits<std::int32_t>::min();
constexpr std::int32_t kHigh32 = std::numeric_limits<std::int32_t>::max();
constexpr std::int64_t kLow64 = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t kHigh64 = std::numeric_limits<std::int64_t>::max();

JVariant block(JVariant::Type eType, std::string_view sBytes) {
  return {"a", reinterpret_cast<const std::uint8_t*>(sBytes.data()),
          static_cast<std::uint32_t>(sBytes.size()), eType};
}

/// What a read gives; nothing when it fails, as it must, with the type wanted and the actual one.
template <class Read>
auto valueOf(const JVariant& source, JVariant::Type eWanted, Read read) -> std::optional<decltype(read())> {
  try {
    return read();
  } catch (JVariant::TypeMismatchError* pError) {
    const qm_err::CaughtError error(pError);
    EXPECT_EQ(pError->getParameter(), "a");
    EXPECT_EQ(pError->getWanted(), eWanted);
    EXPECT_EQ(pError->getActual(), source.getType());
    EXPECT_EQ(pError->getMessage(), "TypeMismatchError for parameter 'a' : wanted '" +
                                        std::to_string(eWanted) + "', actual '" +
                                        std::to_string(source.getType()) + "'");
    return std::nullopt;
  }
}

struct ReadCase {
  const char* name;
  JVariant source;
  std::optional<double> asDouble;
  std::optional<std::int64_t> asInt64;
  std::optional<std::int32_t> asInt32;
  std::optional<std::string> asText;
  std::optional<bool> asBool;
  std::optional<std::string> asBytes;
};

class TypedRead : public testing::TestWithParam<ReadCase> {};

std::string copied(const std::unique_ptr<std::uint8_t[]>& pBytes, std::uint32_t uSize) {
  return {reinterpret_cast<const char*>(pBytes.get()), uSize};
}

TEST_P(TypedRead, ConvertsAVariantOrFails) {
  const ReadCase& row = GetParam();
  const JVariant& v = row.source;
  EXPECT_EQ(valueOf(v, JVariant::T_DOUBLE, [&] { return v.asDouble(); }), row.asDouble);
  EXPECT_EQ(valueOf(v, JVariant::T_INT, [&] { return v.asInt64(); }), row.asInt64);
  EXPECT_EQ(valueOf(v, JVariant::T_INT, [&] { return v.asInt32(); }), row.asInt32);
  EXPECT_EQ(valueOf(v, JVariant::T_STRING, [&] { return std::string(v.asText().get()); }), row.asText);
  std::string sText = "old";
  EXPECT_EQ(valueOf(v, JVariant::T_STRING, [&] { return v.asText(sText), sText; }), row.asText);
  EXPECT_EQ(sText, row.asText.value_or("old"));
  EXPECT_EQ(valueOf(v, JVariant::T_BOOL, [&] { return v.asBool(); }), row.asBool);
  EXPECT_EQ(valueOf(v, JVariant::T_BINARY,
                    [&] {
                      std::uint32_t uSize = 99;
                      const auto pBytes = v.asBytes(&uSize);
                      return copied(pBytes, uSize);
                    }),
            row.asBytes);
}

/// A get into an out value that held `old`, which a failure leaves.
template <class T>
std::optional<T> got(const JParams& params, JVariant::Type eWanted, T old) {
  T value = old;
  const auto result = valueOf(*params.find("a", true), eWanted, [&] {
    EXPECT_TRUE(params.get("a", value));
    return value;
  });
  EXPECT_TRUE(result.has_value() || value == old);
  return result;
}

TEST_P(TypedRead, ConvertsAnEntryOrFails) {
  const ReadCase& row = GetParam();
  JParams params;
  params.add(std::make_unique<JVariant>(row.source, "a"));
  EXPECT_EQ(got(params, JVariant::T_DOUBLE, 7.5), row.asDouble);
  EXPECT_EQ(got(params, JVariant::T_INT, std::int64_t{7}), row.asInt64);
  EXPECT_EQ(got(params, JVariant::T_INT, std::int32_t{7}), row.asInt32);
  EXPECT_EQ(got(params, JVariant::T_STRING, "old"s), row.asText);
  EXPECT_EQ(got(params, JVariant::T_BOOL, true), row.asBool);
  EXPECT_EQ(got(params, JVariant::T_BOOL, false), row.asBool);
  std::unique_ptr<char[]> szText;
  EXPECT_EQ(valueOf(row.source, JVariant::T_STRING,
                    [&] { return params.get("a", szText), std::string(szText.get()); }),
            row.asText);
  EXPECT_EQ(szText != nullptr, row.asText.has_value());
  std::unique_ptr<std::uint8_t[]> pBytes;
  std::uint32_t uSize = 99;
  EXPECT_EQ(valueOf(row.source, JVariant::T_BINARY,
                    [&] { return params.get("a", pBytes, uSize), copied(pBytes, uSize); }),
            row.asBytes);
  EXPECT_EQ(uSize, row.asBytes ? row.asBytes->size() : 99U);
}

ReadCase text(const char* szName, const char* szText, std::optional<double> asDouble,
              std::optional<std::int64_t> asInt64, std::optional<std::int32_t> asInt32,
              std::optional<bool> asBool) {
  return {szName, JVariant("a", szText), asDouble, asInt64, asInt32, szText, asBool, kMismatch};
}

INSTANTIATE_TEST_SUITE_P(
    Params, TypedRead,
    testing::Values(
        ReadCase{"Empty", JVariant(JVariant(), "a"), kMismatch, kMismatch, kMismatch, kMismatch, kMismatch,
                 kMismatch},
        ReadCase{"Binary", block(JVariant::T_BINARY, "\0\xff"s), kMismatch, kMismatch, kMismatch, kMismatch,
                 kMismatch, "\0\xff"s},
        ReadCase{"BlobOfNothing", block(JVariant::T_BLOB, ""), kMismatch, kMismatch, kMismatch, kMismatch,
                 kMismatch, ""},
        ReadCase{"True", JVariant("a", true), 1.0, 1, 1, "true", true, kMismatch},
        ReadCase{"False", JVariant("a", false), 0.0, 0, 0, "false", false, kMismatch},
        ReadCase{"Int", JVariant("a", -25), -25.0, -25, -25, "-25", true, kMismatch},
        ReadCase{"IntZero", JVariant("a", 0), 0.0, 0, 0, "0", false, kMismatch},
        ReadCase{"IntBeyond32Bits", JVariant("a", 0x1'8000'0001), 6442450945.0, 0x1'8000'0001, kLow32 + 1,
                 "6442450945", true, kMismatch},
        ReadCase{"IntOfZeroLowBits", JVariant("a", 0x1'0000'0000), 4294967296.0, 0x1'0000'0000, 0,
                 "4294967296", true, kMismatch},
        ReadCase{"Double", JVariant("a", -2.75), -2.75, -2, -2, "-2.75", true, kMismatch},
        ReadCase{"DoubleBelowOne", JVariant("a", 0.25), 0.25, 0, 0, "0.25", true, kMismatch},
        ReadCase{"DoubleZero", JVariant("a", 0.0), 0.0, 0, 0, "0", false, kMismatch},
        ReadCase{"DoubleOfSevenDigits", JVariant("a", 1234567.0), 1234567.0, 1234567, 1234567, "1.23457e+06",
                 true, kMismatch},
        ReadCase{"DoubleBeyondInt", JVariant("a", 1e30), 1e30, kHigh64, kHigh32, "1e+30", true, kMismatch},
        ReadCase{"DoubleBelowInt", JVariant("a", -1e30), -1e30, kLow64, kLow32, "-1e+30", true, kMismatch},
        text("TextNumber", "12", 12.0, 12, 12, kMismatch),
        text("TextScanned", "  12abc", 12.0, 12, 12, kMismatch),
        text("TextAllSpace", "\t\n\v\f\r -3", -3.0, -3, -3, kMismatch),
        text("TextPlus", "+4.5e1x", 45.0, 4, 4, kMismatch),
        text("TextFraction", ".5", 0.5, kMismatch, kMismatch, kMismatch),
        text("TextLetters", "abc", kMismatch, kMismatch, kMismatch, kMismatch),
        text("TextOfNothing", "", kMismatch, kMismatch, kMismatch, kMismatch),
        text("TextSpace", "  ", kMismatch, kMismatch, kMismatch, kMismatch),
        text("TextSign", "-", kMismatch, kMismatch, kMismatch, kMismatch),
        text("TextTwoSigns", "+-1", kMismatch, kMismatch, kMismatch, kMismatch),
        text("TextIsDecimal", "010", 10.0, 10, 10, kMismatch),
        text("TextBeyond32Bits", "-99999999999", -99999999999.0, -99999999999, kLow32, kMismatch),
        text("TextTrue", "TrUe", kMismatch, kMismatch, kMismatch, true),
        text("TextOn", "ON", kMismatch, kMismatch, kMismatch, true),
        text("TextOk", "oK", kMismatch, kMismatch, kMismatch, true), text("TextOne", "1", 1.0, 1, 1, true),
        text("TextFalse", "False", kMismatch, kMismatch, kMismatch, false),
        text("TextOff", "oFF", kMismatch, kMismatch, kMismatch, false),
        text("TextFailed", "FAILED", kMismatch, kMismatch, kMismatch, false),
        text("TextZero", "0", 0.0, 0, 0, false),
        text("TextTrueAndMore", "true ", kMismatch, kMismatch, kMismatch, kMismatch),
        text("TextTwo", "2", 2.0, 2, 2, kMismatch), text("TextZeros", "00", 0.0, 0, 0, kMismatch)),
    [](const auto& row) { return std::string(row.param.name); });

TEST(Variant, TakesPointersOverWhenAskedTo) {
  std::unique_ptr<char[]> szText(new char[3]{'a', 'b', '\0'});
  const char* const szTaken = szText.get();
  const JVariant text("a", szText.release(), JVariant::Adopt::Yes);
  EXPECT_EQ(text.value().bytes().data(), szTaken);
  std::unique_ptr<std::uint8_t[]> pBytes(new std::uint8_t[2]{1, 2});
  const std::uint8_t* const pTaken = pBytes.get();
  const JVariant bytes("a", pBytes.release(), 2, JVariant::T_BINARY, JVariant::Adopt::Yes);
  EXPECT_EQ(static_cast<const void*>(bytes.value().bytes().data()), pTaken);
}

TEST(Variant, CountsNullAsNothingAndEndsAtANul) {
  EXPECT_STREQ(JVariant("a", static_cast<const char*>(nullptr)).asText().get(), "");
  EXPECT_STREQ(JVariant("a", static_cast<const char*>(nullptr), JVariant::Adopt::Yes).asText().get(), "");
  EXPECT_EQ(JVariant("a", nullptr, 5, JVariant::T_BLOB).getMaxLength(), 17U);
  EXPECT_STREQ(JVariant("a\0b"s, "c\0d"s).getName(), "a");
  EXPECT_EQ(JVariant("a", "c\0d"s).getMaxLength(), 6U);
  EXPECT_EQ(JVariant("a", nullptr, 0, JVariant::T_INT).getType(), JVariant::T_BINARY);
}

TEST(Variant, CopiesDeepWithItsNextAsAPointer) {
  JVariant next("next", 1);
  JVariant source("a", "text", &next);
  JVariant copy(source);
  const JVariant renamed(source, "b");
  JVariant assigned("old", 1);
  assigned = source;
  source.clear();
  EXPECT_EQ(source.getName(), nullptr);
  EXPECT_EQ(source.getType(), JVariant::T_EMPTY);
  EXPECT_EQ(source.getNext(), &next);
  for (const JVariant* const p : std::initializer_list<const JVariant*>{&copy, &renamed, &assigned}) {
    EXPECT_STREQ(p->getName(), p == &renamed ? "b" : "a");
    EXPECT_STREQ(p->asText().get(), "text");
    EXPECT_EQ(p->getNext(), &next);
  }
  JVariant& same = copy;
  copy = same;
  EXPECT_STREQ(copy.asText().get(), "text");
  JVariant moved(std::move(copy));
  EXPECT_STREQ(moved.asText().get(), "text");
  assigned = JVariant();
  EXPECT_EQ(assigned.getName(), nullptr);
  EXPECT_EQ(assigned.getNext(), nullptr);
  EXPECT_EQ(JVariant(source).getName(), nullptr);
  EXPECT_STREQ(JVariant(source, "new").getName(), "new");
}

TEST(Variant, ComparesTypeAndValueAlone) {
  EXPECT_TRUE(JVariant("a", 1) == JVariant("b", 1));
  EXPECT_TRUE(JVariant() == JVariant(JVariant(), "b"));
  EXPECT_TRUE(JVariant("a", 0.0) == JVariant("a", -0.0));
  EXPECT_FALSE(JVariant("a", std::numeric_limits<double>::quiet_NaN()) ==
               JVariant("a", std::numeric_limits<double>::quiet_NaN()));
  EXPECT_FALSE(JVariant("a", 1) == JVariant("a", true));
  EXPECT_FALSE(JVariant("a", 1) == JVariant("a", 1.0));
  EXPECT_FALSE(JVariant("a", "x") == JVariant("a", "X"));
  EXPECT_FALSE(block(JVariant::T_BLOB, "x") == block(JVariant::T_BINARY, "x"));
  EXPECT_TRUE(block(JVariant::T_BLOB, "x\0y"s) == block(JVariant::T_BLOB, "x\0y"s));
  EXPECT_FALSE(block(JVariant::T_BLOB, "x\0y"s) == block(JVariant::T_BLOB, "x\0z"s));
  EXPECT_FALSE(block(JVariant::T_BLOB, "x") == block(JVariant::T_BLOB, "xx"));
}

}  // namespace
