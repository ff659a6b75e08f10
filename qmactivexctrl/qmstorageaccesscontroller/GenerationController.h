#pragma once

#include <cstdint>
#include <exception>
#include <initializer_list>
#include <map>
#include <memory>
#include <string>
#include <utility>

#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/error/jstackerror.h"
#include "coreapi/qmutils/thread/jmutex.h"
#include "qmactivexctrl/qmstorageaccesscontroller/IStorageAccessControl.h"
#include "qmactivexctrl/qmstorageaccesscontroller/RpcArgument.h"

class AlarmLog;
class JParams;
class JRPCClient;
class JRPCObject;
class JVariant;
class ProtectedLog;

/// What the dialects have in common: one call of the server for each operation, results that are kept until
/// their rows have been read, and one way of failing.
///
/// A failure pushes one text onto the stack of messages, logs it at the error level, and shows in the result:
/// 0 for queries, -1 for commands. Errors that are thrown on the way are logged first. A server that refuses
/// says so with an "Error" in its answer, whose text is then the message.
///
/// Threads: operations come one at a time, under the front's lock. Lock order: the front's, then this one's,
/// which guards the results and the messages and isn't held over a call.
class GenerationController : public IStorageAccessControl, public StackError {
 public:
  /// Results that haven't been read go with it.
  ~GenerationController() override;

  std::string getLastError() override;
  void setTimeOut(std::int32_t iTimeOut) override;

  // Queries.

  std::int32_t alarmNamesQuery() override;
  std::int32_t sourcesQuery() override;
  std::int32_t protectedLogQuery(const std::string& sSource, std::int32_t iFps) override;
  std::int32_t alarmLogQuery(const std::string& sSource, std::int32_t iFps) override;

  // Commands.

  std::int32_t protect(const std::string& sSource, std::int32_t iFps, const std::string& sProtectedStart,
                       const std::string& sProtectedEnd, const std::string& sValidStart,
                       const std::string& sValidEnd, const std::string& sDetails) override;
  std::int32_t unprotect(const std::string& sSource, std::int32_t iFps, const std::string& sStart,
                         const std::string& sEnd) override;
  std::int32_t alarm(const std::string& sSource, std::int32_t iFps, const std::string& sAlarmName,
                     const std::string& sIncident, const std::string& sStart,
                     const std::string& sEnd) override;
  std::int32_t removeAlarmByInterval(const std::string& sSource, std::int32_t iFps,
                                     const std::string& sAlarmName, const std::string& sStart,
                                     const std::string& sEnd) override;
  std::int32_t removeAlarmByDate(const std::string& sSource, std::int32_t iFps, const std::string& sAlarmName,
                                 const std::string& sDate) override;
  std::int32_t erase(const std::string& sSource, std::int32_t iFps, const std::string& sStart,
                     const std::string& sEnd) override;
  std::int32_t addFile(const std::string& sFileName, const std::string& sDiskSpaceName,
                       const std::string& sSource, const std::string& sAlarmName,
                       const std::string& sStartDate) override;

 protected:
  // A result, and how far it has been read. Each owns what the server answered; see QueryResults.h.
  class DbQueryResult;
  class ListAlarmNamesResult;
  class ListSourcesResult;

  static constexpr std::int32_t kQueryFailed = 0;
  static constexpr std::int32_t kDone = 0;
  static constexpr std::int32_t kCommandFailed = -1;

  template <typename Holder>
  using QueryMap = std::map<std::int32_t, std::unique_ptr<Holder>>;

  /// A query's texts for its failures, by stage.
  struct QueryTexts {
    const char* szNotConnected;
    const char* szRpc;
    const char* szDeserialisation;
  };

  /// The client stays the caller's and outlives this. Milliseconds.
  GenerationController(JRPCClient& client, std::int32_t iTimeOut);

  // Failures.

  /// Pushes a text and logs it at the error level with this site.
  void reportFailure(const std::string& sText, const char* szFile, int iLine);

  /// Whether the link stands; else reports the text.
  bool checkConnected(const std::string& sFailure);

  /// Runs one stage of an operation. Whether it went well; else the error is logged and the text reported.
  template <typename Work>
  bool attempt(const std::string& sFailure, Work work) {
    try {
      work();
      return true;
    } catch (JError* pError) {
      const qm_err::CaughtError error(pError);
      JCATCH_LOG(error.get());
    } catch (const std::exception& exception) {
      const JTextError error("%s", exception.what());
      JCATCH_LOG(&error);
    }
    reportFailure(sFailure, __FILE_NAME__, __LINE__);
    return false;
  }

  // Calls. Null, or false, means that the failure has been reported.

  /// Calls the server with a chain, or null for no parameters. The answer isn't a refusal.
  std::unique_ptr<JParams> callServer(const char* szRpc, const JVariant* pChain, const std::string& sFailure);

  /// Whether an answer isn't a refusal. The text of one is pushed as it stands.
  bool checkRemoteError(const JParams& answer);

  /// Calls the server and reads the object of its answer.
  bool fetch(const QueryTexts& texts, const char* szRpc, std::initializer_list<RpcArgument> arguments,
             const char* szObject, JRPCObject& object);

  /// A command whose texts start with `szPrefix`. Its dates are looked at when the link stands; one that is
  /// none ends it before the call.
  std::int32_t command(const char* szRpc, const char* szPrefix, std::initializer_list<RpcArgument> arguments);

  /// Fetches a log of a source and keeps it as a result.
  template <typename Log>
  std::int32_t logQuery(const QueryTexts& texts, const char* szRpc, const char* szObject, QueryMap<Log>& map,
                        const std::string& sSource, std::int32_t iFps) {
    auto pLog = std::make_unique<Log>();
    if (!fetch(texts, szRpc, {{"SourceName", sSource}, {"Fps", iFps}}, szObject, *pLog)) {
      return kQueryFailed;
    }
    pLog->rewind();
    return enter(map, std::move(pLog));
  }

  // Results. `m_mutex` is held, but for `enter`.

  /// Keeps a result under a new id.
  template <typename Holder>
  std::int32_t enter(QueryMap<Holder>& map, std::unique_ptr<Holder> pHolder) {
    const JAutoLock lock(m_mutex);
    const std::int32_t iQueryId = newQueryId();
    map.emplace(iQueryId, std::move(pHolder));
    return iQueryId;
  }

  /// Whether a result of this id is among those of all dialects; its next row then, as `takeNext`.
  bool takeNextOfAll(std::int32_t iQueryId, std::string& sRow);

  /// Whether a result of this id was among those of all dialects; it is gone then.
  bool releaseOfAll(std::int32_t iQueryId);

  /// Whether a result of this id is here; its next row then, after the last one the empty text, and the
  /// result is gone.
  template <typename Holder>
  static bool takeNext(QueryMap<Holder>& map, std::int32_t iQueryId, std::string& sRow) {
    const auto entry = map.find(iQueryId);
    if (entry == map.end()) {
      return false;
    }
    Holder& holder = *entry->second;
    if constexpr (requires { holder.next(); }) {
      sRow = holder.next();
    } else {
      const auto* const pRecord = holder.getNext();
      sRow = pRecord != nullptr ? pRecord->toString() : std::string();
    }
    if (sRow.empty()) {
      map.erase(entry);
    }
    return true;
  }

  JRPCClient& m_client;
  std::int32_t m_iTimeOut;
  JMutex m_mutex;

  // In the order in which an id is looked for.
  QueryMap<DbQueryResult> m_dbQueries;
  QueryMap<ListAlarmNamesResult> m_alarmNameQueries;
  QueryMap<ListSourcesResult> m_sourceQueries;
  QueryMap<ProtectedLog> m_protectedLogs;
  QueryMap<AlarmLog> m_alarmLogs;

 private:
  static std::int32_t newQueryId();
};
