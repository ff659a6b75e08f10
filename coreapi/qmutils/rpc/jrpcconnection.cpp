#include "coreapi/qmutils/rpc/jrpcconnection.h"

#include <algorithm>
#include <cstdarg>
#include <exception>
#include <optional>

#include "coreapi/platform/clock.h"
#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/log/JLog.h"
#include "coreapi/qmutils/params/jparams.h"
#include "coreapi/qmutils/rpc/rpcline.h"
#include "coreapi/qmutils/socket/jiosocket.h"
#include "coreapi/qmutils/text/jtext.h"

namespace {

namespace rpc_line = qm_utils::rpc_line;

/// The peer has reset the connection (10054), or it was given up on this side (10053).
constexpr std::uint32_t kConnectionReset = 0x40002746;
constexpr std::uint32_t kConnectionAborted = 0x40002745;

constexpr std::int64_t kNanosecondsPerMillisecond = 1'000'000;
constexpr std::int64_t kLastAnswerNanoseconds = JRPCServer::kLastAnswerTime * kNanosecondsPerMillisecond;

/// What a record shows of a line.
std::string shown(std::string_view sLine) {
  return std::string(sLine.substr(0, 512));
}

template <typename Work>
void reportingErrors(Work work) {
  try {
    work();
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    error->report();
  }
}

JRPCServer::ConnectionId nextConnectionId() {
  static std::atomic<JRPCServer::ConnectionId> s_uLast{0};
  return ++s_uLast;
}

}  // namespace

JRPCServer::Connection::Connection(JRPCServer& server, std::unique_ptr<JIoSocket> pSocket,
                                   const std::string& sPeer, const char* szClassName)
    : JLineIO(kRequestLimit),
      JThread(server.getName() + "::Connection(" + sPeer + ")"),
      JTraceableObject(server.getName() + "::Connection(" + sPeer + ")", server.getTraceMask(),
                       Mask::kCopied),
      m_pServer(&server),
      m_uConnection(nextConnectionId()),
      m_sPeer(sPeer),
      m_szClassName(szClassName) {
  setSocket(pSocket.release(), true);
  JThread::start(0, true);
}

JRPCServer::Connection* JRPCServer::Connection::current() {
  return dynamic_cast<Connection*>(JThread::getCurrentThread());
}

void JRPCServer::Connection::logLine(int iLevel, const char* szFormat, ...) const {
  const auto uLevel = static_cast<std::uint32_t>(iLevel);
  if (uLevel >= JLog::kFirstObjectLevel && !isTraceEnabled(1U << uLevel)) {
    return;
  }
  va_list arguments;
  va_start(arguments, szFormat);
  const std::string sText = qm_utils::vformat(szFormat, arguments);
  va_end(arguments);
  JLog::log(uLevel, sText.c_str(), "", 0, m_szClassName, this);
}

void JRPCServer::Connection::run() {
  /// However the thread ends, nothing here touches a server after this.
  struct Leave {
    Connection& connection;
    ~Leave() {
      connection.getSocket()->close();
      connection.m_pServer->remove(connection);
    }
  } const leave{*this};

  reportingErrors([this] { m_pServer->onConnectionOpened(m_uConnection); });
  reportingErrors([this] { serve(); });
  reportingErrors([this] { m_pServer->onConnectionClosed(m_uConnection); });
}

void JRPCServer::Connection::serve() {
  try {
    while (serveOne() == Next::kGoOn) {
    }
  } catch (const std::exception& exception) {
    logLine(qm_err::kLogError, "Error while reading client request: %s\n", exception.what());
  }
  letPeerFinish();
}

/// One request line: PING, or a call. Then the connection may go over to another server.
JRPCServer::Connection::Next JRPCServer::Connection::serveOne() {
  std::string_view sLine;
  if (!readRequest(sLine) || m_pServer->isShut()) {
    return Next::kEnd;
  }
  const Next next = sLine == rpc_line::kPing ? answerPing() : answerRequest(sLine);
  if (next == Next::kGoOn && m_pMoveTarget != nullptr) {
    return m_pServer->handOver(*this) ? Next::kGoOn : Next::kEnd;
  }
  return next;
}

bool JRPCServer::Connection::readRequest(std::string_view& sLine) {
  try {
    const std::optional<std::string_view> line = readLine();
    sLine = line.value_or(std::string_view());
    return line.has_value();
  } catch (JSysError* pError) {
    const qm_err::CaughtError error(pError);
    if (pError->getCode() == kConnectionReset) {
      logLine(qm_err::kLogTraceRpc, "Client disconnected");
    } else if (pError->getCode() != kConnectionAborted && !m_pServer->isShut()) {
      logLine(qm_err::kLogWarning, "Error while reading client request: %s\n", error->getMessage().c_str());
    }
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    logLine(qm_err::kLogWarning, "Error while reading client request: %s\n", error->getMessage().c_str());
  }
  return false;
}

/// Throws what the channel throws.
void JRPCServer::Connection::sendBuiltLine() {
  m_iSendingSince = qm_platform::steadyClockNanoseconds();
  writeBuiltLine();
  m_iLastAnswer = qm_platform::steadyClockNanoseconds();
  m_iSendingSince = 0;
}

JRPCServer::Connection::Next JRPCServer::Connection::answerPing() {
  try {
    beginLine() = rpc_line::kPong;
    sendBuiltLine();
    return Next::kGoOn;
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    logLine(qm_err::kLogWarning, "Error while answering RPC PING request: %s\n", error->getMessage().c_str());
    return Next::kEnd;
  }
}

/// Answers a call, unless its function has no answer.
JRPCServer::Connection::Next JRPCServer::Connection::answerRequest(std::string_view sLine) {
  const bool bTraced = isTraceEnabled(1U << qm_err::kLogTraceRpc);
  if (bTraced) {
    logLine(qm_err::kLogTraceRpc, "Processing request: '%s'.", shown(sLine).c_str());
  }
  const Outcome outcome = buildAnswer(sLine);
  if (outcome == Outcome::kNoAnswer) {
    if (bTraced) {
      logLine(qm_err::kLogTraceRpc, "No answer required for request '%s'.", shown(sLine).c_str());
    }
    return Next::kGoOn;
  }
  const char* const szWord = outcome == Outcome::kOk ? "OK" : "FAILED";
  if (bTraced && outcome == Outcome::kOk) {
    logLine(qm_err::kLogTraceRpc, "Answering '%s' for request '%s'.", shown(builtLine()).c_str(),
            shown(sLine).c_str());
  }
  try {
    sendBuiltLine();
    return Next::kGoOn;
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    logLine(qm_err::kLogWarning, "Failed returning %s answer '%s' for request '%s': %s", szWord,
            shown(builtLine()).c_str(), shown(sLine).c_str(), error->getMessage().c_str());
    return Next::kEnd;
  }
}

/// Runs a request and builds the line that answers it. Whatever goes wrong is the answer.
JRPCServer::Connection::Outcome JRPCServer::Connection::buildAnswer(std::string_view sLine) {
  try {
    const std::unique_ptr<JParams> pAnswer = m_pServer->parseRequest(sLine, m_uConnection);
    if (!pAnswer) {
      return Outcome::kNoAnswer;
    }
    std::string& sAnswer = beginLine();
    sAnswer = rpc_line::kOk;
    sAnswer.resize(rpc_line::kOk.size() + pAnswer->getMaxLength());
    sAnswer.resize(rpc_line::kOk.size() + pAnswer->toText(sAnswer.data() + rpc_line::kOk.size()));
    checkBuiltLine();
    return Outcome::kOk;
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    rpc_line::writeFailure(beginLine(), *error);
  } catch (const std::exception& exception) {
    const JTextError error(std::string(exception.what()));
    rpc_line::writeFailure(beginLine(), error);
  }
  logLine(qm_err::kLogWarning, "RPC Request '%s' failed: '%s'.", shown(sLine).c_str(),
          shown(builtLine().substr(rpc_line::kFailed.size())).c_str());
  return Outcome::kFailed;
}

/// Ends the writing side and takes what the peer still sends, until it has closed. A channel that is closed
/// with something unread in it is reset, and the last answer may be lost by that.
void JRPCServer::Connection::letPeerFinish() {
  constexpr std::size_t kMostBytes = std::size_t{1} << 20;
  char waste[4096];
  try {
    JIoSocket& socket = *getSocket();
    socket.shutdownWrite();
    std::size_t uRead = 1;
    for (std::size_t uTotal = 0; uRead != 0 && uTotal < kMostBytes; uTotal += uRead) {
      const std::int64_t iLeft =
          m_iLastAnswer + kLastAnswerNanoseconds - qm_platform::steadyClockNanoseconds();
      socket.setReadTimeout(
          static_cast<std::int32_t>(std::max<std::int64_t>(iLeft / kNanosecondsPerMillisecond, 0)));
      uRead = socket.read(waste, sizeof waste);
    }
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);  // the peer has gone, or takes too long
  }
}

void JRPCServer::Connection::endRequests() {
  getSocket()->shutdownRead();
}

void JRPCServer::Connection::closeIfStuck(std::int64_t iNow) {
  const std::int64_t iSince = m_iSendingSince;
  if (iSince != 0 && iNow - iSince > kLastAnswerNanoseconds) {
    getSocket()->close();
  }
}
