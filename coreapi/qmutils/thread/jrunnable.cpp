#include "coreapi/qmutils/thread/jrunnable.h"

#include <cerrno>
#include <utility>

#include "coreapi/platform/waitable.h"
#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/thread/namedassert.h"

namespace qm_utils {

/// The thread of a Runnable.
class Runnable::RunThread : public JThread {
 public:
  RunThread(Runnable& owner, const std::string& sName) : JThread(sName), m_owner(owner) {}

  ~RunThread() override {
    const std::lock_guard lock(m_owner.m_mutex);
    m_owner.m_pThread = nullptr;
  }

  void run() override { m_owner.loop(); }

  using JThread::pinHandle;

 private:
  Runnable& m_owner;
};

Runnable::Runnable(std::string sName, bool bDeleteOnExit)
    : m_sName(std::move(sName)), m_bDeleteOnExit(bDeleteOnExit) {}

Runnable::~Runnable() {
  const bool bStopped = m_iThExit == 1;
  QM_ASSERT_AS(bStopped, "m_iThExit==1");
  if (!bStopped) {
    try {
      stop();
    } catch (JError* pError) {
      const qm_err::CaughtError error(pError);
      JCATCH_LOG(error.get());
    }
  }
}

bool Runnable::wait(std::int32_t iTimeoutMs) {
  return waitOn(pin().get(), iTimeoutMs);
}

void Runnable::wait() {
  waitOn(pin().get());
}

JWaitableObject::Handle Runnable::getHandle() const {
  return pin().get();
}

std::shared_ptr<qm_platform::Waitable> Runnable::pin() const {
  const std::lock_guard lock(m_mutex);
  return m_pThread != nullptr ? m_pThread->pinHandle() : nullptr;
}

void Runnable::start(int iPriority) {
  int iStopped = 1;
  const bool bMayStart = m_iThExit.compare_exchange_strong(iStopped, 0);
  QM_ASSERT_AS(bMayStart, "m_iThExit==1");
  if (!bMayStart) {
    return;
  }
  try {
    auto pThread = std::make_unique<RunThread>(*this, m_sName);
    {
      const std::lock_guard lock(m_mutex);
      m_pThread = pThread.get();
    }
    pThread->start(iPriority, m_bDeleteOnExit);
    static_cast<void>(pThread.release());
  } catch (...) {
    m_iThExit = 1;
    throw;
  }
}

void Runnable::stop() {
  RunThread* pThread = nullptr;
  std::shared_ptr<qm_platform::Waitable> pEnded;
  {
    const std::lock_guard lock(m_mutex);
    if (m_pThread != nullptr) {
      pThread = m_pThread;
      pEnded = pThread->pinHandle();
    }
  }
  if (pThread != nullptr && pThread == JThread::getCurrentThread()) {
    QM_THROW(JSysError, EDEADLK, "WaitForSingleObject");
  }
  if (m_iThExit.exchange(1) != 0 || pThread == nullptr) {
    return;
  }
  try {
    if (m_bDeleteOnExit) {
      waitOn(pEnded.get());
    } else {
      pThread->stop();
      delete pThread;
    }
  } catch (...) {
    m_iThExit = 0;
    throw;
  }
}

void Runnable::loop() {
  try {
    onThreadStart();
    while (m_iThExit == 0 && onThreadLoop()) {
    }
    onThreadStop();
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    JCATCH_LOG(error.get());
    char szText[1024];
    error->getMessage(szText, sizeof szText);
    qm_err::log(qm_err::kLogError, "The thread 0x%x ('%s') has just quit on error: '%s'.",
                JThread::getCurrentThreadId(), JThread::getCurrentThread()->getName().c_str(), szText);
  }
}

}  // namespace qm_utils
