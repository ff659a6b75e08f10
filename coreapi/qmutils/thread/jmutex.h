#pragma once

#include <mutex>

/// A recursive mutex: the thread that holds it may take it again, and gives it back as often. Taken through
/// `JAutoLock` by all code of the system.
class JMutex {
 public:
  JMutex() = default;
  virtual ~JMutex() = default;
  JMutex(const JMutex&) = delete;
  JMutex& operator=(const JMutex&) = delete;

  /// Blocks until the calling thread has the mutex.
  void lock() { m_mutex.lock(); }

  /// Gives it back; only the thread that has it may.
  void unlock() { m_mutex.unlock(); }

  /// Takes it if no other thread has it. True when obtained.
  [[nodiscard]] bool tryLock() { return m_mutex.try_lock(); }

 private:
  std::recursive_mutex m_mutex;
};

/// Holds a mutex for its scope. The mutex must outlive it.
class [[nodiscard]] JAutoLock {
 public:
  explicit JAutoLock(JMutex& mutex) : m_mutex(mutex) { m_mutex.lock(); }
  ~JAutoLock() { m_mutex.unlock(); }
  JAutoLock(const JAutoLock&) = delete;
  JAutoLock& operator=(const JAutoLock&) = delete;

 private:
  JMutex& m_mutex;
};
