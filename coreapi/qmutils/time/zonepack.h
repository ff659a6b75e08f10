#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

namespace qm_utils {

/// A zone pack ("zoneinfo.pak"): records of zones one after the other, without a header, until fewer than
/// four bytes are left. All numbers are little-endian.
///
///     offset  size          content
///     0       4             word: bits 0 to 5   length of the name
///                                 bits 6 to 14  timecnt, number of transitions
///                                 bits 15 to 22 typecnt, number of local time types
///                                 bits 23 to 30 charcnt, number of abbreviation characters
///                                 bit 31        instants of this zone count leap seconds
///     4       name length   name, without a NUL
///             timecnt × 4   transition times, each the difference from the one before, the first from 0,
///             modulo 2^32 timecnt       index of the local time type that begins at each typecnt × 4   local
///             time types: bits 0 to 19  offset from UTC in seconds, signed
///                                             bits 20 to 28 index of the abbreviation
///                                             bit 29        daylight
///                                             bit 30        standard-time indicator
///                                             bit 31        UT indicator
///             charcnt       abbreviation characters
///
/// Builds the TZif image (see `TzifZone`) of the zone of a name. None when the pack has no such zone, or is
/// cut short before the end of its record. What the image says isn't checked; whoever reads it does. An
/// abbreviation index that doesn't fit its byte in the image becomes 255, which is no index of an
/// abbreviation there.
std::optional<std::vector<std::uint8_t>> buildTzifImage(std::span<const std::uint8_t> pack,
                                                        std::string_view sName);

}  // namespace qm_utils
