#include "coreapi/qmutils/time/zonerules.h"

#include <algorithm>
#include <optional>

#include "coreapi/platform/localtime.h"
#include "coreapi/qmutils/time/calendar.h"

namespace qm_utils {

namespace {

/// No zone is further from UTC than this.
constexpr std::int64_t kFarthestOffset = 26 * 3600;

/// Distances from a wall time, taken for UTC, at which the rules around it are looked at. A rule that held
/// for less than one step could be missed; none on record did.
constexpr std::int64_t kProbeStep = kFarthestOffset / 4;

class PlatformZoneRules final : public ZoneRules {
 public:
  LocalInstant at(std::int64_t iUnixSeconds) const override {
    qm_platform::LocalBrokenDownTime local;
    if (!qm_platform::localBrokenDownTime(iUnixSeconds, local)) {
      return {iUnixSeconds, false, "UTC"};
    }
    CalendarFields fields;
    fields.iSeconds = std::min(local.second, 59);  // a leap second shows the second before it once more
    fields.iMinutes = local.minute;
    fields.iHours = local.hour;
    fields.iDayOfMonth = local.dayOfMonth;
    fields.iMonth = local.month;
    fields.iYear = local.year;
    return {secondsFromCalendar(fields), local.daylight, std::move(local.zone)};
  }
};

}  // namespace

std::int64_t ZoneRules::toUnixSeconds(std::int64_t iWallSeconds) const {
  std::optional<std::int64_t> found;
  std::int64_t iShiftBefore =
      at(iWallSeconds - kFarthestOffset).iWallSeconds - (iWallSeconds - kFarthestOffset);
  for (std::int64_t iFrom = -kFarthestOffset; iFrom <= kFarthestOffset; iFrom += kProbeStep) {
    const std::int64_t iProbe = iWallSeconds + iFrom;
    const std::int64_t iProbeWall = at(iProbe).iWallSeconds;
    const std::int64_t iCandidate = iWallSeconds - (iProbeWall - iProbe);
    if (at(iCandidate).iWallSeconds == iWallSeconds) {
      found = std::min(found.value_or(iCandidate), iCandidate);
    }
    if (iProbeWall < iWallSeconds) {
      iShiftBefore = iProbeWall - iProbe;
    }
  }
  return found.value_or(iWallSeconds - iShiftBefore);
}

std::shared_ptr<const ZoneRules> platformZoneRules() {
  return std::make_shared<PlatformZoneRules>();
}

}  // namespace qm_utils
