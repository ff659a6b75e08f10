#include "qmmanager/alarms.h"

#include <algorithm>
#include <memory>

#include "coreapi/qmutils/error/jerror.h"
#include "storage/ArchiveUnit.h"

namespace qm_manager {

namespace {

AlarmLog::Records::Position find(const AlarmLog& log, const AlarmLogRecord& alarm) {
  const AlarmLog::Records& records = log.getRecords();
  return std::find_if(records.begin(), records.end(), [&](const auto& pRecord) {
    return pRecord->span == alarm.span && pRecord->alarmDate == alarm.alarmDate &&
           pRecord->name == alarm.name;
  });
}

}  // namespace

void addAlarm(ArchiveUnit& unit, const AlarmLogRecord& alarm) {
  if (alarm.name.empty()) {
    QM_THROW(JTextError, "an alarm needs a name");
  }
  unit.changeAlarmLog([&](AlarmLog& log) {
    log.addRecord(std::make_unique<AlarmLogRecord>(alarm), true);
    if (find(log, alarm) == log.getRecords().end()) {
      QM_THROW(JTextError, "the alarm log is full, and all alarms in it are later than this one");
    }
  });
}

void dropAlarm(ArchiveUnit& unit, const AlarmLogRecord& alarm) {
  unit.changeAlarmLog([&](AlarmLog& log) {
    if (const auto position = find(log, alarm); position != log.getRecords().end()) {
      log.removeRecord(position, true);
    }
  });
}

}  // namespace qm_manager
