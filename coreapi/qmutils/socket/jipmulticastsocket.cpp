#include "coreapi/platform/socketcalls.h"
#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/socket/judpsocket.h"

using qm_platform::SocketError;

namespace {

constexpr int kBufferBytes = 65535;

/// Whether an address (network order) belongs to a group: its first four bits are 1110 (RFC 1112).
bool isGroup(const JInetAddr& address) {
  return address.getBytes().size() >= JInetAddr::kSize && (address.getBytes()[4] & 0xF0) == 0xE0;
}

/// The interface that a bind address names; 0 when it names none.
std::uint32_t interfaceOf(const JInetAddr& bindAddress) {
  return isGroup(bindAddress) ? 0 : bindAddress.getAddress();
}

}  // namespace

JIPMulticastSocket::JIPMulticastSocket(const JInetAddr& group, bool bSender, bool bReceiver,
                                       const JInetAddr& bindAddress, std::uint32_t* pTraceMask,
                                       const std::string& sName)
    : JUDPSocket(NoHandle(), pTraceMask, sName), m_bSender(bSender), m_bReceiver(bReceiver) {
  createHandle();
  bindFor(group, bindAddress);
  if (!m_bSender && !m_bReceiver) {
    QM_THROW(JTextError, "specify sender or receiver or both for ip multicast socket");
  }
  join(group, bindAddress);
  if (!m_bReceiver) {
    control("WSAIoctl(SIO_MULTIPOINT_LOOPBACK)",
            [](int iSocket) { return qm_platform::setGroupLoopback(iSocket, false); });
  }
}

/// The leaf is a second number of the same socket, which would stay open with it.
void JIPMulticastSocket::close() {
  if (m_pLeaf) {
    m_pLeaf->close();
  }
  JUDPSocket::close();
}

void JIPMulticastSocket::createHandle() {
  makeHandle("WSASocket");
  logLine(qm_err::kLogTraceNetwork, "Created IP Multicast socket '%d'", getHandle());
  if (m_bSender) {
    control("setsockopt", [](int iSocket) { return qm_platform::setSendBuffer(iSocket, kBufferBytes); });
  }
  if (m_bReceiver) {
    control("setsockopt", [](int iSocket) { return qm_platform::setReceiveBuffer(iSocket, kBufferBytes); });
    control("setsockopt", qm_platform::setReuseAddress);
  }
}

/// A socket that is bound to the address of an interface hears no group on this platform: a receiver is bound
/// to the group, and the membership names the interface.
void JIPMulticastSocket::bindFor(const JInetAddr& group, const JInetAddr& bindAddress) {
  if (!m_bReceiver || interfaceOf(bindAddress) == 0) {
    bind(bindAddress);
    return;
  }
  JInetAddr address(group);
  address.setPort(bindAddress.getPort());
  bind(address);
}

void JIPMulticastSocket::join(const JInetAddr& group, const JInetAddr& bindAddress) {
  const std::string sGroup = group.toString();
  const std::uint32_t uInterface = interfaceOf(bindAddress);
  int iLeaf = -1;
  SocketError error = 0;
  {
    const Use use(m_handle, Side::kRead);
    if (m_bSender) {
      error = qm_platform::setGroupInterface(use.number(), uInterface);
    }
    if (error == 0 && m_bReceiver) {
      error = qm_platform::joinGroup(use.number(), group.getAddress(), uInterface);
    }
    if (error == 0) {
      error = qm_platform::duplicateSocket(use.number(), iLeaf);
    }
  }
  if (error != 0) {
    constexpr char kFunction[] = "WSAJoinLeaf";
    char szText[256];
    JSysError(error | JSysError::kSocketClass, kFunction).getMessage(szText, sizeof szText);
    logLine(qm_err::kLogError, "Could not join IP multicast group '%s' on socket '%d': %s", sGroup.c_str(),
            getHandle(), szText);
    fail(error, kFunction);
  }
  m_pLeaf = std::make_unique<JSocket>(JSocketNumber{iLeaf}, getTraceMask(), getName());
  logLine(qm_err::kLogTraceNetwork, "Joined IP multicast group '%s' on socket '%d', leaf socket '%d'",
          sGroup.c_str(), getHandle(), iLeaf);
}

std::string JIPMulticastSocket::getProtocol() const {
  return "ipm";
}

void JIPMulticastSocket::setTTL(int iHops) {
  const Use use(m_handle, Side::kRead);
  const SocketError error = qm_platform::setGroupTTL(use.number(), iHops);
  if (error != 0) {
    trace("setsockopt() failed, Err %u\n", error);
  }
}
