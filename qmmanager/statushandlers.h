#pragma once

#include "coreapi/qmutils/rpc/jrpcversion.h"
#include "qmmanager/handlers.h"

namespace qm_manager {

class Archive;

/// What a client learns of the Manager itself:
///
///     function             answer
///     getVersionString     ProductVersion string, "MAJOR, MINOR, 0, 0"
///     getParams            name, version (strings); units, bytes (integers): of the whole archive
///     setParams            refused: nothing can be set
///     rpc_analytics...     refused, but for rpc_analyticsSourceQuery: there are no searches by analytics
void addStatusHandlers(Handlers& handlers, const Archive& archive, const JRPCVersion& version);

}  // namespace qm_manager
