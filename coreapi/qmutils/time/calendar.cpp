#include "coreapi/qmutils/time/calendar.h"

namespace qm_utils {

namespace {

constexpr std::int64_t kSecondsPerDay = 86400;

// Days are counted in years that begin in March, so that the leap day is a year's last, and in cycles of 400
// years, after which the Gregorian calendar repeats. Day 0 of the count is 0000-03-01.
constexpr std::int64_t kYearsPerCycle = 400;
constexpr std::int64_t kDaysPerCycle = 146097;
constexpr std::int64_t kDaysTo1970 = 719468;

constexpr std::int64_t floorDivide(std::int64_t dividend, std::int64_t divisor) noexcept {
  return dividend / divisor - (dividend % divisor < 0 ? 1 : 0);
}

constexpr std::int64_t floorModulo(std::int64_t dividend, std::int64_t divisor) noexcept {
  return dividend - floorDivide(dividend, divisor) * divisor;
}

/// Days before a month of a year that begins in March; month 0 is March.
constexpr std::int64_t daysBeforeMarchMonth(std::int64_t month) noexcept {
  return (153 * month + 2) / 5;
}

/// Days from 1970-01-01 to the first day of a month; month 0 is January.
constexpr std::int64_t daysToMonth(std::int64_t year, std::int64_t month) noexcept {
  const std::int64_t marchYear = year - (month < 2 ? 1 : 0);
  const std::int64_t yearOfCycle = floorModulo(marchYear, kYearsPerCycle);
  return floorDivide(marchYear, kYearsPerCycle) * kDaysPerCycle + yearOfCycle * 365 + yearOfCycle / 4 -
         yearOfCycle / 100 + daysBeforeMarchMonth(floorModulo(month - 2, 12)) - kDaysTo1970;
}

}  // namespace

std::int64_t secondsFromCalendar(const CalendarFields& fields) noexcept {
  const std::int64_t year = std::int64_t{1900} + fields.iYear + floorDivide(fields.iMonth, 12);
  const std::int64_t days = daysToMonth(year, floorModulo(fields.iMonth, 12)) + fields.iDayOfMonth - 1;
  return days * kSecondsPerDay + std::int64_t{fields.iHours} * 3600 + std::int64_t{fields.iMinutes} * 60 +
         fields.iSeconds;
}

CalendarFields calendarFromSeconds(std::int64_t iSeconds) noexcept {
  const std::int64_t days = floorDivide(iSeconds, kSecondsPerDay);
  const std::int64_t secondOfDay = floorModulo(iSeconds, kSecondsPerDay);

  const std::int64_t marchDays = days + kDaysTo1970;
  const std::int64_t dayOfCycle = floorModulo(marchDays, kDaysPerCycle);
  const std::int64_t yearOfCycle =
      (dayOfCycle - dayOfCycle / 1460 + dayOfCycle / 36524 - dayOfCycle / (kDaysPerCycle - 1)) / 365;
  const std::int64_t dayOfMarchYear = dayOfCycle - (yearOfCycle * 365 + yearOfCycle / 4 - yearOfCycle / 100);
  const std::int64_t marchMonth = (5 * dayOfMarchYear + 2) / 153;
  const std::int64_t month = (marchMonth + 2) % 12;
  const std::int64_t year =
      floorDivide(marchDays, kDaysPerCycle) * kYearsPerCycle + yearOfCycle + (month < 2 ? 1 : 0);

  CalendarFields fields;
  fields.iSeconds = static_cast<int>(secondOfDay % 60);
  fields.iMinutes = static_cast<int>(secondOfDay / 60 % 60);
  fields.iHours = static_cast<int>(secondOfDay / 3600);
  fields.iDayOfMonth = static_cast<int>(dayOfMarchYear - daysBeforeMarchMonth(marchMonth) + 1);
  fields.iMonth = static_cast<int>(month);
  fields.iYear = static_cast<int>(year - 1900);
  fields.iWeekday = static_cast<int>(floorModulo(days + 4, 7));  // 1970 began on a Thursday
  fields.iDayOfYear = static_cast<int>(days - daysToMonth(year, 0));
  return fields;
}

}  // namespace qm_utils
