#pragma once

#include "qmmanager/handlers.h"

namespace qm_manager {

class Archive;

/// What a client reads of the archive. Answers hold the serialised object of the name behind the arrow.
///
///     function                  parameters
///     rpc_dbQuery               StorageQuery (object)         -> StorageSearchResultSet
///     rpc_getAlarmNames                                       -> AlarmNamesSet, a set of strings
///     rpc_getSourceMap                                        -> SourceMap, string to rates in ascending
///     order rpc_getProtectedLog       SourceName string, Fps int    -> ProtectedLog rpc_getAlarmLog
///     SourceName string, Fps int    -> AlarmLog rpc_getMetaDataLog        SourceName string, Fps int    ->
///     MetaDataLog rpc_analyticsSourceQuery  SourceName string, Fps int    -> AnalyticsSourceResultSet
void addQueryHandlers(Handlers& handlers, const Archive& archive);

}  // namespace qm_manager
