// A text where a date is expected: as the date of a host, in UTC and in local time, as a calendar text in
// each of its forms, and as a decimal count.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "coreapi/qmutils/time/jsplittime.h"
#include "coreapi/qmutils/time/ntpdate.h"

namespace {

void require(bool bHolds) {
  if (!bHolds) {
    std::abort();
  }
}

void readAsHostDate(const char* szText) {
  JTime time;
  JTime again;
  std::string sText;
  if (qm_utils::parseNtpDate(szText, time)) {
    qm_utils::formatNtpDate(time, sText);
    require(sText == time.toUSFormat());
    require(qm_utils::parseNtpDate(sText.c_str(), again) && again == time);
    require(JUTCSplitTime(szText).getTime() == time);
  } else {
    require(time == JTime());
  }
  if (qm_utils::parseLocalNtpDate(szText, time)) {
    qm_utils::formatLocalNtpDate(time, sText);
    require(qm_utils::parseLocalNtpDate(sText.c_str(), again) && again <= time);
  }
}

template <class SplitTime>
void readAsCalendarText(const char* szText) {
  SplitTime time(szText);
  require(time.toUSFormat().size() <= 49 && time.toISOFormat().size() <= 49 &&
          time.toShortFormat().size() <= 49);
  const JTime read = time.getTime();
  time.fromFields();
  require(time.getTime() <= read);
  time.setTime(read);
  require(time.getFields().iYear >= 1 && time.getFields().iYear <= 138);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t size) {
  const std::string sText(pData, pData + size);
  readAsHostDate(sText.c_str());
  readAsCalendarText<JUTCSplitTime>(sText.c_str());
  readAsCalendarText<JLocalSplitTime>(sText.c_str());
  JTime time;
  if (time.fromText(sText.c_str())) {
    JTime again;
    require(again.fromText(time.toText().c_str()) && again == time);
  }
  return 0;
}
