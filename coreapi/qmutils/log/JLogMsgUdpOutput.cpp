#include "coreapi/qmutils/log/JLogMsgUdpOutput.h"

#include <memory>
#include <utility>

#include "coreapi/qmutils/error/loghook.h"
#include "coreapi/qmutils/log/logudpsocket.h"

namespace {

std::string threadName(const std::string& sName, const std::string& sServer, std::uint16_t uPort) {
  return sName + " [Log:Out:Msg:Udp to " + sServer + ":" + std::to_string(uPort) + "]";
}

}  // namespace

JLogMsgUdpOutput::JLogMsgUdpOutput(const std::string& sName, const std::string& sServer, std::uint16_t uPort,
                                   int iBufferSize, std::uint32_t uQueueCapacity, int iPriority, bool bStart)
    : JLogGenericMsgOutput(sName, threadName(sName, sServer, uPort), iBufferSize, uQueueCapacity, iPriority) {
  if (sServer.empty()) {
    qm_err::log(qm_err::kLogWarning, "JLogMsgUdpOutput(%s): empty \"Server\" field", sName.c_str());
  } else {
    auto pSocket = std::make_unique<qm_utils::LogUdpSocket>();
    pSocket->connect(JInetAddr(sServer, uPort));
    setSocket(std::move(pSocket));
  }
  if (bStart) {
    JLogMsgUdpOutput::start();
  }
}

JLogMsgUdpOutput::~JLogMsgUdpOutput() {
  JLogMsgUdpOutput::stop(0, true);
}
