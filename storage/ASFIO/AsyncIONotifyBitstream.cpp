#include "storage/ASFIO/AsyncIONotifyBitstream.h"

#include <cstring>
#include <new>
#include <utility>

#include "coreapi/qmutils/thread/namedassert.h"
#include "storage/ASFIO/ASFOutput.h"

// One text for both ends of a write: a block that came out short, and one that didn't come out at all.
#define QM_ASSERT_UNIT(condition)                                                                    \
  QM_ASSERT_AS(condition,                                                                            \
               "!m_pASFOutput->isIOAligned() || ((m_duSize+m_pASFOutput->getIOAlignBlockSize()-1)& " \
               "~(m_pASFOutput->getIOAlignBlockSize()-1))==n")

void AsyncIONotifyBitstream::set(std::uint32_t uStreamNumber, std::uint32_t uTime,
                                 const qm_ci::ConstBitstream& oCIBitstream,
                                 std::uint64_t uUnitSize) noexcept {
  m_uStreamNumber = uStreamNumber;
  m_uTime = uTime;
  m_duSize = uUnitSize;
  if (const QMCIBitstream* const psRecord = oCIBitstream.getConstQMCIBitstreamPtr()) {
    std::memcpy(m_header.data(), psRecord, m_header.size());
  } else {
    m_header.fill(0);
  }
}

void AsyncIONotifyBitstream::onComplete(std::size_t uBytes) {
  const std::uint64_t uExpected = m_pASFOutput->unitSizeInFile(m_duSize);
  QM_ASSERT_UNIT(!m_pASFOutput->isIOAligned() || uBytes == uExpected);
  if (uBytes == uExpected) {
    m_pASFOutput->unitWritten(
        m_uStreamNumber, qm_ci::ConstBitstream(m_header.data(), static_cast<std::uint32_t>(m_header.size())),
        m_uTime, uBytes);
  } else {
    m_pASFOutput->unitLost();
  }
  m_pASFOutput->giveBack(this);
}

void AsyncIONotifyBitstream::onError() {
  QM_ASSERT_UNIT(false);
  m_pASFOutput->unitLost();
  m_pASFOutput->giveBack(this);
}

AsyncIONotifyPool::AsyncIONotifyPool(ASFOutput& output) : m_output(output) {
  grow(1);
}

AsyncIONotifyPool::~AsyncIONotifyPool() {
  QM_ASSERT_AS(m_objects.size() == m_nMaxSize, "m_nSize==m_nMaxSize");
  std::size_t nDeleted = 0;
  for (; !m_objects.empty(); m_objects.pop_back()) {
    ++nDeleted;
  }
  QM_ASSERT_AS(nDeleted == m_nMaxSize, "m_nSize+1 == nDeleted");
}

/// Room for all objects is made now, so that giving one back needs no memory.
void AsyncIONotifyPool::grow(std::size_t nNewMaxSize) {
  QM_ASSERT_AS(m_objects.empty(), "empty()");
  m_objects.reserve(nNewMaxSize);
  for (; m_nMaxSize < nNewMaxSize; ++m_nMaxSize) {
    m_objects.push_back(std::make_unique<AsyncIONotifyBitstream>(m_output));
  }
  QM_ASSERT_AS(m_objects.size() <= nNewMaxSize, "m_nSize+nPtrToAdd<=nNewMaxSize");
}

std::unique_ptr<AsyncIONotifyBitstream> AsyncIONotifyPool::get() noexcept {
  const JAutoLock lock(m_mutex);
  if (m_objects.empty()) {
    try {
      grow(2 * m_nMaxSize);
    } catch (const std::bad_alloc&) {
      return nullptr;
    }
  }
  QM_ASSERT_AS(!m_objects.empty(), "(int)m_nSize-(int)nPtrToRemove>=0");
  std::unique_ptr<AsyncIONotifyBitstream> pNotify = std::move(m_objects.back());
  m_objects.pop_back();
  return pNotify;
}

void AsyncIONotifyPool::put(std::unique_ptr<AsyncIONotifyBitstream> pNotify) noexcept {
  const JAutoLock lock(m_mutex);
  m_objects.push_back(std::move(pNotify));
}

std::size_t AsyncIONotifyPool::getMaxSize() const {
  const JAutoLock lock(m_mutex);
  return m_nMaxSize;
}

std::size_t AsyncIONotifyPool::getSize() const {
  const JAutoLock lock(m_mutex);
  return m_objects.size();
}
