#pragma once

#include <concepts>
#include <limits>

/// A number as a field of a file holds it: the largest that fits stands for larger ones, 0 for negative ones
/// and for what isn't a number. Fractions are cut off.
template <std::unsigned_integral Field, typename Number>
constexpr Field saturated(Number value) noexcept {
  constexpr Field kLargest = std::numeric_limits<Field>::max();
  if constexpr (std::floating_point<Number>) {
    if (!(value > 0)) {
      return 0;
    }
    return value >= static_cast<Number>(kLargest) ? kLargest : static_cast<Field>(value);
  } else {
    static_assert(std::unsigned_integral<Number>);
    return value > kLargest ? kLargest : static_cast<Field>(value);
  }
}
