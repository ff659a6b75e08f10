#include "qmactivexctrl/qmstorageaccesscontroller/StorageAccessController3X4X.h"

#include <memory>
#include <utility>

#include "coreapi/qmutils/params/jparams.h"
#include "coreapi/qmutils/params/jvariant.h"
#include "coreapi/qmutils/rpc/jrpcserialisation.h"
#include "qmactivexctrl/qmstorageaccesscontroller/QueryResults.h"
#include "storage/AnalyticsData.h"
#include "storage/MetaDataLog.h"
#include "storage/StorageQueryImpl.h"
#include "storage/StorageSearchImpl.h"

/// Sources of analytics data.
class StorageAccessController3X4X::AnalyticsSourcesResult {
 public:
  explicit AnalyticsSourcesResult(std::unique_ptr<AnalyticsSourceResultSet> pItems)
      : m_pItems(std::move(pItems)) {}
  virtual ~AnalyticsSourcesResult() = default;
  AnalyticsSourcesResult(const AnalyticsSourcesResult&) = delete;
  AnalyticsSourcesResult& operator=(const AnalyticsSourcesResult&) = delete;

  std::string next() {
    const AnalyticsSourceItem* const pItem = m_pItems->at(m_uNext++);
    return pItem != nullptr ? pItem->toString() : std::string();
  }

 private:
  std::unique_ptr<AnalyticsSourceResultSet> m_pItems;
  std::uint32_t m_uNext = 0;
};

StorageAccessController3X4X::StorageAccessController3X4X(JRPCClient& client, std::int32_t iTimeOut)
    : GenerationController(client, iTimeOut) {}

StorageAccessController3X4X::~StorageAccessController3X4X() = default;

// Results.

std::string StorageAccessController3X4X::getNext(std::int32_t iQueryId) {
  const JAutoLock lock(m_mutex);
  std::string sRow;
  if (!takeNextOfAll(iQueryId, sRow) && !takeNext(m_metaDataLogs, iQueryId, sRow)) {
    takeNext(m_analyticsSourceQueries, iQueryId, sRow);
  }
  return sRow;
}

std::int32_t StorageAccessController3X4X::releaseQuery(std::int32_t iQueryId) {
  const JAutoLock lock(m_mutex);
  const bool bReleased = releaseOfAll(iQueryId) || m_metaDataLogs.erase(iQueryId) != 0 ||
                         m_analyticsSourceQueries.erase(iQueryId) != 0;
  return bReleased ? kDone : kCommandFailed;
}

// Queries.

std::int32_t StorageAccessController3X4X::databaseQuery(const std::string& sCriteria) {
  if (!checkConnected("Database Query Failed: Not connected to Manager")) {
    return kQueryFailed;
  }
  StorageQueryImpl query;
  std::string sFailure;
  if (!query.parseCriteria(sCriteria, sFailure)) {
    reportFailure(sFailure, __FILE_NAME__, __LINE__);
    return kQueryFailed;
  }
  JRPCSerialisation serialisation;  // the call reads what it holds
  JVariant head;
  if (!attempt("Database Query Failed: Query Serialisation", [&] {
        serialisation.serialise("StorageQuery", query);
        serialisation.toChain(head);
      })) {
    return kQueryFailed;
  }
  std::unique_ptr<JParams> pAnswer = callServer("rpc_dbQuery", &head, "Database Query Failed: RPC");
  if (!pAnswer) {
    return kQueryFailed;
  }
  auto pItems = std::make_unique<StorageSearchResultSetImpl>();
  if (!attempt("Database Query Failed: Results Deserialisation", [&] {
        JRPCDeserialisation(std::move(pAnswer)).deserialise("StorageSearchResultSet", *pItems, true);
      })) {
    return kQueryFailed;
  }
  return enter(m_dbQueries, std::make_unique<DbQueryResult>(std::move(pItems)));
}

std::int32_t StorageAccessController3X4X::metaDataLogQuery(const std::string& sSource, std::int32_t iFps) {
  static constexpr QueryTexts kTexts = {"Get MetaData Log Failed: Not connected to Manager",
                                        "Get MetaData Log Failed: RPC",
                                        "Get MetaData Log Failed: Result Deserialisation"};
  return logQuery(kTexts, "rpc_getMetaDataLog", "MetaDataLog", m_metaDataLogs, sSource, iFps);
}

std::int32_t StorageAccessController3X4X::analyticsSourceQuery(const std::string& sSource,
                                                               std::int32_t iFps) {
  static constexpr QueryTexts kTexts = {"analyticsSourceQuery failed: not connected to Manager",
                                        "analyticsSourceQuery Failed: RPC",
                                        "analyticsSourceQuery Failed: Results Deserialisation"};
  auto pItems = std::make_unique<AnalyticsSourceResultSet>();
  if (!fetch(kTexts, "rpc_analyticsSourceQuery", {{"SourceName", sSource}, {"Fps", iFps}},
             "AnalyticsSourceResultSet", *pItems)) {
    return kQueryFailed;
  }
  return enter(m_analyticsSourceQueries, std::make_unique<AnalyticsSourcesResult>(std::move(pItems)));
}

// Commands.

std::int32_t StorageAccessController3X4X::setMetaData(const std::string& sSource, std::int32_t iFps,
                                                      const std::string& sStart, const std::string& sEnd,
                                                      const std::string& sParams) {
  return command("rpc_setMetaData", "SetMetaData",
                 {{"SourceName", sSource},
                  {"Fps", iFps},
                  {"TsIntervalStart", RpcDate(sStart)},
                  {"TsIntervalEnd", RpcDate(sEnd)},
                  {"Params", sParams}});
}

std::int32_t StorageAccessController3X4X::unsetMetaData(const std::string& sSource, std::int32_t iFps,
                                                        const std::string& sStart, const std::string& sEnd,
                                                        const std::string& sParams) {
  return command("rpc_unsetMetaData", "UnsetMetaData",
                 {{"SourceName", sSource},
                  {"Fps", iFps},
                  {"TsIntervalStart", RpcDate(sStart)},
                  {"TsIntervalEnd", RpcDate(sEnd)},
                  {"Params", sParams}});
}

std::int32_t StorageAccessController3X4X::hideIntervals(const std::string& sSource, std::int32_t iFps,
                                                        const std::string& sIntervals) {
  return command("rpc_hideIntervals", "'rpc_hideIntervals'",
                 {{"SourceName", sSource}, {"Fps", iFps}, {"Intervals", sIntervals}});
}

std::int32_t StorageAccessController3X4X::unhideIntervals(const std::string& sSource, std::int32_t iFps,
                                                          const std::string& sIntervals) {
  return command("rpc_unhideIntervals", "'rpc_unhideIntervals'",
                 {{"SourceName", sSource}, {"Fps", iFps}, {"Intervals", sIntervals}});
}

// What this controller can't do yet.

std::int32_t StorageAccessController3X4X::getRecordingSize(const std::string& /*sSource*/,
                                                           std::int32_t /*iFps*/,
                                                           const std::string& /*sStart*/,
                                                           const std::string& /*sEnd*/) {
  constexpr std::int32_t kSizeFailed = 1;
  reportFailure("Remote Backup Failed: Not implemented", __FILE_NAME__, __LINE__);
  return kSizeFailed;
}

std::int32_t StorageAccessController3X4X::remoteCopy(const std::string& /*sSource*/, std::int32_t /*iFps*/,
                                                     const std::string& /*sPath*/,
                                                     const std::string& /*sStart*/,
                                                     const std::string& /*sEnd*/) {
  reportFailure("Remote Backup Failed: Not implemented", __FILE_NAME__, __LINE__);
  return kCommandFailed;
}

std::int32_t StorageAccessController3X4X::remoteCopyToProcess(
    const std::string& /*sSource*/, std::int32_t /*iFps*/, const std::string& /*sFormat*/,
    const std::string& /*sCommandLine*/, const char* const* /*ppEnvironment*/, const std::string& /*sStart*/,
    const std::string& /*sEnd*/, std::string* /*pOutput*/, std::string* /*pError*/,
    std::int32_t& /*iTerminationStatus*/) {
  reportFailure("Remote Backup Failed: Not implemented", __FILE_NAME__, __LINE__);
  return kCommandFailed;
}

std::int32_t StorageAccessController3X4X::localCopy(const std::string& /*sSource*/, std::int32_t /*iFps*/,
                                                    const std::string& /*sPath*/,
                                                    const std::string& /*sStart*/,
                                                    const std::string& /*sEnd*/) {
  reportFailure("Local Backup Failed: Not implemented", __FILE_NAME__, __LINE__);
  return kCommandFailed;
}

std::int32_t StorageAccessController3X4X::analyticsCreateQuery(const std::string& /*sSource*/,
                                                               std::int32_t /*iFps*/,
                                                               const std::string& /*sPluginType*/,
                                                               const std::string& /*sCriteria*/) {
  reportFailure("analyticsCreateQuery failed: Not implemented", __FILE_NAME__, __LINE__);
  return kQueryFailed;
}

std::int32_t StorageAccessController3X4X::analyticsGetQueryStatus(std::int32_t /*iQueryId*/,
                                                                  std::string& /*sStatus*/) {
  reportFailure("analyticsGetQueryStatus failed: Not implemented", __FILE_NAME__, __LINE__);
  return kCommandFailed;
}

std::int32_t StorageAccessController3X4X::analyticsStartQuery(std::int32_t /*iQueryId*/) {
  reportFailure("analyticsStartQuery failed: Not implemented", __FILE_NAME__, __LINE__);
  return kCommandFailed;
}

std::int32_t StorageAccessController3X4X::analyticsStopQuery(std::int32_t /*iQueryId*/) {
  reportFailure("analyticsStopQuery failed: Not implemented", __FILE_NAME__, __LINE__);
  return kCommandFailed;
}
