#include "coreapi/qmutils/time/ntpdate.h"

#include <algorithm>
#include <tuple>

#include "coreapi/qmutils/text/jtext.h"
#include "coreapi/qmutils/time/datescanner.h"
#include "coreapi/qmutils/time/jsplittime.h"

namespace qm_utils {

namespace {

constexpr const char* kSuffix = "UTC";

constexpr bool isWithin(int iNumber, int iLowest, int iHighest) noexcept {
  return iNumber >= iLowest && iNumber <= iHighest;
}

bool isInValidRange(JTime time) noexcept {
  return time.getMicroseconds() >= JTime::kValidLow && time.getMicroseconds() <= JTime::kValidHigh;
}

template <class SplitTime>
bool parse(const char* szText, JTime& time) {
  time = JTime();
  int iMonth = 0, iDay = 0, iYear = 0, iHour = 0, iMinute = 0, iSecond = 0, iMicrosecond = 0;
  if (!isValidNtpDate(szText, iMonth, iDay, iYear, iHour, iMinute, iSecond, iMicrosecond)) {
    return false;
  }
  const JTime read = SplitTime(iMonth, iDay, iYear, iHour, iMinute, iSecond, iMicrosecond).getTime();
  if (!isInValidRange(read)) {
    return false;
  }
  time = read;
  return true;
}

template <class SplitTime>
void write(JTime time, std::string& sText, const char* szSuffix) {
  sText.clear();
  if (!isInValidRange(time)) {
    return;
  }
  const CalendarFields fields = SplitTime(time).getFields();
  sText = format("%.2d/%.2d/%.4d %.2d:%.2d:%.2d.%.6d%s", fields.iMonth + 1, fields.iDayOfMonth,
                 fields.iYear + 1900, fields.iHours, fields.iMinutes, fields.iSeconds,
                 static_cast<int>(time.getMicroseconds() % JTime::kMicrosecondsPerSecond), szSuffix);
}

}  // namespace

bool isValidNtpDate(const char* szText, int& iMonth, int& iDay, int& iYear, int& iHour, int& iMinute,
                    int& iSecond, int& iMicrosecond) {
  if (szText == nullptr) {
    return false;
  }
  DateScanner scanner(szText);
  scanner.number(iMonth).literal('/').number(iDay).literal('/').number(iYear);
  scanner.blanks().number(iHour).literal(':').number(iMinute).literal(':').number(iSecond);
  scanner.literal('.').number(iMicrosecond);
  return scanner.ok() && isWithin(iMonth, 1, 12) && isWithin(iDay, 1, 31) && isWithin(iYear, 1970, 2038) &&
         isWithin(iHour, 0, 23) && isWithin(iMinute, 0, 59) && isWithin(iSecond, 0, 59) &&
         isWithin(iMicrosecond, 0, 999'999) &&
         std::tie(iYear, iMonth, iDay, iHour, iMinute, iSecond) <= std::tuple(2038, 1, 19, 3, 14, 7);
}

bool parseNtpDate(const char* szText, JTime& time) {
  return parse<JUTCSplitTime>(szText, time);
}

bool parseExactNtpDate(const std::string& sText, JTime& time) {
  constexpr const char* kDigits = "0123456789";
  time = JTime();
  int iMonth = 0, iDay = 0, iYear = 0, iHour = 0, iMinute = 0, iSecond = 0, iMicrosecond = 0;
  JTime read;
  if (!isValidNtpDate(sText.c_str(), iMonth, iDay, iYear, iHour, iMinute, iSecond, iMicrosecond) ||
      !parseNtpDate(sText.c_str(), read)) {
    return false;
  }
  // A day that the month doesn't have has become one of the next month.
  const bool bDay = JUTCSplitTime(read).getFields().iDayOfMonth == iDay;
  const std::size_t lastNumber = sText.find_first_of(kDigits, sText.find('.'));
  const std::size_t behind = std::min(sText.find_first_not_of(kDigits, lastNumber), sText.size());
  if (!bDay || (behind < sText.size() && sText.compare(behind, std::string::npos, kSuffix) != 0)) {
    return false;
  }
  time = read;
  return true;
}

bool parseLocalNtpDate(const char* szText, JTime& time) {
  return parse<JLocalSplitTime>(szText, time);
}

void formatNtpDate(JTime time, std::string& sText) {
  write<JUTCSplitTime>(time, sText, kSuffix);
}

void formatLocalNtpDate(JTime time, std::string& sText) {
  write<JLocalSplitTime>(time, sText, "");
}

}  // namespace qm_utils
