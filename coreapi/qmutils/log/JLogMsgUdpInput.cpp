#include "coreapi/qmutils/log/JLogMsgUdpInput.h"

#include <memory>
#include <utility>

#include "coreapi/qmutils/socket/judpsocket.h"

namespace {

std::string threadName(const std::string& sName, std::uint16_t uPort) {
  return sName + " [Log:In:Msg:Udp port=" + std::to_string(uPort) + "]";
}

}  // namespace

JLogMsgUdpInput::JLogMsgUdpInput(const std::string& sName, std::uint16_t uPort, int iBufferSize, bool bStart)
    : JLogGenericMsgInput(sName, threadName(sName, uPort), iBufferSize), m_uPort(uPort) {
  auto pSocket = std::make_unique<JUDPSocket>();
  JInetAddr address;
  address.setNumericAddress("127.0.0.1", uPort);
  pSocket->JSocket::bind(address);
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
