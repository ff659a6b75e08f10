#include "coreapi/qmutils/time/zonerules.h"

#include <algorithm>
#include <optional>

#include "coreapi/platform/localtime.h"
#include "coreapi/qmutils/time/calendar.h"

namespace qm_utils {

namespace {

/// No zone is further from UTC than this.
constexpr std::int64_t kFarthestOffset = 26 * 3600;

/// Distances from a wall time, taken for UTC, at which the rules around it are looked at; from what they say
/// there the instant is found in so many steps. The second step finds rules that held for a few hours between
/// two others.
constexpr std::int64_t kProbeStep = kFarthestOffset / 4;
constexpr int kRefinements = 2;

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
  const auto shiftAt = [this](std::int64_t iInstant) { return at(iInstant).iWallSeconds - iInstant; };
  std::optional<std::int64_t> found;
  std::int64_t iShiftBefore = shiftAt(iWallSeconds - kFarthestOffset);
  for (std::int64_t iFrom = -kFarthestOffset; iFrom <= kFarthestOffset; iFrom += kProbeStep) {
    std::int64_t iShift = shiftAt(iWallSeconds + iFrom);
    if (iFrom + iShift < 0) {
      iShiftBefore = iShift;  // of the last probe at which the clock shows less
    }
    for (int i = 0; i < kRefinements; ++i) {
      const std::int64_t iCandidate = iWallSeconds - iShift;
      iShift = shiftAt(iCandidate);
      if (iCandidate + iShift == iWallSeconds) {
        found = std::min(found.value_or(iCandidate), iCandidate);
      }
    }
  }
  return found.value_or(iWallSeconds - iShiftBefore);
}

std::shared_ptr<const ZoneRules> platformZoneRules() {
  return std::make_shared<PlatformZoneRules>();
}

}  // namespace qm_utils
