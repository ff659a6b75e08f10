#include <cstdint>
#include <gmock/gmock.h>
#include <memory>
#include <string>

#include "coreapi/qmutils/params/jparamextract.h"
#include "coreapi/qmutils/params/jparams.h"
#include "tests/support/logcapture.h"

namespace {

using namespace std::string_literals;
using testing::ElementsAre;
using testing::Pair;

JParams listOf(std::string_view sText) {
  JParams params;
  params.parse(sText);
  return params;
}

std::string textOf(const JParams& params) {
  std::string sText;
  params.toText(sText);
  return sText;
}

TEST(Params, KeepNamesInTheOrderOfTheirBytes) {
  const JParams params =
      listOf("b=1, \xff=2, Z=true, a=\"\", a.b=2.5, a-=[], _=[[0]], \x80=1, a[10]=1, a[9]=1");
  EXPECT_THAT(params.getNames(),
              ElementsAre("Z", "_", "a", "a-", "a.b", "a[10]", "a[9]", "b", "\x80", "\xff"));
  EXPECT_EQ(params.getCount(), 10U);
  EXPECT_THAT(
      listOf("e=1, d=2.5, c=\"\", b=[], a=[[0]], f=ok").getTypes(),
      ElementsAre(Pair("a", JVariant::T_BLOB), Pair("b", JVariant::T_BINARY), Pair("c", JVariant::T_STRING),
                  Pair("d", JVariant::T_DOUBLE), Pair("e", JVariant::T_INT), Pair("f", JVariant::T_BOOL)));
}

TEST(Params, TakeAVariantOverInThePlaceOfItsNamesake) {
  JParams params = listOf("a=1, b=2");
  JVariant other("other", 1);
  auto pVariant = std::make_unique<JVariant>("a", "new", &other);
  const JVariant* const pTaken = pVariant.get();
  params.add(std::move(pVariant));
  EXPECT_EQ(params.find("a"), pTaken);
  EXPECT_EQ(pTaken->getNext(), nullptr);
  EXPECT_EQ(textOf(params), "a=\"new\", b=2");
  params.add("a", static_cast<const char*>(nullptr));
  params.add("b", std::uint64_t{1} << 63);
  EXPECT_EQ(textOf(params), "a=\"\", b=-9223372036854775808");
}

TEST(Params, ReplaceByAParseWhatItNames) {
  JParams params = listOf("a=1, b=2");
  EXPECT_EQ(params.parse("c=3, a=\"x\", a=\"y\";"), 17U);
  EXPECT_EQ(textOf(params), "a=\"y\", b=2, c=3");
}

TEST(Params, MergeByDeepCopies) {
  JParams own = listOf("a=1, b=2");
  JParams other = listOf("b=\"x\", c=[01]");
  own.merge(other);
  other.clear();
  EXPECT_EQ(textOf(own), "a=1, b=\"x\", c=[01]");
  own.merge(own);
  own.merge(other);
  own.add(static_cast<const JParams*>(nullptr));
  EXPECT_EQ(textOf(own), "a=1, b=\"x\", c=[01]");
  other.add(&own);
  own.remove("a");
  EXPECT_EQ(textOf(other), "a=1, b=\"x\", c=[01]");
}

TEST(Params, AssignByDroppingAllAndCopyingDeep) {
  JParams source = listOf("a=1, b=\"x\"");
  source.add(std::make_unique<JVariant>("v", 2.5));
  JParams copy(source);
  JParams assigned = listOf("old=1, a=2");
  assigned = source;
  EXPECT_NE(copy.find("v"), source.find("v"));
  source.add("b", 1);
  source.remove("v");
  EXPECT_EQ(textOf(copy), "a=1, b=\"x\", v=2.5");
  EXPECT_EQ(textOf(assigned), "a=1, b=\"x\", v=2.5");
  const JParams& same = copy;
  copy = same;
  EXPECT_EQ(textOf(copy), "a=1, b=\"x\", v=2.5");
  const JParams moved(std::move(copy));
  EXPECT_EQ(textOf(moved), "a=1, b=\"x\", v=2.5");
  assigned = JParams();
  EXPECT_TRUE(assigned.isEmpty());
}

template <class Read>
void expectMissing(Read read) {
  try {
    read();
    ADD_FAILURE() << "no error";
  } catch (JVariant::MissingParameterError* pError) {
    const qm_err::CaughtError error(pError);
    EXPECT_EQ(pError->getParameter(), "gone");
    EXPECT_EQ(pError->getMessage(), "MissingParameterError for parameter: 'gone'");
  }
}

template <class T>
void expectUntouched(T old) {
  const JParams params = listOf("go=1, gone2=2");
  T value = old;
  EXPECT_FALSE(params.get("gone", value));
  EXPECT_EQ(value, old);
  expectMissing([&] { params.get("gone", value, true); });
  EXPECT_EQ(value, old);
}

TEST(Params, LeaveTheOutValueOfAnAbsentName) {
  expectUntouched(7.5);
  expectUntouched(std::int32_t{7});
  expectUntouched(std::int64_t{7});
  expectUntouched(true);
  expectUntouched("old"s);
  const JParams params = listOf("go=1");
  std::unique_ptr<char[]> szText(new char[1]{'\0'});
  std::unique_ptr<std::uint8_t[]> pBytes(new std::uint8_t[1]{7});
  std::uint32_t uSize = 9;
  const void* const pText = szText.get();
  EXPECT_FALSE(params.get("gone", szText));
  EXPECT_FALSE(params.get("gone", pBytes, uSize));
  EXPECT_EQ(szText.get(), pText);
  EXPECT_EQ(pBytes[0], 7);
  EXPECT_EQ(uSize, 9U);
  expectMissing([&] { params.get("gone", szText, true); });
  expectMissing([&] { params.get("gone", pBytes, uSize, true); });
  EXPECT_EQ(params.find("gone"), nullptr);
  expectMissing([&] { params.find("gone", true); });
}

constexpr const char* kList = "b=ok, i=7, d=2.5, s=\"x\", y=[01]";

TEST(Extract, GivesAConvertedValueOrMinusOne) {
  const qm_test::LogCapture log;
  bool bValue = false;
  std::int32_t iValue = 0;
  double dValue = 0.0;
  std::string sValue;
  std::unique_ptr<char[]> szValue;
  EXPECT_EQ(extractBoolean("b", kList, bValue), 0);
  EXPECT_TRUE(bValue);
  EXPECT_EQ(extractInteger("d", kList, iValue), 0);
  EXPECT_EQ(iValue, 2);
  EXPECT_EQ(extractNumber("i", kList, dValue), 0);
  EXPECT_EQ(dValue, 7.0);
  EXPECT_EQ(extractString("d", kList, szValue), 0);
  EXPECT_STREQ(szValue.get(), "2.5");
  EXPECT_EQ(extractString("s", kList, sValue), 0);
  EXPECT_EQ(sValue, "x");
  EXPECT_EQ(extractInteger("absent", kList, iValue), -1);
  EXPECT_EQ(extractInteger("i", "", iValue), -1);
  EXPECT_EQ(extractInteger(nullptr, kList, iValue), -1);
  EXPECT_EQ(extractInteger("i", nullptr, iValue), -1);
  EXPECT_EQ(iValue, 2);
  EXPECT_TRUE(log.messages().empty());
}

TEST(Extract, LogsAnErrorAndThrowsNothing) {
  bool bValue = true;
  std::int32_t iValue = 9;
  double dValue = 9.0;
  std::string sValue = "old";
  std::unique_ptr<char[]> szValue;
  for (const char* const szList : {kList, "y=[01], z="}) {
    SCOPED_TRACE(szList);
    const qm_test::LogCapture log;
    EXPECT_EQ(extractBoolean("y", szList, bValue), -1);
    EXPECT_EQ(extractInteger("y", szList, iValue), -1);
    EXPECT_EQ(extractNumber("y", szList, dValue), -1);
    EXPECT_EQ(extractString("y", szList, sValue), -1);
    EXPECT_EQ(extractString("y", szList, szValue), -1);
    EXPECT_GE(log.messages().size(), 5U);
    for (const qm_test::LoggedMessage& message : log.messages()) {
      EXPECT_EQ(message.level, qm_err::kLogException);
      EXPECT_EQ(message.tag, "Exception CATCH");
    }
  }
  EXPECT_TRUE(bValue);
  EXPECT_EQ(iValue, 9);
  EXPECT_EQ(dValue, 9.0);
  EXPECT_EQ(sValue, "old");
  EXPECT_EQ(szValue, nullptr);
}

}  // namespace
