#include "qmmanager/intervals.h"

#include <algorithm>
#include <string>

#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/time/ntpdate.h"

namespace qm_manager {

namespace {

[[noreturn]] void refuse(std::string_view sPart) {
  QM_THROW(JTextError, "\"" + std::string(sPart) +
                           "\" is no interval; one is MM/DD/YYYY HH:MM:SS.uuuuuuUTC-MM/DD/YYYY "
                           "HH:MM:SS.uuuuuuUTC");
}

/// A date whose text is just what it would be written as: no digit is missing, and no day counts on.
bool parseDate(const std::string& sText, JTime& time) {
  std::string sAgain;
  if (!qm_utils::parseNtpDate(sText.c_str(), time)) {
    return false;
  }
  qm_utils::formatNtpDate(time, sAgain);
  return sAgain == sText;
}

TimeSpan parseInterval(std::string_view sPart) {
  TimeSpan span;
  const std::size_t dash = sPart.find('-');
  if (dash == std::string_view::npos || !parseDate(std::string(sPart.substr(0, dash)), span.startDate) ||
      !parseDate(std::string(sPart.substr(dash + 1)), span.endDate)) {
    refuse(sPart);
  }
  if (span.endDate < span.startDate) {
    QM_THROW(JTextError, "the interval \"" + std::string(sPart) + "\" ends before it starts");
  }
  return span;
}

}  // namespace

TimeSpanList parseIntervals(std::string_view sText) {
  TimeSpanList spans;
  do {
    const std::size_t end = std::min(sText.find(';'), sText.size());
    if (spans.size() == kMaxIntervals) {
      QM_THROW(JTextError, "there are more than " + std::to_string(kMaxIntervals) + " intervals");
    }
    spans.push_back(parseInterval(sText.substr(0, end)));
    sText.remove_prefix(std::min(end + 1, sText.size()));
  } while (!sText.empty());
  return spans;
}

}  // namespace qm_manager
