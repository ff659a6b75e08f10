#pragma once

#include <cstddef>
#include <string_view>

#include "storage/TimeSpan.h"

namespace qm_manager {

/// The most intervals that one text may hold.
constexpr std::size_t kMaxIntervals = 1000;

/// Reads the spans of a text, with a ";" between two of them and perhaps one at the end. A date is in the
/// calendar form with all its digits, and is one that there is:
///
///     03/03/2011 10:00:00.000000UTC-03/03/2011 10:05:00.000000UTC
///
/// Throws JTextError for a text of any other form, none or too many spans, and one that ends before it
/// starts. Any thread.
TimeSpanList parseIntervals(std::string_view sText);

}  // namespace qm_manager
