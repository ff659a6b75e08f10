#include <cinttypes>
#include <cstdio>
#include <exception>
#include <string_view>

#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/params/jparams.h"
#include "coreapi/qmutils/text/jtext.h"
#include "coreapi/qmutils/time/ntpdate.h"
#include "storage/RpcDate.h"
#include "storage/StorageQueryImpl.h"
#include "storage/StorageSearch.h"

namespace {

/// What stands in the data type for a file type, by its number.
constexpr const char* kDataTypes[] = {"*", "video/*", "audio/*", "application/*"};

constexpr const char* kBadStartDate = "Database Query Failed: Bad format for start date (see documentation)";
constexpr const char* kBadEndDate = "Database Query Failed: Bad format for end date (see documentation)";

// Flags of which at most one is set, in the order in which they go before each other when a peer has sent
// several.

using Fields = StorageQueryImpl::Fields;
using Flag = bool Fields::*;

constexpr Flag kAlarmFlags[] = {&Fields::requireAlarm, &Fields::excludeAlarm};
constexpr Flag kProtectedFlags[] = {&Fields::requireProtected, &Fields::excludeProtected};
constexpr Flag kMetaDataFlags[] = {&Fields::requireMetaDataByName, &Fields::requireMetaDataByValue,
                                   &Fields::excludeMetaDataByName, &Fields::excludeMetaDataByValue};
constexpr Flag kAnalyticsFlags[] = {&Fields::requireSrcAnalytics, &Fields::requireSrcWithAnalytics,
                                    &Fields::excludeSrcAnalytics, &Fields::excludeSrcWithAnalytics};

const char* boolText(bool bValue) noexcept {
  return bValue ? "true" : "false";
}

/// The number that stands for a data type with peers that know no data types.
std::int32_t oldTypeOf(std::string_view sDataType) noexcept {
  if (sDataType == "video/x-qmv[1-2]") {
    return StorageSearchItem::kVideoFile;
  }
  return sDataType == "audio/x-qmmp3" ? StorageSearchItem::kAudioFile : StorageSearchItem::kAnyFile;
}

std::int32_t fileTypeOf(std::string_view sWord) noexcept {
  if (qm_utils::equalsInAnyCase(sWord, "video")) {
    return StorageSearchItem::kVideoFile;
  }
  if (qm_utils::equalsInAnyCase(sWord, "audio")) {
    return StorageSearchItem::kAudioFile;
  }
  const bool bData = qm_utils::equalsInAnyCase(sWord, "metadata") || qm_utils::equalsInAnyCase(sWord, "data");
  return bData ? StorageSearchItem::kDataFile : StorageSearchItem::kAnyFile;
}

/// Criteria as a list; an empty one when they aren't one.
JParams readCriteria(const std::string& sCriteria) {
  JParams criteria;
  try {
    criteria.parse(qm_utils::upToNul(sCriteria));
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    JCATCH_LOG(error.get());
  }
  return criteria;
}

/// Hands a value to `apply` if it is there and converts.
template <class Value, class Apply>
void take(const JParams& criteria, std::string_view sKey, Apply apply) {
  Value value{};
  try {
    if (!criteria.get(sKey, value)) {
      return;
    }
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    JCATCH_LOG(error.get());
    return;
  }
  apply(value);
}

}  // namespace

std::unique_ptr<StorageQuery> StorageQueryImpl::clone() const {
  return std::make_unique<StorageQueryImpl>(*this);
}

// Setters.

void StorageQueryImpl::setFileType(std::int32_t iFileType) {
  if (iFileType < 0 || iFileType > StorageSearchItem::kDataFile) {
    qm_err::logText(qm_err::kLogCritical, "FATAL ASSERTION FAILED !! (Unsupported file type)");
    return;
  }
  m_fields.dataType = kDataTypes[iFileType];
}

void StorageQueryImpl::setFPS(std::int32_t iMin, std::int32_t iMax) {
  m_fields.minFPS = iMin;
  m_fields.maxFPS = iMax;
}

/// Sets one flag of a group of which at most one is true.
void StorageQueryImpl::setFlag(Flag pFlag, bool bValue, std::span<const Flag> group) {
  for (const Flag pOther : group) {
    m_fields.*pOther = m_fields.*pOther && !bValue;
  }
  m_fields.*pFlag = bValue;
}

void StorageQueryImpl::setRequireAlarm(bool bRequire) {
  setFlag(&Fields::requireAlarm, bRequire, kAlarmFlags);
}

void StorageQueryImpl::setExcludeAlarm(bool bExclude) {
  setFlag(&Fields::excludeAlarm, bExclude, kAlarmFlags);
}

void StorageQueryImpl::setRequireProtected(bool bRequire) {
  setFlag(&Fields::requireProtected, bRequire, kProtectedFlags);
}

void StorageQueryImpl::setExcludeProtected(bool bExclude) {
  setFlag(&Fields::excludeProtected, bExclude, kProtectedFlags);
}

void StorageQueryImpl::setRequireMetaDataByName(bool bRequire) {
  setFlag(&Fields::requireMetaDataByName, bRequire, kMetaDataFlags);
}

void StorageQueryImpl::setRequireMetaDataByValue(bool bRequire) {
  setFlag(&Fields::requireMetaDataByValue, bRequire, kMetaDataFlags);
}

void StorageQueryImpl::setExcludeMetaDataByName(bool bExclude) {
  setFlag(&Fields::excludeMetaDataByName, bExclude, kMetaDataFlags);
}

void StorageQueryImpl::setExcludeMetaDataByValue(bool bExclude) {
  setFlag(&Fields::excludeMetaDataByValue, bExclude, kMetaDataFlags);
}

void StorageQueryImpl::setRequireSrcAnalytics(bool bRequire) {
  setFlag(&Fields::requireSrcAnalytics, bRequire, kAnalyticsFlags);
}

void StorageQueryImpl::setRequireSrcWithAnalytics(bool bRequire) {
  setFlag(&Fields::requireSrcWithAnalytics, bRequire, kAnalyticsFlags);
}

void StorageQueryImpl::setExcludeSrcAnalytics(bool bExclude) {
  setFlag(&Fields::excludeSrcAnalytics, bExclude, kAnalyticsFlags);
}

void StorageQueryImpl::setExcludeSrcWithAnalytics(bool bExclude) {
  setFlag(&Fields::excludeSrcWithAnalytics, bExclude, kAnalyticsFlags);
}

// Criteria.

bool StorageQueryImpl::parse(const std::string& sCriteria) {
  std::string sFailure;
  if (!parseCriteria(sCriteria, sFailure)) {
    qm_err::logText(qm_err::kLogError, sFailure.c_str());
    return false;
  }
  return true;
}

bool StorageQueryImpl::parseCriteria(const std::string& sCriteria, std::string& sFailure) {
  const JParams criteria = readCriteria(sCriteria);
  StorageQueryImpl query;
  if (!query.takeDates(criteria, sFailure)) {
    return false;
  }
  query.takeCriteria(criteria);
  m_fields = std::move(query.m_fields);
  return true;
}

bool StorageQueryImpl::takeDates(const JParams& criteria, std::string& sFailure) {
  JTime date;
  bool bValid = true;
  const auto read = [&](const std::string& sDate) { bValid = qm_utils::parseNtpDate(sDate.c_str(), date); };
  date = m_fields.searchSpan.startDate;
  take<std::string>(criteria, "StartDate", read);
  if (!bValid) {
    sFailure = kBadStartDate;
    return false;
  }
  setStartDate(date);
  date = m_fields.searchSpan.endDate;
  take<std::string>(criteria, "EndDate", read);
  if (!bValid) {
    sFailure = kBadEndDate;
    return false;
  }
  setEndDate(date);
  return true;
}

/// All but the dates. Of flags that clear each other the later one in these lists wins.
void StorageQueryImpl::takeCriteria(const JParams& criteria) {
  const auto takeText = [&](std::string_view sKey, void (StorageQueryImpl::*set)(const std::string&)) {
    take<std::string>(criteria, sKey, [&](const std::string& sText) { (this->*set)(sText); });
  };
  const auto takeNumber = [&](std::string_view sKey, void (StorageQueryImpl::*set)(std::int32_t)) {
    take<std::int32_t>(criteria, sKey, [&](std::int32_t iNumber) { (this->*set)(iNumber); });
  };
  const auto takeFlag = [&](std::string_view sKey, void (StorageQueryImpl::*set)(bool)) {
    take<bool>(criteria, sKey, [&](bool bFlag) { (this->*set)(bFlag); });
  };
  takeText("AlarmName", &StorageQueryImpl::setAlarmName);
  takeFlag("RequireAlarm", &StorageQueryImpl::setRequireAlarm);
  takeFlag("ExcludeAlarm", &StorageQueryImpl::setExcludeAlarm);
  take<std::string>(criteria, "FileType", [&](const std::string& sWord) { setFileType(fileTypeOf(sWord)); });
  takeNumber("Fps", &StorageQueryImpl::setFPS);
  takeNumber("MinFps", &StorageQueryImpl::setMinFPS);
  takeNumber("MaxFps", &StorageQueryImpl::setMaxFPS);
  takeFlag("RequireProtected", &StorageQueryImpl::setRequireProtected);
  takeFlag("ExcludeProtected", &StorageQueryImpl::setExcludeProtected);
  takeText("MetaData", &StorageQueryImpl::setMetaData);
  takeFlag("RequireMetaDataByName", &StorageQueryImpl::setRequireMetaDataByName);
  takeFlag("RequireMetaDataByValue", &StorageQueryImpl::setRequireMetaDataByValue);
  takeFlag("ExcludeMetaDataByName", &StorageQueryImpl::setExcludeMetaDataByName);
  takeFlag("ExcludeMetaDataByValue", &StorageQueryImpl::setExcludeMetaDataByValue);
  takeText("SourceName", &StorageQueryImpl::setSourceName);
  takeText("AnalyticsType", &StorageQueryImpl::setAnalyticsType);
  takeFlag("RequireSrcAnalytics", &StorageQueryImpl::setRequireSrcAnalytics);
  takeFlag("ExcludeSrcAnalytics", &StorageQueryImpl::setExcludeSrcAnalytics);
  takeFlag("RequireSrcWithAnalytics", &StorageQueryImpl::setRequireSrcWithAnalytics);
  takeFlag("ExcludeSrcWithAnalytics", &StorageQueryImpl::setExcludeSrcWithAnalytics);
}

// The form on the wire.

void StorageQueryImpl::serialise(JRPCSerialisation& target) const {
  const Fields& fields = m_fields;
  target.serialise("DataType", fields.dataType);
  target.serialise("Type", oldTypeOf(fields.dataType));
  target.serialise("MinFPS", fields.minFPS);
  target.serialise("MaxFPS", fields.maxFPS);
  target.serialise("SourceName", fields.sourceName);
  target.serialise("AlarmName", fields.alarmName);
  target.serialise("RequireAlarm", fields.requireAlarm);
  target.serialise("RequireProtected", fields.requireProtected);
  qm_storage::serialiseDate(target, "StartDate", fields.searchSpan.startDate);
  qm_storage::serialiseDate(target, "EndDate", fields.searchSpan.endDate);
  target.serialise("MetaData", fields.metaData);
  target.serialise("RequireMetaDataByName", fields.requireMetaDataByName);
  target.serialise("RequireMetaDataByValue", fields.requireMetaDataByValue);
  target.serialise("ExcludeAlarm", fields.excludeAlarm);
  target.serialise("ExcludeProtected", fields.excludeProtected);
  target.serialise("ExcludeMetaDataByName", fields.excludeMetaDataByName);
  target.serialise("ExcludeMetaDataByValue", fields.excludeMetaDataByValue);
  target.serialise("AnalyticsType", fields.analyticsType);
  target.serialise("RequireSrcAnalytics", fields.requireSrcAnalytics);
  target.serialise("RequireSrcWithAnalytics", fields.requireSrcWithAnalytics);
  target.serialise("ExcludeSrcAnalytics", fields.excludeSrcAnalytics);
  target.serialise("ExcludeSrcWithAnalytics", fields.excludeSrcWithAnalytics);
}

void StorageQueryImpl::deserialise(JRPCDeserialisation& source, bool /*bRequired*/) {
  Fields& fields = m_fields;
  const TimeSpan searched = fields.searchSpan;
  fields = Fields();
  fields.searchSpan = searched;
  source.deserialise("DataType", fields.dataType, true);
  source.deserialise("MinFPS", fields.minFPS, true);
  source.deserialise("MaxFPS", fields.maxFPS, true);
  source.deserialise("SourceName", fields.sourceName, true);
  source.deserialise("AlarmName", fields.alarmName, true);
  source.deserialise("RequireAlarm", fields.requireAlarm, true);
  source.deserialise("RequireProtected", fields.requireProtected, true);
  qm_storage::deserialiseDate(source, "StartDate", fields.searchSpan.startDate);
  qm_storage::deserialiseDate(source, "EndDate", fields.searchSpan.endDate);
  source.deserialise("MetaData", fields.metaData, false);
  source.deserialise("RequireMetaDataByName", fields.requireMetaDataByName, false);
  source.deserialise("RequireMetaDataByValue", fields.requireMetaDataByValue, false);
  source.deserialise("ExcludeAlarm", fields.excludeAlarm, false);
  source.deserialise("ExcludeProtected", fields.excludeProtected, false);
  source.deserialise("ExcludeMetaDataByName", fields.excludeMetaDataByName, false);
  source.deserialise("ExcludeMetaDataByValue", fields.excludeMetaDataByValue, false);
  source.deserialise("AnalyticsType", fields.analyticsType, false);
  source.deserialise("RequireSrcAnalytics", fields.requireSrcAnalytics, false);
  source.deserialise("RequireSrcWithAnalytics", fields.requireSrcWithAnalytics, false);
  source.deserialise("ExcludeSrcAnalytics", fields.excludeSrcAnalytics, false);
  source.deserialise("ExcludeSrcWithAnalytics", fields.excludeSrcWithAnalytics, false);
  normalise();
}

/// In each group keeps the first flag of its list here that is set.
void StorageQueryImpl::normalise() noexcept {
  const auto keepFirst = [this](std::span<const Flag> group) {
    bool bKept = false;
    for (const Flag pFlag : group) {
      m_fields.*pFlag = m_fields.*pFlag && !bKept;
      bKept = bKept || m_fields.*pFlag;
    }
  };
  keepFirst(kAlarmFlags);
  keepFirst(kProtectedFlags);
  keepFirst(kMetaDataFlags);
  keepFirst(kAnalyticsFlags);
}

// Texts for people.

void StorageQueryImpl::dump() const {
  const Fields& fields = m_fields;
  std::printf("\nQuery dump:\n");
  std::printf("Data Type\t              : %s\n", fields.dataType.c_str());
  std::printf("Source Name              : %s\n", fields.sourceName.c_str());
  std::printf("FPS Interval             : [%d,%d]\n", fields.minFPS, fields.maxFPS);
  std::printf("Search Interval          : [%" PRIu64 ",%" PRIu64 "]\n",
              fields.searchSpan.startDate.getMicroseconds(), fields.searchSpan.endDate.getMicroseconds());
  std::printf("Require Alarm            : %s\n", boolText(fields.requireAlarm));
  std::printf("Exclude Alarm            : %s\n", boolText(fields.excludeAlarm));
  std::printf("Alarm Name               : %s\n", fields.alarmName.c_str());
  std::printf("Require Protect          : %s\n", boolText(fields.requireProtected));
  std::printf("Exclude Protect          : %s\n", boolText(fields.excludeProtected));
  std::printf("Require MetaData By Name : %s\n", boolText(fields.requireMetaDataByName));
  std::printf("Require MetaData By Value: %s\n", boolText(fields.requireMetaDataByValue));
  std::printf("Exclude MetaData By Name : %s\n", boolText(fields.excludeMetaDataByName));
  std::printf("Exclude MetaData By Value: %s\n", boolText(fields.excludeMetaDataByValue));
  std::printf("MetaData String          : %s\n", fields.metaData.c_str());
  std::printf("Require Src Analytics    : %s\n", boolText(fields.requireSrcAnalytics));
  std::printf("Require Src With Analytics: %s\n", boolText(fields.requireSrcWithAnalytics));
  std::printf("Exclude Src Analytics    : %s\n", boolText(fields.excludeSrcAnalytics));
  std::printf("Exclude Src With Analytics: %s\n", boolText(fields.excludeSrcWithAnalytics));
  std::printf("AnalyticsType String    : %s\n", fields.analyticsType.c_str());
  std::printf("\n");
}

std::string StorageQueryImpl::toString() const {
  const Fields& fields = m_fields;
  std::string sText = "Data Type: " + fields.dataType + ", Source Name: " + fields.sourceName;
  sText += qm_utils::format(", FPS Interval: [%d,%d]", fields.minFPS, fields.maxFPS);
  sText += ", Search Interval: [" + fields.searchSpan.startDate.toUSFormat() + "," +
           fields.searchSpan.endDate.toUSFormat() + "]";
  const auto flag = [&sText](const char* szLabel, bool bValue) {
    sText.append(", ").append(szLabel).append(": ").append(boolText(bValue));
  };
  flag("Require Alarm", fields.requireAlarm);
  flag("Exclude Alarm", fields.excludeAlarm);
  sText += ", Alarm Name: " + fields.alarmName;
  flag("Require Protect", fields.requireProtected);
  flag("Exclude Protect", fields.excludeProtected);
  flag("Require MetaData By Name", fields.requireMetaDataByName);
  flag("Require MetaData By Value", fields.requireMetaDataByValue);
  flag("Exclude MetaData By Name", fields.excludeMetaDataByName);
  flag("Exclude MetaData By Value", fields.excludeMetaDataByValue);
  sText += ", MetaData: " + fields.metaData;
  flag("Require Src Analytics", fields.requireSrcAnalytics);
  flag("Require Src With Analytics", fields.requireSrcWithAnalytics);
  flag("Exclude Src Analytics", fields.excludeSrcAnalytics);
  flag("Exclude Src With Analytics", fields.excludeSrcWithAnalytics);
  return sText + ", AnalyticsType: " + fields.analyticsType;
}
