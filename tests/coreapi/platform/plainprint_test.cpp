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
  for (std::size_t size = 1; size <= 64 && bPlain; ++size) {
    std::string sPlain(size + 1, '#');
    std::string sLibrary(size + 1, '#');
    int iPlain = -1;
    bPlain = qm_platform::printPlain(sPlain.data(), size, szFormat, arguments, iPlain);
    va_list copy;
    va_copy(copy, arguments);
    const int iLibrary = std::vsnprintf(sLibrary.data(), size, szFormat, copy);
    va_end(copy);
    EXPECT_TRUE(!bPlain || (std::string(sPlain.c_str()) == sLibrary.c_str() && iPlain == iLibrary))
        << szFormat;
    EXPECT_EQ(sPlain[size], '#');
  }
  va_end(arguments);
  return bPlain;
}

TEST(PlainPrint, GivesWhatTheCLibraryGives) {
  EXPECT_TRUE(isPlain("no conversion"));
  EXPECT_TRUE(isPlain("%%|%c|%s|%s|%%", 'x', "a%sb", ""));
  EXPECT_TRUE(isPlain("%d %d %d %i %u %x %x", 0, INT_MAX, INT_MIN, -7, UINT_MAX, 0xABCDEFU, 0U));
  EXPECT_TRUE(isPlain("%ld %li %lu %lx", LONG_MIN, -1L, ULONG_MAX, ULONG_MAX));
  EXPECT_TRUE(isPlain("%lld %llu %zu %zx", LLONG_MIN, ULLONG_MAX, SIZE_MAX, std::size_t{10}));
  EXPECT_TRUE(isPlain("%d%s%u%s%d%s%d%s%d", 1, "two", 3U, "four", 5, "six", 7, "eight", 9));
  const char* volatile szNull = nullptr;
  EXPECT_TRUE(isPlain("<%s>", szNull));
}

TEST(PlainPrint, LeavesEverythingElseAlone) {
  EXPECT_FALSE(isPlain("%5d", 1));
  EXPECT_FALSE(isPlain("%.3s", "abcd"));
  EXPECT_FALSE(isPlain("%d %g", 1, 2.5));
  EXPECT_FALSE(isPlain("%p", static_cast<void*>(nullptr)));
  EXPECT_FALSE(isPlain("%hd", 1));
  EXPECT_FALSE(isPlain("%ls", L"wide"));
}

}  // namespace
