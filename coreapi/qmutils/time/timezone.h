#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include "coreapi/qmutils/time/zonerules.h"

/// The time zone of local times. One for the process; by default the one that the platform finds for itself.
/// Changing it changes what the system's own local times are, and nothing of the host's: neither its
/// environment nor what its own conversions give. Any thread; one mutex guards the zone and is held for no
/// longer than a look at it.
namespace qm_utils {

/// Makes the zone of a name the zone of local times, by the pack "zoneinfo.pak" in the program's directory.
/// The signs of "GMT+" and "GMT-" change places at the name's start, behind "Etc/" or without it: to a person
/// "GMT+2" is two hours east, to the pack two hours west. An empty name is "GMT".
///
/// True when the zone is in force afterwards. A zone that the pack doesn't have, or whose record makes no
/// sense, is logged at ERROR; then the pack's "Etc/UTC" is in force, or plain UTC if it has none. Without a
/// readable pack nothing changes but for a warning in the log.
bool setLocalTimeZone(const std::string& sName);

/// The same by a pack in memory, which is copied.
bool setLocalTimeZone(const std::string& sName, std::span<const std::uint8_t> pack);

/// Goes back to the zone that the platform finds for itself.
void resetLocalTimeZone();

/// The name that was set, with its signs changed; "Etc/UTC" when that wasn't found; empty for the platform's
/// zone.
std::string getLocalTimeZoneName();

/// The rules of the zone of local times.
std::shared_ptr<const ZoneRules> localZoneRules();

/// The rules of the zone of a name, which is looked for as `setLocalTimeZone` does, in the pack that was set
/// last or else in the program's directory. UTC, and an ERROR in the log, when the pack doesn't have it;
/// without a pack the rules of the platform's zone. Changes nothing.
std::shared_ptr<const ZoneRules> zoneRulesByName(const std::string& sName);

/// A zone's name or abbreviation with the signs of "Etc/GMT+", "Etc/GMT-", "GMT+" and "GMT-" at its start
/// changed.
std::string withSignSwapped(std::string sName);

}  // namespace qm_utils
