#include <gmock/gmock.h>
#include <limits>
#include <map>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "coreapi/qmutils/rpc/jrpccontainers.h"
#include "coreapi/qmutils/rpc/jrpcserialisation.h"
#include "tests/support/logcapture.h"
#include "tests/support/thrownby.h"

namespace {

using qm_test::thrownBy;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::MatchesRegex;

/// The object of the worked example: a number and a list of numbers.
class Item : public JRPCObject {
 public:
  explicit Item(const char* szObjectName = "Item") : JRPCObject(szObjectName) {}

  void serialise(JRPCSerialisation& target) const override {
    target.serialise("A", iNumber);
    target.serialise("L", const_jrpc_vector_ref<int>(list));
  }
  void deserialise(JRPCDeserialisation& source, bool bRequired) override {
    source.deserialise("A", iNumber, bRequired);
    jrpc_vector_ref<int> listRef(list);
    source.deserialise("L", listRef, bRequired);
  }

  int iNumber = 0;
  std::vector<int> list;
};

std::string textOf(const char* szName, const JRPCObject& object) {
  JRPCSerialisation target;
  target.serialise(szName, object);
  std::string sText;
  target.raw_serialisation(sText);
  return sText;
}

const char* const kItemText =
    "Item_Item__A=1, Item_Item__jrpc_vector_L__size=2, Item_Item__jrpc_vector_L__vec0=7, "
    "Item_Item__jrpc_vector_L__vec1=9";

TEST(Serialisation, ANestedObjectIsFlattenedByPrefixes) {
  Item item;
  item.iNumber = 1;
  item.list = {7, 9};
  EXPECT_EQ(textOf("Item", item), kItemText);

  JParams params;
  JRPCSerialisation(&params).serialise("Item", item);
  std::string sText;
  params.toText(sText);
  EXPECT_EQ(sText, kItemText) << "straight into a list";

  JRPCSerialisation chained;
  chained.serialise("Item", item);
  JVariant head;
  chained.toChain(head);
  head.toText(sText);
  EXPECT_EQ(sText, kItemText) << "as a chain for a call";

  Item back;
  JRPCDeserialisation source(kItemText);
  EXPECT_TRUE(source.deserialise("Item", back, true));
  EXPECT_EQ(back.iNumber, 1);
  EXPECT_THAT(back.list, ElementsAre(7, 9));
  source.raw_deserialisation(sText);
  EXPECT_EQ(sText, kItemText);
}

TEST(Serialisation, KeysAreMadeOfBareObjectNamesAndStandInByteOrder) {
  EXPECT_THAT(textOf("name", Item("x<y>")), HasSubstr("x_name__A=0"));
  EXPECT_THAT(textOf("name", Item("a::b::c<d::e>")), HasSubstr("a00b00c_name__A=0"));
  std::vector<int> numbers(11, 5);
  EXPECT_THAT(textOf("v", jrpc_vector_ref<int>(numbers)), MatchesRegex(".*vec1=5, .*vec10=5, .*vec2=5.*"));
}

TEST(Serialisation, RefusesWhatCannotBeWritten) {
  JRPCSerialisation target;
  target.serialise("e", JRPCObject("Empty"));
  const std::uint8_t byte = 0;
  std::string sText = "before";
  EXPECT_THAT(
      thrownBy([&] { target.raw_serialisation(sText); }),
      MatchesRegex(
          R"(jrpcserialisation.cpp\([0-9]+\) : function raw_serialisation : serialisarion is empty)"));
  EXPECT_THAT(thrownBy([&] { target.linkVar(); }), HasSubstr(" : function linkVar : serialisarion is empty"));
  EXPECT_EQ(thrownBy([&] { target.serialise("x", nullptr, 1); }), "Unexpected null pointer: 'pblob'");
  EXPECT_THAT(thrownBy([&] { target.serialise("x", &byte, 0); }),
              HasSubstr(" : function serialise : blob size is 0"));
  JParams params;
  JRPCSerialisation intoList(&params);
  intoList.serialise("e", JRPCObject("Empty"));
  intoList.raw_serialisation(sText);
  EXPECT_EQ(sText, "") << "an empty list is none";
}

TEST(Serialisation, EveryValueTypeTravels) {
  const auto values =
      std::tuple(true, std::int8_t{-8}, std::uint8_t{200}, std::int16_t{-16}, std::uint16_t{60000},
                 std::int32_t{-32}, std::uint32_t{4000000000U}, std::numeric_limits<std::int64_t>::min(),
                 std::numeric_limits<std::uint64_t>::max(), 0.5F, -2.25, std::string("a\"b"));
  const auto forEach = [&values](auto work) {
    char cName = 'a';
    std::apply([&](const auto&... value) { (work(std::string(1, cName++), value), ...); }, values);
  };
  JRPCSerialisation target;
  target.serialise("a", 5);  // replaced
  forEach([&](const std::string& sName, const auto& value) { target.serialise(sName, value); });
  target.serialise("y", "text");
  const std::uint8_t bytes[] = {0, 255};
  target.serialise("z", bytes, 2);
  std::string sText;
  target.raw_serialisation(sText);
  EXPECT_EQ(sText,
            "a=true, b=-8, c=200, d=-16, e=60000, f=-32, g=4000000000, h=-9223372036854775808, i=-1, j=0.5, "
            "k=-2.25, l=\"a\\\"b\", y=\"text\", z=[00FF]");

  JRPCDeserialisation source(sText);
  forEach([&](const std::string& sName, const auto& expected) {
    std::decay_t<decltype(expected)> value{};
    EXPECT_TRUE(source.deserialise(sName, value, true));
    EXPECT_EQ(value, expected) << sName;
  });
  std::unique_ptr<char[]> szText;
  EXPECT_TRUE(source.deserialise("y", szText, true));
  EXPECT_STREQ(szText.get(), "text");
  std::unique_ptr<std::uint8_t[]> pBytes;
  std::uint32_t uSize = 0;
  EXPECT_TRUE(source.deserialise("z", &pBytes, uSize, true));
  ASSERT_EQ(uSize, 2U);
  EXPECT_EQ(pBytes[1], 255);
  EXPECT_FALSE(source.deserialise("none", &pBytes, uSize, false));
  EXPECT_TRUE(pBytes == nullptr && uSize == 0);
}

TEST(Deserialisation, AMissingValueIsAnErrorOnlyWhenItIsRequired) {
  JRPCDeserialisation source("a=\"12\", t=\"x\"");
  int iValue = 5;
  EXPECT_TRUE(source.deserialise("a", iValue, true));
  EXPECT_EQ(iValue, 12);
  EXPECT_FALSE(source.deserialise("b", iValue, false));
  EXPECT_EQ(iValue, 12);
  EXPECT_THAT(
      thrownBy([&] { source.deserialise("b", iValue, true); }),
      MatchesRegex(R"(jrpcserialisation.cpp\([0-9]+\) : function deserialise\(b\) : cannot deserialise)"));
  EXPECT_EQ(thrownBy([&] { source.deserialise("t", iValue, false); }),
            "TypeMismatchError for parameter 't' : wanted '3', actual '5'");
  std::uint32_t uSize = 7;
  EXPECT_EQ(thrownBy([&] { source.deserialise("b", nullptr, uSize, false); }),
            "Unexpected null pointer: 'pblob'");
  EXPECT_EQ(thrownBy([] { JRPCDeserialisation(nullptr, false); }), "Unexpected null pointer: 'm_pjparams'");
  EXPECT_THAT(thrownBy([] { JRPCDeserialisation("a"); }), HasSubstr("garbage instead of '='"));
}

TEST(Deserialisation, AnOptionalObjectThatIsIncompleteLeavesThePrefixAsItWas) {
  const qm_test::LogCapture log;
  JRPCDeserialisation source("Item_X__A=1, Item_X__jrpc_vector_L__size=1, top=3");
  Item item;
  EXPECT_FALSE(source.deserialise("X", item, false));
  int iTop = 0;
  EXPECT_TRUE(source.deserialise("top", iTop, true));
  EXPECT_THAT(thrownBy([&] { source.deserialise("X", item, true); }), HasSubstr("deserialise(vec0)"));
  EXPECT_TRUE(source.deserialise("top", iTop, true));
  EXPECT_FALSE(log.messages().empty());
  source.reset();
  EXPECT_FALSE(source.deserialise("top", iTop, false));
}

// Containers.

/// Writes a container, compares its text, and reads it back over another one.
template <typename Ref, typename Container>
void expectTravels(Container container, Container old, const std::string& sText) {
  const std::string sWritten = textOf("C", Ref(container));
  EXPECT_EQ(sWritten, sText);
  JRPCDeserialisation source(sWritten);
  Ref ref(old);
  EXPECT_TRUE(source.deserialise("C", ref, true));
  EXPECT_EQ(old, container);
}

TEST(Containers, Travel) {
  using Pairs = std::vector<std::pair<int, std::string>>;
  using Map = std::map<std::string, Pairs>;
  expectTravels<jrpc_map_ref<std::string, Pairs>>(
      Map{{"cam 1", {{25, "v"}}}, {"cam 2", {}}}, Map{{"old", {}}},
      "jrpc_map_C__jrpc_vector_map0_second__jrpc_pair_vec0__first=25, "
      "jrpc_map_C__jrpc_vector_map0_second__jrpc_pair_vec0__second=\"v\", "
      "jrpc_map_C__jrpc_vector_map0_second__size=1, jrpc_map_C__jrpc_vector_map1_second__size=0, "
      "jrpc_map_C__map0_first=\"cam 1\", jrpc_map_C__map1_first=\"cam 2\", jrpc_map_C__size=2");
  expectTravels<jrpc_vector_ref<int>>(std::vector<int>{}, std::vector{1, 2}, "jrpc_vector_C__size=0");

  jrpc_set<std::string> set;
  set.insert("b");
  set.insert("a");
  jrpc_set<std::string> back;
  back.insert("old");
  const std::string sText = textOf("S", set);
  EXPECT_EQ(sText, "jrpc_set_S__set0=\"a\", jrpc_set_S__set1=\"b\", jrpc_set_S__size=2");
  EXPECT_TRUE(JRPCDeserialisation(sText).deserialise("S", back, true));
  EXPECT_THAT(back, ElementsAre("a", "b"));
}

struct LyingCase {
  const char* name;
  const char* text;
  const char* missing;
};

/// A count is the first thing that a hostile peer lies about.
TEST(Containers, CountsThatTheListCannotHoldAreRefusedWithoutMemoryForThem) {
  for (const LyingCase& row :
       {LyingCase{"NoSize", "jrpc_vector_V__vec0=1", "deserialise(size)"},
        LyingCase{"TooMany", "jrpc_vector_V__size=4294967295, jrpc_vector_V__vec0=1", "deserialise(vec1)"},
        LyingCase{"Negative", "jrpc_vector_V__size=-1", "deserialise(vec0)"}}) {
    std::vector<int> numbers = {1, 2, 3};
    jrpc_vector_ref ref(numbers);
    JRPCDeserialisation source(row.text);
    EXPECT_THAT(thrownBy([&] { source.deserialise("V", ref, true); }), HasSubstr(row.missing)) << row.name;
    EXPECT_LE(numbers.capacity(), 3U) << row.name;
  }
}

}  // namespace
