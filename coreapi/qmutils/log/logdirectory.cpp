#include "coreapi/qmutils/log/logdirectory.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <utility>

#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/socket/fileoperations.h"
#include "coreapi/qmutils/socket/jdirectoryiterator.h"
#include "coreapi/qmutils/text/jtext.h"
#include "coreapi/qmutils/time/jsplittime.h"

namespace qm_utils {

namespace {

constexpr std::size_t kSuffixLength = 30;
constexpr std::string_view kExtension = ".log";

/// New files lie at least so far behind the newest one when the clock isn't set.
constexpr std::int64_t kDistance = 60 * JTime::kMicrosecondsPerSecond;
constexpr JTime kMinute(60, 0);

/// Fields of a suffix: their digits, each field followed by one separator, and the range of their numbers.
struct SuffixField {
  std::size_t uDigits;
  int iLowest;
  int iHighest;
};
constexpr SuffixField kFields[] = {{4, 1601, 9999}, {2, 1, 12}, {2, 1, 31},    {2, 0, 23},
                                   {2, 0, 59},      {2, 0, 59}, {6, 0, 999999}};

/// Local time as a suffix has it.
std::string suffixOf(const CalendarFields& fields, int iSeconds, int iMicroseconds) {
  return format("%04d_%02d_%02d_%02d_%02d_%02d_%06d.log", fields.iYear + 1900, fields.iMonth + 1,
                fields.iDayOfMonth, fields.iHours, fields.iMinutes, iSeconds, iMicroseconds);
}

/// The suffix of the minute that a time lies in.
std::string minuteSuffix(JTime time) {
  return suffixOf(JLocalSplitTime(time).getFields(), 0, 0);
}

}  // namespace

std::string logFileSuffix(JTime time) {
  const JLocalSplitTime local(time);
  return suffixOf(local.getFields(), local.getFields().iSeconds,
                  static_cast<int>(time.getMicroseconds() % JTime::kMicrosecondsPerSecond));
}

std::optional<JTime> parseLogFileSuffix(std::string_view name) {
  if (name.size() < kSuffixLength || !name.ends_with(kExtension)) {
    return std::nullopt;
  }
  name.remove_prefix(name.size() - kSuffixLength);
  int numbers[std::size(kFields)];
  for (std::size_t i = 0; i < std::size(kFields); ++i) {
    const SuffixField& field = kFields[i];
    const char* pEnd = name.data() + field.uDigits;
    const auto [pRead, error] = std::from_chars(name.data(), pEnd, numbers[i]);
    const bool bLast = i + 1 == std::size(kFields);
    if (error != std::errc() || pRead != pEnd || numbers[i] < field.iLowest || numbers[i] > field.iHighest ||
        *pEnd != (bLast ? '.' : '_')) {
      return std::nullopt;
    }
    name.remove_prefix(field.uDigits + 1);
  }
  const std::chrono::year_month_day date{std::chrono::year(numbers[0]),
                                         std::chrono::month(static_cast<unsigned>(numbers[1])),
                                         std::chrono::day(static_cast<unsigned>(numbers[2]))};
  if (!date.ok()) {
    return std::nullopt;
  }
  return JLocalSplitTime(numbers[1], numbers[2], numbers[0], numbers[3], numbers[4], numbers[5], numbers[6])
      .getTime();
}

LogDirectory::LogDirectory(std::string sDirectory, std::string sBaseName)
    : m_sDirectory(std::move(sDirectory)), m_sBaseName(std::move(sBaseName)) {}

void LogDirectory::list() {
  JDirectoryIterator entries(m_sDirectory, m_sBaseName + "*");
  std::uint32_t uType = 0;
  std::uint64_t uSize = 0;
  while (const char* szName = entries.next(&uType, &uSize)) {
    const std::string_view name = szName;
    if (uType != kPlainFile || !name.starts_with(m_sBaseName)) {
      continue;
    }
    m_uTotal += uSize;
    if (const std::optional<JTime> time = parseLogFileSuffix(name.substr(m_sBaseName.size()))) {
      const auto place = std::upper_bound(m_files.begin(), m_files.end(), *time,
                                          [](JTime a, const File& b) { return a < b.time; });
      m_files.insert(place, {*time, szName, uSize});
    }
  }
}

void LogDirectory::shrinkTo(std::uint64_t uBytes) {
  for (const File& file : m_files) {
    if (m_uTotal <= uBytes) {
      return;
    }
    try {
      deleteFile(m_sDirectory + "/" + file.sName);
      m_uTotal -= file.uSize;
    } catch (JError* pError) {
      const qm_err::CaughtError error(pError);
      JCATCH_LOG(error.get());
    }
  }
}

bool LogDirectory::has(const std::string& sSuffix) const {
  return std::any_of(m_files.begin(), m_files.end(),
                     [&](const File& file) { return file.sName == m_sBaseName + sSuffix; });
}

std::string LogDirectory::getPath(const std::string& sSuffix) const {
  return m_sDirectory + "/" + m_sBaseName + sSuffix;
}

std::string LogFileClock::nextSuffix(JTime now, const LogDirectory& directory) {
  const JAutoLock lock(m_mutex);
  const bool bFirst = std::exchange(m_bFirst, false);
  JTime time = now;
  if (now.getMicroseconds() <= JTime::kClockSetLimit) {
    if (bFirst && directory.getNewest() != JTime()) {
      // The first name shows a whole minute; rounding it down would bring it nearer.
      JTime start = directory.getNewest();
      start.add(kDistance).roundUp(kMinute);
      m_uOffset = start > now ? start.getMicroseconds() - now.getMicroseconds() : 0;
    }
    time.add(static_cast<std::int64_t>(m_uOffset));
  }
  if (bFirst) {
    const std::string sSuffix = minuteSuffix(time);
    if (!directory.has(sSuffix)) {
      return sSuffix;
    }
  }
  return logFileSuffix(time);
}

LogFileClock& LogFileClock::ofProcess() {
  static LogFileClock& clock = *new LogFileClock;
  return clock;
}

}  // namespace qm_utils
