#include "coreapi/platform/waitable.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <condition_variable>
#include <functional>
#include <memory_resource>
#include <new>
#include <optional>
#include <utility>
#include <vector>

#include "coreapi/platform/faultseam.h"
#include "coreapi/platform/osthread.h"

namespace qm_platform {

namespace {

constexpr SteadyTime kNever = SteadyTime::max();

/// `start` moved by an interval that isn't negative, no later than never.
SteadyTime later(SteadyTime start, std::chrono::microseconds interval) noexcept {
  const auto room = std::chrono::floor<std::chrono::microseconds>(kNever - start);
  return interval >= room ? kNever : start + interval;
}

}  // namespace

/// The clock, read no sooner than it is asked for and at most once.
struct LazyNow {
  SteadyTime get() noexcept {
    if (!m_now) {
      m_now = std::chrono::steady_clock::now();
    }
    return *m_now;
  }

 private:
  std::optional<SteadyTime> m_now;
};

/// A thread in a wait that has to sleep. It stands in the lists of the objects that it waits on, which touch
/// it under their own mutex; a thread that is about to wake it has a share in it, too.
///
/// The thread clears the mark, looks at the objects, and sleeps unless the mark was set meanwhile. A signal
/// changes its object first and sets the mark then, so it is either seen or it keeps the thread awake. Time
/// is that of the steady clock: nobody who sets the system's clock makes a wait longer or shorter.
class Sleeper : public std::enable_shared_from_this<Sleeper> {
 public:
  explicit Sleeper(bool bForAll) noexcept : m_bForAll(bForAll) {}

  bool isForAll() const noexcept { return m_bForAll; }

  /// Sets the mark. False when it was set already: then somebody else wakes the thread, or it is awake.
  bool mark() noexcept {
    const std::lock_guard lock(m_mutex);
    return !std::exchange(m_bMarked, true);
  }

  void clear() noexcept {
    const std::lock_guard lock(m_mutex);
    m_bMarked = false;
  }

  /// Gets a marked thread going.
  void wake() noexcept { m_condition.notify_one(); }

  void sleep(SteadyTime until) noexcept {
    std::unique_lock lock(m_mutex);
    const auto marked = [this] { return m_bMarked; };
    if (until == kNever) {
      m_condition.wait(lock, marked);
    } else {
      m_condition.wait_until(lock, until, marked);
    }
  }

 private:
  const bool m_bForAll;
  std::mutex m_mutex;
  std::condition_variable m_condition;
  bool m_bMarked = false;
};

/// Sleepers that were marked under the mutex of an object. They are woken when this goes, which is after the
/// mutex is given back, so that they don't run into it at once. Those for whom there is no room here are.
class WakeList {
 public:
  WakeList() = default;
  ~WakeList() {
    for (std::size_t i = 0; i < m_count; ++i) {
      m_sleepers[i]->wake();
    }
  }
  WakeList(const WakeList&) = delete;
  WakeList& operator=(const WakeList&) = delete;

  void add(Sleeper& sleeper) noexcept {
    if (!sleeper.mark()) {
      return;
    }
    if (m_count < m_sleepers.size()) {
      m_sleepers[m_count++] = sleeper.shared_from_this();
    } else {
      sleeper.wake();
    }
  }

 private:
  std::array<std::shared_ptr<Sleeper>, 4> m_sleepers;
  std::size_t m_count = 0;
};

// Which sleepers a signal wakes: of an object with n units, the first n in its list that want nothing else,
// and those before them that wait for more objects too, which may be unable to take. Whoever was woken takes
// a unit, or hands the wake-up on when it leaves the list without (`leave`): a unit never lies there while
// somebody sleeps who could have it.
void Waitable::wakeForUnits(WakeList& wakes) noexcept {
  std::uint32_t uUnits = m_uUnits.load(std::memory_order_relaxed);
  for (const WaiterNode* pNode = m_pFirst; pNode != nullptr && uUnits != 0; pNode = pNode->pNext) {
    wakes.add(*pNode->pSleeper);
    if (m_bConsumed && !pNode->pSleeper->isForAll()) {
      --uUnits;
    }
  }
}

void Waitable::wakeAll(WakeList& wakes) noexcept {
  for (const WaiterNode* pNode = m_pFirst; pNode != nullptr; pNode = pNode->pNext) {
    wakes.add(*pNode->pSleeper);
  }
}

/// Whether there is a unit to take; else `wakeAt` becomes no later than the due time. The mutex is held.
bool Waitable::isReady(LazyNow& now, SteadyTime& wakeAt) noexcept {
  if (m_bArmed.load(std::memory_order_relaxed) && m_due <= now.get()) {
    elapse(now.get());
  }
  if (m_uUnits.load(std::memory_order_relaxed) != 0) {
    return true;
  }
  if (m_bArmed.load(std::memory_order_relaxed)) {
    wakeAt = std::min(wakeAt, m_due);
  }
  return false;
}

/// Takes a unit that is there. The mutex is held.
void Waitable::take() noexcept {
  if (m_bConsumed) {
    m_uUnits.store(m_uUnits.load(std::memory_order_relaxed) - 1, std::memory_order_release);
  }
}

/// Takes a unit if there is one. A success goes through the mutex always: then whoever gave the signal has
/// let go of the object, and the waiter may destroy it.
bool Waitable::tryTake(LazyNow& now, SteadyTime& wakeAt) noexcept {
  if (isQuiet()) {
    return false;
  }
  const std::lock_guard lock(m_mutex);
  const bool bReady = isReady(now, wakeAt);
  if (bReady) {
    take();
  }
  return bReady;
}

void Waitable::enter(WaiterNode& node) noexcept {
  const std::lock_guard lock(m_mutex);
  node.pPrevious = m_pLast;
  node.pNext = nullptr;
  (m_pLast != nullptr ? m_pLast->pNext : m_pFirst) = &node;
  m_pLast = &node;
}

void Waitable::leave(WaiterNode& node) noexcept {
  WakeList wakes;
  const std::lock_guard lock(m_mutex);
  (node.pPrevious != nullptr ? node.pPrevious->pNext : m_pFirst) = node.pNext;
  (node.pNext != nullptr ? node.pNext->pPrevious : m_pLast) = node.pPrevious;
  if (m_bConsumed) {  // all sleepers of an object that keeps its signal are awake already
    wakeForUnits(wakes);
  }
}

void Event::set() noexcept {
  WakeList wakes;
  const std::lock_guard lock(m_mutex);
  if (m_uUnits.load(std::memory_order_relaxed) == 0) {
    m_uUnits.store(1, std::memory_order_release);
    wakeForUnits(wakes);
  }
}

void Event::reset() noexcept {
  const std::lock_guard lock(m_mutex);
  m_uUnits.store(0, std::memory_order_release);
}

int Semaphore::release(std::int32_t iCount, std::int32_t& iPrevious) noexcept {
  if (iCount < 1) {
    return EINVAL;
  }
  WakeList wakes;
  const std::lock_guard lock(m_mutex);
  const std::uint32_t uUnits = m_uUnits.load(std::memory_order_relaxed);
  const auto uCount = static_cast<std::uint32_t>(iCount);
  if (uCount > m_uMaximum - uUnits) {
    return EOVERFLOW;
  }
  iPrevious = static_cast<std::int32_t>(uUnits);
  m_uUnits.store(uUnits + uCount, std::memory_order_release);
  wakeForUnits(wakes);
  return 0;
}

void Timer::start(std::chrono::microseconds first, std::chrono::milliseconds period) noexcept {
  WakeList wakes;
  const std::lock_guard lock(m_mutex);
  m_uUnits.store(0, std::memory_order_release);
  m_due = later(std::chrono::steady_clock::now(), first);
  m_period = period;
  m_bArmed.store(true, std::memory_order_release);
  wakeAll(wakes);
}

void Timer::cancel() noexcept {
  const std::lock_guard lock(m_mutex);
  if (m_bArmed.load(std::memory_order_relaxed)) {
    if (const SteadyTime now = std::chrono::steady_clock::now(); m_due <= now) {
      elapse(now);
    }
    m_bArmed.store(false, std::memory_order_release);
  }
}

void Timer::elapse(SteadyTime now) noexcept {
  m_uUnits.store(1, std::memory_order_release);
  if (m_period.count() > 0) {
    m_due = later(m_due, m_period * ((now - m_due) / m_period + 1));
  } else {
    m_bArmed.store(false, std::memory_order_release);
  }
}

namespace {

template <class Object, class... Arguments>
std::shared_ptr<Object> make(int& iError, Arguments... arguments) noexcept {
  if (const int iFault = takeFault(Seam::kThread).error; iFault != 0) {
    iError = iFault;
    return nullptr;
  }
  try {
    return std::make_shared<Object>(arguments...);
  } catch (const std::bad_alloc&) {
    iError = ENOMEM;
    return nullptr;
  }
}

}  // namespace

std::shared_ptr<Event> createEvent(bool bManualReset, bool bSet, int& iError) noexcept {
  return make<Event>(iError, bManualReset, bSet);
}

std::shared_ptr<Semaphore> createSemaphore(std::int32_t iInitial, std::int32_t iMaximum,
                                           int& iError) noexcept {
  if (iMaximum < 1 || iInitial < 0 || iInitial > iMaximum) {
    iError = EINVAL;
    return nullptr;
  }
  return make<Semaphore>(iError, static_cast<std::uint32_t>(iInitial), static_cast<std::uint32_t>(iMaximum));
}

std::shared_ptr<Timer> createTimer(bool bManualReset, int& iError) noexcept {
  return make<Timer>(iError, bManualReset);
}

/// One wait, on objects that stay alive for as long as it takes.
class WaitPass {
 public:
  using Objects = std::span<Waitable* const>;

  static WaitOutcome forOne(Waitable& object, std::int32_t iTimeoutMs) {
    Waitable* const pObject = &object;
    const auto tryTake = [pObject](LazyNow& now, SteadyTime& wakeAt) noexcept {
      return pObject->tryTake(now, wakeAt) ? 0 : kNone;
    };
    if (tryAtOnce(tryTake) == 0) {
      return {WaitResult::kSignalled};
    }
    if (iTimeoutMs == 0) {
      return {WaitResult::kTimeout};
    }
    const std::shared_ptr<Waitable> pPinned = object.weak_from_this().lock();
    WaiterNode node;
    return sleepFor(Objects(&pObject, 1), std::span(&node, 1), false, iTimeoutMs, tryTake);
  }

  static WaitOutcome forAny(Objects objects, std::int32_t iTimeoutMs) {
    const auto tryTake = [objects](LazyNow& now, SteadyTime& wakeAt) noexcept {
      for (std::size_t index = 0; index < objects.size(); ++index) {
        if (objects[index]->tryTake(now, wakeAt)) {
          return index;
        }
      }
      return kNone;
    };
    return forSeveral(objects, false, iTimeoutMs, tryTake);
  }

  static WaitOutcome forAll(Objects objects, std::int32_t iTimeoutMs) {
    Scratch scratch;
    std::pmr::vector<Waitable*> ordered(objects.begin(), objects.end(), &scratch.resource);
    std::sort(ordered.begin(), ordered.end(), std::less<>());
    ordered.erase(std::unique(ordered.begin(), ordered.end()), ordered.end());
    const auto tryTake = [&ordered](LazyNow& now, SteadyTime& wakeAt) noexcept {
      return takeAll(ordered, now, wakeAt) ? 0 : kNone;
    };
    return forSeveral(ordered, true, iTimeoutMs, tryTake);
  }

 private:
  static constexpr std::size_t kNone = static_cast<std::size_t>(-1);

  /// Memory on the stack, enough for the sets that are used; the heap serves larger ones.
  struct Scratch {
    std::array<std::byte, 512> buffer;
    std::pmr::monotonic_buffer_resource resource{buffer.data(), buffer.size()};
  };

  template <class Try>
  static std::size_t tryAtOnce(const Try& tryTake) noexcept {
    LazyNow now;
    SteadyTime wakeAt = kNever;
    return tryTake(now, wakeAt);
  }

  template <class Try>
  static WaitOutcome forSeveral(Objects objects, bool bForAll, std::int32_t iTimeoutMs, const Try& tryTake) {
    if (const std::size_t index = tryAtOnce(tryTake); index != kNone) {
      return {WaitResult::kSignalled, index};
    }
    if (iTimeoutMs == 0) {
      return {WaitResult::kTimeout};
    }
    Scratch scratch;
    std::pmr::vector<WaiterNode> nodes(objects.size(), &scratch.resource);
    return sleepFor(objects, nodes, bForAll, iTimeoutMs, tryTake);
  }

  /// Sleeps and tries again until the wait is over. `objects` are those whose signals may matter.
  template <class Try>
  static WaitOutcome sleepFor(Objects objects, std::span<WaiterNode> nodes, bool bForAll,
                              std::int32_t iTimeoutMs, const Try& tryTake) {
    const SteadyTime deadline =
        iTimeoutMs < 0 ? kNever : std::chrono::steady_clock::now() + std::chrono::milliseconds(iTimeoutMs);
    const auto pSleeper = std::make_shared<Sleeper>(bForAll);
    for (std::size_t i = 0; i < objects.size(); ++i) {
      nodes[i].pSleeper = pSleeper.get();
      objects[i]->enter(nodes[i]);
    }
    std::size_t index = kNone;
    for (bool bLast = false; !bLast;) {
      pSleeper->clear();
      LazyNow now;
      SteadyTime wakeAt = deadline;
      bLast = deadline != kNever && now.get() >= deadline;
      index = tryTake(now, wakeAt);
      if (index != kNone) {
        break;
      }
      if (!bLast) {
        pSleeper->sleep(wakeAt);
      }
    }
    for (std::size_t i = 0; i < objects.size(); ++i) {
      objects[i]->leave(nodes[i]);
    }
    return index == kNone ? WaitOutcome{WaitResult::kTimeout} : WaitOutcome{WaitResult::kSignalled, index};
  }

  /// Takes a unit of each object, if each has one; else none. The objects come in the order of their
  /// addresses, which is the order in which all such waits lock them.
  static bool takeAll(Objects ordered, LazyNow& now, SteadyTime& wakeAt) noexcept {
    // One that is quiet wakes the sleeper when that changes, and until then the others don't matter.
    if (std::any_of(ordered.begin(), ordered.end(), [](const Waitable* p) { return p->isQuiet(); })) {
      return false;
    }
    for (Waitable* pObject : ordered) {
      pObject->m_mutex.lock();
    }
    bool bReady = true;
    for (Waitable* pObject : ordered) {
      bReady = pObject->isReady(now, wakeAt) && bReady;
    }
    for (Waitable* pObject : ordered) {
      if (bReady) {
        pObject->take();
      }
      pObject->m_mutex.unlock();
    }
    return bReady;
  }
};

namespace {

/// A wait, and what stands before every one: a suspended thread holds here, and a plan of a test may make the
/// wait fail.
template <class Wait>
WaitOutcome enterWait(std::span<Waitable* const> objects, const Wait& wait) noexcept {
  OsThread::holdIfSuspended();
  if (const Fault fault = takeFault(Seam::kThread); fault.kind == FaultKind::kError) {
    return {WaitResult::kFailed, 0, fault.error};
  }
  if (std::find(objects.begin(), objects.end(), nullptr) != objects.end()) {
    return {WaitResult::kFailed, 0, EINVAL};
  }
  try {
    return wait();
  } catch (const std::bad_alloc&) {
    return {WaitResult::kFailed, 0, ENOMEM};
  }
}

}  // namespace

WaitOutcome waitForOne(Waitable* pObject, std::int32_t iTimeoutMs) noexcept {
  return enterWait(std::span(&pObject, 1), [=] { return WaitPass::forOne(*pObject, iTimeoutMs); });
}

WaitOutcome waitForAny(std::span<Waitable* const> objects, std::int32_t iTimeoutMs) noexcept {
  return enterWait(objects, [=] { return WaitPass::forAny(objects, iTimeoutMs); });
}

WaitOutcome waitForAll(std::span<Waitable* const> objects, std::int32_t iTimeoutMs) noexcept {
  return enterWait(objects, [=] { return WaitPass::forAll(objects, iTimeoutMs); });
}

}  // namespace qm_platform
