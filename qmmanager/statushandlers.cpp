#include "qmmanager/statushandlers.h"

#include <cstdint>

#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/params/jparams.h"
#include "qmmanager/archive.h"

namespace qm_manager {

namespace {

constexpr const char* kAnalyticsSearches[] = {
    "rpc_analyticsCreateQuery", "rpc_analyticsGetQueryStatus",          "rpc_analyticsStartQuery",
    "rpc_analyticsStopQuery",   "rpc_analyticsGetNextAvailableResults", "rpc_analyticsReleaseQuery"};

void describe(const Archive& archive, JParams& answer) {
  std::uint64_t uUnits = 0;
  std::uint64_t uBytes = 0;
  for (const auto& [sSource, units] : archive.getTable().copy()) {
    for (const auto& [iFps, pUnit] : units) {
      ++uUnits;
      uBytes += pUnit->getUsedSpace();
    }
  }
  answer.add("name", "qmmanagerd");
  answer.add("version", QM_VERSION);
  answer.add("units", uUnits);
  answer.add("bytes", uBytes);
}

}  // namespace

void addStatusHandlers(Handlers& handlers, const Archive& archive, const JRPCVersion& version) {
  handlers.emplace("getVersionString", [version](const Request&, JParams& answer) {
    answer.add("ProductVersion",
               std::to_string(version.major) + ", " + std::to_string(version.minor) + ", 0, 0");
  });
  handlers.emplace("getParams", [&archive](const Request&, JParams& answer) { describe(archive, answer); });
  handlers.emplace("setParams", [](const Request&, JParams&) {
    QM_THROW(JTextError, "this Manager has no parameters that can be set");
  });
  for (const char* const szFunction : kAnalyticsSearches) {
    handlers.emplace(szFunction, [](const Request&, JParams&) {
      QM_THROW(JTextError, "this Manager has no searches by analytics");
    });
  }
}

}  // namespace qm_manager
