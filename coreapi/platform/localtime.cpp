#include "coreapi/platform/localtime.h"

#include <ctime>

namespace qm_platform {

bool localBrokenDownTime(std::int64_t unixSeconds, LocalBrokenDownTime& result) {
  const std::time_t seconds = unixSeconds;
  std::tm fields{};
  if (localtime_r(&seconds, &fields) == nullptr) {
    return false;
  }
  result.second = fields.tm_sec;
  result.minute = fields.tm_min;
  result.hour = fields.tm_hour;
  result.dayOfMonth = fields.tm_mday;
  result.month = fields.tm_mon;
  result.year = fields.tm_year;
  result.daylight = fields.tm_isdst > 0;
  result.zone = fields.tm_zone != nullptr ? fields.tm_zone : "";
  return true;
}

}  // namespace qm_platform
