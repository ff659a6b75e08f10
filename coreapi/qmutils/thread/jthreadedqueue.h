#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <utility>

#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/thread/jmutex.h"
#include "coreapi/qmutils/thread/jthread.h"
#include "coreapi/qmutils/thread/jwaitable.h"

/// A bounded first-in first-out queue of messages with a thread that handles them one by one.
///
/// `post` may be called from any thread, `process` included. `start` and `stop` belong to the owner; a queue
/// is never stopped from inside `process`, which would wait for itself. A derived class stops the queue in
/// its own destructor, because `process` is gone after that.
///
/// The mutex is held in `post`, while a message is taken out, and over the rest that is handled after the
/// loop; not over `process` in the loop.
template <class T>
class JThreadedQueue : public JThread {
 public:
  explicit JThreadedQueue(std::string sName = {}) : JThread(std::move(sName)) {}

  ~JThreadedQueue() override {
    try {
      stop(false);
    } catch (JError* pError) {
      const qm_err::CaughtError error(pError);
      JCATCH_LOG(error.get());
    }
  }

  /// Starts the thread, with room for so many messages; does nothing when started already. Throws JSysError
  /// "CreateSemaphore" for a room below 1, and as `JThread::start`; then it isn't started.
  void start(int iPriority, std::int32_t iMaxMessages) {
    const JAutoLock lock(m_queueMutex);
    if (m_pSemaphore) {
      return;
    }
    m_pSemaphore = std::make_unique<JSemaphore>(0, iMaxMessages);
    m_bProcessRest = false;
    try {
      JThread::start(iPriority);
    } catch (...) {
      m_pSemaphore.reset();
      throw;
    }
  }

  /// Ends the thread and waits for that. A message in `process` is finished; those still queued are then
  /// handled too with `bProcessRest`, else dropped. Does nothing when not started.
  void stop(bool bProcessRest) {
    if (!isStarted()) {
      return;
    }
    m_bProcessRest = bProcessRest;
    m_stop.set();
    JThread::stop();
    m_stop.reset();
    const JAutoLock lock(m_queueMutex);
    m_pSemaphore.reset();
    m_messages.clear();  // what an error that ended the thread has left
  }

  /// Queues a message. A full queue throws JSysError "ReleaseSemaphore" and stays as it was. A queue that
  /// isn't started drops the message.
  void post(T message) {
    const JAutoLock lock(m_queueMutex);
    if (!m_pSemaphore) {
      return;
    }
    m_messages.push_back(std::move(message));
    try {
      m_pSemaphore->release(1);
    } catch (...) {
      m_messages.pop_back();
      throw;
    }
  }

 protected:
  void run() override {
    const JWaitForMultipleObjects waiter(m_stop, m_timer, *m_pSemaphore);
    for (std::size_t index = waiter.wait(); index != 0; index = waiter.wait()) {
      if (index == 2) {
        handleOne();
      }
    }
    const JAutoLock lock(m_queueMutex);
    while (!m_messages.empty()) {
      T message = takeOldest();
      if (m_bProcessRest) {
        process(std::move(message));
      }
    }
  }

  /// Handles one message, on the queue's thread.
  virtual void process(T message) = 0;

  JWaitableTimer m_timer{false};  ///< wakes the loop, and nothing else

 private:
  bool isStarted() const {
    const JAutoLock lock(m_queueMutex);
    return m_pSemaphore != nullptr;
  }

  /// The mutex is held, and there is one.
  T takeOldest() {
    T message = std::move(m_messages.front());
    m_messages.pop_front();
    return message;
  }

  void handleOne() {
    process([this] {
      const JAutoLock lock(m_queueMutex);
      return takeOldest();
    }());
  }

  std::unique_ptr<JSemaphore> m_pSemaphore;  ///< null while stopped
  std::atomic<bool> m_bProcessRest{false};
  JFlag m_stop{false};
  std::deque<T> m_messages;
  mutable JMutex m_queueMutex;  ///< over the semaphore's life and the messages
};
