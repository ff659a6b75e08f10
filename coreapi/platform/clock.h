#pragma once

#include <cstdint>

namespace qm_platform {

/// The system's UTC clock in microseconds since 1970-01-01. It can be set, so it may jump. Any thread.
std::int64_t utcClockMicroseconds() noexcept;

/// A clock that only runs forward, in nanoseconds from a point of its own; for waiting and measuring. Any
/// thread.
std::int64_t steadyClockNanoseconds() noexcept;

}  // namespace qm_platform
