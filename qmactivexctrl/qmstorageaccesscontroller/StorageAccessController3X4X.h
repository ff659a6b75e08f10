#pragma once

#include <cstdint>
#include <string>

#include "qmactivexctrl/qmstorageaccesscontroller/GenerationController.h"

class MetaDataLog;

/// The controller of the reference dialect, that of servers 3.0 to 4.2.
///
/// It has no copies and no analytics searches yet: those operations report a failure.
class StorageAccessController3X4X : public GenerationController {
 public:
  /// The client stays the caller's and outlives this. Milliseconds.
  StorageAccessController3X4X(JRPCClient& client, std::int32_t iTimeOut);
  ~StorageAccessController3X4X() override;

  std::string getNext(std::int32_t iQueryId) override;
  std::int32_t releaseQuery(std::int32_t iQueryId) override;

  std::int32_t databaseQuery(const std::string& sCriteria) override;
  std::int32_t metaDataLogQuery(const std::string& sSource, std::int32_t iFps) override;
  std::int32_t analyticsSourceQuery(const std::string& sSource, std::int32_t iFps) override;

  std::int32_t setMetaData(const std::string& sSource, std::int32_t iFps, const std::string& sStart,
                           const std::string& sEnd, const std::string& sParams) override;
  std::int32_t unsetMetaData(const std::string& sSource, std::int32_t iFps, const std::string& sStart,
                             const std::string& sEnd, const std::string& sParams) override;
  std::int32_t hideIntervals(const std::string& sSource, std::int32_t iFps,
                             const std::string& sIntervals) override;
  std::int32_t unhideIntervals(const std::string& sSource, std::int32_t iFps,
                               const std::string& sIntervals) override;

  std::int32_t getRecordingSize(const std::string& sSource, std::int32_t iFps, const std::string& sStart,
                                const std::string& sEnd) override;
  std::int32_t remoteCopy(const std::string& sSource, std::int32_t iFps, const std::string& sPath,
                          const std::string& sStart, const std::string& sEnd) override;
  std::int32_t remoteCopyToProcess(const std::string& sSource, std::int32_t iFps, const std::string& sFormat,
                                   const std::string& sCommandLine, const char* const* ppEnvironment,
                                   const std::string& sStart, const std::string& sEnd, std::string* pOutput,
                                   std::string* pError, std::int32_t& iTerminationStatus) override;
  std::int32_t localCopy(const std::string& sSource, std::int32_t iFps, const std::string& sPath,
                         const std::string& sStart, const std::string& sEnd) override;
  std::int32_t analyticsCreateQuery(const std::string& sSource, std::int32_t iFps,
                                    const std::string& sPluginType, const std::string& sCriteria) override;
  std::int32_t analyticsGetQueryStatus(std::int32_t iQueryId, std::string& sStatus) override;
  std::int32_t analyticsStartQuery(std::int32_t iQueryId) override;
  std::int32_t analyticsStopQuery(std::int32_t iQueryId) override;

 private:
  class AnalyticsSourcesResult;

  // Searched behind those of the base, in this order.
  QueryMap<MetaDataLog> m_metaDataLogs;
  QueryMap<AnalyticsSourcesResult> m_analyticsSourceQueries;
};
