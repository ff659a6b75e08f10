#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace qm_platform {

class Event;

/// One thread of the system. It is created suspended, and signals an event when it has ended.
///
/// The thread and whoever made it own it together. All operations may be called from any thread; those that
/// return a number return 0 or an `errno` value, ESRCH when the thread has ended.
///
/// Lock order: its mutex is a leaf.
class OsThread {
 public:
  /// Creates a thread that waits to be resumed and then calls `body`, which must not throw. Its number is
  /// known when this returns. Null on failure, with EAGAIN or ENOMEM in `iError`.
  static std::shared_ptr<OsThread> create(const std::string& sName, std::function<void()> body,
                                          int& iError) noexcept;

  ~OsThread();
  OsThread(const OsThread&) = delete;
  OsThread& operator=(const OsThread&) = delete;

  /// The system's number of the thread.
  std::uint32_t id() const noexcept { return m_uId; }

  /// Set, by manual reset, when the body has returned and is destroyed.
  const std::shared_ptr<Event>& ended() const noexcept { return m_pEnded; }
  bool hasEnded() const noexcept;

  /// Lets the thread hold when it next enters a wait of this room. Once or more is the same.
  int suspend() noexcept;

  /// Ends a suspension, that of the start included.
  int resume() noexcept;

  /// Ends a thread that wasn't resumed yet, without calling its body.
  void abandon() noexcept;

  /// Waits until the system is done with the thread. At most once, and not by the thread itself.
  void join();

  /// A priority from -15 to 15, 0 normal. Each step is 5 of the system's nice value, from the value that the
  /// thread was born with; the system's own limits cut it. Where the process hasn't the right, the thread
  /// goes on as it was, and that counts as done.
  int setPriority(int iPriority) noexcept;

  /// The number last set.
  int getPriority() const noexcept;

  /// The processors that the thread may run on, bit 0 the first.
  int setAffinity(std::uint32_t uMask) noexcept;

  /// Shows the name to the system, cut to 15 bytes at the edge of a character.
  void setName(const std::string& sName) noexcept;

  /// Whether it is this thread that calls.
  bool isCalling() const noexcept;

  /// The same for a calling thread, whoever made it.
  static int setCurrentPriority(int iPriority) noexcept;
  static int getCurrentPriority() noexcept;
  static int setCurrentAffinity(std::uint32_t uMask) noexcept;

  /// Holds a calling thread whose suspension was asked for. All waits of this room come here first.
  static void holdIfSuspended() noexcept;

 private:
  OsThread() = default;

  void enter(const std::string& sName, std::function<void()> body);
  void hold();

  mutable std::mutex m_mutex;
  std::condition_variable m_changed;  ///< `m_uId` is known, or `m_bSuspended` was cleared
  std::atomic<bool> m_bSuspended{true};
  bool m_bAbandoned = false;
  bool m_bLive = false;  ///< its number is its own; the thread doesn't go while this is read under the mutex
  std::uint32_t m_uId = 0;
  int m_iBirthNice = 0;
  int m_iPriority = 0;
  std::shared_ptr<Event> m_pEnded;
  std::thread m_thread;
};

}  // namespace qm_platform
