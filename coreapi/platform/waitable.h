#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <span>

/// Objects that threads wait on, alone or several at once: events, semaphores and timers. Portable C++: no
/// file descriptor, no helper thread, and no system call where nothing has to sleep or to be woken.
///
/// Each object keeps its state under its own mutex, beside a list of those that sleep on it. Whoever waits
/// takes the signal itself; a signaller only wakes. So an auto-reset signal lets exactly one waiter through,
/// and a waiter that was woken for nothing goes back to sleep.
///
/// Lock order: the objects' mutexes (in the order of their addresses when a wait for all holds several), then
/// the mutex of a sleeper.
namespace qm_platform {

class Sleeper;
class WakeList;
struct LazyNow;

using SteadyTime = std::chrono::steady_clock::time_point;

/// A sleeper's place in the list of one object.
struct WaiterNode {
  Sleeper* pSleeper = nullptr;
  WaiterNode* pPrevious = nullptr;
  WaiterNode* pNext = nullptr;
};

/// What all of them share: a count of units that waiters may take, the time at which one more comes due, and
/// the sleepers in the order in which they came. Any thread may use an object; it is owned by shared
/// pointers, so that a wait can keep alive what its owner lets go meanwhile.
class Waitable : public std::enable_shared_from_this<Waitable> {
 public:
  virtual ~Waitable() = default;
  Waitable(const Waitable&) = delete;
  Waitable& operator=(const Waitable&) = delete;

 protected:
  /// An object with so many units. Each wait takes one with `bConsumed`; else a unit that is there stays.
  Waitable(bool bConsumed, std::uint32_t uUnits) noexcept : m_uUnits(uUnits), m_bConsumed(bConsumed) {}

  /// The due time has come: turns it into a unit, and sets the next one. Called with the mutex held.
  virtual void elapse(SteadyTime /*now*/) noexcept {}

  /// Wakes as many sleepers as there are units, and those that need more than this object. The mutex is held;
  /// the list goes after it.
  void wakeForUnits(WakeList& wakes) noexcept;

  /// Wakes all sleepers, so that they look again for how long to sleep. Otherwise the same.
  void wakeAll(WakeList& wakes) noexcept;

  std::mutex m_mutex;
  // Both are written under the mutex. Atomic, so that a waiter sees without the lock that there is nothing.
  std::atomic<std::uint32_t> m_uUnits;
  std::atomic<bool> m_bArmed{false};  ///< `m_due` holds a time that is still to come
  SteadyTime m_due{};

 private:
  friend class WaitPass;

  /// Whether a look without the lock shows that nothing can be taken and nothing comes due. The due time is
  /// looked at first: who turns it into a unit writes the unit before that.
  bool isQuiet() const noexcept {
    return !m_bArmed.load(std::memory_order_acquire) && m_uUnits.load(std::memory_order_acquire) == 0;
  }
  bool isReady(LazyNow& now, SteadyTime& wakeAt) noexcept;
  void take() noexcept;
  bool tryTake(LazyNow& now, SteadyTime& wakeAt) noexcept;
  void enter(WaiterNode& node) noexcept;
  void leave(WaiterNode& node) noexcept;

  const bool m_bConsumed;
  WaiterNode* m_pFirst = nullptr;
  WaiterNode* m_pLast = nullptr;
};

/// Set and clear. A manual-reset event stays set until it is reset; an auto-reset event clears itself with
/// the one wait that it lets through.
class Event final : public Waitable {
 public:
  Event(bool bManualReset, bool bSet) noexcept : Waitable(!bManualReset, bSet ? 1 : 0) {}

  void set() noexcept;
  void reset() noexcept;
};

/// A count between 0 and a maximum; each wait takes one.
class Semaphore final : public Waitable {
 public:
  Semaphore(std::uint32_t uInitial, std::uint32_t uMaximum) noexcept
      : Waitable(true, uInitial), m_uMaximum(uMaximum) {}

  /// Adds `iCount` units and gives the count before. Returns 0, EINVAL for a count below 1, or EOVERFLOW when
  /// the maximum would be passed; then nothing has changed.
  int release(std::int32_t iCount, std::int32_t& iPrevious) noexcept;

 private:
  const std::uint32_t m_uMaximum;
};

/// Becomes signalled when its time has come, and again at each period. Nobody watches the clock for it: the
/// state follows from the time at which it is looked at, and sleepers sleep no longer than until it is due.
/// Periods that pass unseen give one signal.
class Timer final : public Waitable {
 public:
  explicit Timer(bool bManualReset) noexcept : Waitable(!bManualReset, 0) {}

  /// Clears the signal, and comes due `first` from now; then each `period`, unless that is 0.
  void start(std::chrono::microseconds first, std::chrono::milliseconds period) noexcept;

  /// Nothing comes due any more. A signal that is there stays.
  void cancel() noexcept;

 private:
  void elapse(SteadyTime now) noexcept override;

  std::chrono::milliseconds m_period{0};
};

/// Makers of the above. Null on failure, with an `errno` value in `iError`: EINVAL for a semaphore whose
/// maximum is below 1 or whose initial count isn't between 0 and the maximum, ENOMEM.
std::shared_ptr<Event> createEvent(bool bManualReset, bool bSet, int& iError) noexcept;
std::shared_ptr<Semaphore> createSemaphore(std::int32_t iInitial, std::int32_t iMaximum,
                                           int& iError) noexcept;
std::shared_ptr<Timer> createTimer(bool bManualReset, int& iError) noexcept;

enum class WaitResult { kSignalled, kTimeout, kFailed };

/// How a wait ended: by which object (0 for a wait for all), or with which `errno` value it failed.
struct WaitOutcome {
  WaitResult result = WaitResult::kFailed;
  std::size_t index = 0;
  int iError = 0;
};

/// Milliseconds that stand for no time limit; so does every other negative number.
inline constexpr std::int32_t kInfinite = -1;

/// Waits until the object is signalled and takes the signal. Null fails with EINVAL, and what has to sleep
/// with ENOMEM when there is no memory. The object may lose its owner meanwhile.
WaitOutcome waitForOne(Waitable* pObject, std::int32_t iTimeoutMs) noexcept;

/// Waits until one of the objects is signalled and takes that signal alone; of several, that of the lowest
/// index. The same object may stand in the set more than once. The caller keeps all of them alive. Fails with
/// EINVAL when one is null, with ENOMEM.
WaitOutcome waitForAny(std::span<Waitable* const> objects, std::int32_t iTimeoutMs) noexcept;

/// Waits until all of the objects are signalled at one moment, and takes all of the signals at that moment;
/// until then it takes none. An object that stands in the set twice counts once. Otherwise as `waitForAny`.
WaitOutcome waitForAll(std::span<Waitable* const> objects, std::int32_t iTimeoutMs) noexcept;

}  // namespace qm_platform
