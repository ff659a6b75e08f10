#include "coreapi/qmci/fraction.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>
#include <utility>

namespace qm_ci {

namespace {

constexpr std::uint64_t kLargest = std::numeric_limits<std::uint32_t>::max();

}  // namespace

Fraction reduced(Fraction fraction) noexcept {
  const std::uint32_t uDivisor = std::gcd(fraction.uNumerator, fraction.uDenominator);
  return uDivisor == 0 ? fraction
                       : Fraction{fraction.uNumerator / uDivisor, fraction.uDenominator / uDivisor};
}

bool sameRatio(Fraction one, Fraction other) noexcept {
  return std::uint64_t{one.uNumerator} * other.uDenominator ==
         std::uint64_t{other.uNumerator} * one.uDenominator;
}

Fraction nearestFraction(std::uint64_t ullNumerator, std::uint64_t ullDenominator) noexcept {
  const std::uint64_t ullDivisor = std::gcd(ullNumerator, ullDenominator);
  if (ullDivisor != 0) {
    ullNumerator /= ullDivisor;
    ullDenominator /= ullDivisor;
  }
  std::uint64_t ullUpper = ullNumerator;
  std::uint64_t ullLower = ullDenominator;
  while (ullUpper > kLargest || ullLower > kLargest) {
    ullUpper >>= 1;
    ullLower >>= 1;
  }
  if (ullLower == 0 && ullDenominator != 0) {
    return {static_cast<std::uint32_t>(kLargest), 1};
  }
  if (ullUpper == 0 && ullNumerator != 0) {
    return {1, static_cast<std::uint32_t>(kLargest)};
  }
  return reduced({static_cast<std::uint32_t>(ullUpper), static_cast<std::uint32_t>(ullLower)});
}

/// The simplest fraction of an interval has the whole part that both ends share, until they differ; then it
/// is the next whole number. What is left is the same question for the inverse of the rest. The convergents
/// are put together on the way.
std::optional<Fraction> findFraction(double value, double tolerance) noexcept {
  if (!(value >= 0.0) || !(tolerance >= 0.0) || value > static_cast<double>(kLargest)) {
    return std::nullopt;
  }
  double low = std::max(value - tolerance, 0.0);
  double high = value + tolerance;
  std::uint64_t numerators[2] = {0, 1};
  std::uint64_t denominators[2] = {1, 0};
  for (;;) {
    const double whole = std::floor(low);
    const bool bEnds = low == whole || whole + 1.0 <= high;
    const double step = low == whole ? whole : (bEnds ? whole + 1.0 : whole);
    if (step > static_cast<double>(kLargest)) {
      return std::nullopt;
    }
    const auto ullStep = static_cast<std::uint64_t>(step);
    const std::uint64_t ullNumerator = ullStep * numerators[1] + numerators[0];
    const std::uint64_t ullDenominator = ullStep * denominators[1] + denominators[0];
    if (ullNumerator > kLargest || ullDenominator > kLargest) {
      return std::nullopt;
    }
    numerators[0] = std::exchange(numerators[1], ullNumerator);
    denominators[0] = std::exchange(denominators[1], ullDenominator);
    if (bEnds) {
      return Fraction{static_cast<std::uint32_t>(ullNumerator), static_cast<std::uint32_t>(ullDenominator)};
    }
    const double inverseOfHigh = 1.0 / (high - whole);
    high = 1.0 / (low - whole);
    low = inverseOfHigh;
  }
}

}  // namespace qm_ci
