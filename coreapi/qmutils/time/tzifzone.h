#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "coreapi/qmutils/time/zonerules.h"

namespace qm_utils {

/// The rules that a TZif image holds (RFC 8536): its first data block, which has 32-bit times. All numbers
/// are big-endian.
///
///     offset  size          content
///     0       4             "TZif"
///     4       1             version; not looked at
///     5       15            unused
///     20      4             isutcnt   number of UT indicators
///     24      4             isstdcnt  number of standard indicators
///     28      4             leapcnt   number of leap seconds
///     32      4             timecnt   number of transitions
///     36      4             typecnt   number of local time types, at least 1
///     40      4             charcnt   number of abbreviation characters
///     44      timecnt × 4   transition times, ascending
///             timecnt       index of the local time type that begins at each
///             typecnt × 6   local time types: offset from UTC (4), daylight (1), index of the abbreviation
///             (1) charcnt       abbreviations, each ended by a NUL leapcnt × 8   leap seconds: time (4),
///             correction from then on (4) isstdcnt      standard indicators isutcnt       UT indicators
///
/// Before the first transition the first type without daylight holds, or the first of all; after the last one
/// its type holds for ever. With leap seconds the instants count them too, and the wall shows the second
/// before a leap second twice. The indicators only matter to rules that an image of this form doesn't have.
class TzifZone final : public ZoneRules {
 public:
  /// Takes an image apart. Null when it is cut short or inconsistent; what follows the first block is
  /// ignored.
  static std::shared_ptr<const TzifZone> parse(std::span<const std::uint8_t> image);

  /// A zone that is UTC under an abbreviation.
  static std::shared_ptr<const TzifZone> utc(const std::string& sAbbreviation);

  LocalInstant at(std::int64_t iUnixSeconds) const override;

 private:
  struct Transition {
    std::int64_t iTime;
    std::size_t type;
  };
  struct Type {
    std::int64_t iOffset;
    bool bDaylight;
    std::string sAbbreviation;
  };
  struct LeapSecond {
    std::int64_t iTime;
    std::int64_t iCorrection;
  };

  TzifZone() = default;

  bool read(std::span<const std::uint8_t> image);
  const Type& typeAt(std::int64_t iUnixSeconds) const;

  std::vector<Transition> m_transitions;
  std::vector<Type> m_types;
  std::vector<LeapSecond> m_leapSeconds;
  std::size_t m_typeBefore = 0;  ///< in force before the first transition
};

}  // namespace qm_utils
