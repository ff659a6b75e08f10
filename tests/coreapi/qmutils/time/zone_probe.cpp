// Tells local times from a process of its own, whose zone the test chooses by the variable TZ.
//
//   zone_probe < SECONDS...   for each count of seconds since 1970 one line: what the platform
//                             shows, the count that it makes of that again, and the same two by
//                             JLocalSplitTime
//   zone_probe NAME           sets the zone of a name from the pack beside this program; the log's texts,
//   whether the zone
//                             is in force, and what the clock shows at 1970-01-01 00:00:00 UTC

#include <algorithm>
#include <cstdio>
#include <ctime>

#include "coreapi/qmutils/error/loghook.h"
#include "coreapi/qmutils/time/jsplittime.h"
#include "coreapi/qmutils/time/timezone.h"

namespace {

void tell(std::time_t seconds) {
  std::tm shown{};
  localtime_r(&seconds, &shown);
  std::tm again = shown;
  again.tm_isdst = -1;
  std::printf("%02d/%02d/%04d_%02d:%02d:%02d_%d_%s %lld ", shown.tm_mon + 1, shown.tm_mday,
              shown.tm_year + 1900, shown.tm_hour, shown.tm_min, std::min(shown.tm_sec, 59), shown.tm_isdst,
              shown.tm_zone, static_cast<long long>(std::mktime(&again)));

  JLocalSplitTime ours(JTime::fromUnixSeconds(seconds));
  const qm_utils::CalendarFields fields = ours.getFields();
  std::printf("%02d/%02d/%04d_%02d:%02d:%02d_%d_%s ", fields.iMonth + 1, fields.iDayOfMonth,
              fields.iYear + 1900, fields.iHours, fields.iMinutes, fields.iSeconds, ours.getDaylight(),
              ours.getZone().c_str());
  ours.fromFields();
  std::printf("%lld\n", static_cast<long long>(ours.getTime().toUnixSeconds()));
}

}  // namespace

int main(int argc, char** argv) {
  if (argc > 1) {
    qm_err::setLogHook([](int level, const char* text, const char*, int, const char*) {
      std::printf("%d %s\n", level, text);
    });
    const bool bSet = qm_utils::setLocalTimeZone(argv[1]);
    std::printf("%s %s\n", bSet ? "set" : "not set",
                JLocalSplitTime(JTime::firstQueryTime()).toUSFormat().c_str());
    return 0;
  }
  long long seconds = 0;
  while (std::scanf("%lld", &seconds) == 1) {
    tell(static_cast<std::time_t>(seconds));
  }
  return 0;
}
