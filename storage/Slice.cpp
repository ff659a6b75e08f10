#include "storage/Slice.h"

#include <algorithm>
#include <charconv>
#include <utility>

#include "coreapi/qmutils/error/loghook.h"
#include "coreapi/qmutils/text/jtext.h"
#include "coreapi/qmutils/time/calendar.h"

namespace {

constexpr auto kEpochSeconds = static_cast<std::int64_t>(JTime::kEpochOffset / JTime::kMicrosecondsPerSecond);
constexpr int kFirstYear = 1601;
constexpr int kFieldYear = 1900;

/// Digits of the parts of a name.
constexpr std::size_t kSizeDigits = 12;

std::string dateText(JTime time) {
  const std::uint64_t ullSeconds = time.getMicroseconds() / JTime::kMicrosecondsPerSecond;
  const auto fields = qm_utils::calendarFromSeconds(static_cast<std::int64_t>(ullSeconds) - kEpochSeconds);
  return qm_utils::format("%.4d%.2d%.2d-%.2d%.2d%.2d%.6d", fields.iYear + kFieldYear, fields.iMonth + 1,
                          fields.iDayOfMonth, fields.iHours, fields.iMinutes, fields.iSeconds,
                          static_cast<int>(time.getMicroseconds() % JTime::kMicrosecondsPerSecond));
}

bool isDigit(char c) noexcept {
  return c >= '0' && c <= '9';
}

/// Takes the parts of a name off its front.
class NameReader {
 public:
  explicit NameReader(std::string_view sText) noexcept : m_sRest(sText) {}

  /// A number of so many digits; -1 when they aren't there.
  int number(std::size_t digits) noexcept {
    if (m_sRest.size() < digits) {
      return -1;
    }
    int iNumber = 0;
    for (const char c : m_sRest.substr(0, digits)) {
      if (!isDigit(c)) {
        return -1;
      }
      iNumber = 10 * iNumber + (c - '0');
    }
    m_sRest.remove_prefix(digits);
    return iNumber;
  }

  bool dash() noexcept {
    const bool bDash = !m_sRest.empty() && m_sRest.front() == '-';
    m_sRest.remove_prefix(bDash ? 1 : 0);
    return bDash;
  }

  std::optional<JTime> date() noexcept {
    qm_utils::CalendarFields fields;
    const int iYear = number(4);
    const int iMonth = number(2);
    const int iDay = number(2);
    const bool bDash = dash();
    fields.iHours = number(2);
    fields.iMinutes = number(2);
    fields.iSeconds = number(2);
    const int iMicroseconds = number(6);
    if (iYear < kFirstYear || iMonth < 1 || iMonth > 12 || iDay < 1 || !bDash || fields.iHours < 0 ||
        fields.iHours > 23 || fields.iMinutes < 0 || fields.iMinutes > 59 || fields.iSeconds < 0 ||
        fields.iSeconds > 59 || iMicroseconds < 0 || iDay > daysOf(iYear, iMonth)) {
      return std::nullopt;
    }
    fields.iYear = iYear - kFieldYear;
    fields.iMonth = iMonth - 1;
    fields.iDayOfMonth = iDay;
    return JTime::fromUnixSeconds(qm_utils::secondsFromCalendar(fields)).add(iMicroseconds);
  }

  /// At least 12 digits, no more of them than the number needs.
  std::optional<std::uint64_t> size() noexcept {
    std::uint64_t uSize = 0;
    const char* const pEnd = m_sRest.data() + m_sRest.size();
    const auto [pStop, error] = std::from_chars(m_sRest.data(), pEnd, uSize);
    const auto digits = static_cast<std::size_t>(pStop - m_sRest.data());
    if (error != std::errc() || digits < kSizeDigits || (digits > kSizeDigits && m_sRest.front() == '0')) {
      return std::nullopt;
    }
    m_sRest.remove_prefix(digits);
    return uSize;
  }

  std::string_view rest() const noexcept { return m_sRest; }

 private:
  static int daysOf(int iYear, int iMonth) noexcept {
    constexpr int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    const bool bLeap = (iYear % 4 == 0 && iYear % 100 != 0) || iYear % 400 == 0;
    return kDays[iMonth - 1] + (bLeap && iMonth == 2 ? 1 : 0);
  }

  std::string_view m_sRest;
};

bool isExtension(std::string_view sText) noexcept {
  return sText.empty() ||
         (sText.size() > 1 && sText.front() == '.' && std::all_of(sText.begin() + 1, sText.end(), [](char c) {
            return isDigit(c) || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
          }));
}

}  // namespace

Slice::Slice(const TimeSpan& span, std::string sPath, std::uint64_t uSize)
    : m_span(span), m_sPath(std::move(sPath)), m_uSize(uSize) {}

FileInfo::Ptr Slice::getFileInfo() const {
  return FileInfo::getCached(m_sPath);
}

std::uint64_t Slice::getSizeWithin(const TimeSpan& part) const noexcept {
  const JTime start = std::max(m_span.startDate, part.startDate);
  const JTime end = std::min(m_span.endDate, part.endDate);
  if (end < start) {
    return 0;
  }
  const std::uint64_t ullWhole = m_span.endDate.wrappingDifference(m_span.startDate);
  const std::uint64_t ullPart = end.wrappingDifference(start);
  if (ullPart >= ullWhole) {
    return m_uSize;
  }
  const long double dShare = static_cast<long double>(ullPart) / static_cast<long double>(ullWhole);
  return std::min(m_uSize, static_cast<std::uint64_t>(static_cast<long double>(m_uSize) * dShare));
}

std::string Slice::computeFileName(const TimeSpan& span, std::uint64_t uSize, std::string_view sExtension) {
  const auto ullSize = static_cast<unsigned long long>(uSize);
  const std::string sName = dateText(span.startDate) + "-" + dateText(span.endDate) +
                            qm_utils::format("-%.12llu", ullSize) + std::string(sExtension);
  if (uSize > kMaxNamedSize) {
    qm_err::log(qm_err::kLogError, "ArchiveUnit::computeFileName() - Size of file %s too big: %llu bytes\n",
                sName.c_str(), ullSize);
  }
  return sName;
}

std::optional<Slice::Name> Slice::parseFileName(std::string_view sFileName) noexcept {
  NameReader reader(sFileName);
  const auto start = reader.date();
  if (!start || !reader.dash()) {
    return std::nullopt;
  }
  const auto end = reader.date();
  if (!end || *end < *start || !reader.dash()) {
    return std::nullopt;
  }
  const auto size = reader.size();
  if (!size || !isExtension(reader.rest())) {
    return std::nullopt;
  }
  return Name{TimeSpan(*start, *end), *size, reader.rest()};
}
