#include "coreapi/qmutils/log/JInProcessForwardOutput.h"

#include <map>
#include <utility>

#include "coreapi/qmutils/error/loghook.h"
#include "coreapi/qmutils/thread/jmutex.h"

namespace {

/// The receivers by their names. Never destroyed: outputs may write until the process has ended.
struct Receivers {
  JMutex mutex;
  std::map<std::string, std::shared_ptr<qm_utils::ILogReceiver>> byId;
};

Receivers& receivers() {
  static Receivers& all = *new Receivers;
  return all;
}

std::string threadName(const std::string& sName, const std::string& sReceiverId) {
  return sName + " [Log:Out:Formatted:InProcess to " + sReceiverId + "]";
}

std::string readReceiverId(const qm_utils::IRegistryReadAccess& key) {
  std::string sReceiverId;
  key.getString("ReceiverID", sReceiverId);
  return sReceiverId;
}

}  // namespace

JInProcessForwardOutput::JInProcessForwardOutput(std::string sName, std::string sReceiverId,
                                                 std::uint32_t uMask, const char* szFormat)
    : JLogFormattedOutput(sName, threadName(sName, sReceiverId), uMask, szFormat, true, JLog::kQueueCapacity,
                          0),
      m_sReceiverId(std::move(sReceiverId)) {
  JInProcessForwardOutput::start();
}

JInProcessForwardOutput::JInProcessForwardOutput(std::string sName, const qm_utils::IRegistryReadAccess& key)
    : JLogFormattedOutput(sName, threadName(sName, readReceiverId(key)), key, true, JLog::kQueueCapacity, 0),
      m_sReceiverId(readReceiverId(key)) {
  if (m_sReceiverId.empty()) {
    qm_err::log(qm_err::kLogError,
                "In process output logging not starting: missing \"ReceiverID\" entry in registry.");
  }
  JInProcessForwardOutput::start();
}

JInProcessForwardOutput::~JInProcessForwardOutput() {
  JInProcessForwardOutput::stop(0, true);
}

void JInProcessForwardOutput::writeText(const JLog::Msg& /*record*/, const std::string& sLine) {
  std::shared_ptr<qm_utils::ILogReceiver> pReceiver;
  {
    Receivers& all = receivers();
    const JAutoLock lock(all.mutex);
    const auto found = all.byId.find(m_sReceiverId);
    if (found != all.byId.end()) {
      pReceiver = found->second;
    }
  }
  if (pReceiver) {
    pReceiver->receive(sLine);
  }
}

void JInProcessForwardOutput::setReceiver(const std::string& sReceiverId,
                                          std::shared_ptr<qm_utils::ILogReceiver> pReceiver) {
  Receivers& all = receivers();
  const JAutoLock lock(all.mutex);
  // The one before goes when this ends, behind the lock's end unless an output holds it longer.
  if (pReceiver) {
    all.byId[sReceiverId].swap(pReceiver);
  } else {
    all.byId.erase(sReceiverId);
  }
}
