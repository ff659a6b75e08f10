#include "tools/qmctl/copyprogress.h"

#include <algorithm>
#include <array>

namespace qmctl {

namespace {

constexpr std::uint64_t kBarWidth = 20;

/// A file is somewhat larger than what is recorded; what is an eighth larger was another size.
constexpr std::uint64_t kTolerated = 8;

/// A number of bytes with one decimal, such as "27.1 MB".
std::string sizeText(std::uint64_t uBytes) {
  constexpr std::array kUnits{"B", "kB", "MB", "GB", "TB", "PB", "EB"};
  std::size_t uUnit = 0;
  std::uint64_t uTenths = 0;
  for (; uBytes >= 1000; ++uUnit) {
    uTenths = uBytes % 1000 / 100;
    uBytes /= 1000;
  }
  return std::to_string(uBytes) + (uUnit != 0 ? "." + std::to_string(uTenths) : "") + " " + kUnits[uUnit];
}

std::string twoDigits(std::uint64_t uValue) {
  return (uValue < 10 ? "0" : "") + std::to_string(uValue);
}

/// Such as "3:07" or "1:03:07".
std::string timeText(std::uint64_t uSeconds) {
  const std::uint64_t uMinutes = uSeconds / 60;
  const std::string sSeconds = ":" + twoDigits(uSeconds % 60);
  return uMinutes < 60 ? std::to_string(uMinutes) + sSeconds
                       : std::to_string(uMinutes / 60) + ":" + twoDigits(uMinutes % 60) + sSeconds;
}

/// `uPart` of `uWhole`, in steps of `uSteps`. Exact enough for a screen, and without overflow.
std::uint64_t shareOf(std::uint64_t uPart, std::uint64_t uWhole, std::uint64_t uSteps) {
  return static_cast<std::uint64_t>(static_cast<double>(uPart) / static_cast<double>(uWhole) *
                                    static_cast<double>(uSteps));
}

}  // namespace

std::string progressLine(std::uint64_t uBytes, std::uint64_t uExpected, std::uint64_t uMilliseconds) {
  const std::uint64_t uRate = uMilliseconds != 0 ? shareOf(uBytes, uMilliseconds, 1000) : 0;
  const std::string sRate = "  " + sizeText(uRate) + "/s";
  if (uExpected == 0 || (uBytes > uExpected && uBytes - uExpected > uExpected / kTolerated)) {
    return sizeText(uBytes) + sRate;
  }
  const std::uint64_t uDone = std::min(uBytes, uExpected);
  const std::string sShare = std::to_string(shareOf(uDone, uExpected, 100));
  const auto uBar = static_cast<std::size_t>(shareOf(uDone, uExpected, kBarWidth));
  std::string sLine = std::string(3 - sShare.size(), ' ') + sShare + "% [" + std::string(uBar, '#') +
                      std::string(kBarWidth - uBar, '-') + "] " + sizeText(uBytes) + " of " +
                      sizeText(uExpected) + sRate;
  if (uRate != 0) {
    sLine += "  " + timeText((uExpected - uDone + uRate - 1) / uRate) + " left";
  }
  return sLine;
}

}  // namespace qmctl
