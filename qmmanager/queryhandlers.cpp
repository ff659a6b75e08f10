#include "qmmanager/queryhandlers.h"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/params/jparams.h"
#include "coreapi/qmutils/rpc/jrpccontainers.h"
#include "qmmanager/archive.h"
#include "qmmanager/request.h"
#include "storage/AnalyticsData.h"
#include "storage/StorageQueryImpl.h"
#include "storage/StorageSearchImpl.h"

namespace qm_manager {

namespace {

void answerWith(JParams& answer, const char* szName, const JRPCObject& object) {
  JRPCSerialisation(&answer).serialise(szName, object);
}

void search(const Archive& archive, const Request& request, JParams& answer) {
  StorageQueryImpl query;
  JRPCDeserialisation source(&request.getParameters(), false);
  source.deserialise("StorageQuery", query, true);
  const auto pResults = query.execute(archive.getTable());
  answerWith(answer, "StorageSearchResultSet", pResults->getRpcObject());
}

void listAlarmNames(const Archive& archive, const Request& /*request*/, JParams& answer) {
  jrpc_set<std::string> names;
  for (const auto& [sSource, units] : archive.getTable().copy()) {
    for (const auto& [iFps, pUnit] : units) {
      const JAutoLock lock(pUnit->getMutex());
      pUnit->getAlarmLog().getAlarmNames(names);
    }
  }
  answerWith(answer, "AlarmNamesSet", names);
}

void listSources(const Archive& archive, const Request& /*request*/, JParams& answer) {
  std::map<std::string, std::vector<std::int32_t>> sources;
  for (const auto& [sSource, units] : archive.getTable().copy()) {
    std::vector<std::int32_t>& rates = sources[sSource];
    for (const auto& [iFps, pUnit] : units) {
      rates.push_back(iFps);
    }
  }
  answerWith(answer, "SourceMap", const_jrpc_map_ref(sources));
}

/// Serialised under the unit's mutex, which the logs belong to.
template <class Log>
Handler logHandler(const Archive& archive, const char* szName, Log& (ArchiveUnit::*getLog)()) {
  return [&archive, szName, getLog](const Request& request, JParams& answer) {
    const auto pUnit = archive.requireUnit(request.getText("SourceName"), request.getInteger("Fps"));
    const JAutoLock lock(pUnit->getMutex());
    answerWith(answer, szName, ((*pUnit).*getLog)());
  };
}

void listAnalytics(const Archive& archive, const Request& request, JParams& answer) {
  const auto pStreams =
      listAnalyticsSources(archive.getTable(), request.getText("SourceName"), request.getInteger("Fps"));
  answerWith(answer, "AnalyticsSourceResultSet", *pStreams);
}

}  // namespace

void addQueryHandlers(Handlers& handlers, const Archive& archive) {
  const auto add = [&](const char* szName, auto function) {
    handlers.emplace(szName, [&archive, function](const Request& request, JParams& answer) {
      function(archive, request, answer);
    });
  };
  add("rpc_dbQuery", search);
  add("rpc_getAlarmNames", listAlarmNames);
  add("rpc_getSourceMap", listSources);
  add("rpc_analyticsSourceQuery", listAnalytics);
  handlers.emplace("rpc_getProtectedLog", logHandler(archive, "ProtectedLog", &ArchiveUnit::getProtectedLog));
  handlers.emplace("rpc_getAlarmLog", logHandler(archive, "AlarmLog", &ArchiveUnit::getAlarmLog));
  handlers.emplace("rpc_getMetaDataLog", logHandler(archive, "MetaDataLog", &ArchiveUnit::getMetaDataLog));
}

}  // namespace qm_manager
