#include "qmmanager/request.h"

#include <limits>

#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/params/jparams.h"

namespace qm_manager {

namespace {

/// 9999-12-31 23:59:59.999999 UTC: what the logs can hold.
constexpr std::int64_t kLastTime = 265'046'774'399'999'999;

[[noreturn]] void refuse(std::string_view sKey, const char* szReason) {
  QM_THROW(JTextError, "the parameter \"" + std::string(sKey) + "\" " + szReason);
}

/// Whether the parameter is there. `T` is what the list converts to.
template <typename T>
bool read(const JParams& parameters, std::string_view sKey, T& value, const char* szOtherType) {
  try {
    return parameters.get(sKey, value);
  } catch (JVariant::TypeMismatchError* pError) {
    const qm_err::CaughtError error(pError);
    refuse(sKey, szOtherType);
  }
}

template <typename T>
void require(const JParams& parameters, std::string_view sKey, T& value, const char* szOtherType) {
  if (!read(parameters, sKey, value, szOtherType)) {
    refuse(sKey, "is missing");
  }
}

constexpr const char* kNoText = "is no text";

}  // namespace

std::string Request::getText(std::string_view sKey) const {
  std::string sText;
  require(m_parameters, sKey, sText, kNoText);
  return sText;
}

std::string Request::getText(std::string_view sKey, const std::string& sDefault) const {
  std::string sText = sDefault;
  read(m_parameters, sKey, sText, kNoText);
  return sText;
}

std::int64_t Request::getNumber(std::string_view sKey) const {
  std::int64_t iNumber = 0;
  require(m_parameters, sKey, iNumber, "is no whole number");
  return iNumber;
}

std::int32_t Request::getInteger(std::string_view sKey) const {
  const std::int64_t iNumber = getNumber(sKey);
  if (iNumber < std::numeric_limits<std::int32_t>::min() ||
      iNumber > std::numeric_limits<std::int32_t>::max()) {
    refuse(sKey, "is out of range");
  }
  return static_cast<std::int32_t>(iNumber);
}

bool Request::getFlag(std::string_view sKey, bool bDefault) const {
  bool bFlag = bDefault;
  read(m_parameters, sKey, bFlag, "is no boolean");
  return bFlag;
}

JTime Request::getTime(std::string_view sKey) const {
  const std::int64_t iTime = getNumber(sKey);
  if (iTime < 0 || iTime > kLastTime) {
    refuse(sKey, "is no date between the years 1601 and 9999");
  }
  return JTime::fromMicroseconds(static_cast<std::uint64_t>(iTime));
}

TimeSpan Request::getSpan(std::string_view sStartKey, std::string_view sEndKey) const {
  const TimeSpan span(getTime(sStartKey), getTime(sEndKey));
  if (span.endDate < span.startDate) {
    refuse(sEndKey, "is before the start");
  }
  return span;
}

}  // namespace qm_manager
