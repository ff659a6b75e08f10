#pragma once

#include "qmmanager/handlers.h"

namespace qm_manager {

class Archive;

/// What a client changes in the archive; all in one unit, which SourceName (string) and Fps (integer) name.
/// Dates are integers, counts of microseconds since 1601.
///
///     function                   further parameters
///     rpc_protect                TsProtectedStart, TsProtectedEnd, TsValidStart, TsValidEnd, Details
///     rpc_unprotect              TsProtectedStart, TsProtectedEnd
///     rpc_alarm                  AlarmName, TsAlarmIncident, TsAlarmStart, TsAlarmEnd
///     rpc_removeAlarmByInterval  AlarmName (a glob), TsAlarmStart, TsAlarmEnd
///     rpc_removeAlarmByDate      AlarmName (a glob), TsAlarmIncident
///     rpc_erase                  TsEraseStart, TsEraseEnd
///     rpc_setMetaData            TsIntervalStart, TsIntervalEnd, Params
///     rpc_unsetMetaData          TsIntervalStart, TsIntervalEnd, Params
///     rpc_hideIntervals          Intervals
///     rpc_unhideIntervals        Intervals
///
/// A date of validity that is 0 leaves the validity open at that end. What a span takes out of alarms,
/// protections and metadata is taken out wherever they are; that there is nothing to take out is no failure,
/// but for an alarm by its date: it names one, which must be there. Params is a parameter list of at least
/// one pair; to unset it may be a list of keys, globs, that commas separate, too. A pair that is unset goes
/// where its value matches. Intervals: see intervals.h.
///
/// Each change is on the disk when its function is done; when it isn't, memory stays as the disk is.
void addCommandHandlers(Handlers& handlers, const Archive& archive);

}  // namespace qm_manager
