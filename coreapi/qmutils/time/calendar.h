#pragma once

#include <cstdint>

namespace qm_utils {

/// A date and a time of day of the Gregorian calendar, as numbers.
struct CalendarFields {
  int iSeconds = 0;     ///< 0 to 59
  int iMinutes = 0;     ///< 0 to 59
  int iHours = 0;       ///< 0 to 23
  int iDayOfMonth = 1;  ///< 1 to 31
  int iMonth = 0;       ///< 0 to 11
  int iYear = 0;        ///< years since 1900
  int iWeekday = 0;     ///< 0 is Sunday
  int iDayOfYear = 0;   ///< 0 is the first of January
};

/// Seconds from 1970-01-01 00:00:00 to the date and time. Any numbers may stand in the fields: what is too
/// much or too little carries over into the next field, so that February 31 is March 3. The last two fields
/// aren't read. No combination overflows.
std::int64_t secondsFromCalendar(const CalendarFields& fields) noexcept;

/// The date and time that lie a number of seconds from 1970-01-01 00:00:00. The year must fit its field: at
/// most about 6e16 seconds either way.
CalendarFields calendarFromSeconds(std::int64_t iSeconds) noexcept;

}  // namespace qm_utils
