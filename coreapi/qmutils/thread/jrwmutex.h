#pragma once

#include <atomic>
#include <cstdint>

#include "coreapi/qmutils/thread/jmutex.h"
#include "coreapi/qmutils/thread/jthreadlocalstorage.h"
#include "coreapi/qmutils/thread/jwaitable.h"

/// Many readers or one writer. Writers come first: as soon as one waits, new readers queue behind it.
///
/// Both locks are recursive. The thread that holds the write lock may take read locks, which it gives back
/// before the write lock. A thread that holds a read lock must not ask for the write lock. Taken through
/// `JAutoReadLock` and `JAutoWriteLock`.
///
/// When no thread-local slot is left, the object works as a plain exclusive recursive lock.
///
/// Lock order inside: the internal mutex, then the flags. The first reader waits for the resource with the
/// internal mutex held, so that later readers, and writers, take their turn behind it.
class JRWMutex {
 public:
  JRWMutex();

  /// Nobody may hold or wait for the lock any more.
  virtual ~JRWMutex();
  JRWMutex(const JRWMutex&) = delete;
  JRWMutex& operator=(const JRWMutex&) = delete;

  virtual void lockRead();
  virtual void unlockRead();

  /// Throws JTextError when the calling thread holds a read lock.
  virtual void lockWrite();
  virtual void unlockWrite();

 private:
  bool isWriter() const;
  std::uintptr_t ownReadLocks() const;
  void setOwnReadLocks(std::uintptr_t recursionsReader);
  void leaveWriters();

  int m_numReaders = 0;               ///< threads inside as readers
  int m_numWriters = 0;               ///< writers inside or waiting
  int m_recursionsWriter = 0;         ///< the writer's alone
  std::atomic<void*> m_pWriterId;     ///< thread id of the writer, -1 when there is none
  JThreadLocalStorage m_oTlsReaders;  ///< the calling thread's read locks
  JMutex m_mutex;                     ///< over the two counts
  JFlag m_noWriter;                   ///< set: no writer is in or waiting
  JFlag m_resource;                   ///< set: neither readers nor a writer are in
};

/// Holds a read lock for its scope.
class [[nodiscard]] JAutoReadLock {
 public:
  explicit JAutoReadLock(JRWMutex& mutex) : m_mutex(mutex) { m_mutex.lockRead(); }
  ~JAutoReadLock() { m_mutex.unlockRead(); }
  JAutoReadLock(const JAutoReadLock&) = delete;
  JAutoReadLock& operator=(const JAutoReadLock&) = delete;

 private:
  JRWMutex& m_mutex;
};

/// Holds the write lock for its scope.
class [[nodiscard]] JAutoWriteLock {
 public:
  explicit JAutoWriteLock(JRWMutex& mutex) : m_mutex(mutex) { m_mutex.lockWrite(); }
  ~JAutoWriteLock() { m_mutex.unlockWrite(); }
  JAutoWriteLock(const JAutoWriteLock&) = delete;
  JAutoWriteLock& operator=(const JAutoWriteLock&) = delete;

 private:
  JRWMutex& m_mutex;
};
