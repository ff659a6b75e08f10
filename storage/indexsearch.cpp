#include "storage/indexsearch.h"

#include <algorithm>

namespace {

/// Ranges that are halved rather than interpolated in.
constexpr std::uint32_t kSmallRange = 8;

}  // namespace

std::uint32_t IndexView::lastAtOrBefore(std::uint64_t ullTime) const noexcept {
  std::uint32_t uLow = 0;
  std::uint32_t uHigh = m_uCount - 1;
  std::uint64_t ullLow = time(uLow);
  std::uint64_t ullHigh = time(uHigh);
  if (ullTime >= ullHigh) {
    return uHigh;
  }
  // From here on the time of `uLow` is at or before the wanted one, and that of `uHigh` behind it.
  bool bHalve = false;
  while (uHigh - uLow > 1) {
    const std::uint32_t uRange = uHigh - uLow;
    std::uint32_t uMiddle = uLow + uRange / 2;
    if (!bHalve && uRange > kSmallRange && ullHigh > ullLow) {
      const double dPart = static_cast<double>(ullTime - ullLow) / static_cast<double>(ullHigh - ullLow);
      const auto uStep = static_cast<std::uint32_t>(dPart * uRange);
      uMiddle = uLow + std::clamp<std::uint32_t>(uStep, 1, uRange - 1);
    }
    const std::uint64_t ullMiddle = time(uMiddle);
    if (ullMiddle > ullTime) {
      uHigh = uMiddle;
      ullHigh = ullMiddle;
    } else {
      const std::uint64_t ullNext = time(uMiddle + 1);
      if (ullNext > ullTime) {
        return uMiddle;
      }
      uLow = uMiddle + 1;
      ullLow = ullNext;
    }
    bHalve = uHigh - uLow > uRange / 2;
  }
  return uLow;
}
