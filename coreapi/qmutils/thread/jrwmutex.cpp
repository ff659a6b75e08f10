#include "coreapi/qmutils/thread/jrwmutex.h"

#include <cstdint>

#include "coreapi/platform/process.h"
#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/thread/namedassert.h"

namespace {

void* const kNoWriter = reinterpret_cast<void*>(std::uintptr_t(-1));

void* callerId() {
  return reinterpret_cast<void*>(std::uintptr_t{qm_platform::threadId()});
}

}  // namespace

JRWMutex::JRWMutex() : m_pWriterId(kNoWriter), m_noWriter(true, true), m_resource(false, true) {}

JRWMutex::~JRWMutex() {
  QM_ASSERT_AS(m_numReaders == 0 && m_numWriters == 0 && m_recursionsWriter == 0 && m_pWriterId == kNoWriter,
               "m_numReaders==0 && m_numWriters==0 && m_recursionsWriter==0 && m_pWriterId==(void*)-1");
}

bool JRWMutex::isWriter() const {
  return m_pWriterId == callerId();
}

std::uintptr_t JRWMutex::ownReadLocks() const {
  return reinterpret_cast<std::uintptr_t>(m_oTlsReaders.getValue());
}

void JRWMutex::setOwnReadLocks(std::uintptr_t recursionsReader) {
  m_oTlsReaders.setValue(reinterpret_cast<void*>(recursionsReader));
}

void JRWMutex::lockRead() {
  if (!m_oTlsReaders.isValid()) {
    m_mutex.lock();
    return;
  }
  const std::uintptr_t recursionsReader = ownReadLocks();
  if (recursionsReader == 0 && !isWriter()) {
    setOwnReadLocks(0);  // finds the memory for the count before the lock is taken
    m_noWriter.wait();
    const JAutoLock lock(m_mutex);
    if (m_numReaders == 0) {
      m_resource.wait();
    }
    ++m_numReaders;
    QM_ASSERT_AS(m_pWriterId == kNoWriter, "m_pWriterId==(void*)-1");
  }
  setOwnReadLocks(recursionsReader + 1);
}

void JRWMutex::unlockRead() {
  if (!m_oTlsReaders.isValid()) {
    m_mutex.unlock();
    return;
  }
  std::uintptr_t recursionsReader = ownReadLocks();
  JASSERT(recursionsReader != 0);
  if (recursionsReader == 0) {
    return;
  }
  --recursionsReader;
  if (recursionsReader == 0 && !isWriter()) {
    const JAutoLock lock(m_mutex);
    if (--m_numReaders == 0) {
      m_resource.set();
    }
  }
  setOwnReadLocks(recursionsReader);
}

void JRWMutex::lockWrite() {
  if (!m_oTlsReaders.isValid()) {
    m_mutex.lock();
    return;
  }
  if (isWriter()) {
    ++m_recursionsWriter;
    return;
  }
  const bool bReads = ownReadLocks() != 0;
  QM_ASSERT_AS(!bReads, "recursionsReader==0");
  if (bReads) {
    QM_THROW(JTextError, "lockWrite is not allowed if lockRead has been called by the current thread");
  }
  {
    const JAutoLock lock(m_mutex);
    if (m_numWriters++ == 0) {
      m_noWriter.reset();
    }
  }
  try {
    m_resource.wait();
  } catch (...) {
    leaveWriters();
    throw;
  }
  QM_ASSERT_AS(m_numReaders == 0, "m_numReaders==0");
  QM_ASSERT_AS(m_pWriterId == kNoWriter, "m_pWriterId==(void*)-1");
  m_pWriterId = callerId();
  ++m_recursionsWriter;
}

void JRWMutex::unlockWrite() {
  if (!m_oTlsReaders.isValid()) {
    m_mutex.unlock();
    return;
  }
  const bool bReads = ownReadLocks() != 0;
  QM_ASSERT_AS(!bReads, "(unsigned)m_oTlsReaders.getValue()==0");
  const bool bWriter = isWriter();
  QM_ASSERT_AS(bWriter, "m_pWriterId==(void*)JThread::getCurrentThreadId()");
  if (!bWriter || --m_recursionsWriter != 0) {
    return;
  }
  QM_ASSERT_AS(m_numReaders == 0, "m_numReaders==0");
  if (bReads) {
    setOwnReadLocks(0);  // read locks inside the write lock end with it
  }
  m_pWriterId = kNoWriter;
  m_resource.set();
  leaveWriters();
}

/// One writer less is in or waiting; the last one lets the readers come.
void JRWMutex::leaveWriters() {
  const JAutoLock lock(m_mutex);
  if (--m_numWriters == 0) {
    m_noWriter.set();
  }
}
