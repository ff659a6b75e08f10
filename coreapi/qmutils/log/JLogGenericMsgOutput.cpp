#include "coreapi/qmutils/log/JLogGenericMsgOutput.h"

#include <utility>

#include "coreapi/qmutils/log/recordbuffer.h"
#include "coreapi/qmutils/socket/jiosocket.h"

JLogGenericMsgOutput::JLogGenericMsgOutput(std::string sName, std::string sThreadName, int iBufferSize,
                                           std::uint32_t uQueueCapacity, int iPriority)
    : JLogThreadedOutput(std::move(sName), std::move(sThreadName), uQueueCapacity, iPriority),
      m_uLimit(static_cast<std::size_t>(iBufferSize)),
      m_pBuffer(qm_utils::makeRecordBuffer("JLogGenericMsgOutput", getName(), iBufferSize)) {}

JLogGenericMsgOutput::~JLogGenericMsgOutput() = default;

void JLogGenericMsgOutput::setSocket(std::unique_ptr<JOSocket> pSocket) noexcept {
  m_pSocket = std::move(pSocket);
}

bool JLogGenericMsgOutput::writeRecord(const JLog::Msg& record) {
  if (m_pSocket) {
    const std::size_t uSize = record.serialise(m_pBuffer.get(), m_uLimit);
    m_pSocket->write(m_pBuffer.get(), uSize);
  }
  return true;
}
