#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "coreapi/qmutils/rpc/jrpccontroller.h"
#include "coreapi/qmxml/qmxml.h"
#include "qmactivexctrl/qmstorageaccesscontroller/StorageAccessCtrlInterface.h"

/// The front of all controllers: owns the link to the Manager, makes the controller of the server's
/// generation when the link is up, hands every operation on to it, and deletes it when the link goes down.
/// Without one, queries give 0, commands -1, `getNext` the empty text, and no message comes of it.
///
/// `getLastError` takes the newest message of the controller. Without a controller it gives, at every call,
/// the text that was saved last: the newest message of the lost controller, or what the host read last. The
/// next `connect` clears it.
///
/// Events reach the target on the link's event thread, outside the lock, so that it may call every operation,
/// `connect` and `disconnect` included, but not delete this. When the link has come up, operations work
/// already; when it has gone down, they give their failure values already. An event of a link that has been
/// replaced is dropped, and so is the coming up of one that has been ended: the host did that itself, and
/// what it would do about the event would hit the wrong link.
///
/// Threads: all operations from any thread. The link's lock is held over a whole operation, a copy included;
/// the next one, and the news that the link is down, wait for it.
class StorageAccessController final : public StorageAccessCtrlInterface,
                                      private JRPCController,
                                      public JRPCNotifyWithContext {
 public:
  /// The target may be null; it stays the caller's. Nothing is connected yet.
  explicit StorageAccessController(JRPCNotifyWithContext* pNotify);

  /// Ends the link. Nothing reaches the target afterwards.
  ~StorageAccessController() override;

  // The link.

  using JRPCController::getBlocking;
  using JRPCController::getHost;
  using JRPCController::getParams;
  using JRPCController::getPort;
  using JRPCController::getServerVersion;
  using JRPCController::getTimeOut;
  using JRPCController::getTunnelPort;
  using JRPCController::setBlocking;
  using JRPCController::setHost;
  using JRPCController::setParams;
  using JRPCController::setPort;
  using JRPCController::setTunnelPort;
  void setTimeOut(std::int32_t iTimeOut) override;
  void rehash() override;
  void disconnect() override;

  /// As every link's; but 2 only when operations work, so that a host may ask instead of waiting for the
  /// event: 1 still while the server's controller is to be made.
  int getStatus() override;

  /// 0; -1 when a blocking connection failed. A blocking connection gives no event.
  int connect() override;

  void forgetNotify() override;

  // The archive.

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
  std::int32_t unprotect(const std::string& sSource, std::int32_t iFps, const std::string& sStart,
                         const std::string& sEnd) override;
  std::int32_t protect(const std::string& sSource, std::int32_t iFps, const std::string& sProtectedStart,
                       const std::string& sProtectedEnd, const std::string& sValidStart,
                       const std::string& sValidEnd, const std::string& sDetails) override;
  std::int32_t releaseQuery(std::int32_t iQueryId) override;
  std::int32_t alarmLogQuery(const std::string& sSource, std::int32_t iFps) override;
  std::int32_t protectedLogQuery(const std::string& sSource, std::int32_t iFps) override;
  std::string getNext(std::int32_t iQueryId) override;
  std::int32_t sourcesQuery() override;
  std::int32_t alarmNamesQuery() override;
  std::int32_t databaseQuery(const std::string& sCriteria) override;
  std::int32_t alarm(const std::string& sSource, std::int32_t iFps, const std::string& sAlarmName,
                     const std::string& sIncident, const std::string& sStart,
                     const std::string& sEnd) override;
  std::int32_t erase(const std::string& sSource, std::int32_t iFps, const std::string& sStart,
                     const std::string& sEnd) override;
  std::int32_t addFile(const std::string& sFileName, const std::string& sDiskSpaceName,
                       const std::string& sSource, const std::string& sAlarmName,
                       const std::string& sStartDate) override;
  std::int32_t removeAlarmByInterval(const std::string& sSource, std::int32_t iFps,
                                     const std::string& sAlarmName, const std::string& sStart,
                                     const std::string& sEnd) override;
  std::int32_t removeAlarmByDate(const std::string& sSource, std::int32_t iFps, const std::string& sAlarmName,
                                 const std::string& sDate) override;
  std::string getLastError() override;
  std::int32_t metaDataLogQuery(const std::string& sSource, std::int32_t iFps) override;
  std::int32_t setMetaData(const std::string& sSource, std::int32_t iFps, const std::string& sStart,
                           const std::string& sEnd, const std::string& sParams) override;
  std::int32_t unsetMetaData(const std::string& sSource, std::int32_t iFps, const std::string& sStart,
                             const std::string& sEnd, const std::string& sParams) override;
  std::int32_t hideIntervals(const std::string& sSource, std::int32_t iFps,
                             const std::string& sIntervals) override;
  std::int32_t unhideIntervals(const std::string& sSource, std::int32_t iFps,
                               const std::string& sIntervals) override;
  std::int32_t analyticsSourceQuery(const std::string& sSource, std::int32_t iFps) override;
  std::int32_t analyticsCreateQuery(const std::string& sSource, std::int32_t iFps,
                                    const std::string& sPluginType, const std::string& sCriteria) override;
  std::int32_t analyticsGetQueryStatus(std::int32_t iQueryId, std::string& sStatus) override;
  std::int32_t analyticsStartQuery(std::int32_t iQueryId) override;
  std::int32_t analyticsStopQuery(std::int32_t iQueryId) override;

 private:
  // The link's events, on its event thread.
  using JRPCController::linkDown;
  using JRPCController::linkUp;
  void linkUp(JRPCController* pContext) override;
  void linkDown(JRPCController* pContext, JError* pError) override;

  template <typename Result, typename... Parameters, typename... Arguments>
  Result forward(Result failure, Result (IStorageAccessControl::*operation)(Parameters...),
                 Arguments&&... arguments);
  std::unique_ptr<IStorageAccessControl> createController(JRPCClient& client) const;
  void dropController();

  QMXmlUse m_xmlUse;                                  ///< descriptions of streams come with copies
  std::unique_ptr<IStorageAccessControl> m_pControl;  ///< only while the link is up; under the link's lock
  std::string m_sLastError;                           ///< under the link's lock
  JRPCNotifyWithContext* const m_pNotify;
};
