#include "coreapi/qmutils/thread/jthreadlocalstorage.h"

#include "coreapi/platform/process.h"
#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/thread/namedassert.h"

JThreadLocalStorage::JThreadLocalStorage() {
  if (qm_platform::takeThreadSlot(m_slot) != 0) {
    qm_err::logText(qm_err::kLogWarning, "Maximum TLS indexes reached!");
  }
}

JThreadLocalStorage::~JThreadLocalStorage() {
  qm_platform::freeThreadSlot(m_slot);
}

bool JThreadLocalStorage::isValid() const noexcept {
  return m_slot.ullUse != 0;
}

void* JThreadLocalStorage::getValue() const {
  void* pValue = nullptr;
  const int iError = qm_platform::getThreadSlot(m_slot, pValue);
  QM_ASSERT_AS(iError == 0, "ERROR_SUCCESS==error");
  if (iError != 0) {
    qm_err::log(qm_err::kLogError, "Cannot get TLS value for thread %x (%u)!", qm_platform::threadId(),
                static_cast<unsigned>(iError));
    QM_THROW(JTextError, "cannot get TLS value...");
  }
  return pValue;
}

void JThreadLocalStorage::setValue(void* pValue) {
  if (const int iError = qm_platform::setThreadSlot(m_slot, pValue); iError != 0) {
    QM_THROW(JSysError, static_cast<std::uint32_t>(iError), "TlsSetValue");
  }
}
