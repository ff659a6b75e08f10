#pragma once

#include <cstdint>
#include <string>

namespace qm_platform {

/// What the clock on the wall and the calendar show, by the platform's own zone rules.
struct LocalBrokenDownTime {
  int second = 0;      ///< 0 to 60; 60 in a leap second, under rules that count them
  int minute = 0;      ///< 0 to 59
  int hour = 0;        ///< 0 to 23
  int dayOfMonth = 1;  ///< 1 to 31
  int month = 0;       ///< 0 to 11
  int year = 0;        ///< years since 1900
  bool daylight = false;
  std::string zone;  ///< the abbreviation in force
};

/// Takes an instant apart in the zone that the platform finds for this process: the variable TZ, else the
/// machine's own setting. False, and nothing changed, for a year that the platform can't express. Any thread.
///
/// The platform looks for the zone when the process first converts a time, and again when its host calls
/// `tzset`. This never does that itself: it would change what the host's own conversions give.
bool localBrokenDownTime(std::int64_t unixSeconds, LocalBrokenDownTime& result);

}  // namespace qm_platform
