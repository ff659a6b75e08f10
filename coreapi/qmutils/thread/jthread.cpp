#include "coreapi/qmutils/thread/jthread.h"

#include <algorithm>
#include <cerrno>
#include <exception>
#include <utility>

#include "coreapi/platform/osthread.h"
#include "coreapi/platform/process.h"
#include "coreapi/platform/waitable.h"
#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/error/jlasterror.h"
#include "coreapi/qmutils/text/jtext.h"
#include "coreapi/qmutils/thread/jmutex.h"

namespace {

/// What `exitThread` throws, and only the entry of a thread catches by name.
class ThreadExit {};

thread_local JThread* t_pCurrent = nullptr;

[[noreturn]] void throwSystem(int iError, const char* szFunction) {
  QM_THROW(JSysError, static_cast<std::uint32_t>(iError), szFunction);
}

void throwUnlessDone(int iError, const char* szFunction) {
  if (iError != 0) {
    throwSystem(iError, szFunction);
  }
}

void throwUnlessBound(int iError, std::uint32_t uMask) {
  throwUnlessDone(iError, qm_utils::format("SetThreadAffinityMask(0x%x)", uMask).c_str());
}

/// A thread with no object of its user's.
class FunctionThread : public JThread {
 public:
  FunctionThread(void (*pFunction)(void*), void* pArgument)
      : m_pFunction(pFunction), m_pArgument(pArgument) {}

  void run() override { m_pFunction(m_pArgument); }

 private:
  void (*const m_pFunction)(void*);
  void* const m_pArgument;
};

}  // namespace

/// All threads that have started and weren't cleared up. Never destroyed: threads end until the very end of
/// the process. Lock order: its mutex, held only for an operation on the list, before that of a thread.
class JThread::List {
 public:
  static List& instance() {
    static List& list = *new List;
    return list;
  }

  void add(JThread* pThread) {
    const JAutoLock lock(m_mutex);
    m_threads.push_back(pThread);
  }

  void remove(JThread* pThread) {
    const JAutoLock lock(m_mutex);
    std::erase(m_threads, pThread);
  }

  std::vector<Info> snapshot() {
    const JAutoLock lock(m_mutex);
    std::vector<Info> infos;
    infos.reserve(m_threads.size());
    for (JThread* pThread : m_threads) {
      const std::lock_guard threadLock(pThread->m_mutex);
      infos.push_back({pThread->m_uThreadId, pThread->m_pHandle.get(), pThread->m_sName, pThread,
                       pThread->m_bDeleteOnExit});
    }
    return infos;
  }

 private:
  JMutex m_mutex;
  std::vector<JThread*> m_threads;
};

JThread::JThread(std::string sName) : m_sName(std::move(sName)) {}

/// A thread that has ended but wasn't stopped is cleared up here. One that still runs is its owner's fault,
/// and can only be told.
JThread::~JThread() {
  const std::shared_ptr<qm_platform::OsThread> pThread = pinThread();
  if (pThread && !pThread->isCalling()) {
    const bool bEnded = pThread->hasEnded();
    JASSERT(bEnded);
    if (bEnded) {
      clearUp();
    }
  }
  List::instance().remove(this);
}

bool JThread::wait(std::int32_t iTimeoutMs) {
  return waitOn(pinHandle().get(), iTimeoutMs);
}

void JThread::wait() {
  waitOn(pinHandle().get());
}

JWaitableObject::Handle JThread::getHandle() const {
  return pinHandle().get();
}

std::shared_ptr<qm_platform::Waitable> JThread::pinHandle() const {
  const std::lock_guard lock(m_mutex);
  return m_pHandle;
}

std::shared_ptr<qm_platform::OsThread> JThread::pinThread() const {
  const std::lock_guard lock(m_mutex);
  return m_pThread;
}

void JThread::start(int iPriority, StartOption option) {
  start(iPriority, false, option);
}

void JThread::start(int iPriority, bool bDeleteOnExit, StartOption option) {
  const bool bStopped = isFinished();
  JASSERT(bStopped);
  if (!bStopped) {
    return;
  }
  int iError = 0;
  const std::string sName = getName();
  const auto pThread = qm_platform::OsThread::create(
      sName, [this] { body(); }, iError);
  if (!pThread) {
    throwSystem(iError, "CreateThread");
  }
  // The thread is suspended. Once it is resumed, nothing here looks at this object any more: with
  // delete-on-exit it may be gone. That is why the priority is set before, too.
  const std::uint32_t uIdBefore = m_uThreadId;
  const int iStateBefore = adopt(pThread, bDeleteOnExit);
  const char* szFailed = nullptr;
  if (iPriority != 0 && (iError = pThread->setPriority(iPriority)) != 0) {
    szFailed = "SetThreadPriority";
  } else if (option == StartOption::kRunAtOnce && (iError = pThread->resume()) != 0) {
    szFailed = "ResumeThread";
  }
  if (szFailed != nullptr) {
    pThread->abandon();
    clearUp();
    m_uThreadId = uIdBefore;
    m_iState = iStateBefore;
    throwSystem(iError, szFailed);
  }

  const auto uHandle = static_cast<unsigned>(reinterpret_cast<std::uintptr_t>(pThread->ended().get()));
  if (sName.empty()) {
    qm_err::log(qm_err::kLogDebug, "The thread 0x%x has started with handle %d (0x%x).\r\n", pThread->id(),
                static_cast<int>(uHandle), uHandle);
  } else {
    qm_err::log(qm_err::kLogDebug, "The thread 0x%x ('%s') has started with handle %d (0x%x).\r\n",
                pThread->id(), sName.c_str(), static_cast<int>(uHandle), uHandle);
  }
}

void JThread::start(void (*pFunction)(void*), void* pArgument, int iPriority) {
  auto pThread = std::make_unique<FunctionThread>(pFunction, pArgument);
  pThread->start(iPriority, true);
  static_cast<void>(pThread.release());  // the thread's own from here on
}

/// Takes a thread that was just created. Returns the state before.
int JThread::adopt(const std::shared_ptr<qm_platform::OsThread>& pThread, bool bDeleteOnExit) {
  const std::lock_guard lock(m_mutex);
  m_pThread = pThread;
  m_pHandle = pThread->ended();
  m_uThreadId = pThread->id();
  m_bDeleteOnExit = bDeleteOnExit;
  return m_iState.exchange(kCreated);
}

void JThread::stop() {
  const std::shared_ptr<qm_platform::OsThread> pThread = pinThread();
  if (!pThread) {
    return;
  }
  if (pThread->isCalling()) {
    throwSystem(EDEADLK, "WaitForSingleObject");
  }
  const bool bDeleteOnExit = m_bDeleteOnExit;
  waitOn(pThread->ended().get());
  if (!bDeleteOnExit) {
    clearUp();
  }
}

bool JThread::isFinished() {
  const std::shared_ptr<qm_platform::OsThread> pThread = pinThread();
  if (pThread && !pThread->hasEnded()) {
    return false;
  }
  if (pThread) {
    clearUp();
  }
  return true;
}

/// Lets go of a thread that has ended, or is about to without touching this object.
void JThread::clearUp() {
  List::instance().remove(this);
  std::shared_ptr<qm_platform::OsThread> pThread;
  {
    const std::lock_guard lock(m_mutex);
    pThread.swap(m_pThread);
    m_pHandle.reset();
    m_iState = kEnded;
  }
  if (pThread) {
    pThread->join();
  }
}

void JThread::suspend() {
  const std::lock_guard lock(m_mutex);
  const int iState = m_iState;
  if (iState == kSuspended) {
    return;
  }
  int iBefore = iState == kCreated ? kCreated : kRunning;
  if (!m_iState.compare_exchange_strong(iBefore, kSuspended)) {
    throwSystem(ESRCH, "SuspendThread");
  }
  if (const int iError = m_pThread->suspend(); iError != 0) {
    int iSuspended = kSuspended;
    m_iState.compare_exchange_strong(iSuspended, iBefore);
    throwSystem(iError, "SuspendThread");
  }
}

void JThread::resume() {
  const std::lock_guard lock(m_mutex);
  if (!m_pThread) {
    throwSystem(ESRCH, "ResumeThread");
  }
  throwUnlessDone(m_pThread->resume(), "ResumeThread");
  int iSuspended = kSuspended;
  m_iState.compare_exchange_strong(iSuspended, kRunning);
}

void JThread::setPriority(int iPriority) {
  const std::shared_ptr<qm_platform::OsThread> pThread = pinThread();
  throwUnlessDone(pThread ? pThread->setPriority(iPriority) : ESRCH, "SetThreadPriority");
}

int JThread::getPriority() const {
  const std::shared_ptr<qm_platform::OsThread> pThread = pinThread();
  return pThread ? pThread->getPriority() : 0;
}

void JThread::setAffinity(std::uint32_t uMask) {
  const std::shared_ptr<qm_platform::OsThread> pThread = pinThread();
  throwUnlessBound(pThread ? pThread->setAffinity(uMask) : ESRCH, uMask);
}

void JThread::setCurrentPriority(int iPriority) {
  throwUnlessDone(qm_platform::OsThread::setCurrentPriority(iPriority), "SetThreadPriority");
}

int JThread::getCurrentPriority() {
  return qm_platform::OsThread::getCurrentPriority();
}

void JThread::setCurrentAffinity(std::uint32_t uMask) {
  throwUnlessBound(qm_platform::OsThread::setCurrentAffinity(uMask), uMask);
}

std::string JThread::getName() const {
  const std::lock_guard lock(m_mutex);
  return m_sName;
}

void JThread::setName(const std::string& sName) {
  const std::lock_guard lock(m_mutex);
  m_sName = sName;
  if (m_pThread) {
    m_pThread->setName(sName);
  }
}

std::uint32_t JThread::getThreadId() const {
  const std::lock_guard lock(m_mutex);
  return m_uThreadId;
}

JThread::State JThread::getState() const {
  return static_cast<State>(m_iState.load());
}

std::uint32_t JThread::getCurrentThreadId() {
  return qm_platform::threadId();
}

JThread* JThread::getCurrentThread() {
  return t_pCurrent;
}

void JThread::exitThread() {
  if (t_pCurrent == nullptr) {
    QM_THROW(JTextError, "exitThread is not allowed on a thread that JThread hasn't started");
  }
  throw ThreadExit();
}

std::vector<JThread::Info> JThread::getThreadList() {
  return List::instance().snapshot();
}

// The thread's own side.
//
// The standard library's pseudo-random generator isn't seeded here: on this platform it has one state for the
// whole process, which is the host's, and nothing in the system draws from it.

void JThread::body() {
  const auto tellUncaught = [this](const char* szWhat) {
    qm_err::log(qm_err::kLogError, "The thread 0x%x ('%s') terminated due to uncaught error : %s\n",
                getCurrentThreadId(), getName().c_str(), szWhat);
  };
  try {
    enter();
    run();
    qm_err::log(qm_err::kLogDebug, "The thread 0x%x ('%s') terminated normally.", getCurrentThreadId(),
                getName().c_str());
  } catch (const ThreadExit&) {
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    char szText[1024];
    error->getMessage(szText, sizeof szText);
    tellUncaught(szText);
  } catch (const char* szError) {
    qm_err::log(qm_err::kLogError,
                "The thread 0x%x ('%s') terminated due to uncaught string exception : %s\n",
                getCurrentThreadId(), getName().c_str(), szError != nullptr ? szError : "");
  } catch (const std::exception& error) {
    tellUncaught(error.what());
  } catch (...) {
    tellUncaught("unknown exception");
  }
  finish();
}

void JThread::enter() {
  List::instance().add(this);
  t_pCurrent = this;
  qm_err::attachThread();
  int iCreated = kCreated;  // a suspension may have come already
  m_iState.compare_exchange_strong(iCreated, kRunning);
}

void JThread::finish() {
  m_iState = kFinishing;
  qm_err::detachThread();
  t_pCurrent = nullptr;
  if (m_bDeleteOnExit) {
    m_iState = kEnded;
    List::instance().remove(this);
    delete this;
  }
}
