#include "coreapi/platform/clock.h"

#include <ctime>

namespace qm_platform {

namespace {

std::int64_t readClock(clockid_t clock, std::int64_t unitsPerSecond) noexcept {
  timespec now{};
  clock_gettime(clock, &now);
  return std::int64_t{now.tv_sec} * unitsPerSecond + now.tv_nsec / (1'000'000'000 / unitsPerSecond);
}

}  // namespace

std::int64_t utcClockMicroseconds() noexcept {
  return readClock(CLOCK_REALTIME, 1'000'000);
}

std::int64_t steadyClockNanoseconds() noexcept {
  return readClock(CLOCK_MONOTONIC, 1'000'000'000);
}

}  // namespace qm_platform
