#include "coreapi/qmutils/rpc/jrpcservice.h"

#include <new>

#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/log/JLog.h"

namespace {

/// IPPROTO_TCP and TCP_NODELAY, which have the same numbers on all platforms.
constexpr int kTcpLevel = 6;
constexpr int kTcpNoDelay = 1;

/// Pause after a failed accept, in milliseconds: the system is short of something, and asking again at once
/// doesn't help.
constexpr std::int32_t kAcceptPause = 100;

/// An answer goes out at once, even while the one before isn't acknowledged yet.
void sendAtOnce(JSocket& socket) {
  const int iNoDelay = 1;
  socket.setOption(kTcpLevel, kTcpNoDelay, &iNoDelay, sizeof iNoDelay);
}

}  // namespace

JRPCService::JRPCService(std::uint16_t uPort, const std::string& sName, std::uint32_t* pTraceMask)
    : JRPCServer(sName, pTraceMask), m_listener(getTraceMask()) {
  m_listener.bind(uPort);
  m_uPort = m_listener.getLocalPort();
  setTraceName(sName + "::RPC[" + std::to_string(m_uPort) + "]");
  setName("JRPCService[" + std::to_string(m_uPort) + "]");
}

JRPCService::JRPCService(const JInetAddr& address, const std::string& sName, std::uint32_t* pTraceMask)
    : JRPCServer(sName, pTraceMask), m_listener(getTraceMask()) {
  m_listener.bind(address);
  m_uPort = m_listener.getLocalPort();
  JInetAddr bound(address);
  bound.setPort(m_uPort);
  setTraceName(sName + ":RPC[" + bound.toString() + "]");
  setName("JRPCService[" + std::to_string(m_uPort) + "]");
}

JRPCService::~JRPCService() {
  stop();
}

void JRPCService::start() {
  JLog::log(this, qm_err::kLogTraceRpc, "Starting service thread on port %d", m_uPort);
  m_listener.listen(kBackLog);
  JLog::log(this, qm_err::kLogInfo, "Listening on port %d with back log %d.", m_uPort, kBackLog);
  JThread::start();
}

void JRPCService::stop() {
  if (m_bStopped.exchange(true)) {
    return;
  }
  m_stop.set();
  JLog::log(this, qm_err::kLogTraceRpc, "Closing server socket.");
  m_listener.close();
  JLog::log(this, qm_err::kLogTraceRpc, "Waiting on accept thread to exit.");
  JThread::stop();
  JLog::log(this, qm_err::kLogTraceRpc, "Shutting down opened connections.");
  shutdown();
}

void JRPCService::run() {
  while (!m_stop.wait(0)) {
    JLog::log(this, qm_err::kLogTraceRpc, "Waiting for incoming connections");
    std::unique_ptr<JTCPSocket> pConnection;
    try {
      const int iHandle = m_listener.acceptHandle();
      if (iHandle < 0) {
        return;
      }
      pConnection = std::make_unique<JTCPSocket>(JSocketNumber{iHandle}, getTraceMask());
      sendAtOnce(*pConnection);
    } catch (JError* pError) {
      const qm_err::CaughtError error(pError);
      JCATCH_LOG(error.get());
      if (!pConnection) {
        m_stop.wait(kAcceptPause);
      }
      continue;
    } catch (const std::bad_alloc& exception) {
      JLog::log(this, qm_err::kLogError, "Could not take a client connection: %s", exception.what());
      m_stop.wait(kAcceptPause);
      continue;
    }
    addConnection(std::move(pConnection));
  }
}
