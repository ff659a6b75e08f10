#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "coreapi/qmutils/time/jtime.h"

namespace qm_platform {
class Event;
class Semaphore;
class Timer;
class Waitable;
}  // namespace qm_platform

/// Whatever a thread can wait on. Any thread may wait, and any number at once.
///
/// A wait isn't disturbed by signals of the system, and measures time by a clock that can't be set. A thread
/// whose suspension was asked for holds at the entrance of its next wait until it is resumed. Time-outs are
/// signed 32-bit milliseconds; a negative one, such as -1, means for ever.
class JWaitableObject {
 public:
  /// The native handle: the platform's object, which several-object waits take; null when there is none.
  using Handle = qm_platform::Waitable*;

  virtual ~JWaitableObject() = default;

  /// Waits for the object's signal, and takes it where taking clears it. False on time-out; with 0 that comes
  /// at once. Throws JSysError "WaitForSingleObject" (EINVAL when there is no handle).
  virtual bool wait(std::int32_t iTimeoutMs) = 0;

  /// As above, with no time limit. Throws JTimeoutError should the platform report a time-out all the same.
  virtual void wait() = 0;

  /// The native handle. It stays the object's own; a JWaitForMultipleObjects made from the object keeps what
  /// the handle points to alive.
  virtual Handle getHandle() const = 0;

 protected:
  JWaitableObject() = default;
  JWaitableObject(const JWaitableObject&) = delete;
  JWaitableObject& operator=(const JWaitableObject&) = delete;

  /// The two waits on a handle.
  static bool waitOn(Handle handle, std::int32_t iTimeoutMs);
  static void waitOn(Handle handle);
};

/// A waitable object with a native handle of its own, none at first, which is closed with the object.
class JWaitableObjectImpl : public JWaitableObject {
 public:
  bool wait(std::int32_t iTimeoutMs) override;
  void wait() override;
  Handle getHandle() const override;

 protected:
  JWaitableObjectImpl() = default;
  explicit JWaitableObjectImpl(std::shared_ptr<qm_platform::Waitable> pHandle);
  ~JWaitableObjectImpl() override;

  std::shared_ptr<qm_platform::Waitable> m_pHandle;
};

/// An event. With auto reset it lets exactly one waiter through and clears itself; with manual reset it stays
/// set, and lets all through, until it is reset.
class JFlag : public JWaitableObjectImpl {
 public:
  /// The name is a label for whoever looks at the flag; flags of one name have nothing in common. Throws
  /// JSysError "CreateEvent".
  explicit JFlag(bool bManualReset, bool bInitialState = false, std::string sName = {});

  void set() noexcept;
  void reset() noexcept;
  const std::string& getName() const noexcept { return m_sName; }

 private:
  qm_platform::Event& event() const noexcept;

  const std::string m_sName;
};

/// A counting semaphore. A wait that succeeds takes one unit.
class JSemaphore : public JWaitableObjectImpl {
 public:
  /// Throws JSysError "CreateSemaphore" with EINVAL unless the maximum is at least 1 and the initial count
  /// between 0 and the maximum.
  JSemaphore(std::int32_t iInitialCount, std::int32_t iMaximumCount);

  /// Adds units and returns the count before. Throws JSysError "ReleaseSemaphore" and adds nothing when the
  /// maximum would be passed (EOVERFLOW) or the count is below 1 (EINVAL).
  std::int32_t release(std::int32_t iCount);
};

/// A timer: signalled when its due time has come, and again at each period when one is set. With auto reset
/// the wait that it lets through clears it; periods that nobody waited for give one signal in all. Periods
/// count from the due time, whenever the signal is taken.
///
/// `start`, the cancels and `setPeriod` belong to one thread, or to one lock; waits to any.
class JWaitableTimer : public JWaitableObjectImpl {
 public:
  /// Throws JSysError "CreateWaitableTimer".
  explicit JWaitableTimer(bool bManualReset = false);

  /// Clears the signal and lets the timer come due when `due`, an interval, has passed; then every period
  /// that was set before.
  void start(JTime due);

  /// The interval at which a started timer comes due again, kept in whole milliseconds (at most 2^31-1);
  /// below 1 ms it comes due once. Used by the next `start`.
  void setPeriod(JTime period);
  JTime getPeriod() const;

  /// Nothing comes due any more. A signal that is there stays.
  void cancel();

  /// As `cancel`, and takes a pending signal with a wait of 0, which leaves a manual-reset timer signalled.
  void cancelAndClear();

  /// Cancels, and lets the timer come due at once, one time. The period set stays for the next `start`.
  void cancelAndSignal();

 private:
  qm_platform::Timer& timer() const noexcept;

  std::int32_t m_iPeriodMs = 0;
};

/// Whatever carries a wait.
class JWaiter {
 public:
  virtual ~JWaiter() = default;

 protected:
  JWaiter() = default;
  JWaiter(const JWaiter&) = default;
  JWaiter& operator=(const JWaiter&) = default;
};

/// A wait on several objects: until any of them is signalled, or until all are at one moment.
///
/// The objects are looked up once, when this is made, and what their handles point to is kept alive from then
/// on: a thread that has ended and deleted itself meanwhile still ends the wait. One object of this class may
/// serve any number of waits, of several threads at once.
class JWaitForMultipleObjects : public JWaiter {
 public:
  JWaitForMultipleObjects(const JWaitableObject& first, const JWaitableObject& second, bool bWaitAll = false);
  JWaitForMultipleObjects(const JWaitableObject& first, const JWaitableObject& second,
                          const JWaitableObject& third, bool bWaitAll = false);
  JWaitForMultipleObjects(const JWaitableObject& first, const JWaitableObject& second,
                          const JWaitableObject& third, const JWaitableObject& fourth, bool bWaitAll = false);

  /// From an array or a vector of pointers, none of which may be null. An empty one throws JTextError "empty
  /// vector!".
  JWaitForMultipleObjects(std::size_t count, const JWaitableObject* const* ppObjects, bool bWaitAll = false);
  explicit JWaitForMultipleObjects(const std::vector<JWaitableObject*>& objects, bool bWaitAll = false);

  /// Waits with no time limit and returns the index of the object that ended the wait: of several that are
  /// signalled the lowest, whose signal alone is taken. A wait for all takes all signals at one moment and
  /// returns 0. Throws JSysError "WaitForMultipleObjects" (EINVAL when an object had no handle).
  std::size_t wait() const;

 private:
  void add(const JWaitableObject& object);

  std::vector<std::shared_ptr<qm_platform::Waitable>> m_handles;
  std::vector<qm_platform::Waitable*> m_pointers;  ///< the same, in the form that the platform takes
  bool m_bWaitAll;
};
