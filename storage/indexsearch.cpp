#include "storage/indexsearch.h"

#include <algorithm>

namespace {

/// Entries that can be halved at no cost, or among which a far guess costs little.
constexpr std::uint32_t kSmallRange = 8;

/// A range is halved down to this many entries when its times are unevenly spaced: what is left is most often
/// even, as recordings are between their gaps.
constexpr std::uint32_t kEvenRange = 4096;

/// Where evenly spaced times have the middle one: so much of the span of time to either side, at most.
constexpr std::uint64_t kEvenPart = 32;

/// Entries between two numbers, with their times: that of `uLow` is at or before the wanted time, that of
/// `uHigh` behind it.
struct Range {
  std::uint32_t uLow;
  std::uint32_t uHigh;
  std::uint64_t ullLow;
  std::uint64_t ullHigh;

  std::uint32_t length() const noexcept { return uHigh - uLow; }
  std::uint32_t middle() const noexcept { return uLow + length() / 2; }

  /// Where the time stands if the entries are evenly spaced; never one of the ends.
  std::uint32_t guess(std::uint64_t ullTime) const noexcept {
    if (length() <= kSmallRange || ullHigh <= ullLow) {
      return middle();
    }
    const double dPart = static_cast<double>(ullTime - ullLow) / static_cast<double>(ullHigh - ullLow);
    const auto uStep = static_cast<std::uint32_t>(dPart * length());
    return uLow + std::clamp<std::uint32_t>(uStep, 1, length() - 1);
  }

  bool isEvenAt(std::uint64_t ullMiddle) const noexcept {
    const std::uint64_t ullSpan = ullHigh - ullLow;
    const std::uint64_t ullExpected = ullLow + ullSpan / 2;
    return std::max(ullMiddle, ullExpected) - std::min(ullMiddle, ullExpected) <= ullSpan / kEvenPart;
  }
};

}  // namespace

std::uint32_t IndexView::lastAtOrBefore(std::uint64_t ullTime) const noexcept {
  Range range{0, m_uCount - 1, time(0), time(m_uCount - 1)};
  if (ullTime >= range.ullHigh) {
    return range.uHigh;
  }
  if (!range.isEvenAt(time(range.middle()))) {
    while (range.length() > kEvenRange) {
      // Without a branch on the time, which no processor foretells.
      const std::uint32_t uMiddle = range.middle();
      const std::uint64_t ullMiddle = time(uMiddle);
      const bool bBehind = ullMiddle > ullTime;
      range = {bBehind ? range.uLow : uMiddle, bBehind ? uMiddle : range.uHigh,
               bBehind ? range.ullLow : ullMiddle, bBehind ? ullMiddle : range.ullHigh};
    }
  }
  bool bHalve = false;
  while (range.length() > 1) {
    const std::uint32_t uLength = range.length();
    const std::uint32_t uNumber = bHalve ? range.middle() : range.guess(ullTime);
    const std::uint64_t ullNumber = time(uNumber);
    if (ullNumber > ullTime) {
      range.uHigh = uNumber;
      range.ullHigh = ullNumber;
    } else {
      const std::uint64_t ullNext = time(uNumber + 1);
      if (ullNext > ullTime) {
        return uNumber;
      }
      range.uLow = uNumber + 1;
      range.ullLow = ullNext;
    }
    bHalve = range.length() > uLength / 2;
  }
  return range.uLow;
}
