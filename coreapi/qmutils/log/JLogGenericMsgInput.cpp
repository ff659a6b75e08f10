#include "coreapi/qmutils/log/JLogGenericMsgInput.h"

#include <utility>

#include "coreapi/platform/socketerror.h"
#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/log/recordbuffer.h"
#include "coreapi/qmutils/socket/jiosocket.h"

JLogGenericMsgInput::JLogGenericMsgInput(std::string sName, std::string sThreadName, int iBufferSize)
    : JLogThreadedInput(std::move(sName), std::move(sThreadName)),
      m_uCapacity(static_cast<std::size_t>(iBufferSize) + 1),
      m_pBuffer(qm_utils::makeRecordBuffer("JLogGenericMsgInput", getName(), iBufferSize)) {}

JLogGenericMsgInput::~JLogGenericMsgInput() = default;

void JLogGenericMsgInput::setSocket(std::unique_ptr<JISocket> pSocket) noexcept {
  m_pSocket = std::move(pSocket);
}

int JLogGenericMsgInput::readRecord(JLog::Msg& record) {
  if (!m_pSocket) {
    return -1;
  }
  try {
    const std::size_t uSize = m_pSocket->read(m_pBuffer.get(), m_uCapacity);
    return JLog::Msg::deserialise(m_pBuffer.get(), uSize, record) ? 1 : 0;
  } catch (JTimeoutError* pError) {
    const qm_err::CaughtError error(pError);
    return 0;
  } catch (JSysError* pError) {
    // Nobody who sends too much may hold up the others by the delay behind a failure.
    qm_err::CaughtError error(pError);
    if (pError->getCode() != (JSysError::kSocketClass | qm_platform::kSocketMessageSize)) {
      error.rethrow();
    }
    return 0;
  }
}
