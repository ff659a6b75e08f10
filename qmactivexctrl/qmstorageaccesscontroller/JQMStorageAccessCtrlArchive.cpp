#include "qmactivexctrl/qmstorageaccesscontroller/controlcall.h"

// The members that are one operation of the archive each.

// Queries.

QMStatus JQMStorageAccessCtrl::DatabaseQuery(const char16_t* Criteria, std::int32_t& QueryId) {
  return ask(QueryId, 0, &IStorageAccessControl::databaseQuery, Criteria);
}

QMStatus JQMStorageAccessCtrl::AlarmNamesQuery(std::int32_t& QueryId) {
  return ask(QueryId, 0, &IStorageAccessControl::alarmNamesQuery);
}

QMStatus JQMStorageAccessCtrl::SourcesQuery(std::int32_t& QueryId) {
  return ask(QueryId, 0, &IStorageAccessControl::sourcesQuery);
}

QMStatus JQMStorageAccessCtrl::AlarmLogQuery(const char16_t* SourceName, std::int32_t Fps,
                                             std::int32_t& QueryId) {
  return ask(QueryId, 0, &IStorageAccessControl::alarmLogQuery, SourceName, Fps);
}

QMStatus JQMStorageAccessCtrl::ProtectedLogQuery(const char16_t* SourceName, std::int32_t Fps,
                                                 std::int32_t& QueryId) {
  return ask(QueryId, 0, &IStorageAccessControl::protectedLogQuery, SourceName, Fps);
}

QMStatus JQMStorageAccessCtrl::MetaDataLogQuery(const char16_t* SourceName, std::int32_t Fps,
                                                std::int32_t& QueryId) {
  return ask(QueryId, 0, &IStorageAccessControl::metaDataLogQuery, SourceName, Fps);
}

// Commands.

QMStatus JQMStorageAccessCtrl::Protect(const char16_t* SourceName, std::int32_t Fps,
                                       const char16_t* ProtectedIntervalStart,
                                       const char16_t* ProtectedIntervalEnd,
                                       const char16_t* ValidityIntervalStart,
                                       const char16_t* ValidityIntervalEnd, const char16_t* Details,
                                       std::int32_t& Res) {
  return ask(Res, -1, &IStorageAccessControl::protect, SourceName, Fps, ProtectedIntervalStart,
             ProtectedIntervalEnd, ValidityIntervalStart, ValidityIntervalEnd, Details);
}

QMStatus JQMStorageAccessCtrl::Unprotect(const char16_t* SourceName, std::int32_t Fps,
                                         const char16_t* ProtectedIntervalStart,
                                         const char16_t* ProtectedIntervalEnd, std::int32_t& Res) {
  return ask(Res, -1, &IStorageAccessControl::unprotect, SourceName, Fps, ProtectedIntervalStart,
             ProtectedIntervalEnd);
}

QMStatus JQMStorageAccessCtrl::Alarm(const char16_t* SourceName, std::int32_t Fps, const char16_t* AlarmName,
                                     const char16_t* AlarmIncidentDate, const char16_t* AlarmIntervalStart,
                                     const char16_t* AlarmIntervalEnd, std::int32_t& Res) {
  return ask(Res, -1, &IStorageAccessControl::alarm, SourceName, Fps, AlarmName, AlarmIncidentDate,
             AlarmIntervalStart, AlarmIntervalEnd);
}

QMStatus JQMStorageAccessCtrl::RemoveAlarmByInterval(const char16_t* SourceName, std::int32_t Fps,
                                                     const char16_t* AlarmName,
                                                     const char16_t* AlarmIntervalStart,
                                                     const char16_t* AlarmIntervalEnd, std::int32_t& Res) {
  return ask(Res, -1, &IStorageAccessControl::removeAlarmByInterval, SourceName, Fps, AlarmName,
             AlarmIntervalStart, AlarmIntervalEnd);
}

QMStatus JQMStorageAccessCtrl::RemoveAlarmByDate(const char16_t* SourceName, std::int32_t Fps,
                                                 const char16_t* AlarmName, const char16_t* AlarmIncidentDate,
                                                 std::int32_t& Res) {
  return ask(Res, -1, &IStorageAccessControl::removeAlarmByDate, SourceName, Fps, AlarmName,
             AlarmIncidentDate);
}

QMStatus JQMStorageAccessCtrl::Erase(const char16_t* SourceName, std::int32_t Fps,
                                     const char16_t* EraseIntervalStart, const char16_t* EraseIntervalEnd,
                                     std::int32_t& Res) {
  return ask(Res, -1, &IStorageAccessControl::erase, SourceName, Fps, EraseIntervalStart, EraseIntervalEnd);
}

QMStatus JQMStorageAccessCtrl::AddFile(const char16_t* FileName, const char16_t* DiskSpaceName,
                                       const char16_t* SourceName, const char16_t* AlarmName,
                                       const char16_t* StartDate, std::int32_t& ErrorCode) {
  return ask(ErrorCode, -1, &IStorageAccessControl::addFile, FileName, DiskSpaceName, SourceName, AlarmName,
             StartDate);
}

QMStatus JQMStorageAccessCtrl::SetMetaData(const char16_t* SourceName, std::int32_t Fps,
                                           const char16_t* IntervalStart, const char16_t* IntervalEnd,
                                           const char16_t* Params, std::int32_t& Res) {
  return ask(Res, -1, &IStorageAccessControl::setMetaData, SourceName, Fps, IntervalStart, IntervalEnd,
             Params);
}

QMStatus JQMStorageAccessCtrl::UnsetMetaData(const char16_t* SourceName, std::int32_t Fps,
                                             const char16_t* IntervalStart, const char16_t* IntervalEnd,
                                             const char16_t* Params, std::int32_t& Res) {
  return ask(Res, -1, &IStorageAccessControl::unsetMetaData, SourceName, Fps, IntervalStart, IntervalEnd,
             Params);
}

QMStatus JQMStorageAccessCtrl::HideIntervals(const char16_t* SourceName, std::int32_t Fps,
                                             const char16_t* Intervals, std::int32_t& Result) {
  JASSERT(m_pStorageAccessCtrl);
  return ask(Result, -1, &IStorageAccessControl::hideIntervals, SourceName, Fps, Intervals);
}

QMStatus JQMStorageAccessCtrl::UnhideIntervals(const char16_t* SourceName, std::int32_t Fps,
                                               const char16_t* Intervals, std::int32_t& Result) {
  JASSERT(m_pStorageAccessCtrl);
  return ask(Result, -1, &IStorageAccessControl::unhideIntervals, SourceName, Fps, Intervals);
}

// Copies.

QMStatus JQMStorageAccessCtrl::LocalCopy(const char16_t* SourceName, std::int32_t Fps,
                                         const char16_t* BackupPath, const char16_t* BackupStartDate,
                                         const char16_t* BackupEndDate, std::int32_t& Result) {
  return ask(Result, -1, &IStorageAccessControl::localCopy, SourceName, Fps, BackupPath, BackupStartDate,
             BackupEndDate);
}

QMStatus JQMStorageAccessCtrl::RemoteCopy(const char16_t* SourceName, std::int32_t Fps,
                                          const char16_t* BackupPath, const char16_t* BackupStartDate,
                                          const char16_t* BackupEndDate, std::int32_t& Result) {
  return ask(Result, -1, &IStorageAccessControl::remoteCopy, SourceName, Fps, BackupPath, BackupStartDate,
             BackupEndDate);
}

QMStatus JQMStorageAccessCtrl::GetRecordingSize(const char16_t* SourceName, std::int32_t Fps,
                                                const char16_t* BackupStartDate,
                                                const char16_t* BackupEndDate, std::int32_t& Result) {
  return ask(Result, -1, &IStorageAccessControl::getRecordingSize, SourceName, Fps, BackupStartDate,
             BackupEndDate);
}

// Analytics.

QMStatus JQMStorageAccessCtrl::AnalyticsSourceQuery(const char16_t* SourceName, std::int32_t Fps,
                                                    std::int32_t& QueryId) {
  JASSERT(m_pStorageAccessCtrl);
  return ask(QueryId, 0, &IStorageAccessControl::analyticsSourceQuery, SourceName, Fps);
}

QMStatus JQMStorageAccessCtrl::AnalyticsCreateQuery(const char16_t* SourceName, std::int32_t Fps,
                                                    const char16_t* PluginType, const char16_t* Criteria,
                                                    std::int32_t& QueryId) {
  JASSERT(m_pStorageAccessCtrl);
  return ask(QueryId, 0, &IStorageAccessControl::analyticsCreateQuery, SourceName, Fps, PluginType, Criteria);
}

QMStatus JQMStorageAccessCtrl::AnalyticsStartQuery(std::int32_t QueryId, std::int32_t& Result) {
  JASSERT(m_pStorageAccessCtrl);
  return ask(Result, -1, &IStorageAccessControl::analyticsStartQuery, QueryId);
}

QMStatus JQMStorageAccessCtrl::AnalyticsStopQuery(std::int32_t QueryId, std::int32_t& Result) {
  JASSERT(m_pStorageAccessCtrl);
  return ask(Result, -1, &IStorageAccessControl::analyticsStopQuery, QueryId);
}
