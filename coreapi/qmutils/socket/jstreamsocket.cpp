#include "coreapi/platform/socketcalls.h"
#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/socket/jtcpsocket.h"

using qm_platform::SocketError;

namespace {

/// The text of a socket call's failure, cut to `kSize` bytes.
template <std::size_t kSize>
std::string failureText(SocketError error, const char* szFunction) {
  char szText[kSize];
  JSysError(error | JSysError::kSocketClass, szFunction).getMessage(szText, sizeof szText);
  return szText;
}

}  // namespace

void JStreamSocket::listen(int iBacklog) {
  const Use use(m_handle, Side::kRead);
  const SocketError error =
      use.number() < 0 ? qm_platform::kSocketNotSocket : qm_platform::listenSocket(use.number(), iBacklog);
  if (error != 0) {
    logLine(qm_err::kLogError, "Could not listen on socket '%d' with backlog '%d'", use.number(), iBacklog);
    fail(error, "listen");
  }
  logLine(qm_err::kLogTraceNetwork, "Listening on socket '%d' with backlog '%d'", use.number(), iBacklog);
}

void JStreamSocket::applyKeepAlive(int iConnection) {
  if (m_keepAlive.iEnable <= 0) {
    return;
  }
  if (qm_platform::setKeepAlive(iConnection, true, m_keepAlive.uTime, m_keepAlive.uInterval) != 0) {
    logLine(qm_err::kLogError, "Couldn't set keepalive value on client socket '%d'!", iConnection);
    return;
  }
  logLine(qm_err::kLogTraceNetwork, "Keepalive on client socket '%d' set to time=%d, interval=%d",
          iConnection, static_cast<int>(m_keepAlive.uTime), static_cast<int>(m_keepAlive.uInterval));
}

int JStreamSocket::acceptHandle(std::unique_ptr<JSockAddr>* pPeer) {
  int iConnection = -1;
  qm_platform::SocketAddressBytes peer;
  SocketError error = 0;
  {
    const Use use(m_handle, Side::kRead);
    error = blocking(use, false, getAcceptTimeout(), [&](int iListener, bool) {
      return qm_platform::acceptConnection(iListener, iConnection, peer);
    });
  }
  if (error == qm_platform::kSocketInterrupted) {
    logLine(qm_err::kLogTraceNetwork, "accept connection canceled");
    return -1;
  }
  if (error != 0) {
    logLine(qm_err::kLogError, "Could not accept connection: %s", failureText<256>(error, "accept").c_str());
    fail(error, "accept");
  }
  auto pAddress = std::make_unique<JSockAddr>(peer.bytes, peer.size);
  logLine(qm_err::kLogTraceNetwork, "Accepted connection on TCP socket '%d' from '%s'", iConnection,
          pAddress->toString().c_str());
  applyKeepAlive(iConnection);
  if (pPeer != nullptr) {
    *pPeer = std::move(pAddress);
  }
  return iConnection;
}

std::unique_ptr<JSocket> JStreamSocket::accept(std::unique_ptr<JSockAddr>* pPeer) {
  const int iConnection = acceptHandle(pPeer);
  return iConnection == -1 ? nullptr
                           : std::make_unique<JSocket>(JSocketNumber{iConnection}, getTraceMask(), getName());
}

/// The connection is made in the background and waited for, with or without a time-out: only so does closing
/// the socket end the wait.
void JStreamSocket::connect(const JSockAddr& address) {
  const std::string sPeer = address.toString();
  const Use use(m_handle, Side::kBoth);
  logLine(qm_err::kLogTraceNetwork, "Connecting socket '%d' to '%s' with timeout '%d'", use.number(),
          sPeer.c_str(), getConnectTimeout());
  const SocketError error =
      use.number() < 0 ? qm_platform::kSocketNotSocket : qm_platform::setNonBlocking(use.number(), true);
  if (error != 0) {
    const char* const szFunction = "ioctlsocket(FIONBIO)";
    logLine(qm_err::kLogError, "Failed to put socket '%d' into non-blocking mode: %s", use.number(),
            failureText<1024>(error, szFunction).c_str());
    fail(error, szFunction);
  }
  finishConnect(use, address, sPeer);
  logLine(qm_err::kLogTraceNetwork, "Connected socket '%d' to '%s'", use.number(), sPeer.c_str());
}

void JStreamSocket::finishConnect(const Use& use, const JSockAddr& address, const std::string& sPeer) {
  bool bPending = false;
  SocketError error = qm_platform::connectSocket(use.number(), address.getBytes(), bPending);
  if (bPending) {
    waitFor(use, true, getConnectTimeout());
  }
  const SocketError modeError = qm_platform::setNonBlocking(use.number(), false);
  if (error == 0) {
    if (modeError != 0) {
      fail(modeError, "ioctlsocket(FIONBIO)");
    }
    error = use.isClosed() ? qm_platform::kSocketInterrupted : qm_platform::takeSocketError(use.number());
  }
  if (error != 0) {
    const char* const szFunction = "WSAConnect";
    logLine(qm_err::kLogError, "Failed to connect socket '%d' to '%s': %s", use.number(), sPeer.c_str(),
            failureText<1024>(error, szFunction).c_str());
    fail(error, szFunction);
  }
}
