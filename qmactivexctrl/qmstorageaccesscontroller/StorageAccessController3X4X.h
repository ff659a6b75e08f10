#pragma once

#include <cstdint>
#include <initializer_list>
#include <memory>
#include <string>

#include "qmactivexctrl/qmstorageaccesscontroller/GenerationController.h"

class FileOutput;
class JSocket;
class MetaDataLog;

/// The controller of the reference dialect, that of servers 3.0 to 4.2.
///
/// A copy is one call that lasts as long as the copy: the server connects back, and a thread of its own turns
/// what it pushes into a media file; any other thread may cancel it. It has no analytics searches yet: those
/// operations report a failure.
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
  bool cancelCopy() noexcept override;
  std::int32_t analyticsCreateQuery(const std::string& sSource, std::int32_t iFps,
                                    const std::string& sPluginType, const std::string& sCriteria) override;
  std::int32_t analyticsGetQueryStatus(std::int32_t iQueryId, std::string& sStatus) override;
  std::int32_t analyticsStartQuery(std::int32_t iQueryId) override;
  std::int32_t analyticsStopQuery(std::int32_t iQueryId) override;

 private:
  class AnalyticsSourcesResult;
  class DataReceiver;
  class RunningCopy;
  class SocketReader;
  struct BackupTexts;
  struct BackupSource;
  struct Recording;

  bool checkBackup(const BackupTexts& texts, const std::string& sStart, const std::string& sEnd);
  std::unique_ptr<JParams> callForBackup(const char* szRpc, std::initializer_list<RpcArgument> arguments,
                                         const char* szFailure);
  bool isAccepted(const JParams* pAnswer, const char* szFailure);
  bool askForSource(const Recording& recording, BackupSource& source);
  static std::unique_ptr<FileOutput> openOutput(const Recording& recording, const BackupSource& source,
                                                std::unique_ptr<JSocket> pOutputSocket,
                                                const std::string& sExtension, const std::string& sPath,
                                                JParams& fileParams);
  static void deleteBackupFile(const std::string& sPath);
  bool pull(const Recording& recording, const std::string& sProtocol, std::uint16_t uPort,
            DataReceiver& receiver);

  /// Copies a recording into a socket as a media file. `sExtension`, unless empty, chooses its format; a file
  /// at `sPath`, unless empty, is deleted when no frame came. Whether it failed, which is reported then.
  bool runBackup(const std::string& sSource, std::int32_t iFps, std::unique_ptr<JSocket> pOutputSocket,
                 std::string sExtension, const std::string& sPath, const std::string& sStart,
                 const std::string& sEnd);

  // Searched behind those of the base, in this order.
  QueryMap<MetaDataLog> m_metaDataLogs;
  QueryMap<AnalyticsSourcesResult> m_analyticsSourceQueries;

  JMutex m_copyMutex;  ///< over the next one; before the receiver's, and no other is taken under it
  RunningCopy* m_pRunningCopy = nullptr;
};
