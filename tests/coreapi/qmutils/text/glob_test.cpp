#include <gtest/gtest.h>
#include <string>
#include <string_view>

#include "coreapi/qmutils/text/jglob.h"

namespace {

using qm_utils::matchesGlob;

struct GlobRow {
  std::string_view name;
  std::string_view pattern;
  std::string_view text;
  bool matches;
};

TEST(Glob, MatchesWholeTextsByItsRules) {
  using namespace std::string_view_literals;
  const GlobRow rows[] = {
      {"end matches end", "", "", true},
      {"end matches nothing else", "", "a", false},
      {"star takes nothing", "*", "", true},
      {"star takes a NUL", "a*b", "a\0b"sv, true},
      {"case counts", "Cam", "cam", false},
      {"one byte", "a?c", "abc", true},
      {"one byte must be there", "a?c", "ac", false},
      {"not the end", "ab?", "ab", false},
      {"star looks for the last fit", "*ab", "abaab", true},
      {"the text goes on", "*ab", "abaabc", false},
      {"run of an earlier star stays", "a*b*c", "axbxbxc", true},
      {"overlapping tries", "*aab*", "aaaab", true},
      {"range", "video/x-qmv[1-2]", "video/x-qmv2", true},
      {"outside the range", "video/x-qmv[1-2]", "video/x-qmv3", false},
      {"range of high bytes", "[\x80-\xff]", "\xc3", true},
      {"turned range", "[z-a]", "m", false},
      {"minus in front of the close", "[a-]", "-", true},
      {"minus in front of the close is no range", "[a-]", "b", false},
      {"minus first", "[-a]", "-", true},
      {"escaped close", "[\\]]", "]", true},
      {"escape ends a range", "[a-\\c]", "b", true},
      {"escaped minus", "[a\\-z]", "m", false},
      {"no negation", "[^a]", "^", true},
      {"no negation of others", "[^a]", "b", false},
      {"star in a set is itself", "[*]", "*", true},
      {"empty set", "[]", "]", false},
      {"set at the end of the text", "a[b]", "a", false},
      {"open set", "[abc", "a", false},
      {"open set behind a star", "*[a-", "a", false},
      {"escaped star", "a\\*", "a*", true},
      {"escaped star is no star", "a\\*", "ab", false},
      {"escape at the end", "a\\", "a\\", false},
      {"close outside a set", "a]", "a]", true},
  };
  for (const GlobRow& row : rows) {
    EXPECT_EQ(matchesGlob(row.pattern, row.text), row.matches) << row.name;
  }
}

// A matcher that tries every run of every star would not come back.
TEST(Glob, ManyStarsComeToAnEnd) {
  std::string sPattern;
  for (int i = 0; i < 2000; ++i) {
    sPattern += "*a";
  }
  EXPECT_FALSE(matchesGlob(sPattern + "b", std::string(20'000, 'a')));
  EXPECT_TRUE(matchesGlob(sPattern, std::string(20'000, 'a')));
}

}  // namespace
