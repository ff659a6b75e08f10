#include "coreapi/platform/osthread.h"

#include <algorithm>
#include <cerrno>
#include <new>
#include <pthread.h>
#include <sched.h>
#include <sys/resource.h>
#include <system_error>
#include <utility>

#include "coreapi/platform/faultseam.h"
#include "coreapi/platform/process.h"
#include "coreapi/platform/waitable.h"

namespace qm_platform {

namespace {

constexpr std::size_t kNameLimit = 15;
constexpr int kNiceStep = 5;
constexpr int kHighestNice = -20;
constexpr int kLowestNice = 19;

thread_local OsThread* t_pCurrent = nullptr;

/// What a thread that isn't one of ours has set for itself.
struct ForeignPriority {
  int iBirthNice = getpriority(PRIO_PROCESS, threadId());
  int iPriority = 0;
};
thread_local ForeignPriority t_foreign;

/// The system keeps a nice value for each thread, though its call speaks of processes.
int applyPriority(std::uint32_t uThreadId, int iBirthNice, int iPriority) noexcept {
  if (const int iFault = takeFault(Seam::kThread).error; iFault != 0) {
    return iFault;
  }
  const int iSteps = std::clamp(iPriority, -15, 15);
  const int iNice = std::clamp(iBirthNice - iSteps * kNiceStep, kHighestNice, kLowestNice);
  if (setpriority(PRIO_PROCESS, uThreadId, iNice) == 0 || errno == EACCES || errno == EPERM) {
    return 0;
  }
  return errno;
}

int applyAffinity(std::uint32_t uThreadId, std::uint32_t uMask) noexcept {
  if (const int iFault = takeFault(Seam::kThread).error; iFault != 0) {
    return iFault;
  }
  cpu_set_t processors;
  CPU_ZERO(&processors);
  for (unsigned bit = 0; bit < 32; ++bit) {
    if ((uMask >> bit & 1) != 0) {
      CPU_SET(bit, &processors);
    }
  }
  return sched_setaffinity(static_cast<pid_t>(uThreadId), sizeof processors, &processors) == 0 ? 0 : errno;
}

void applyName(pthread_t thread, const std::string& sName) noexcept {
  std::size_t length = std::min(sName.size(), kNameLimit);
  while (length < sName.size() && length > 0 && (static_cast<unsigned char>(sName[length]) & 0xC0) == 0x80) {
    --length;
  }
  char szName[kNameLimit + 1] = {};
  sName.copy(szName, length);
  pthread_setname_np(thread, szName);
}

}  // namespace

std::shared_ptr<OsThread> OsThread::create(const std::string& sName, std::function<void()> body,
                                           int& iError) noexcept {
  if (const int iFault = takeFault(Seam::kThread).error; iFault != 0) {
    iError = iFault;
    return nullptr;
  }
  try {
    std::shared_ptr<OsThread> pThread(new OsThread);
    pThread->m_pEnded = std::make_shared<Event>(true, false);
    pThread->m_thread = std::thread(
        [pThread, sName, body = std::move(body)]() mutable { pThread->enter(sName, std::move(body)); });
    std::unique_lock lock(pThread->m_mutex);
    pThread->m_changed.wait(lock, [&] { return pThread->m_uId != 0; });
    return pThread;
  } catch (const std::bad_alloc&) {
    iError = ENOMEM;
  } catch (const std::system_error& error) {
    iError = error.code().value();
  }
  return nullptr;
}

/// Without `join` the system clears up by itself. The thread that drops the last share may be the one meant.
OsThread::~OsThread() {
  if (m_thread.joinable()) {
    m_thread.detach();
  }
}

void OsThread::enter(const std::string& sName, std::function<void()> body) {
  t_pCurrent = this;
  applyName(pthread_self(), sName);
  {
    const std::lock_guard lock(m_mutex);
    m_uId = threadId();
    m_iBirthNice = getpriority(PRIO_PROCESS, m_uId);
    m_bLive = true;
  }
  m_changed.notify_all();
  hold();
  if (!m_bAbandoned) {
    body();
  }
  body = nullptr;
  {
    const std::lock_guard lock(m_mutex);
    m_bLive = false;
  }
  t_pCurrent = nullptr;
  m_pEnded->set();
}

void OsThread::hold() {
  std::unique_lock lock(m_mutex);
  m_changed.wait(lock, [this] { return !m_bSuspended.load(std::memory_order_relaxed); });
}

bool OsThread::hasEnded() const noexcept {
  return waitForOne(m_pEnded.get(), 0).result == WaitResult::kSignalled;
}

int OsThread::suspend() noexcept {
  if (const int iFault = takeFault(Seam::kThread).error; iFault != 0) {
    return iFault;
  }
  const std::lock_guard lock(m_mutex);
  if (!m_bLive) {
    return ESRCH;
  }
  m_bSuspended.store(true, std::memory_order_release);
  return 0;
}

int OsThread::resume() noexcept {
  if (const int iFault = takeFault(Seam::kThread).error; iFault != 0) {
    return iFault;
  }
  const std::lock_guard lock(m_mutex);
  if (!m_bLive) {
    return ESRCH;
  }
  m_bSuspended.store(false, std::memory_order_release);
  m_changed.notify_all();
  return 0;
}

void OsThread::abandon() noexcept {
  const std::lock_guard lock(m_mutex);
  m_bAbandoned = true;
  m_bSuspended.store(false, std::memory_order_release);
  m_changed.notify_all();
}

void OsThread::join() {
  m_thread.join();
}

int OsThread::setPriority(int iPriority) noexcept {
  const std::lock_guard lock(m_mutex);
  if (!m_bLive) {
    return ESRCH;
  }
  const int iError = applyPriority(m_uId, m_iBirthNice, iPriority);
  if (iError == 0) {
    m_iPriority = iPriority;
  }
  return iError;
}

int OsThread::getPriority() const noexcept {
  const std::lock_guard lock(m_mutex);
  return m_iPriority;
}

int OsThread::setAffinity(std::uint32_t uMask) noexcept {
  const std::lock_guard lock(m_mutex);
  return m_bLive ? applyAffinity(m_uId, uMask) : ESRCH;
}

void OsThread::setName(const std::string& sName) noexcept {
  const std::lock_guard lock(m_mutex);
  if (m_bLive) {
    applyName(m_thread.native_handle(), sName);
  }
}

bool OsThread::isCalling() const noexcept {
  return t_pCurrent == this;
}

int OsThread::setCurrentPriority(int iPriority) noexcept {
  if (t_pCurrent != nullptr) {
    return t_pCurrent->setPriority(iPriority);
  }
  const int iError = applyPriority(threadId(), t_foreign.iBirthNice, iPriority);
  if (iError == 0) {
    t_foreign.iPriority = iPriority;
  }
  return iError;
}

int OsThread::getCurrentPriority() noexcept {
  return t_pCurrent != nullptr ? t_pCurrent->getPriority() : t_foreign.iPriority;
}

int OsThread::setCurrentAffinity(std::uint32_t uMask) noexcept {
  return applyAffinity(threadId(), uMask);
}

void OsThread::holdIfSuspended() noexcept {
  if (t_pCurrent != nullptr && t_pCurrent->m_bSuspended.load(std::memory_order_acquire)) {
    t_pCurrent->hold();
  }
}

}  // namespace qm_platform
