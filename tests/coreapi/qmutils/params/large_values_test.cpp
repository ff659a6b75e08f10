#include <cstdint>
#include <gtest/gtest.h>
#include <map>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "coreapi/qmutils/params/jparams.h"
#include "tests/support/logcapture.h"

namespace {

/// More than what the packed entries of one stretch of names may take.
constexpr std::size_t kLarge = 300'000;

std::string textOf(const JParams& params, const std::string& sName) {
  std::string sText = "(absent)";
  params.get(sName, sText);
  return sText;
}

TEST(LargeValues, LeaveRoomForANameBelowThem) {
  const std::string sLarge(kLarge, 'x');
  JParams params;
  const std::string sText = "b=\"" + sLarge + "\",a=\"1\",aa=\"2\",c=\"3\"";
  EXPECT_EQ(params.parse(sText), sText.size());
  EXPECT_EQ(params.getNames(), (std::vector<std::string>{"a", "aa", "b", "c"}));
  EXPECT_EQ(textOf(params, "a"), "1");
  EXPECT_EQ(textOf(params, "aa"), "2");
  EXPECT_EQ(textOf(params, "b"), sLarge);
  EXPECT_EQ(textOf(params, "c"), "3");
}

/// Puts, replacements, removals and look-ups in any order, small values and large ones mixed, against an
/// ordered map.
TEST(LargeValues, KeepTheListLikeAnOrderedMap) {
  for (std::uint32_t seed = 0; seed < 4; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    JParams params;
    std::map<std::string, std::string> expected;
    for (int step = 0; step < 4000; ++step) {
      const std::string sName = "row" + std::to_string(random() % 1500) + (random() % 2 != 0 ? "__x" : "");
      switch (random() % 8) {
        case 0:
          EXPECT_EQ(params.remove(sName), expected.erase(sName) != 0);
          break;
        case 1: {
          const JVariant* const pFound = params.find(sName);
          ASSERT_EQ(pFound != nullptr, expected.contains(sName));
          if (pFound != nullptr) {
            std::string sText;
            pFound->asText(sText);
            EXPECT_EQ(sText, expected[sName]);
          }
          break;
        }
        default: {
          const std::string sText(random() % 200 == 0 ? kLarge : random() % 40, 'v');
          params.add(sName, sText);
          expected[sName] = sText;
        }
      }
    }
    ASSERT_EQ(params.getCount(), expected.size());
    std::vector<std::string> names;
    for (const auto& [sName, sText] : expected) {
      names.push_back(sName);
      EXPECT_TRUE(textOf(params, sName) == sText) << sName;
    }
    EXPECT_EQ(params.getNames(), names);
  }
}

TEST(QuotedText, EndsUnterminatedAtARawNulBeforeAnEscapeToo) {
  const qm_test::LogCapture log;
  for (const std::string_view sText :
       {std::string_view("a=\"x\0y\", b=1", 12), std::string_view("a=\"x\0y\\n\", b=1", 14),
        std::string_view("a=\"x\\ny\0\", b=1", 14)}) {
    JParams params;
    try {
      params.parse(sText);
      ADD_FAILURE() << "read beyond the end of the text";
    } catch (JVariant::SyntaxError* pError) {
      const qm_err::CaughtError error(pError);
      EXPECT_EQ(error->getMessage(), "SyntaxError for parameter: 'a' ('unterminated quoted string')");
    }
    EXPECT_TRUE(params.isEmpty());
  }
}

}  // namespace
