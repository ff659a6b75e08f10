#include <cstdint>
#include <gmock/gmock.h>
#include <string>

#include "coreapi/platform/faultseam.h"
#include "coreapi/qmutils/text/jtext.h"
#include "tests/support/thrownby.h"

namespace {

using qm_test::thrownBy;
using qm_utils::format;

TEST(Format, GivesEveryLengthWhole) {
  for (const std::size_t length : {0, 1, 511, 512, 513, 600, 100'000}) {
    const std::string sText(length, 'x');
    EXPECT_EQ(format("%s", sText.c_str()), sText);
  }
}

TEST(Format, KeepsThePointOfNumbersInAnyLocale) {
  EXPECT_EQ(format("%.2f %g", 2.5, 0.125), "2.50 0.125");
  EXPECT_EQ(format(u"%.2f %g", 2.5, 0.125), u"2.50 0.125");
}

#ifdef QM_FAULT_SEAMS
TEST(Format, SaysWhichBufferItHasNoMemoryFor) {
  const std::string sLong(600, 'x');
  const qm_platform::FaultPlan plan{static_cast<std::uint32_t>(qm_platform::Seam::kAllocation), 1};
  qm_platform::armFaults(plan);
  EXPECT_EQ(thrownBy([] { format("short"); }), "Cannot allocate space for qm_utils::format()");
  qm_platform::armFaults(plan);
  EXPECT_EQ(thrownBy([&] { format("%s", sLong.c_str()); }), "Cannot realloc space for qm_utils::format()");
  EXPECT_TRUE(qm_platform::disarmFaults());
}
#endif

TEST(Format, GivesUpOnWhatCanNeverBePrinted) {
  const wchar_t wszNoCharacter[] = {static_cast<wchar_t>(0x110000), 0};
  EXPECT_EQ(thrownBy([&] { format("%ls", wszNoCharacter); }), "Cannot realloc space for qm_utils::format()");
  EXPECT_EQ(thrownBy([] { format(u"%y", 1); }), "Unknown conversion in the format of qm_utils::format()");
  EXPECT_EQ(thrownBy([] { format(u"50%"); }), "Unknown conversion in the format of qm_utils::format()");
}

TEST(Format, WideTakesTheConversionsOfPrintf) {
  EXPECT_EQ(format(u"plain Ω"), u"plain Ω");
  EXPECT_EQ(format(u"%d|%5d|%-5d|%05d|%+d", 1, 2, 3, 4, 5), u"1|    2|3    |00004|+5");
  EXPECT_EQ(format(u"%u %x %#X %o", 4294967295U, 255U, 255U, 8U), u"4294967295 ff 0XFF 10");
  EXPECT_EQ(format(u"%lld %lu %zu %hhd %hu %jd", -5'000'000'000LL, 7UL, std::size_t{8}, 300, 65537,
                   std::intmax_t{-1}),
            u"-5000000000 7 8 44 1 -1");
  EXPECT_EQ(format(u"%*d|%-*d|%.*f", 4, 1, 4, 2, 1, 2.25), u"   1|2   |2.2");
  EXPECT_EQ(format(u"%*d|", -4, 1), u"1   |");
  EXPECT_EQ(format(u"%Lg%%", 0.5L), u"0.5%");
}

TEST(Format, WideTakesStringsOfBothKinds) {
  EXPECT_EQ(format(u"<%s|%5s|%-5s|%.2s>", u"Ω€", u"ab", u"cd", u"xyz"), u"<Ω€|   ab|cd   |xy>");
  EXPECT_EQ(format(u"<%hs|%4hs|%.1hs>", "é€", "é", "é€"), u"<é€|   é|é>");
  EXPECT_EQ(format(u"%c%hc%3c", u'é', 'b', u'c'), u"éb  c");
  EXPECT_EQ(format(u"%s %hs", nullptr, nullptr), u"(null) (null)");
  const char16_t unended[] = {u'a', u'b'};
  EXPECT_EQ(format(u"%.2s", unended), u"ab");
  EXPECT_EQ(format(u"%s", std::u16string(600, u'é').c_str()), std::u16string(600, u'é'));
}

struct TrimCase {
  const char* name;
  std::string sText;
  std::string sBlanksLeft, sBlanksRight;  ///< without the blanks there
  std::string sSpaceLeft, sSpaceRight, sSpace;
};

TEST(Trim, RemovesWhatItsNameSays) {
  const TrimCase rows[] = {
      {"Empty", "", "", "", "", "", ""},
      {"OnlyBlanks", "  ", "", "", "", "", ""},
      {"Inside", "a b", "a b", "a b", "a b", "a b", "a b"},
      {"BothEnds", "  a b ", "a b ", "  a b", "a b ", "  a b", "a b"},
      {"OtherSpace", "\t\r\n a\v\f", "\t\r\n a\v\f", "\t\r\n a\v\f", "a\v\f", "\t\r\n a", "a"},
      {"NoBreakSpace", "\xC2\xA0", "\xC2\xA0", "\xC2\xA0", "\xC2\xA0", "\xC2\xA0", "\xC2\xA0"}};
  for (const TrimCase& row : rows) {
    SCOPED_TRACE(row.name);
    const auto after = [](auto trim, auto sText) {
      trim(sText);
      return sText;
    };
    const auto wide = [](const std::string& sText) { return std::u16string(sText.begin(), sText.end()); };
    EXPECT_EQ(after([](std::string& s) { qm_utils::trimLeft(s); }, row.sText), row.sBlanksLeft);
    EXPECT_EQ(after([](std::string& s) { qm_utils::trimRight(s); }, row.sText), row.sBlanksRight);
    EXPECT_EQ(after([](std::u16string& s) { qm_utils::trimLeft(s); }, wide(row.sText)),
              wide(row.sBlanksLeft));
    EXPECT_EQ(after([](std::u16string& s) { qm_utils::trimRight(s); }, wide(row.sText)),
              wide(row.sBlanksRight));
    EXPECT_EQ(after(qm_utils::trimSpaceLeft, row.sText), row.sSpaceLeft);
    EXPECT_EQ(after(qm_utils::trimSpaceRight, row.sText), row.sSpaceRight);
    EXPECT_EQ(after(qm_utils::trimSpace, row.sText), row.sSpace);
  }
}

}  // namespace
