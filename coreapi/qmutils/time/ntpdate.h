#pragma once

#include <string>

#include "coreapi/qmutils/time/jtime.h"

/// The date text that a host gives and gets, the "Ntp date": "12/31/2010 23:59:59.000001UTC". Month, day and
/// year come first; the digits behind the point are a number of microseconds, not a fraction. Numbers need no
/// leading zeros. What stands behind the seven numbers isn't read. Nothing here throws for a bad date.
namespace qm_utils {

/// Reads the seven numbers and checks each of them: month 1 to 12, day 1 to 31 whatever the month, year 1970
/// to 2038, time of day, microseconds up to 999999; and nothing after the second 01/19/2038 03:14:07. Numbers
/// that were read before the first one that can't be are stored in any case.
bool isValidNtpDate(const char* szText, int& iMonth, int& iDay, int& iYear, int& iHour, int& iMinute,
                    int& iSecond, int& iMicrosecond);

/// Reads a date in UTC. A day that its month doesn't have counts on into the next month: February 31 is
/// March 3. False, and a time of 0, for a text that isn't valid or a time outside `JTime::kValidLow` to
/// `JTime::kValidHigh`.
bool parseNtpDate(const char* szText, JTime& time);

/// The same for a date that something is to be dated by: nothing but the suffix may stand behind it, so that
/// no other zone is taken for UTC, and its month must have its day.
bool parseExactNtpDate(const std::string& sText, JTime& time);

/// Reads a date in local time, with the same result as `parseNtpDate`.
bool parseLocalNtpDate(const char* szText, JTime& time);

/// Writes a time as a date in UTC, with its suffix. The empty text for a time outside `JTime::kValidLow` to
/// `JTime::kValidHigh`; `JTime::toUSFormat` gives a text for every time.
void formatNtpDate(JTime time, std::string& sText);

/// Writes a time as a date in local time, without a suffix.
void formatLocalNtpDate(JTime time, std::string& sText);

}  // namespace qm_utils
