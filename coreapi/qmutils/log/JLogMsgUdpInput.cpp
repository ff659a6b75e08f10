#include "coreapi/qmutils/log/JLogMsgUdpInput.h"

#include <memory>
#include <utility>

#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/socket/judpsocket.h"

namespace {

std::string threadName(const std::string& sName, std::uint16_t uPort) {
  return sName + " [Log:In:Msg:Udp port=" + std::to_string(uPort) + "]";
}

JInetAddr loopback(std::uint16_t uPort) {
  JInetAddr address;
  address.setNumericAddress("127.0.0.1", uPort);
  return address;
}

}  // namespace

JLogMsgUdpInput::JLogMsgUdpInput(const std::string& sName, std::uint16_t uPort, int iBufferSize, bool bStart)
    : JLogGenericMsgInput(sName, threadName(sName, uPort), iBufferSize), m_uPort(uPort) {
  auto pSocket = std::make_unique<JUDPSocket>();
  pSocket->JSocket::bind(loopback(uPort));
  pSocket->setReadTimeout(kReadTimeout);
  m_uPort = pSocket->getLocalPort();
  setSocket(std::move(pSocket));
  if (bStart) {
    JLogMsgUdpInput::start();
  }
}

JLogMsgUdpInput::~JLogMsgUdpInput() {
  JLogMsgUdpInput::stop(0, true);
}

bool JLogMsgUdpInput::stop(int iTimeout, bool bWait) {
  if (JLogThreadedInput::stop(iTimeout, false)) {
    return true;
  }
  wake();
  return bWait && JLogThreadedInput::stop(iTimeout, true);
}

/// Sends the input what is no record. Without that a waiting read ends with its time-out.
void JLogMsgUdpInput::wake() const {
  try {
    JUDPSocket().sendto("", 0, 0, loopback(m_uPort));
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    JCATCH_LOG(error.get());
  }
}
