#include "coreapi/qmutils/log/JTelnetOutput.h"

#include <limits>
#include <utility>

#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/log/telnetserver.h"

namespace {

constexpr const char* kLineEnd = "\r\n";

std::string threadName(const std::string& sName, std::uint32_t uPort) {
  return sName + " [Log:Out:Formatted:Telnet port=" + std::to_string(uPort) + "]";
}

/// The port of a key; 0 when there is none.
std::uint32_t readPort(const qm_utils::IRegistryReadAccess& key) {
  std::uint32_t uPort = 0;
  key.getDword("TelnetPort", uPort);
  return uPort;
}

}  // namespace

JTelnetOutput::JTelnetOutput(std::string sName, std::uint16_t uPort, int iInterface, std::uint32_t uMask,
                             const char* szFormat, std::uint32_t uQueueCapacity, int iPriority, bool bStart)
    : JLogFormattedOutput(sName, threadName(sName, uPort), uMask, szFormat, true, uQueueCapacity, iPriority) {
  listen(static_cast<std::uint32_t>(iInterface), uPort);
  if (bStart) {
    JTelnetOutput::start();
  }
}

JTelnetOutput::JTelnetOutput(std::string sName, const qm_utils::IRegistryReadAccess& key,
                             std::uint32_t uQueueCapacity, int iPriority, bool bStart)
    : JLogFormattedOutput(sName, threadName(sName, readPort(key)), key, true, uQueueCapacity, iPriority) {
  std::uint32_t uPort = 0;
  std::uint32_t uInterface = 0;
  key.getDword("TelnetInterfaceNumber", uInterface);
  if (key.getDword("TelnetPort", uPort)) {
    listen(uInterface, uPort);
  } else {
    qm_err::log(qm_err::kLogError,
                "Telnet Output logging not starting: missing \"TelnetPort\" entry in registry.");
  }
  if (bStart) {
    JTelnetOutput::start();
  }
}

JTelnetOutput::~JTelnetOutput() {
  JTelnetOutput::stop(0, true);
}

void JTelnetOutput::listen(std::uint32_t uInterface, std::uint32_t uPort) {
  try {
    if (uPort > std::numeric_limits<std::uint16_t>::max()) {
      QM_THROW(JTextError, "%u is no port", uPort);
    }
    m_pServer = qm_utils::TelnetServer::share(getName(), static_cast<int>(uInterface),
                                              static_cast<std::uint16_t>(uPort));
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    qm_err::log(
        qm_err::kLogError,
        "Telnet Output logging not starting: the requested TCP port number could not be obtained: %s.",
        error->getMessage().c_str());
  }
}

void JTelnetOutput::writeText(const JLog::Msg& /*record*/, const std::string& sLine) {
  if (m_pServer) {
    m_pServer->write(sLine.ends_with(kLineEnd) ? sLine : sLine + kLineEnd);
  }
}

std::uint16_t JTelnetOutput::getPort() const noexcept {
  return m_pServer ? m_pServer->getPort() : 0;
}

std::size_t JTelnetOutput::getClientCount() const {
  return m_pServer ? m_pServer->getClientCount() : 0;
}
