#include <gmock/gmock.h>
#include <limits>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/rpc/jrpccontainers.h"
#include "coreapi/qmutils/rpc/jrpcserialisation.h"
#include "tests/coreapi/qmutils/rpc/thrownby.h"
#include "tests/support/logcapture.h"

namespace {

using qm_test::thrownBy;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::Pair;

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

class Empty : public JRPCObject {
 public:
  Empty() : JRPCObject("Empty") {}
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

TEST(Serialisation, ObjectNamesLoseTheirTemplateArgumentsAndColons) {
  EXPECT_THAT(textOf("name", Item("x<y>")), HasSubstr("x_name__A=0"));
  EXPECT_THAT(textOf("name", Item("a::b::c<d::e>")), HasSubstr("a00b00c_name__A=0"));
}

TEST(Serialisation, KeysStandInByteOrder) {
  std::vector<int> numbers(11, 5);
  EXPECT_THAT(textOf("v", jrpc_vector_ref<int>(numbers)), MatchesRegex(".*vec1=5, .*vec10=5, .*vec2=5.*"));
}

TEST(Serialisation, AnObjectWithoutMembersFailsUnlessItGoesIntoAList) {
  JRPCSerialisation target;
  target.serialise("e", Empty());
  std::string sText = "before";
  EXPECT_THAT(
      thrownBy([&] { target.raw_serialisation(sText); }),
      MatchesRegex(
          R"(jrpcserialisation.cpp\([0-9]+\) : function raw_serialisation : serialisarion is empty)"));
  EXPECT_THAT(thrownBy([&] { target.linkVar(); }),
              MatchesRegex(R"(jrpcserialisation.cpp\([0-9]+\) : function linkVar : serialisarion is empty)"));
  JParams params;
  JRPCSerialisation intoList(&params);
  intoList.serialise("e", Empty());
  intoList.raw_serialisation(sText);
  EXPECT_EQ(sText, "");
}

TEST(Serialisation, EveryValueTypeTravels) {
  JRPCSerialisation target;
  target.serialise("b", true);
  target.serialise("i8", std::int8_t{-8});
  target.serialise("u8", std::uint8_t{200});
  target.serialise("i16", std::int16_t{-16});
  target.serialise("u16", std::uint16_t{60000});
  target.serialise("i32", std::int32_t{-32});
  target.serialise("u32", std::uint32_t{4000000000U});
  target.serialise("i64", std::numeric_limits<std::int64_t>::min());
  target.serialise("u64", std::numeric_limits<std::uint64_t>::max());
  target.serialise("f", 0.5F);
  target.serialise("d", -2.25);
  target.serialise("s", std::string("a\"b"));
  target.serialise("z", "text");
  const std::uint8_t bytes[] = {0, 255};
  target.serialise("x", bytes, 2);
  target.serialise("b", false);
  std::string sText;
  target.raw_serialisation(sText);
  EXPECT_EQ(sText,
            "b=false, d=-2.25, f=0.5, i16=-16, i32=-32, i64=-9223372036854775808, i8=-8, s=\"a\\\"b\", "
            "u16=60000, u32=4000000000, u64=-1, u8=200, x=[00FF], z=\"text\"");

  JRPCDeserialisation source(sText);
  const auto reads = [&source](const char* szName, auto expected) {
    decltype(expected) value{};
    EXPECT_TRUE(source.deserialise(szName, value, true)) << szName;
    EXPECT_EQ(value, expected) << szName;
  };
  reads("b", false);
  reads("i8", std::int8_t{-8});
  reads("u8", std::uint8_t{200});
  reads("i16", std::int16_t{-16});
  reads("u16", std::uint16_t{60000});
  reads("i32", std::int32_t{-32});
  reads("u32", std::uint32_t{4000000000U});
  reads("i64", std::numeric_limits<std::int64_t>::min());
  reads("u64", std::numeric_limits<std::uint64_t>::max());
  reads("f", 0.5F);
  reads("d", -2.25);
  reads("s", std::string("a\"b"));
  std::unique_ptr<char[]> szText;
  EXPECT_TRUE(source.deserialise("z", szText, true));
  EXPECT_STREQ(szText.get(), "text");
  std::unique_ptr<std::uint8_t[]> pBytes;
  std::uint32_t uSize = 0;
  EXPECT_TRUE(source.deserialise("x", &pBytes, uSize, true));
  ASSERT_EQ(uSize, 2U);
  EXPECT_EQ(pBytes[1], 255);
}

TEST(Serialisation, BlobsAreCheckedBeforeTheyAreWritten) {
  JRPCSerialisation target;
  const std::uint8_t byte = 0;
  EXPECT_EQ(thrownBy([&] { target.serialise("x", nullptr, 1); }), "Unexpected null pointer: 'pblob'");
  EXPECT_THAT(thrownBy([&] { target.serialise("x", &byte, 0); }),
              MatchesRegex(".* : function serialise : blob size is 0"));
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
  std::unique_ptr<std::uint8_t[]> pBytes = std::make_unique<std::uint8_t[]>(1);
  std::uint32_t uSize = 7;
  EXPECT_FALSE(source.deserialise("b", &pBytes, uSize, false));
  EXPECT_EQ(pBytes, nullptr);
  EXPECT_EQ(uSize, 0U);
  EXPECT_EQ(thrownBy([&] { source.deserialise("b", nullptr, uSize, false); }),
            "Unexpected null pointer: 'pblob'");
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

TEST(Deserialisation, ConstructorsRefuseWhatTheyCannotRead) {
  EXPECT_EQ(thrownBy([] { JRPCDeserialisation(nullptr, false); }), "Unexpected null pointer: 'm_pjparams'");
  EXPECT_THAT(thrownBy([] { JRPCDeserialisation("a"); }), HasSubstr("garbage instead of '='"));
  int iValue = 0;
  auto pParams = std::make_unique<JParams>();
  pParams->parse("a=4");
  EXPECT_TRUE(JRPCDeserialisation(std::move(pParams)).deserialise("a", iValue, true));
  EXPECT_EQ(iValue, 4);
}

// Containers.

TEST(Containers, MapsOfVectorsOfPairsTravel) {
  std::map<std::string, std::vector<std::pair<int, std::string>>> map = {{"cam 1", {{25, "v"}, {5, "w"}}},
                                                                         {"cam 2", {}}};
  const std::string sText = textOf("M", jrpc_map_ref(map));
  EXPECT_EQ(sText,
            "jrpc_map_M__jrpc_vector_map0_second__jrpc_pair_vec0__first=25, "
            "jrpc_map_M__jrpc_vector_map0_second__jrpc_pair_vec0__second=\"v\", "
            "jrpc_map_M__jrpc_vector_map0_second__jrpc_pair_vec1__first=5, "
            "jrpc_map_M__jrpc_vector_map0_second__jrpc_pair_vec1__second=\"w\", "
            "jrpc_map_M__jrpc_vector_map0_second__size=2, jrpc_map_M__jrpc_vector_map1_second__size=0, "
            "jrpc_map_M__map0_first=\"cam 1\", jrpc_map_M__map1_first=\"cam 2\", jrpc_map_M__size=2");
  std::map<std::string, std::vector<std::pair<int, std::string>>> back = {{"old", {}}};
  jrpc_map_ref backRef(back);
  JRPCDeserialisation source(sText);
  EXPECT_TRUE(source.deserialise("M", backRef, true));
  EXPECT_EQ(back, map);
}

TEST(Containers, SetsTravel) {
  jrpc_set<std::string> set;
  set.insert("b");
  set.insert("a");
  const std::string sText = textOf("S", set);
  EXPECT_EQ(sText, "jrpc_set_S__set0=\"a\", jrpc_set_S__set1=\"b\", jrpc_set_S__size=2");
  jrpc_set<std::string> back;
  back.insert("old");
  JRPCDeserialisation source(sText);
  EXPECT_TRUE(source.deserialise("S", back, true));
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
