#include "qmactivexctrl/qmstorageaccesscontroller/GenerationController.h"

#include <atomic>
#include <optional>

#include "coreapi/qmutils/error/loghook.h"
#include "coreapi/qmutils/params/jparams.h"
#include "coreapi/qmutils/rpc/jrpc.h"
#include "coreapi/qmutils/rpc/jrpccontainers.h"
#include "coreapi/qmutils/rpc/jrpcserialisation.h"
#include "qmactivexctrl/qmstorageaccesscontroller/QueryResults.h"
#include "storage/AlarmLog.h"
#include "storage/ProtectedLog.h"

GenerationController::GenerationController(JRPCClient& client, std::int32_t iTimeOut)
    : m_client(client), m_iTimeOut(iTimeOut) {}

GenerationController::~GenerationController() = default;

void GenerationController::setTimeOut(std::int32_t iTimeOut) {
  m_iTimeOut = iTimeOut;
}

// Failures.

std::string GenerationController::getLastError() {
  const JAutoLock lock(m_mutex);
  return pop();
}

void GenerationController::reportFailure(const std::string& sText, const char* szFile, int iLine) {
  {
    const JAutoLock lock(m_mutex);
    push("%s", sText.c_str());
  }
  qm_err::logText(qm_err::kLogError, sText.c_str(), szFile, iLine);
}

bool GenerationController::checkConnected(const std::string& sFailure) {
  if (m_client.isConnected()) {
    return true;
  }
  reportFailure(sFailure, __FILE_NAME__, __LINE__);
  return false;
}

bool GenerationController::checkRemoteError(const JParams& answer) {
  std::string sError;
  if (!answer.get("Error", sError)) {
    return true;
  }
  {
    const JAutoLock lock(m_mutex);
    push("%s", sError.c_str());
  }
  qm_err::log(qm_err::kLogError, "Remote Manager Error: %s\n", sError.c_str());
  return false;
}

// Calls.

std::unique_ptr<JParams> GenerationController::callServer(const char* szRpc, const JVariant* pChain,
                                                          const std::string& sFailure) {
  std::unique_ptr<JParams> pAnswer;
  bool bAccepted = false;
  const bool bAnswered = attempt(sFailure, [&] {
    pAnswer = m_client.call(szRpc, pChain, m_iTimeOut);
    bAccepted = checkRemoteError(*pAnswer);
  });
  return bAnswered && bAccepted ? std::move(pAnswer) : nullptr;
}

bool GenerationController::fetch(const QueryTexts& texts, const char* szRpc,
                                 std::initializer_list<RpcArgument> arguments, const char* szObject,
                                 JRPCObject& object) {
  if (!checkConnected(texts.szNotConnected)) {
    return false;
  }
  const std::optional<RpcChain> chain = RpcChain::make(arguments);
  std::unique_ptr<JParams> pAnswer = callServer(szRpc, chain ? chain->head() : nullptr, texts.szRpc);
  return pAnswer && attempt(texts.szDeserialisation, [&] {
           JRPCDeserialisation(std::move(pAnswer)).deserialise(szObject, object, true);
         });
}

std::int32_t GenerationController::command(const char* szRpc, const char* szPrefix,
                                           std::initializer_list<RpcArgument> arguments) {
  const std::string sFailed = std::string(szPrefix) + " Failed: ";
  if (!checkConnected(sFailed + "Not connected to Manager")) {
    return kCommandFailed;
  }
  const std::optional<RpcChain> chain = RpcChain::make(arguments);
  if (!chain) {
    reportFailure(sFailed + "Bad format for Ntp date (see documentation)", __FILE_NAME__, __LINE__);
    return kCommandFailed;
  }
  return callServer(szRpc, chain->head(), sFailed + "RPC") ? kDone : kCommandFailed;
}

// Results.

/// Ids are of the whole process, so that one of a controller that is gone doesn't stand for another result:
/// there are 2^31 of them before the first one comes again.
std::int32_t GenerationController::newQueryId() {
  constexpr std::uint32_t kHighest = 0x7FFFFFFF;
  static std::atomic<std::uint32_t> s_uLast{0};
  return static_cast<std::int32_t>(s_uLast++ % kHighest) + 1;
}

bool GenerationController::takeNextOfAll(std::int32_t iQueryId, std::string& sRow) {
  return takeNext(m_dbQueries, iQueryId, sRow) || takeNext(m_alarmNameQueries, iQueryId, sRow) ||
         takeNext(m_sourceQueries, iQueryId, sRow) || takeNext(m_protectedLogs, iQueryId, sRow) ||
         takeNext(m_alarmLogs, iQueryId, sRow);
}

bool GenerationController::releaseOfAll(std::int32_t iQueryId) {
  return m_dbQueries.erase(iQueryId) != 0 || m_alarmNameQueries.erase(iQueryId) != 0 ||
         m_sourceQueries.erase(iQueryId) != 0 || m_protectedLogs.erase(iQueryId) != 0 ||
         m_alarmLogs.erase(iQueryId) != 0;
}

// Queries.

std::int32_t GenerationController::alarmNamesQuery() {
  static constexpr QueryTexts kTexts = {"Get Alarm Names Failed: Not connected to Manager",
                                        "Get Alarm Names Failed: RPC",
                                        "Get Alarm Names Failed: Result Deserialisation"};
  jrpc_set<std::string> names;
  if (!fetch(kTexts, "rpc_getAlarmNames", {}, "AlarmNamesSet", names)) {
    return kQueryFailed;
  }
  return enter(m_alarmNameQueries, std::make_unique<ListAlarmNamesResult>(std::move(names)));
}

std::int32_t GenerationController::sourcesQuery() {
  static constexpr QueryTexts kTexts = {"Get Sources Failed: Not connected to Manager",
                                        "Get Sources Failed: RPC",
                                        "Get Sources Failed: Result Deserialisation"};
  ListSourcesResult::Sources sources;
  jrpc_map_ref object(sources);
  if (!fetch(kTexts, "rpc_getSourceMap", {}, "SourceMap", object)) {
    return kQueryFailed;
  }
  return enter(m_sourceQueries, std::make_unique<ListSourcesResult>(std::move(sources)));
}

std::int32_t GenerationController::protectedLogQuery(const std::string& sSource, std::int32_t iFps) {
  static constexpr QueryTexts kTexts = {"Get Protected Log Failed: Not connected to Manager",
                                        "Get Protected Log Failed: RPC",
                                        "Get Protected Log Failed: Result Deserialisation"};
  return logQuery(kTexts, "rpc_getProtectedLog", "ProtectedLog", m_protectedLogs, sSource, iFps);
}

std::int32_t GenerationController::alarmLogQuery(const std::string& sSource, std::int32_t iFps) {
  static constexpr QueryTexts kTexts = {"Get Alarm Log Failed: Not connected to Manager",
                                        "Get Alarm Log Failed: RPC",
                                        "Get Alarm Log Failed: Result Deserialisation"};
  return logQuery(kTexts, "rpc_getAlarmLog", "AlarmLog", m_alarmLogs, sSource, iFps);
}

// Commands.

std::int32_t GenerationController::protect(const std::string& sSource, std::int32_t iFps,
                                           const std::string& sProtectedStart,
                                           const std::string& sProtectedEnd, const std::string& sValidStart,
                                           const std::string& sValidEnd, const std::string& sDetails) {
  return command("rpc_protect", "Protect",
                 {{"SourceName", sSource},
                  {"Fps", iFps},
                  {"TsProtectedStart", RpcDate(sProtectedStart)},
                  {"TsProtectedEnd", RpcDate(sProtectedEnd)},
                  {"TsValidStart", RpcOpenDate(sValidStart)},
                  {"TsValidEnd", RpcOpenDate(sValidEnd)},
                  {"Details", sDetails}});
}

std::int32_t GenerationController::unprotect(const std::string& sSource, std::int32_t iFps,
                                             const std::string& sStart, const std::string& sEnd) {
  return command("rpc_unprotect", "Unprotect",
                 {{"SourceName", sSource},
                  {"Fps", iFps},
                  {"TsProtectedStart", RpcDate(sStart)},
                  {"TsProtectedEnd", RpcDate(sEnd)}});
}

std::int32_t GenerationController::alarm(const std::string& sSource, std::int32_t iFps,
                                         const std::string& sAlarmName, const std::string& sIncident,
                                         const std::string& sStart, const std::string& sEnd) {
  return command("rpc_alarm", "Alarm",
                 {{"SourceName", sSource},
                  {"Fps", iFps},
                  {"AlarmName", sAlarmName},
                  {"TsAlarmIncident", RpcDate(sIncident)},
                  {"TsAlarmStart", RpcDate(sStart)},
                  {"TsAlarmEnd", RpcDate(sEnd)}});
}

std::int32_t GenerationController::removeAlarmByInterval(const std::string& sSource, std::int32_t iFps,
                                                         const std::string& sAlarmName,
                                                         const std::string& sStart, const std::string& sEnd) {
  return command("rpc_removeAlarmByInterval", "RemoveAlarmByInterval",
                 {{"SourceName", sSource},
                  {"Fps", iFps},
                  {"AlarmName", sAlarmName},
                  {"TsAlarmStart", RpcDate(sStart)},
                  {"TsAlarmEnd", RpcDate(sEnd)}});
}

std::int32_t GenerationController::removeAlarmByDate(const std::string& sSource, std::int32_t iFps,
                                                     const std::string& sAlarmName,
                                                     const std::string& sDate) {
  return command("rpc_removeAlarmByDate", "RemoveAlarmByDate",
                 {{"SourceName", sSource},
                  {"Fps", iFps},
                  {"AlarmName", sAlarmName},
                  {"TsAlarmIncident", RpcDate(sDate)}});
}

std::int32_t GenerationController::erase(const std::string& sSource, std::int32_t iFps,
                                         const std::string& sStart, const std::string& sEnd) {
  return command("rpc_erase", "Erase",
                 {{"SourceName", sSource},
                  {"Fps", iFps},
                  {"TsEraseStart", RpcDate(sStart)},
                  {"TsEraseEnd", RpcDate(sEnd)}});
}

std::int32_t GenerationController::addFile(const std::string& sFileName, const std::string& sDiskSpaceName,
                                           const std::string& sSource, const std::string& sAlarmName,
                                           const std::string& sStartDate) {
  return command("rpc_addFile", "Add File",
                 {{"FileName", sFileName},
                  {"DiskSpaceName", sDiskSpaceName},
                  {"SourceName", sSource},
                  {"AlarmName", sAlarmName},
                  {"StartDate", sStartDate}});
}
