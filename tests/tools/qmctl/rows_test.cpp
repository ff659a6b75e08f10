#include <gmock/gmock.h>

#include "tools/qmctl/listcommands.h"
#include "tools/qmctl/text.h"

namespace {

using qmctl::RowField;

constexpr RowField kFirst[] = {{"Name", "", "", RowField::kText},
                               {"Fps", "", "", RowField::kNumber},
                               {"End", "", "", RowField::kQuoted}};
constexpr RowField kLast[] = {{"End", "", "", RowField::kQuoted}, {"Details", "", "", RowField::kText}};
constexpr RowField kRest[] = {{"End", "", "", RowField::kQuoted}, {"", "", "", RowField::kRest}};

TEST(Rows, AreTakenApartAroundTheirText) {
  struct {
    std::span<const RowField> fields;
    const char* szRow;
    std::vector<std::string> values;  ///< none when the row isn't one
  } const rows[] = {
      {kFirst, R"(Name="a",Fps=5,End="x")", {"a", "5", "x"}},
      {kFirst, R"(Name="a",Fps=5,End="x"",Fps=6,End="y")", {R"(a",Fps=5,End="x")", "6", "y"}},
      {kFirst, R"(Name="",Fps=,End="")", {"", "", ""}},
      {kFirst, R"(Name="a",Fps=5)", {}},
      {kFirst, R"(Name=")", {}},
      {kFirst, "", {}},
      {kLast, R"(End="x",Details="a",Details="b"")", {"x", R"(a",Details="b")"}},
      {kLast, R"(End="x",Details=")", {}},
      {kRest, R"(End="x",a=1, b="y")", {"x", R"(a=1, b="y")"}},
      {kRest, R"(End="x",)", {"x", ""}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.szRow);
    std::vector<std::string> values;
    EXPECT_EQ(qmctl::splitRow(row.szRow, row.fields, values), !row.values.empty());
    if (!row.values.empty()) {
      EXPECT_EQ(values, row.values);
    }
  }
}

TEST(Rows, GiveMetaDataOfEveryTypeAsJson) {
  const qmctl::Json params = qmctl::toJsonValue(
      kRest[1], R"(blob="raw", bytes=[0AFF], flag=true, half=0.5, lane=-2, name="a \"b\"")");
  EXPECT_EQ(params,
            qmctl::Json::parse(
                R"({"blob":"raw","bytes":"[0AFF]","flag":true,"half":0.5,"lane":-2,"name":"a \"b\""})"))
      << params;
  EXPECT_EQ(qmctl::toJsonValue(kRest[1], "no list"), "no list");
}

TEST(Text, PairsSurrogatesForTheUserOnly) {
  struct {
    const char* szUser;
    const char16_t* szControl;
  } const rows[] = {{"a\xC3\xA9\xE2\x82\xAC", u"a\u00E9\u20AC"},
                    {"\xF0\x9F\x98\x80", u"\xD83D\xDE00"},
                    {"\xF4\x8F\xBF\xBF", u"\xDBFF\xDFFF"}};
  for (const auto& row : rows) {
    EXPECT_EQ(qmctl::toControl(row.szUser), row.szControl);
    EXPECT_EQ(qmctl::fromControl(row.szControl), row.szUser);
  }
  EXPECT_EQ(qmctl::fromControl(u"\xD83Dx\xDE00"), "\xEF\xBF\xBDx\xEF\xBF\xBD");
  for (const char* const szBad :
       {"\x80", "\xC3", "\xC0\x80", "\xED\xA0\x80", "\xF4\x90\x80\x80", "\xE2\x82x"}) {
    EXPECT_ANY_THROW(qmctl::toControl(szBad)) << szBad;
  }
}

}  // namespace
