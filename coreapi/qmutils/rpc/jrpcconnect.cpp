#include <array>
#include <cstddef>

#include "coreapi/platform/clock.h"
#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/error/jrpcerror.h"
#include "coreapi/qmutils/log/JLog.h"
#include "coreapi/qmutils/params/jparams.h"
#include "coreapi/qmutils/params/jvariant.h"
#include "coreapi/qmutils/rpc/jrpc.h"
#include "coreapi/qmutils/socket/jsockaddr.h"
#include "coreapi/qmutils/socket/jtcpsocket.h"
#include "coreapi/qmutils/text/jtext.h"

// How a client connects, and finds out whom it has connected to.

namespace {

/// Where servers answer that are too old to know `getRPCVersion`.
constexpr std::int32_t kOldServerPort = 4001;

/// IPPROTO_TCP and TCP_NODELAY, which have the same numbers on all platforms.
constexpr int kTcpLevel = 6;
constexpr int kTcpNoDelay = 1;

constexpr std::int32_t kHighestPort = 65535;

/// The version in what an old server calls its product: "2, 2, 6, 0" is 2.2. A text of another form than four
/// parts is the version itself.
std::string versionOfProduct(const std::string& sProduct) {
  std::vector<std::string> parts;
  std::size_t start = 0;
  for (std::size_t comma = 0; comma != std::string::npos; start = comma + 1) {
    comma = sProduct.find(',', start);
    parts.push_back(sProduct.substr(start, comma == std::string::npos ? comma : comma - start));
  }
  if (parts.size() != 4) {
    return sProduct;
  }
  qm_utils::trimSpace(parts[0]);
  qm_utils::trimSpace(parts[1]);
  return parts[0] + "." + parts[1];
}

}  // namespace

/// Makes a socket known to `shutdown`, which closes it, as long as this lives. The socket must live longer.
class JRPCClient::Abortable {
 public:
  /// Throws JRPCConnectionLostError when the client is shut down already.
  Abortable(JRPCClient& client, JIoSocket& socket) : m_client(client) {
    const JAutoLock lock(m_client.m_connectMutex);
    if (m_client.m_bShuttingDown) {
      QM_THROW(JRPCConnectionLostError);
    }
    m_client.m_pPending = &socket;
  }
  ~Abortable() {
    const JAutoLock lock(m_client.m_connectMutex);
    m_client.m_pPending = nullptr;
  }
  Abortable(const Abortable&) = delete;
  Abortable& operator=(const Abortable&) = delete;

 private:
  JRPCClient& m_client;
};

void JRPCClient::connect() {
  const JAutoLock lock(m_callMutex);
  bool bTunnelled = false;
  adoptConnection(openConnection(bTunnelled));
  try {
    if (bTunnelled) {
      redirectToService();
    }
    discoverVersion();
  } catch (...) {
    setConnected(false);
    m_lost.reset();
    throw;
  }
  m_lost.reset();  // what is set was meant for the link before
  m_iLastPing = qm_platform::steadyClockNanoseconds();
}

/// Connects to the tunnel port if there is one, else or failing that to the service's own.
std::unique_ptr<JTCPSocket> JRPCClient::openConnection(bool& bTunnelled) {
  const char* const szHost = m_settings.sHost.c_str();
  const bool bTunnel = m_settings.iTunnelPort > 0;
  if (isTraceEnabled(kTraceLink)) {
    if (bTunnel) {
      trace("Connecting to %s:%d with redirect to service port %d", szHost, m_settings.iTunnelPort,
            m_settings.iPort);
    } else {
      trace("Connecting to %s:%d.", szHost, m_settings.iPort);
    }
  }
  try {
    auto pSocket = openTo(bTunnel ? m_settings.iTunnelPort : m_settings.iPort);
    bTunnelled = bTunnel;
    return pSocket;
  } catch (JError* pError) {
    qm_err::CaughtError first(pError);
    JCATCH_LOG(first.get());
    if (bTunnel && !m_bShuttingDown) {
      if (isTraceEnabled(kTraceLink)) {
        trace("Failed to connect via tunnel port %d. Connecting to %s:%d.", m_settings.iTunnelPort, szHost,
              m_settings.iPort);
      }
      try {
        return openTo(m_settings.iPort);
      } catch (JError* pSecond) {
        const qm_err::CaughtError second(pSecond);
        JCATCH_LOG(second.get());
      }
    }
    first.rethrow();
  }
}

std::unique_ptr<JTCPSocket> JRPCClient::openTo(std::int32_t iPort) {
  if (iPort < 1 || iPort > kHighestPort) {
    QM_THROW(JTextError, "invalid port %d", iPort);
  }
  auto pSocket = std::make_unique<JTCPSocket>(getTraceMask());
  pSocket->setConnectTimeout(m_settings.iConnectTimeout);
  pSocket->setWriteTimeout(m_settings.iWriteTimeout);
  {
    const Abortable abortable(*this, *pSocket);
    pSocket->connect(JInetAddr(m_settings.sHost, static_cast<std::uint16_t>(iPort)));
  }
  const int iNoDelay = 1;
  pSocket->setOption(kTcpLevel, kTcpNoDelay, &iNoDelay, sizeof iNoDelay);
  return pSocket;
}

void JRPCClient::adoptConnection(std::unique_ptr<JTCPSocket> pSocket) {
  {
    const JAutoLock lock(m_connectMutex);
    if (m_bShuttingDown) {
      QM_THROW(JRPCConnectionLostError);
    }
    setSocket(pSocket.release(), true);
  }
  m_owed.clear();
  const JAutoLock lock(m_stateMutex);
  m_serverVersion = {};
  m_bConnected = !m_bShuttingDown;
}

void JRPCClient::redirectToService() {
  try {
    const JVariant servicePort("servicePort", m_settings.iPort);
    call("redirect", &servicePort, m_settings.iConnectTimeout);
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    JCATCH_LOG(error.get());
    JLog::log(this, qm_err::kLogWarning, "RPC client on %s:%d was not able to redirect to service port %d",
              m_settings.sHost.c_str(), m_settings.iTunnelPort, m_settings.iPort);
  }
}

/// Asks the server for its version. A server that knows no such call is asked in the old way, and whatever
/// fails there leaves the version unknown; any other failure is the link's.
void JRPCClient::discoverVersion() {
  const JVariant nop("nop", 0);
  std::string sVersion;
  try {
    call("getRPCVersion", &nop, m_settings.iConnectTimeout)->get("RPCVersion", sVersion);
  } catch (JRPCCallFailedError* pError) {
    const qm_err::CaughtError error(pError);
    JCATCH_LOG(error.get());
    sVersion = askOldVersion();
  }
  JRPCVersion version;
  version.fromText(sVersion);
  setServerVersion(version);
}

/// The version of an old server, which tells it on a port of its own. Empty when it can't be had.
std::string JRPCClient::askOldVersion() {
  std::string sProduct;
  try {
    const JVariant nop("nop", 0);
    if (m_settings.iPort == kOldServerPort) {
      call("getRPCVersion", &nop, m_settings.iConnectTimeout)->get("ProductVersion", sProduct, true);
    } else {
      auto pSocket = openTo(kOldServerPort);
      JTCPSocket& socket = *pSocket;
      JRPCClient oldServer(std::move(pSocket), true, getTraceMask());
      const Abortable abortable(*this, socket);
      oldServer.call("getVersionString", &nop, m_settings.iConnectTimeout)
          ->get("ProductVersion", sProduct, true);
    }
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    JCATCH_LOG(error.get());
    JLog::log(this, qm_err::kLogWarning, "RPC client was not able to get RPC version from %s:%d.",
              m_settings.sHost.c_str(), m_settings.iPort);
    return {};
  }
  return versionOfProduct(sProduct);
}

std::string JRPCClient::getRemoteName() const {
  {
    const JAutoLock lock(m_connectMutex);
    if (getSocket() != nullptr) {
      return JInetAddr(*getSocket()->getRemoteAddress()).getAddressString();
    }
  }
  return JInetAddr(JSocket::getHostName(), 0).getAddressString();
}
