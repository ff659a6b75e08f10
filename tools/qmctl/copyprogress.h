#pragma once

#include <cstdint>
#include <string>

namespace qmctl {

/// How far a copy is, as one line of less than 80 characters: share, bar, bytes, rate and the time that is
/// left. `uExpected` is what it will have in the end; with 0, or when there is clearly more than that, only
/// bytes and rate are told.
std::string progressLine(std::uint64_t uBytes, std::uint64_t uExpected, std::uint64_t uMilliseconds);

}  // namespace qmctl
