#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace qm_utils {

/// What a zone's rules say about one instant.
struct LocalInstant {
  std::int64_t iWallSeconds = 0;  ///< from 1970-01-01 00:00:00 as the clock on the wall shows it
  bool bDaylight = false;
  std::string sAbbreviation;
};

/// The rules of one time zone. Never changes once made; any thread.
class ZoneRules {
 public:
  virtual ~ZoneRules() = default;
  ZoneRules(const ZoneRules&) = delete;
  ZoneRules& operator=(const ZoneRules&) = delete;

  virtual LocalInstant at(std::int64_t iUnixSeconds) const = 0;

  /// The instant at which the clock on the wall shows a number of seconds. Where it shows them twice, as when
  /// daylight saving time ends, the earlier instant. Where it jumps over them, what a clock would show that
  /// missed the jump: 02:30 in an hour that is left out is the instant of 03:30.
  std::int64_t toUnixSeconds(std::int64_t iWallSeconds) const;

 protected:
  ZoneRules() = default;
};

/// The rules of the zone that the platform finds for this process.
std::shared_ptr<const ZoneRules> platformZoneRules();

}  // namespace qm_utils
