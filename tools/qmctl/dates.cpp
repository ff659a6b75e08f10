#include "tools/qmctl/dates.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string_view>

#include "coreapi/qmutils/time/ntpdate.h"
#include "tools/qmctl/failure.h"

namespace {

constexpr const char* kDigits = "0123456789";

/// Walks a date from left to right. From the first part on that isn't there it stays failed.
class Scanner {
 public:
  explicit Scanner(std::string_view sText) : m_sRest(sText) {}

  /// A number of exactly so many digits.
  int number(std::size_t uDigits) {
    int iValue = 0;
    m_bGood = m_bGood && m_sRest.size() >= uDigits &&
              m_sRest.substr(0, uDigits).find_first_not_of(kDigits) == std::string_view::npos;
    if (m_bGood) {
      std::from_chars(m_sRest.data(), m_sRest.data() + uDigits, iValue);
      m_sRest.remove_prefix(uDigits);
    }
    return iValue;
  }

  void expect(char c) {
    if (!accept(c)) {
      m_bGood = false;
    }
  }

  bool accept(char c) {
    const bool bThere = m_bGood && !m_sRest.empty() && m_sRest.front() == c;
    m_sRest.remove_prefix(bThere ? 1 : 0);
    return bThere;
  }

  /// A decimal fraction of a second, one to six digits, in microseconds.
  int fraction() {
    const std::size_t uDigits = std::min(m_sRest.find_first_not_of(kDigits), m_sRest.size());
    m_bGood = m_bGood && uDigits >= 1 && uDigits <= 6;
    int iValue = m_bGood ? number(uDigits) : 0;
    for (std::size_t i = uDigits; i < 6; ++i) {
      iValue *= 10;
    }
    return iValue;
  }

  bool isDone() const noexcept { return m_bGood && m_sRest.empty(); }

 private:
  std::string_view m_sRest;
  bool m_bGood = true;
};

bool isDayOfMonth(int iYear, int iMonth, int iDay) {
  return std::chrono::year_month_day(std::chrono::year(iYear),
                                     std::chrono::month(static_cast<unsigned>(iMonth)),
                                     std::chrono::day(static_cast<unsigned>(iDay)))
      .ok();
}

std::optional<JTime> parseOwnForm(const std::string& sDate) {
  JTime time;
  return qm_utils::parseExactNtpDate(sDate, time) ? std::optional(time) : std::nullopt;
}

/// ISO 8601, the extended form in UTC; a blank may stand in the place of the "T" (RFC 3339).
std::optional<JTime> parseIsoForm(std::string_view sDate) {
  Scanner scanner(sDate);
  const int iYear = scanner.number(4);
  scanner.expect('-');
  const int iMonth = scanner.number(2);
  scanner.expect('-');
  const int iDay = scanner.number(2);
  if (!scanner.accept(' ')) {
    scanner.expect('T');
  }
  const int iHour = scanner.number(2);
  scanner.expect(':');
  const int iMinute = scanner.number(2);
  // A fraction behind the minutes would be one of a minute.
  const bool bSeconds = scanner.accept(':');
  const int iSecond = bSeconds ? scanner.number(2) : 0;
  const int iMicrosecond = bSeconds && scanner.accept('.') ? scanner.fraction() : 0;
  scanner.expect('Z');
  if (!scanner.isDone() || !isDayOfMonth(iYear, iMonth, iDay) || iHour > 23 || iMinute > 59 || iSecond > 59) {
    return std::nullopt;
  }
  const auto days = std::chrono::sys_days(
      std::chrono::year_month_day(std::chrono::year(iYear), std::chrono::month(static_cast<unsigned>(iMonth)),
                                  std::chrono::day(static_cast<unsigned>(iDay))));
  const std::int64_t iSeconds =
      std::int64_t{days.time_since_epoch().count()} * 86400 + iHour * 3600 + iMinute * 60 + iSecond;
  JTime time = JTime::fromUnixSeconds(iSeconds);
  return time.add(iMicrosecond);
}

std::optional<JTime> parseCount(std::string_view sDate) {
  std::uint64_t uCount = 0;
  const auto [pEnd, error] = std::from_chars(sDate.data() + 1, sDate.data() + sDate.size(), uCount);
  if (error != std::errc() || pEnd != sDate.data() + sDate.size()) {
    return std::nullopt;
  }
  return JTime::fromMicroseconds(uCount);
}

}  // namespace

namespace qmctl {

JTime toTime(const std::string& sDate) {
  const std::optional<JTime> time = sDate.starts_with('@')                 ? parseCount(sDate)
                                    : sDate.find('/') != std::string::npos ? parseOwnForm(sDate)
                                                                           : parseIsoForm(sDate);
  if (!time) {
    throw Failure(kWrongUsage, "not a date: '" + sDate + "' (a date is " + kDateForms + ")");
  }
  return *time;
}

std::string toControlDate(const std::string& sDate) {
  std::string sText;
  qm_utils::formatNtpDate(toTime(sDate), sText);
  if (sText.empty()) {
    throw Failure(kWrongUsage, "the date '" + sDate + "' lies outside 1970 to January 2038");
  }
  return sText;
}

}  // namespace qmctl
