#include "coreapi/qmutils/rpc/jrpcserver.h"

#include <algorithm>
#include <new>

#include "coreapi/platform/clock.h"
#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/error/jrpcerror.h"
#include "coreapi/qmutils/log/JLog.h"
#include "coreapi/qmutils/params/jparams.h"
#include "coreapi/qmutils/rpc/jrpcconnection.h"
#include "coreapi/qmutils/rpc/rpcline.h"
#include "coreapi/qmutils/socket/jiosocket.h"
#include "coreapi/qmutils/thread/jwaitable.h"

namespace {

constexpr std::size_t kListGrowth = 16;
constexpr std::int32_t kShutdownPoll = 10;
constexpr int kUnknownFunction = -4;

/// The mask of servers that were given none: nothing is traced. Never written.
std::uint32_t g_uNoTrace = 0;

}  // namespace

JRPCServer::JRPCServer(const std::string& sName, std::uint32_t* pTraceMask)
    : JTraceableObject(sName, pTraceMask != nullptr ? pTraceMask : &g_uNoTrace) {}

JRPCServer::~JRPCServer() {
  shutdown();
}

// Requests.

std::unique_ptr<JParams> JRPCServer::parseRequest(std::string_view sLine, ConnectionId uConnection) {
  const qm_utils::rpc_line::Request request = qm_utils::rpc_line::splitRequest(sLine);
  const std::string sFunction(request.sFunction);
  JParams parameters;
  parameters.parse(request.sParameters);
  std::unique_ptr<JParams> pAnswer;
  if (!dispatch(sFunction, parameters, pAnswer, uConnection)) {
    unknownFunction(sFunction);
  }
  return pAnswer;
}

bool JRPCServer::dispatch(const std::string& /*sFunction*/, JParams& /*parameters*/,
                          std::unique_ptr<JParams>& /*pAnswer*/, ConnectionId /*uConnection*/) {
  return false;
}

void JRPCServer::unknownFunction(const std::string& sFunction) {
  QM_THROW(JRPCProtocolError, "unknown function", sFunction.c_str(), kUnknownFunction);
}

void JRPCServer::onConnectionOpened(ConnectionId /*uConnection*/) {}

void JRPCServer::onConnectionClosed(ConnectionId /*uConnection*/) {}

// Connections.

void JRPCServer::addConnection(std::unique_ptr<JIoSocket> pSocket) {
  try {
    const std::string sPeer = pSocket->getRemoteAddress()->toString();
    const JAutoLock lock(m_mutex);
    if (m_bShut) {
      return;
    }
    if (m_connections.size() >= m_uMostConnections) {
      QM_THROW(JTextError, "there are %zu already, which is the most", m_connections.size());
    }
    if (m_connections.size() == m_connections.capacity()) {
      m_connections.reserve(m_connections.size() + kListGrowth);
    }
    JLog::log(this, qm_err::kLogInfo, "New client connection (%d) from %s.",
              static_cast<int>(m_connections.size()) + 1, sPeer.c_str());
    // Its thread can't leave the list before it is in it: that takes the lock.
    m_connections.push_back(new Connection(*this, std::move(pSocket), sPeer));
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    JLog::log(this, qm_err::kLogWarning, "Could not take a client connection: %s",
              error->getMessage().c_str());
  } catch (const std::bad_alloc& exception) {
    JLog::log(this, qm_err::kLogError, "Could not take a client connection: %s", exception.what());
  }
}

void JRPCServer::remove(Connection& connection) {
  const JAutoLock lock(m_mutex);
  std::erase(m_connections, &connection);
}

std::size_t JRPCServer::getConnectionCount() const {
  const JAutoLock lock(m_mutex);
  return m_connections.size();
}

void JRPCServer::setMostConnections(std::size_t uMost) {
  const JAutoLock lock(m_mutex);
  m_uMostConnections = uMost;
}

std::unique_ptr<JSockAddr> JRPCServer::getCurrentPeer() {
  Connection* const pConnection = Connection::current();
  if (pConnection == nullptr) {
    QM_THROW(JTextError, "no request is being served here");
  }
  return pConnection->getSocket()->getRemoteAddress();
}

// Moving a connection to another server.

JMutex& JRPCServer::handOverMutex() {
  static JMutex& mutex = *new JMutex;  // servers of static storage outlive it otherwise
  return mutex;
}

void JRPCServer::markCurrentConnection(JRPCServer& target) {
  if (Connection* const pConnection = Connection::current()) {
    pConnection->m_pMoveTarget = &target;
  }
}

void JRPCServer::clearMarks(const JRPCServer* pTarget) {
  const JAutoLock lock(m_mutex);
  for (Connection* const pConnection : m_connections) {
    if (pConnection->m_pMoveTarget == pTarget) {
      pConnection->m_pMoveTarget = nullptr;
    }
  }
}

/// Gives a connection, on whose thread this runs, to the server that it is marked for. False when that one is
/// shut; the connection stays here then, to be ended.
bool JRPCServer::handOver(Connection& connection) {
  const JAutoLock moves(handOverMutex());
  JRPCServer* const pTarget = connection.m_pMoveTarget.exchange(nullptr);
  if (pTarget == nullptr || pTarget == this) {
    return true;
  }
  {
    const JAutoLock lock(pTarget->m_mutex);
    if (pTarget->m_bShut) {
      return false;
    }
    pTarget->m_connections.push_back(&connection);
  }
  // Never both lists' locks at once. In between the connection stands in both lists, and it leaves neither
  // before this thread takes it out.
  remove(connection);
  connection.m_pServer = pTarget;
  const std::string& sOldName = connection.getName();
  connection.setTraceName(pTarget->getName() +
                          sOldName.substr(std::min(sOldName.find(':'), sOldName.size())));
  return true;
}

// The end.

void JRPCServer::shutdown() {
  if (m_bShut.exchange(true)) {
    return;
  }
  {
    const JAutoLock moves(handOverMutex());
    const JAutoLock lock(m_mutex);
    for (Connection* const pConnection : m_connections) {
      pConnection->m_pMoveTarget = nullptr;
    }
  }
  closeIdle();
  JLog::log(this, qm_err::kLogInfo, "Waiting for running transaction to finish.");
  JFlag never(true);
  while (waitForConnections()) {
    never.wait(kShutdownPoll);
  }
  JLog::log(this, qm_err::kLogInfo, "RPC Server shut down successfully.");
}

/// Lets every connection end, once it has answered what it is working on.
void JRPCServer::closeIdle() {
  const JAutoLock lock(m_mutex);
  for (Connection* const pConnection : m_connections) {
    JLog::log(this, qm_err::kLogInfo, "Closing TCP server socket for connection from %s",
              pConnection->getPeer().c_str());
    try {
      pConnection->endRequests();
    } catch (JError* pError) {
      const qm_err::CaughtError error(pError);
      JLog::log(this, qm_err::kLogWarning, "Could not close TCP server socket: %s",
                error->getMessage().c_str());
    }
  }
}

/// Whether there are connections still.
bool JRPCServer::waitForConnections() {
  const std::int64_t iNow = qm_platform::steadyClockNanoseconds();
  const JAutoLock lock(m_mutex);
  for (Connection* const pConnection : m_connections) {
    pConnection->closeIfStuck(iNow);
  }
  return !m_connections.empty();
}
