#pragma once

#include "storage/AlarmLog.h"

class ArchiveUnit;

namespace qm_manager {

/// Adds an alarm to a unit's log; it is on the disk when this returns. Throws JTextError for one without a
/// name, one that the log can't hold, and one that a full log would drop at once; and what storing throws.
void addAlarm(ArchiveUnit& unit, const AlarmLogRecord& alarm);

/// Takes just this alarm out of a unit's log again, once; none is no failure. Throws what storing throws.
void dropAlarm(ArchiveUnit& unit, const AlarmLogRecord& alarm);

}  // namespace qm_manager
