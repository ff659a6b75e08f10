#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <string>

#include "coreapi/qmutils/thread/jthread.h"
#include "coreapi/qmutils/thread/jwaitable.h"

namespace qm_utils {

/// Work in turns on a thread of its own: `onThreadStart`, then `onThreadLoop` again and again, then
/// `onThreadStop`. A JError from any of them is logged and ends the thread there and then.
///
/// As a waitable object it stands for its thread: signalled when the thread has ended, and without a handle
/// while there is none. `start` and `stop` belong to the owner, who has called `stop` before the object is
/// destroyed; a derived class does so in its own destructor.
class Runnable : public JWaitableObject {
 public:
  /// The name is that of the thread. With delete-on-exit the object of the thread, not this one, goes away
  /// with the thread's end instead of with `stop`.
  explicit Runnable(std::string sName, bool bDeleteOnExit = false);
  ~Runnable() override;

  bool wait(std::int32_t iTimeoutMs) override;
  void wait() override;
  Handle getHandle() const override;

  /// Starts the thread. While it is started, though its loop may have ended, another start fails an
  /// assertion and starts nothing. Throws as `JThread::start`, and then isn't started.
  void start(int iPriority = 0);

  /// Asks the loop to end, which it does when `onThreadLoop` returns, and waits for the end of the thread.
  /// Without a start it does nothing.
  void stop();

 protected:
  virtual void onThreadStart() {}

  /// One turn. True asks for another.
  virtual bool onThreadLoop() = 0;
  virtual void onThreadStop() {}

 private:
  class RunThread;

  void loop();
  std::shared_ptr<qm_platform::Waitable> pin() const;

  const std::string m_sName;
  const bool m_bDeleteOnExit;
  std::atomic<int> m_iThExit{1};   ///< 1: not running, or asked to end
  mutable std::mutex m_mutex;      ///< over the pointer below
  RunThread* m_pThread = nullptr;  ///< owned, unless it deletes itself; then its destructor clears this
};

}  // namespace qm_utils
