#pragma once

#include <cstdint>
#include <optional>

namespace qm_ci {

/// A ratio of two 32-bit numbers; a denominator of 0 says nothing.
struct Fraction {
  std::uint32_t uNumerator = 0;
  std::uint32_t uDenominator = 0;

  bool operator==(const Fraction&) const = default;
};

/// The same ratio by the smallest numbers.
Fraction reduced(Fraction fraction) noexcept;

/// Whether two fractions are the same ratio, by cross-multiplying.
bool sameRatio(Fraction one, Fraction other) noexcept;

/// The ratio of two 64-bit numbers, reduced; halved on both sides until they fit, if they don't, but not to
/// 0.
Fraction nearestFraction(std::uint64_t ullNumerator, std::uint64_t ullDenominator) noexcept;

/// The fraction with the smallest denominator at most `tolerance` away from a value. None for a value that is
/// negative or no number, or when no fraction of 32-bit numbers is as near.
std::optional<Fraction> findFraction(double value, double tolerance) noexcept;

}  // namespace qm_ci
