#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "coreapi/qmutils/thread/jwaitable.h"

namespace qm_platform {
class OsThread;
}

/// A thread: derive, write `run`, call `start`. As a waitable object it is signalled when the thread has
/// ended.
///
/// Owner's duty: without delete-on-exit the object must outlive its thread, and its owner calls `stop` before
/// destroying it; a derived class does so in its own destructor, because `run` is gone after that. The
/// destructor doesn't stop the thread. With delete-on-exit the object is on the heap, deletes itself as its
/// last act, and is out of bounds for everybody else as soon as `start` is called; what waits on it already
/// is let through when it is gone.
///
/// An error that leaves `run` is logged and ends the thread as a return would.
///
/// Threads: `start`, `stop` and `isFinished` belong to the owner; everything else may be called from any
/// thread.
class JThread : public JWaitableObjectImpl {
 public:
  /// Where a thread stands. It runs through 0, 3, 5, (4 and 5 by suspension), 2, 1. Never renumber.
  enum State : int {
    kNotStarted = 0,
    kEnded = 1,      ///< gone, and its handle closed
    kFinishing = 2,  ///< `run` is left
    kCreated = 3,    ///< made, not yet in `run`
    kSuspended = 4,
    kRunning = 5,
  };

  /// What `start` does with the thread that it has made.
  enum class StartOption {
    kRunAtOnce,
    kLeaveSuspended,  ///< stays in state 3 until `resume`
  };

  /// One thread of the list. The handle and the object are good only as long as the owner of the thread
  /// leaves it alone.
  struct Info {
    std::uint32_t uThreadId;
    Handle handle;
    std::string sName;
    JThread* pThread;
    bool bDeleteOnExit;
  };

  /// The system shows the first 15 bytes of the name.
  explicit JThread(std::string sName = {});
  ~JThread() override;

  bool wait(std::int32_t iTimeoutMs) override;
  void wait() override;
  Handle getHandle() const override;

  /// The body, on the new thread.
  virtual void run() {}

  /// Starts `run` on a new thread. A thread that runs already fails an assertion and nothing happens. Throws
  /// JSysError "CreateThread" (EAGAIN when the system has no thread left), "ResumeThread" or
  /// "SetThreadPriority"; then no thread runs and the state is as it was.
  void start(int iPriority = 0, StartOption option = StartOption::kRunAtOnce);
  void start(int iPriority, bool bDeleteOnExit, StartOption option = StartOption::kRunAtOnce);

  /// Runs a plain function on a thread that belongs to nobody. Throws as above.
  static void start(void (*pFunction)(void*), void* pArgument, int iPriority = 0);

  /// Blocks until a started thread has ended, takes it out of the list and closes the handle. Nothing to do
  /// is no error. A suspended thread doesn't end before it is resumed. A thread that stops itself gets
  /// JSysError "WaitForSingleObject" with EDEADLK.
  void stop();

  /// Whether no thread runs (any more). A thread that has ended is cleared up as `stop` does it.
  bool isFinished();

  /// Lets the thread hold when it next enters a wait of this library; until then, and inside a wait that it
  /// is in, it goes on. More than one suspension counts as one. A thread that isn't running gets JSysError
  /// "SuspendThread" with ESRCH.
  void suspend();

  /// Ends a suspension, or lets a thread go that was left suspended at its start. Without one nothing
  /// happens. A thread that isn't running gets JSysError "ResumeThread" with ESRCH.
  void resume();

  /// Priorities from -15 (when nothing else runs) over 0 (normal) to 15. The system's nice value follows:
  /// lower priorities always; higher ones, and the way back up, only where the process has the right. A
  /// refusal for want of that right is no error: the number is kept and the thread goes on as it was. On a
  /// thread that isn't running: JSysError "SetThreadPriority" with ESRCH.
  void setPriority(int iPriority);

  /// The number last set on the running thread; 0 at first and without a thread.
  int getPriority() const;

  /// Lets the thread run only on the processors of the mask, bit 0 the first. Throws JSysError
  /// "SetThreadAffinityMask(0x%x)", with the mask, when the system refuses (EINVAL: it has none of them).
  void setAffinity(std::uint32_t uMask);

  /// The same three for the calling thread, whoever started it.
  static void setCurrentPriority(int iPriority);
  static int getCurrentPriority();
  static void setCurrentAffinity(std::uint32_t uMask);

  std::string getName() const;
  void setName(const std::string& sName);

  /// The system's number of the thread, set when it is created; 0 before.
  std::uint32_t getThreadId() const;
  State getState() const;

  /// The system's number of the calling thread.
  static std::uint32_t getCurrentThreadId();

  /// The calling thread's object; null on a thread that isn't a JThread's, and while a thread ends.
  static JThread* getCurrentThread();

  /// Ends the calling thread: its stack is unwound, with all destructors, up to the entry of the thread,
  /// which ends it in order. It travels as an exception of a type of its own, so a `catch (...)` on the way
  /// must throw it on. A thread that isn't a JThread's gets JTextError instead.
  [[noreturn]] static void exitThread();

  /// A snapshot of all threads that have started and weren't cleared up yet.
  static std::vector<Info> getThreadList();

 protected:
  /// The handle, kept alive; null when there is none.
  std::shared_ptr<qm_platform::Waitable> pinHandle() const;

 private:
  class List;

  void body();
  void enter();
  void finish();
  int adopt(const std::shared_ptr<qm_platform::OsThread>& pThread, bool bDeleteOnExit);
  void clearUp();
  std::shared_ptr<qm_platform::OsThread> pinThread() const;

  mutable std::mutex m_mutex;  ///< over the handle and the fields below; innermost but for the platform's own
  std::string m_sName;
  std::shared_ptr<qm_platform::OsThread> m_pThread;  ///< null until started and when cleared up
  std::uint32_t m_uThreadId = 0;
  bool m_bDeleteOnExit = false;
  std::atomic<int> m_iState{kNotStarted};
};
