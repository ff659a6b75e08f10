#include "coreapi/platform/plainprint.h"

#include <climits>
#include <cstdio>
#include <gtest/gtest.h>
#include <string>

namespace {

/// Whether the format is plain; if so, its text is compared with the C library's at every size of the buffer.
[[gnu::format(printf, 1, 2)]] bool isPlain(const char* szFormat, ...) {
  va_list arguments;
  va_start(arguments, szFormat);
  bool bPlain = true;
  for (std::size_t size = 1; size <= 64; ++size) {
    std::string sPlain(size + 1, '#');
    std::string sLibrary(size + 1, '#');
    int iPlain = -1;
    bPlain = qm_platform::printPlain(sPlain.data(), size, szFormat, arguments, iPlain) && bPlain;
    va_list copy;
    va_copy(copy, arguments);
    const int iLibrary = std::vsnprintf(sLibrary.data(), size, szFormat, copy);
    va_end(copy);
    if (bPlain) {
      EXPECT_EQ(std::string(sPlain.c_str()), std::string(sLibrary.c_str()));
      EXPECT_EQ(iPlain, iLibrary);
      EXPECT_EQ(sPlain[size], '#');
    }
  }
  va_end(arguments);
  return bPlain;
}

TEST(PlainPrint, GivesWhatTheCLibraryGives) {
  EXPECT_TRUE(isPlain("%s", ""));
  EXPECT_TRUE(isPlain("no conversion"));
  EXPECT_TRUE(isPlain("%%|%c|%s|%%", 'x', "a%sb"));
  EXPECT_TRUE(isPlain("%d %d %d %i", 0, INT_MAX, INT_MIN, -7));
  EXPECT_TRUE(isPlain("%u %x %x", UINT_MAX, 0xABCDEFU, 0U));
  EXPECT_TRUE(isPlain("%ld %li %lu %lx", LONG_MIN, -1L, ULONG_MAX, ULONG_MAX));
  EXPECT_TRUE(isPlain("%lld %llu %llx", LLONG_MIN, ULLONG_MAX, 1ULL << 63));
  EXPECT_TRUE(isPlain("%zu %zx", SIZE_MAX, std::size_t{10}));
  EXPECT_TRUE(isPlain("%d%s%u%s%d%s%d%s%d", 1, "two", 3U, "four", 5, "six", 7, "eight", 9));
  const char* szNull = nullptr;
  EXPECT_TRUE(isPlain("<%s>", szNull));
}

TEST(PlainPrint, LeavesEverythingElseAlone) {
  EXPECT_FALSE(isPlain("%5d", 1));
  EXPECT_FALSE(isPlain("%-5s", "a"));
  EXPECT_FALSE(isPlain("%.3s", "abcd"));
  EXPECT_FALSE(isPlain("%08x", 1U));
  EXPECT_FALSE(isPlain("%d %g", 1, 2.5));
  EXPECT_FALSE(isPlain("%X", 1U));
  EXPECT_FALSE(isPlain("%p", static_cast<void*>(nullptr)));
  EXPECT_FALSE(isPlain("%hd", 1));
  EXPECT_FALSE(isPlain("%ls", L"wide"));
}

TEST(PlainPrint, NeedsABuffer) {
  const auto print = [](const char* szFormat, ...) {
    va_list arguments;
    va_start(arguments, szFormat);
    int iLength = 0;
    const bool bPrinted = qm_platform::printPlain(nullptr, 0, szFormat, arguments, iLength);
    va_end(arguments);
    return bPrinted;
  };
  EXPECT_FALSE(print("%d", 1));
}

}  // namespace
