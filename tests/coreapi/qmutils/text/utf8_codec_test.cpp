#include <cstdint>
#include <gmock/gmock.h>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "coreapi/qmutils/text/jutf8codec.h"
#include "coreapi/qmutils/text/utf8blocks.h"

namespace {

struct PairCase {
  const char* name;
  std::u16string sWide;
  std::string sUtf8;
};

TEST(Codec, ConvertsIntoEachOther) {
  const PairCase rows[] = {{"Empty", u"", ""},
                           {"Accent", u"\u00E9", "\xC3\xA9"},
                           {"LastOfOneByte", u"\x7F", "\x7F"},
                           {"FirstOfTwo", u"\u0080", "\xC2\x80"},
                           {"LastOfTwo", u"\u07FF", "\xDF\xBF"},
                           {"FirstOfThree", u"\u0800", "\xE0\xA0\x80"},
                           {"LastOfThree", u"\uFFFF", "\xEF\xBF\xBF"},
                           {"SurrogatePair", u"\U0001F600", "\xED\xA0\xBD\xED\xB8\x80"},
                           {"HalfAPair", std::u16string(1, 0xD800), "\xED\xA0\x80"}};
  for (const PairCase& row : rows) {
    SCOPED_TRACE(row.name);
    const auto& [name, sWide, sUtf8] = row;
    EXPECT_EQ(JUTF8Codec::toUtf8(sWide.c_str()), sUtf8);
    EXPECT_EQ(JUTF8Codec::toWide(sUtf8.c_str()), sWide);
    EXPECT_EQ(JUTF8Codec::getUtf8Length(sWide.c_str()), sUtf8.size());
    EXPECT_EQ(JUTF8Codec::getWideLength(sUtf8.c_str()), sWide.size());
  }
}

struct WideCase {
  const char* name;
  std::string sUtf8;
  std::vector<std::uint16_t> units;
  std::size_t length;  ///< as `getWideLength` counts
};

TEST(Codec, IrregularUtf8BecomesTheUnitsOfTheTable) {
  const WideCase rows[] = {{"FourBytes", "\xF0\x9F\x98\x80.", {0xF600, '.'}, 2},
                           {"LastFourBytes", "\xF7\xBF\xBF\xBF.", {0xFFFF, '.'}, 2},
                           {"FiveBytes", "\xF8\x81\x82\x83\x84.", {0x20C4, '.'}, 2},
                           {"SixBytes", "\xFD\x81\x82\x83\x84\x85.", {0x3105, '.'}, 2},
                           {"ContinuationsUnchecked", "\xC3\x41\xE4\x42\x43.", {0x00C1, 0x4083, '.'}, 3},
                           {"OverlongThree", "\xE0\x80\x80.", {0, '.'}, 2},
                           {"ContinuationFirst", "a\x80z", {'a'}, 1},
                           {"OverlongTwo", "a\xC1\x81z", {'a'}, 1},
                           {"ByteFE", "a\xFEz", {'a'}, 1},
                           {"ByteFF", "a\xFFz", {'a'}, 1},
                           {"CutTwo", "a\xC3", {'a'}, 2},
                           {"CutThree", "a\xE2\x82", {'a'}, 2},
                           {"CutSix", "a\xFC\x80\x80\x80\x80", {'a'}, 2}};
  for (const WideCase& row : rows) {
    SCOPED_TRACE(row.name);
    const auto& [name, sUtf8, units, length] = row;
    // The same again behind and before enough text that it goes in blocks.
    for (const std::string& sAround :
         {std::string(), std::string(40, 'a'), std::string(41, 'b') + "\xC3\xA9"}) {
      const std::u16string sWideAround = JUTF8Codec::toWide(sAround.c_str());
      EXPECT_EQ(JUTF8Codec::toWide((sAround + sUtf8).c_str()),
                sWideAround + std::u16string(units.begin(), units.end()));
      EXPECT_EQ(JUTF8Codec::getWideLength((sAround + sUtf8).c_str()), sWideAround.size() + length);
    }
  }
}

TEST(Codec, NothingGivesAnEmptyResult) {
  const char16_t* const szNoWide = nullptr;
  const char* const szNoUtf8 = nullptr;
  char szBytes[4] = "abc";
  char16_t szUnits[4] = u"abc";
  JUTF8Codec::toUtf8(u"x", szBytes, 0);
  JUTF8Codec::toWide("x", szUnits, -1);
  EXPECT_STREQ(szBytes, "abc");
  EXPECT_EQ(std::u16string(szUnits), u"abc");
  JUTF8Codec::toUtf8(szNoWide, szBytes, 4);
  JUTF8Codec::toWide(szNoUtf8, szUnits, 4);
  EXPECT_EQ(szBytes[0], '\0');
  EXPECT_EQ(szUnits[0], u'\0');
  szBytes[0] = 'a';
  szUnits[0] = u'a';
  EXPECT_EQ(JUTF8Codec::toUtf8(szNoWide, szBytes)[0], '\0');
  EXPECT_EQ(JUTF8Codec::toWide(szNoUtf8, szUnits)[0], u'\0');
  EXPECT_EQ(JUTF8Codec::toUtf8(szNoWide), "");
  EXPECT_EQ(JUTF8Codec::toWide(szNoUtf8), u"");
  EXPECT_EQ(JUTF8Codec::getUtf8Length(nullptr), 0U);
  EXPECT_EQ(JUTF8Codec::getWideLength(nullptr), 0U);
}

TEST(Codec, NewArraysAreEndedAndHaveTheirLength) {
  std::unique_ptr<char[]> pBytes = std::make_unique<char[]>(1);
  std::unique_ptr<char16_t[]> pUnits = std::make_unique<char16_t[]>(1);
  EXPECT_EQ(JUTF8Codec::toUtf8(nullptr, pBytes), 0U);
  EXPECT_EQ(JUTF8Codec::toWide(nullptr, pUnits), 0U);
  EXPECT_EQ(pBytes, nullptr);
  EXPECT_EQ(pUnits, nullptr);
  EXPECT_EQ(JUTF8Codec::toUtf8(u"", pBytes), 0U);
  EXPECT_EQ(JUTF8Codec::toWide("", pUnits), 0U);
  EXPECT_STREQ(pBytes.get(), "");
  EXPECT_EQ(std::u16string(pUnits.get()), u"");
  EXPECT_EQ(JUTF8Codec::toUtf8(u"\u20ACb", pBytes), 4U);
  EXPECT_EQ(JUTF8Codec::toWide("\xE2\x82\xAC"
                               "b\xC3",
                               pUnits),
            2U);
  EXPECT_STREQ(pBytes.get(),
               "\xE2\x82\xAC"
               "b");
  EXPECT_EQ(std::u16string(pUnits.get()), u"\u20ACb");
}

// ---- Conversion in blocks against conversion by the table ----

std::string utf8ByTable(const std::u16string& sWide, std::size_t room) {
  std::string sUtf8;
  for (const char16_t unit : sWide) {
    std::string sBytes;
    if (unit < 0x80) {
      sBytes = {static_cast<char>(unit)};
    } else if (unit < 0x800) {
      sBytes = {static_cast<char>(0xC0 | unit >> 6), static_cast<char>(0x80 | (unit & 0x3F))};
    } else {
      sBytes = {static_cast<char>(0xE0 | unit >> 12), static_cast<char>(0x80 | (unit >> 6 & 0x3F)),
                static_cast<char>(0x80 | (unit & 0x3F))};
    }
    if (sUtf8.size() + sBytes.size() > room) {
      break;
    }
    sUtf8 += sBytes;
  }
  return sUtf8;
}

std::u16string wideByTable(const std::string& sUtf8, std::size_t room) {
  std::u16string sWide;
  for (std::size_t at = 0; at < sUtf8.size() && sWide.size() < room;) {
    const auto byte = [&](std::size_t i) {
      return static_cast<unsigned>(static_cast<unsigned char>(sUtf8[at + i]));
    };
    const unsigned first = byte(0);
    const std::size_t length = first < 0x80   ? 1
                               : first < 0xC2 ? 0
                               : first < 0xE0 ? 2
                               : first < 0xF0 ? 3
                               : first < 0xF8 ? 4
                               : first < 0xFC ? 5
                               : first < 0xFE ? 6
                                              : 0;
    if (length == 0 || length > sUtf8.size() - at) {
      break;
    }
    unsigned unit = first;
    if (length == 2) {
      unit = (first & 0x1F) << 6 | (byte(1) & 0x3F);
    } else if (length == 3) {
      unit = (first & 0x0F) << 12 | (byte(1) & 0x3F) << 6 | (byte(2) & 0x3F);
    } else if (length > 3) {
      unit = (byte(length - 3) & 0x3F) << 12 | (byte(length - 2) & 0x3F) << 6 | (byte(length - 1) & 0x3F);
    }
    sWide += static_cast<char16_t>(unit);
    at += length;
  }
  return sWide;
}

/// A text whose units come in runs of one kind of length, as in real text.
std::u16string randomText(std::mt19937& random, std::size_t length) {
  static constexpr char16_t kFirst[] = {0x20, 0x80, 0x800, 0x20};
  static constexpr char16_t kCount[] = {0x5F, 0x780, 0xF800, 0xFFE0};
  std::u16string sText;
  while (sText.size() < length) {
    const std::size_t kind = random() % 4;
    for (std::size_t run = 1 + random() % 24; run != 0 && sText.size() < length; --run) {
      sText += static_cast<char16_t>(kFirst[kind] + random() % kCount[kind]);
    }
  }
  return sText;
}

/// What an array of exactly this size holds after a conversion into it.
template <class Unit, class From>
std::basic_string<Unit> converted(const From* szFrom, std::size_t size) {
  const std::unique_ptr<Unit[]> pBuffer(new Unit[size]);
  if constexpr (sizeof(Unit) == 1) {
    return JUTF8Codec::toUtf8(szFrom, pBuffer.get(), static_cast<std::ptrdiff_t>(size));
  } else {
    return JUTF8Codec::toWide(szFrom, pBuffer.get(), static_cast<std::ptrdiff_t>(size));
  }
}

TEST(CodecInBlocks, AgreesWithTheTableForEveryLengthAndRoom) {
  std::mt19937 random(20110303);
  for (std::size_t length = 0; length < 160; ++length) {
    const std::u16string sWide = randomText(random, length);
    const std::string sUtf8 = utf8ByTable(sWide, 1000);
    ASSERT_EQ(JUTF8Codec::toUtf8(sWide.c_str()), sUtf8);
    ASSERT_EQ(JUTF8Codec::toWide(sUtf8.c_str()), sWide);
    for (std::size_t size = 1; size <= sUtf8.size() + 1; size += 1 + random() % 7) {
      ASSERT_EQ(converted<char>(sWide.c_str(), size), utf8ByTable(sWide, size - 1))
          << length << " in " << size;
      ASSERT_EQ(converted<char16_t>(sUtf8.c_str(), size), wideByTable(sUtf8, size - 1))
          << length << " in " << size;
    }
  }
}

TEST(CodecInBlocks, AgreesWithTheTableOnDamagedText) {
  std::mt19937 random(20110304);
  for (int round = 0; round < 20'000; ++round) {
    std::string sUtf8 = utf8ByTable(randomText(random, 10 + random() % 90), 1000);
    for (std::size_t damage = random() % 3; damage != 0; --damage) {
      sUtf8[random() % sUtf8.size()] = static_cast<char>(1 + random() % 255);
    }
    sUtf8.resize(sUtf8.size() - random() % 3);
    ASSERT_EQ(converted<char16_t>(sUtf8.c_str(), sUtf8.size() + 1), wideByTable(sUtf8, sUtf8.size()));
  }
}

TEST(CodecInBlocks, AsciiAloneGoesOnEveryProcessor) {
  const std::u16string sWide = std::u16string(70, u'w') + u"é" + std::u16string(40, u'x');
  std::vector<char> bytes(200);
  qm_utils::EncodeCursor encode{sWide.data(), sWide.data() + sWide.size(), bytes.data(), bytes.size()};
  qm_utils::encodeAsciiBlocks(encode);
  EXPECT_EQ(std::string(bytes.data(), encode.pTo), std::string(64, 'w'));
  EXPECT_EQ(encode.left(), sWide.size() - 64);
  EXPECT_EQ(encode.room, bytes.size() - 64);

  const std::string sUtf8 = std::string(70, 'w') + "é" + std::string(40, 'x');
  std::vector<char16_t> units(90);
  qm_utils::DecodeCursor decode{sUtf8.data(), sUtf8.data() + sUtf8.size(), units.data(), units.size()};
  qm_utils::decodeAsciiBlocks(decode);
  EXPECT_EQ(std::u16string(units.data(), decode.pTo), std::u16string(64, u'w'));
  EXPECT_EQ(decode.left(), sUtf8.size() - 64);
  EXPECT_EQ(decode.room, units.size() - 64);
}

TEST(CodecInBlocks, LengthIsFoundAtEveryAlignment) {
  for (std::size_t start = 0; start < 9; ++start) {
    for (std::size_t length = 0; length < 40; ++length) {
      std::vector<char16_t> units(start + length + 1, u'x');
      units.back() = u'\0';
      EXPECT_EQ(qm_utils::wideLength(units.data() + start), length);
    }
  }
}

}  // namespace
