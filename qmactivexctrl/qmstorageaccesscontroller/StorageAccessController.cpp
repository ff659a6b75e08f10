#include "qmactivexctrl/qmstorageaccesscontroller/StorageAccessController.h"

#include <new>
#include <utility>

#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/error/loghook.h"
#include "qmactivexctrl/qmstorageaccesscontroller/ServerGeneration.h"
#include "qmactivexctrl/qmstorageaccesscontroller/StorageAccessController3X4X.h"

namespace {

/// What operations give without a controller.
constexpr std::int32_t kCommandFailed = -1;
constexpr std::int32_t kQueryFailed = 0;

using Control = IStorageAccessControl;

}  // namespace

StorageAccessController::StorageAccessController(JRPCNotifyWithContext* pNotify)
    : JRPCController(static_cast<JRPCNotifyWithContext*>(this)), m_pNotify(pNotify) {}

/// The link is ended here and not by the base, because this is the target of its events. That deletes the
/// controller while its client is still there.
StorageAccessController::~StorageAccessController() {
  shutDown();
}

void StorageAccessController::forgetNotify() {
  JRPCController::setNotify(nullptr);
}

// The link.

void StorageAccessController::setTimeOut(std::int32_t iTimeOut) {
  const JAutoLock lock(getLock());
  JRPCController::setTimeOut(iTimeOut);
  if (m_pControl) {
    m_pControl->setTimeOut(iTimeOut);
  }
}

int StorageAccessController::getStatus() {
  const JAutoLock lock(getLock());
  const int iStatus = JRPCController::getStatus();
  return iStatus == kUp && !m_pControl ? kConnecting : iStatus;
}

int StorageAccessController::connect() {
  const JAutoLock lock(getLock());
  disconnect();
  m_sLastError.clear();
  const int iResult = JRPCController::connect();
  if (getBlocking() && JRPCController::getStatus() == kUp) {
    m_pControl = createController(*getClient());
  }
  return iResult;
}

void StorageAccessController::disconnect() {
  const JAutoLock lock(getLock());
  dropController();
  JRPCController::disconnect();
}

void StorageAccessController::rehash() {
  const JAutoLock lock(getLock());
  m_sLastError.clear();
  m_pControl.reset();
  connect();
}

/// The controller of the server's generation; null when there is no memory. The lock is held.
std::unique_ptr<IStorageAccessControl> StorageAccessController::createController(JRPCClient& client) const {
  const JRPCVersion version = client.getServerVersion();
  const ServerGeneration eGeneration = selectGeneration(version.major, version.minor);
  if (eGeneration != ServerGeneration::k3X4X) {
    qm_err::log(qm_err::kLogWarning,
                "The dialect %s of a server of version %d.%d isn't known; it is spoken to in the dialect %s.",
                getGenerationName(eGeneration), version.major, version.minor,
                getGenerationName(ServerGeneration::k3X4X));
  }
  try {
    return std::make_unique<StorageAccessController3X4X>(client, getTimeOut());
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

/// Keeps the newest message of the controller, which goes. The lock is held.
void StorageAccessController::dropController() {
  if (m_pControl) {
    m_sLastError = m_pControl->getLastError();
    m_pControl.reset();
  }
}

void StorageAccessController::linkUp(JRPCController* pContext) {
  bool bServed = false;
  {
    const JAutoLock lock(getLock());
    JRPCClient* const pClient = getEventClient();
    if (pClient == nullptr) {
      qm_err::log(qm_err::kLogDebug, "A link has come up that has been ended meanwhile.");
      return;
    }
    m_pControl = createController(*pClient);
    bServed = m_pControl != nullptr;
  }
  if (m_pNotify == nullptr) {
    return;
  }
  if (bServed) {
    m_pNotify->linkUp(pContext);
  } else {
    JTextError error("invalid server version");
    m_pNotify->linkDown(pContext, &error);
  }
}

void StorageAccessController::linkDown(JRPCController* pContext, JError* pError) {
  {
    const JAutoLock lock(getLock());
    if (getClient() != nullptr && getEventClient() == nullptr) {
      qm_err::log(qm_err::kLogDebug, "A link has gone down that has been replaced meanwhile.");
      return;
    }
    dropController();
  }
  if (m_pNotify != nullptr) {
    m_pNotify->linkDown(pContext, pError);
  }
}

// The archive.

/// Calls an operation of the controller, under the lock; `failure` without one.
template <typename Result, typename... Parameters, typename... Arguments>
Result StorageAccessController::forward(Result failure,
                                        Result (IStorageAccessControl::*operation)(Parameters...),
                                        Arguments&&... arguments) {
  const JAutoLock lock(getLock());
  return m_pControl ? (m_pControl.get()->*operation)(std::forward<Arguments>(arguments)...) : failure;
}

std::string StorageAccessController::getLastError() {
  const JAutoLock lock(getLock());
  if (m_pControl) {
    m_sLastError = m_pControl->getLastError();
  }
  return m_sLastError;
}

std::int32_t StorageAccessController::getRecordingSize(const std::string& sSource, std::int32_t iFps,
                                                       const std::string& sStart, const std::string& sEnd) {
  return forward(kCommandFailed, &Control::getRecordingSize, sSource, iFps, sStart, sEnd);
}

std::int32_t StorageAccessController::remoteCopy(const std::string& sSource, std::int32_t iFps,
                                                 const std::string& sPath, const std::string& sStart,
                                                 const std::string& sEnd) {
  return forward(kCommandFailed, &Control::remoteCopy, sSource, iFps, sPath, sStart, sEnd);
}

std::int32_t StorageAccessController::remoteCopyToProcess(
    const std::string& sSource, std::int32_t iFps, const std::string& sFormat,
    const std::string& sCommandLine, const char* const* ppEnvironment, const std::string& sStart,
    const std::string& sEnd, std::string* pOutput, std::string* pError, std::int32_t& iTerminationStatus) {
  return forward(kCommandFailed, &Control::remoteCopyToProcess, sSource, iFps, sFormat, sCommandLine,
                 ppEnvironment, sStart, sEnd, pOutput, pError, iTerminationStatus);
}

std::int32_t StorageAccessController::localCopy(const std::string& sSource, std::int32_t iFps,
                                                const std::string& sPath, const std::string& sStart,
                                                const std::string& sEnd) {
  return forward(kCommandFailed, &Control::localCopy, sSource, iFps, sPath, sStart, sEnd);
}

std::int32_t StorageAccessController::unprotect(const std::string& sSource, std::int32_t iFps,
                                                const std::string& sStart, const std::string& sEnd) {
  return forward(kCommandFailed, &Control::unprotect, sSource, iFps, sStart, sEnd);
}

std::int32_t StorageAccessController::protect(const std::string& sSource, std::int32_t iFps,
                                              const std::string& sProtectedStart,
                                              const std::string& sProtectedEnd,
                                              const std::string& sValidStart, const std::string& sValidEnd,
                                              const std::string& sDetails) {
  return forward(kCommandFailed, &Control::protect, sSource, iFps, sProtectedStart, sProtectedEnd,
                 sValidStart, sValidEnd, sDetails);
}

std::int32_t StorageAccessController::releaseQuery(std::int32_t iQueryId) {
  return forward(kCommandFailed, &Control::releaseQuery, iQueryId);
}

std::int32_t StorageAccessController::alarmLogQuery(const std::string& sSource, std::int32_t iFps) {
  return forward(kQueryFailed, &Control::alarmLogQuery, sSource, iFps);
}

std::int32_t StorageAccessController::protectedLogQuery(const std::string& sSource, std::int32_t iFps) {
  return forward(kQueryFailed, &Control::protectedLogQuery, sSource, iFps);
}

std::string StorageAccessController::getNext(std::int32_t iQueryId) {
  return forward(std::string(), &Control::getNext, iQueryId);
}

std::int32_t StorageAccessController::sourcesQuery() {
  return forward(kQueryFailed, &Control::sourcesQuery);
}

std::int32_t StorageAccessController::alarmNamesQuery() {
  return forward(kQueryFailed, &Control::alarmNamesQuery);
}

std::int32_t StorageAccessController::databaseQuery(const std::string& sCriteria) {
  return forward(kQueryFailed, &Control::databaseQuery, sCriteria);
}

std::int32_t StorageAccessController::alarm(const std::string& sSource, std::int32_t iFps,
                                            const std::string& sAlarmName, const std::string& sIncident,
                                            const std::string& sStart, const std::string& sEnd) {
  return forward(kCommandFailed, &Control::alarm, sSource, iFps, sAlarmName, sIncident, sStart, sEnd);
}

std::int32_t StorageAccessController::erase(const std::string& sSource, std::int32_t iFps,
                                            const std::string& sStart, const std::string& sEnd) {
  return forward(kCommandFailed, &Control::erase, sSource, iFps, sStart, sEnd);
}

std::int32_t StorageAccessController::addFile(const std::string& sFileName, const std::string& sDiskSpaceName,
                                              const std::string& sSource, const std::string& sAlarmName,
                                              const std::string& sStartDate) {
  return forward(kCommandFailed, &Control::addFile, sFileName, sDiskSpaceName, sSource, sAlarmName,
                 sStartDate);
}

std::int32_t StorageAccessController::removeAlarmByInterval(const std::string& sSource, std::int32_t iFps,
                                                            const std::string& sAlarmName,
                                                            const std::string& sStart,
                                                            const std::string& sEnd) {
  return forward(kCommandFailed, &Control::removeAlarmByInterval, sSource, iFps, sAlarmName, sStart, sEnd);
}

std::int32_t StorageAccessController::removeAlarmByDate(const std::string& sSource, std::int32_t iFps,
                                                        const std::string& sAlarmName,
                                                        const std::string& sDate) {
  return forward(kCommandFailed, &Control::removeAlarmByDate, sSource, iFps, sAlarmName, sDate);
}

std::int32_t StorageAccessController::metaDataLogQuery(const std::string& sSource, std::int32_t iFps) {
  return forward(kQueryFailed, &Control::metaDataLogQuery, sSource, iFps);
}

std::int32_t StorageAccessController::setMetaData(const std::string& sSource, std::int32_t iFps,
                                                  const std::string& sStart, const std::string& sEnd,
                                                  const std::string& sParams) {
  return forward(kCommandFailed, &Control::setMetaData, sSource, iFps, sStart, sEnd, sParams);
}

std::int32_t StorageAccessController::unsetMetaData(const std::string& sSource, std::int32_t iFps,
                                                    const std::string& sStart, const std::string& sEnd,
                                                    const std::string& sParams) {
  return forward(kCommandFailed, &Control::unsetMetaData, sSource, iFps, sStart, sEnd, sParams);
}

std::int32_t StorageAccessController::hideIntervals(const std::string& sSource, std::int32_t iFps,
                                                    const std::string& sIntervals) {
  return forward(kCommandFailed, &Control::hideIntervals, sSource, iFps, sIntervals);
}

std::int32_t StorageAccessController::unhideIntervals(const std::string& sSource, std::int32_t iFps,
                                                      const std::string& sIntervals) {
  return forward(kCommandFailed, &Control::unhideIntervals, sSource, iFps, sIntervals);
}

std::int32_t StorageAccessController::analyticsSourceQuery(const std::string& sSource, std::int32_t iFps) {
  return forward(kQueryFailed, &Control::analyticsSourceQuery, sSource, iFps);
}

std::int32_t StorageAccessController::analyticsCreateQuery(const std::string& sSource, std::int32_t iFps,
                                                           const std::string& sPluginType,
                                                           const std::string& sCriteria) {
  return forward(kQueryFailed, &Control::analyticsCreateQuery, sSource, iFps, sPluginType, sCriteria);
}

std::int32_t StorageAccessController::analyticsGetQueryStatus(std::int32_t iQueryId, std::string& sStatus) {
  return forward(kCommandFailed, &Control::analyticsGetQueryStatus, iQueryId, sStatus);
}

std::int32_t StorageAccessController::analyticsStartQuery(std::int32_t iQueryId) {
  return forward(kCommandFailed, &Control::analyticsStartQuery, iQueryId);
}

std::int32_t StorageAccessController::analyticsStopQuery(std::int32_t iQueryId) {
  return forward(kCommandFailed, &Control::analyticsStopQuery, iQueryId);
}
