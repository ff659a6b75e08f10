#include "coreapi/qmutils/socket/judpsocket.h"

#include <cstdio>

#include "coreapi/platform/socketcalls.h"
#include "coreapi/qmutils/error/jerror.h"

using qm_platform::SocketError;

namespace {

constexpr int kBufferBytes = 65535;

}  // namespace

void JDatagramSocket::makeHandle(const char* szFunction) {
  int iHandle = -1;
  const SocketError error = qm_platform::createSocket(qm_platform::SocketKind::kDatagram, iHandle);
  if (error != 0) {
    fail(error, szFunction);
  }
  setHandle(iHandle);
}

void JDatagramSocket::connectTo(const JSockAddr& address, const char* szFunction) {
  control(szFunction, [&](int iSocket) {
    bool bPending = false;  // datagrams have nothing to wait for
    return qm_platform::connectSocket(iSocket, address.getBytes(), bPending);
  });
}

void JDatagramSocket::connect(const JSockAddr& address) {
  connectTo(address, "WSAConnect");
}

std::size_t JDatagramSocket::recvfrom(void* pBuffer, std::size_t uLength, int iFlags,
                                      std::unique_ptr<JSockAddr>* pFrom) {
  const qm_platform::SocketBuffer buffer{pBuffer, uLength};
  qm_platform::Received received;
  qm_platform::SocketAddressBytes from;
  SocketError error = receiving(received, [&](int iSocket, bool bWait) {
    return qm_platform::receive(iSocket, {&buffer, 1}, bWait, iFlags, received, &from);
  });
  if (error == 0 && received.bTruncated) {
    error = qm_platform::kSocketMessageSize;
  }
  if (error != 0) {
    fail(error, "recvfrom");
  }
  if (pFrom != nullptr) {
    *pFrom = std::make_unique<JSockAddr>(from.bytes, from.size);
  }
  return received.uBytes;
}

std::size_t JDatagramSocket::sendto(const void* pBuffer, std::size_t uLength, int iFlags,
                                    const JSockAddr& address) {
  const qm_platform::SocketBuffer buffer{const_cast<void*>(pBuffer), uLength};
  std::size_t uSent = 0;
  const Use use(m_handle, Side::kWrite);
  const SocketError error = blocking(use, true, -1, [&](int iSocket, bool bWait) {
    return qm_platform::send(iSocket, {&buffer, 1}, bWait, iFlags, address.getBytes(), uSent);
  });
  if (error != 0) {
    fail(error, "sendto");
  }
  return uSent;
}

JUDPSocket::JUDPSocket(NoHandle, std::uint32_t* pTraceMask, const std::string& sName)
    : JDatagramSocket(pTraceMask, nameOr(sName, "UDPSocket")) {}

JUDPSocket::JUDPSocket(std::uint32_t* pTraceMask, const std::string& sName)
    : JUDPSocket(NoHandle(), pTraceMask, sName) {
  createHandle();
}

JUDPSocket::JUDPSocket(std::uint16_t uPort) : JUDPSocket() {
  bind(uPort);
}

JUDPSocket::JUDPSocket(const JSockAddr& destination, std::uint16_t uFirstPort, std::uint16_t uLastPort)
    : JUDPSocket() {
  if (uFirstPort != 0 && uLastPort != 0) {
    bindInRange(uFirstPort, uLastPort);
  }
  connectTo(destination, "connect");
}

void JUDPSocket::createHandle() {
  makeHandle("socket");
  control("setsockopt", [](int iSocket) { return qm_platform::setSendBuffer(iSocket, kBufferBytes); });
  control("setsockopt", [](int iSocket) { return qm_platform::setReceiveBuffer(iSocket, kBufferBytes); });
}

void JUDPSocket::bindInRange(std::uint16_t uFirstPort, std::uint16_t uLastPort) {
  SocketError error = qm_platform::kSocketInvalidArgument;  // of a range that holds no port
  for (unsigned uPort = uFirstPort; uPort <= uLastPort; ++uPort) {
    std::printf("Trying port %u ... ", uPort);
    const Use use(m_handle, Side::kRead);
    const JInetAddr address(0, static_cast<std::uint16_t>(uPort));
    error = qm_platform::bindSocket(use.number(), address.getBytes());
    if (error == 0) {
      std::printf("OK\n");
      return;
    }
    std::printf("FAILED (%u)\n", error);
  }
  fail(error, "socket");
}

std::string JUDPSocket::getProtocol() const {
  return "udp";
}

void JUDPSocket::bind(std::uint16_t uPort) {
  JDatagramSocket::bind(JInetAddr(0, uPort));
}

std::uint16_t JUDPSocket::getLocalPort() const {
  return JInetAddr(*getLocalAddress()).getPort();
}

JBroadcastSocket::JBroadcastSocket() : JDatagramSocket(nullptr, "BroadcastSocket") {
  m_destination.setNumericAddress("255.255.255.255", 0);
  JBroadcastSocket::createHandle();
}

JBroadcastSocket::JBroadcastSocket(std::uint16_t uPort) : JBroadcastSocket() {
  bind(JInetAddr(0, uPort));
}

void JBroadcastSocket::createHandle() {
  makeHandle("socket");
  control("setsockopt(SO_BROADCAST)", qm_platform::setBroadcast);
}

std::size_t JBroadcastSocket::send(const void* pBuffer, std::size_t uLength, std::uint16_t uPort) {
  JInetAddr destination(m_destination);
  destination.setPort(uPort);
  return sendto(pBuffer, uLength, 0, destination);
}
