#include "coreapi/qmutils/rpc/jrpc.h"

#include <algorithm>
#include <optional>

#include "coreapi/platform/clock.h"
#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/error/jrpcerror.h"
#include "coreapi/qmutils/log/JLog.h"
#include "coreapi/qmutils/params/jparams.h"
#include "coreapi/qmutils/params/jvariant.h"
#include "coreapi/qmutils/rpc/rpcline.h"
#include "coreapi/qmutils/socket/jiosocket.h"
#include "coreapi/qmutils/text/jtext.h"

namespace {

using qm_utils::OwedAnswers;
namespace rpc_line = qm_utils::rpc_line;

std::string threadName(const JRPCClient::Settings& settings) {
  std::string sName = "JRPCClient@" + settings.sHost + ":" + std::to_string(settings.iPort);
  if (settings.iTunnelPort > 0) {
    sName += "@" + std::to_string(settings.iTunnelPort);
  }
  return sName;
}

JRPCClient::Settings settingsOfConnection(bool bDeleteError, std::uint32_t* pTraceMask,
                                          const std::string& sName) {
  JRPCClient::Settings settings;
  settings.sHost.clear();
  settings.iPort = 0;
  settings.iConnectTimeout = -1;
  settings.iPingPeriod = 0;
  settings.bStartThread = false;
  settings.bDeleteError = bDeleteError;
  settings.pTraceMask = pTraceMask;
  settings.sName = sName;
  return settings;
}

JRPCClient::Settings withoutThread(JRPCClient::Settings settings) {
  settings.bStartThread = false;
  return settings;
}

/// What a trace shows of a line.
int shownLength(std::string_view sLine) {
  return static_cast<int>(std::min(sLine.size(), JLog::kMaxMessage));
}

/// Runs the work that a link event means to its receiver.
template <typename Work>
void reportingErrors(Work work) {
  try {
    work();
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    error->report();
  }
}

}  // namespace

JRPCClient::JRPCClient(const Settings& settings)
    : JLineIO(kAnswerLimit),
      JThread(threadName(settings)),
      JTraceableObject(settings.sName, settings.pTraceMask),
      m_settings(settings) {
  if (isTraceEnabled(kTraceLink)) {
    trace("Attached to %s:%d.", m_settings.sHost.c_str(), m_settings.iPort);
  }
  if (m_settings.bConnectNow) {
    try {
      connect();
    } catch (JError* pError) {
      qm_err::CaughtError error(pError);
      JLog::log(this, qm_err::kLogWarning,
                m_settings.bRetry ? "RPC Connection to %s:%d failed, will retry later: %s."
                                  : "RPC Connection to %s:%d failed, giving up: %s.",
                m_settings.sHost.c_str(), m_settings.iPort, error->getMessage().c_str());
      if (!m_settings.bRetry) {
        error.rethrow();
      }
    }
  }
  if (m_settings.bStartThread) {
    JThread::start();
  }
}

JRPCClient::JRPCClient(std::unique_ptr<JIoSocket> pSocket, bool bDeleteError, std::uint32_t* pTraceMask,
                       const std::string& sName)
    : JRPCClient(settingsOfConnection(bDeleteError, pTraceMask, sName)) {
  setSocket(pSocket.release(), true);
  setConnected(true);
}

JRPCClient::~JRPCClient() {
  shutdown();
}

void JRPCClient::onLinkUp() {}

void JRPCClient::onLinkDown(JError* /*pError*/) {}

bool JRPCClient::isConnected() const {
  const JAutoLock lock(m_stateMutex);
  return m_bConnected;
}

void JRPCClient::setConnected(bool bConnected) {
  const JAutoLock lock(m_stateMutex);
  m_bConnected = bConnected;
}

JRPCVersion JRPCClient::getServerVersion() const {
  const JAutoLock lock(m_stateMutex);
  return m_serverVersion;
}

void JRPCClient::setServerVersion(const JRPCVersion& version) {
  const JAutoLock lock(m_stateMutex);
  m_serverVersion = version;
}

void JRPCClient::setRPCHook(JRPCHook* pHook) {
  const JAutoLock lock(m_callMutex);
  m_pHook = pHook;
}

// The calls.

/// Runs what goes over the wire, and handles its failure as the settings say.
template <typename Work>
decltype(auto) JRPCClient::onWire(Work work) {
  try {
    return work();
  } catch (JError* pError) {
    qm_err::CaughtError error(pError);
    if (!m_bShuttingDown) {
      JLog::log(this, qm_err::kLogWarning, "RPC Connection to %s:%d lost, RPC call aborted: %s.",
                m_settings.sHost.c_str(), m_settings.iPort, error->getMessage().c_str());
    }
    if (!m_settings.bRetry) {
      error.rethrow();
    }
    m_lost.set();
  }
  QM_THROW(JRPCConnectionLostError);
}

std::unique_ptr<JParams> JRPCClient::call(const char* szName, const JVariant* pChain, std::int32_t iTimeout) {
  const JAutoLock lock(m_callMutex);
  checkConnected(szName);
  rpc_line::appendCall(beginLine(), szName, pChain);
  return rpc_line::parseAnswer(perform(szName, iTimeout), szName);
}

void JRPCClient::call(const char* szName, const JVariant* pChain, std::string& sAnswer,
                      std::int32_t iTimeout) {
  const JAutoLock lock(m_callMutex);
  checkConnected(szName);
  rpc_line::appendCall(beginLine(), szName, pChain);
  sAnswer = rpc_line::answerText(perform(szName, iTimeout), szName);
}

std::unique_ptr<JParams> JRPCClient::call(const char* szName, std::string_view sParameters,
                                          std::int32_t iTimeout) {
  const JAutoLock lock(m_callMutex);
  checkConnected(szName);
  rpc_line::appendCall(beginLine(), szName, sParameters);
  return rpc_line::parseAnswer(perform(szName, iTimeout), szName);
}

void JRPCClient::call(const char* szName, std::string_view sParameters, std::string& sAnswer,
                      std::int32_t iTimeout) {
  const JAutoLock lock(m_callMutex);
  checkConnected(szName);
  rpc_line::appendCall(beginLine(), szName, sParameters);
  sAnswer = rpc_line::answerText(perform(szName, iTimeout), szName);
}

std::unique_ptr<JParams> JRPCClient::call(const char* szName, const std::vector<const JVariant*>& chains,
                                          std::int32_t iTimeout) {
  const JAutoLock lock(m_callMutex);
  checkConnected(szName);
  rpc_line::appendCall(beginLine(), szName, chains);
  return rpc_line::parseAnswer(perform(szName, iTimeout), szName);
}

void JRPCClient::call(const char* szName, const std::vector<const JVariant*>& chains, std::string& sAnswer,
                      std::int32_t iTimeout) {
  const JAutoLock lock(m_callMutex);
  checkConnected(szName);
  rpc_line::appendCall(beginLine(), szName, chains);
  sAnswer = rpc_line::answerText(perform(szName, iTimeout), szName);
}

void JRPCClient::notify(const char* szName, const JVariant* pChain) {
  const JAutoLock lock(m_callMutex);
  checkConnected(szName);
  rpc_line::appendCall(beginLine(), szName, pChain);
  checkBuiltLine();
  if (!askHook()) {
    onWire([&] { send(OwedAnswers::Request::kNotify); });
  }
}

void JRPCClient::checkConnected(const char* szName) const {
  if (isConnected()) {
    return;
  }
  if (isTraceEnabled(kTraceLink)) {
    trace("Calling %s fails on unconnected RPC client.", szName);
  }
  QM_THROW(JRPCConnectionLostError);
}

/// Sends the request that was built and returns the line of its answer.
std::string_view JRPCClient::perform(const char* szName, std::int32_t iTimeout) {
  checkBuiltLine();
  if (const std::optional<std::string_view> answer = askHook()) {
    return *answer;
  }
  return onWire([&] {
    if (m_owed.isUncertain()) {
      synchronise(iTimeout);
    }
    send(OwedAnswers::Request::kCall);
    return receive(szName, iTimeout);
  });
}

/// Lets the hook see the request that was built. Its answer, or nothing when the request is the server's. The
/// hook may call through this client, which builds lines of its own meanwhile.
std::optional<std::string_view> JRPCClient::askHook() {
  if (m_pHook == nullptr) {
    return std::nullopt;
  }
  const std::string sRequest(builtLine());
  std::string sAnswer;
  if (m_pHook->intercept(*this, sRequest, getServerVersion(), sAnswer)) {
    m_sHookAnswer = std::move(sAnswer);
    return m_sHookAnswer;
  }
  beginLine() = sRequest;
  return std::nullopt;
}

/// Sends the line that was built. A request that went out in part leaves the stream good for nothing: what
/// follows would be taken for the rest of it. So both directions are ended, and whoever reads or writes next
/// finds that.
void JRPCClient::send(OwedAnswers::Request request) {
  const std::string_view sLine = builtLine();
  if (isTraceEnabled(kTraceLines)) {
    trace("--> %.*s", shownLength(sLine), sLine.data());
  }
  m_owed.expect(request);
  try {
    writeBuiltLine();
  } catch (JError* pError) {
    qm_err::CaughtError error(pError);
    endStream();
    error.rethrow();
  }
}

void JRPCClient::endStream() {
  try {
    if (getSocket() != nullptr) {
      getSocket()->shutdownWrite();
      getSocket()->shutdownRead();
    }
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);  // the connection is gone already
  }
}

/// Reads the line that belongs to the newest request. None throws JRPCProtocolError with a message.
std::string_view JRPCClient::receive(const char* szMessage, std::int32_t iTimeout) {
  for (;;) {
    const std::optional<std::string_view> line = readLine(iTimeout);
    if (isTraceEnabled(kTraceLines)) {
      if (line) {
        trace("<-- %.*s", shownLength(*line), line->data());
      } else {
        trace("<--");
      }
    }
    if (!line) {
      QM_THROW(JRPCProtocolError, szMessage);
    }
    if (m_owed.settle(*line)) {
      return *line;
    }
  }
}

/// Finds the place in the stream again behind a notification. The request that was built stays as it is. A
/// server that says anything else here has lost the place, and nothing that it sends can be told apart any
/// more: the stream ends.
void JRPCClient::synchronise(std::int32_t iTimeout) {
  const std::string sRequest(builtLine());
  beginLine() = rpc_line::kPing;
  send(OwedAnswers::Request::kPing);
  if (receive("pong", iTimeout) != rpc_line::kPong) {
    endStream();
    QM_THROW(JRPCProtocolError, "pong");
  }
  beginLine() = sRequest;
}

// The life of the client.

void JRPCClient::shutdown() {
  if (m_bShutDown) {
    return;
  }
  m_bShutDown = true;
  if (isTraceEnabled(kTraceLink)) {
    trace("Shutting down.");
  }
  m_bShuttingDown = true;
  m_shutdown.set();
  setConnected(false);
  {
    const JAutoLock lock(m_connectMutex);
    for (JIoSocket* const pSocket : {m_pPending, getSocket()}) {
      if (pSocket != nullptr) {
        pSocket->close();
      }
    }
  }
  JThread::stop();
  if (isTraceEnabled(kTraceLink)) {
    trace("Shutdown complete.");
  }
}

void JRPCClient::run() {
  JWaitableTimer timer;
  timer.setPeriod(JTime(1, 0));
  timer.start(JTime(1, 0));
  const JWaitForMultipleObjects waiter(timer, m_shutdown, m_lost);
  constexpr std::size_t kLostIndex = 2;

  bool bFirstTurn = true;
  bool bGoOn = true;
  while (bGoOn) {
    const bool bLost = !bFirstTurn && waiter.wait() == kLostIndex;
    if (m_bShuttingDown) {
      return;
    }
    if (!isConnected()) {
      bGoOn = tryToConnect(bFirstTurn);
    } else if (bLost) {
      takeLinkDown();
      bGoOn = m_settings.bRetry;
    }
    if (!m_bShuttingDown && isConnected() && isPingDue()) {
      ping();
    }
    bFirstTurn = false;
  }
}

/// One attempt to connect. False when the thread is to end.
bool JRPCClient::tryToConnect(bool bFirstTurn) {
  const std::int64_t iNow = qm_platform::steadyClockNanoseconds();
  if (!bFirstTurn && iNow - m_iLastAttempt <= m_settings.iReconnectPeriod * kNanosecondsPerMillisecond) {
    return true;
  }
  m_iLastAttempt = iNow;
  try {
    connect();
  } catch (JError* pError) {
    qm_err::CaughtError error(pError);
    if (m_bShuttingDown || !bFirstTurn) {
      return true;
    }
    JLog::log(this, qm_err::kLogWarning, "RPC Connection to %s:%d down, will retry later: %s.",
              m_settings.sHost.c_str(), m_settings.iPort, error->getMessage().c_str());
    reportLinkDown(std::move(error));
    return m_settings.bRetry;
  }
  if (isTraceEnabled(kTraceLink)) {
    trace(bFirstTurn ? "RPC link to %s:%d established." : "RPC link to %s:%d back up.",
          m_settings.sHost.c_str(), m_settings.iPort);
  }
  if (!m_bShuttingDown) {
    reportingErrors([this] { onLinkUp(); });
  }
  return true;
}

void JRPCClient::takeLinkDown() {
  setConnected(false);
  reportLinkDown(qm_err::CaughtError(qm_err::located(new JRPCConnectionLostError, __FILE_NAME__, __LINE__)));
  m_lost.reset();
}

void JRPCClient::reportLinkDown(qm_err::CaughtError error) {
  JError* const pError = m_settings.bDeleteError ? error.get() : error.release();
  reportingErrors([this, pError] { onLinkDown(pError); });
}

/// The thread wakes up at whole seconds, give or take the moment that waking takes; without this allowance
/// every other ping would come a second late.
bool JRPCClient::isPingDue() const {
  constexpr std::int64_t kAllowance = 50 * kNanosecondsPerMillisecond;
  return m_settings.iPingPeriod > 0 && qm_platform::steadyClockNanoseconds() - m_iLastPing + kAllowance >
                                           m_settings.iPingPeriod * kNanosecondsPerMillisecond;
}

void JRPCClient::ping() {
  const JAutoLock lock(m_callMutex);
  if (m_bShuttingDown) {
    return;
  }
  m_iLastPing = qm_platform::steadyClockNanoseconds();
  try {
    beginLine() = rpc_line::kPing;
    send(OwedAnswers::Request::kPing);
    if (receive("pong", m_settings.iPingPeriod / 2) != rpc_line::kPong) {
      QM_THROW(JRPCProtocolError, "pong");
    }
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    if (m_bShuttingDown) {
      return;
    }
    JLog::log(this, qm_err::kLogWarning,
              m_settings.bRetry ? "RPC Connection to %s:%d down, will retry later: %s."
                                : "RPC Connection to %s:%d down, giving up: %s.",
              m_settings.sHost.c_str(), m_settings.iPort, error->getMessage().c_str());
    setServerVersion({});
    m_lost.set();
  }
}

JRPCClientNotify::JRPCClientNotify(JRPCNotify& receiver, const Settings& settings)
    : JRPCClient(withoutThread(settings)), m_receiver(receiver) {
  JThread::start();
}

JRPCClientNotify::~JRPCClientNotify() {
  shutdown();
}

void JRPCClientNotify::onLinkUp() {
  m_receiver.linkUp();
}

void JRPCClientNotify::onLinkDown(JError* pError) {
  m_receiver.linkDown(pError);
}
