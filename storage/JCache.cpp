#include "storage/JCache.h"

#include <algorithm>

#include "coreapi/qmutils/error/loghook.h"

void JCacheRecord::release() {
  if (m_pCache != nullptr) {
    m_pCache->release(this);
  }
}

void JCacheRecord::addRef() {
  if (m_pCache != nullptr) {
    m_pCache->addRef(this);
  }
}

JCache::~JCache() {
  for (const auto& [sKey, pRecord] : m_records) {
    delete pRecord;
  }
}

void JCache::remove(JCacheRecord* pRecord) {
  const JAutoLock lock(m_mutex);
  if (pRecord->m_iRefCount == 0) {
    removeFromFree(pRecord);
    erase(pRecord);
  } else {
    pRecord->m_bRemovePending = true;
  }
}

bool JCache::contains(const std::string& sKey) const {
  const JAutoLock lock(m_mutex);
  return m_records.contains(sKey);
}

JCacheRecord* JCache::acquire(const std::string& sKey) {
  const JAutoLock lock(m_mutex);
  return findAndUse(sKey);
}

JCacheRecord* JCache::findAndUse(const std::string& sKey) {
  const auto found = m_records.find(sKey);
  if (found == m_records.end()) {
    return nullptr;
  }
  JCacheRecord* const pRecord = found->second;
  if (pRecord->m_iRefCount++ == 0) {
    removeFromFree(pRecord);
  }
  return pRecord;
}

void JCache::add(JCacheRecord* pRecord) {
  const JAutoLock lock(m_mutex);
  JCacheRecord*& pPlace = m_records[pRecord->m_sKey];
  JCacheRecord* const pBefore = pPlace;
  pPlace = pRecord;
  pRecord->m_pCache = this;
  if (pBefore != nullptr && pBefore != pRecord) {
    dropDisplaced(pBefore);
  }
  if (pRecord->m_iRefCount == 0) {
    addToFree(pRecord);
  }
}

/// A record whose key another one has taken.
void JCache::dropDisplaced(JCacheRecord* pRecord) {
  if (pRecord->m_iRefCount == 0) {
    removeFromFree(pRecord);
    delete pRecord;
  } else {
    pRecord->m_bRemovePending = true;
  }
}

JCacheRecord* JCache::addOrAcquire(JCacheRecord* pRecord) {
  const JAutoLock lock(m_mutex);
  if (JCacheRecord* const pStanding = findAndUse(pRecord->m_sKey)) {
    return pStanding;
  }
  add(pRecord);
  return pRecord;
}

void JCache::addRef(JCacheRecord* pRecord) {
  const JAutoLock lock(m_mutex);
  ++pRecord->m_iRefCount;
}

void JCache::release(JCacheRecord* pRecord) {
  const JAutoLock lock(m_mutex);
  if (--pRecord->m_iRefCount != 0) {
    return;
  }
  if (pRecord->m_bRemovePending) {
    erase(pRecord);
  } else {
    addToFree(pRecord);
  }
}

/// Deletes a record, and its place in the map if it is still its own.
void JCache::erase(JCacheRecord* pRecord) {
  const auto found = m_records.find(pRecord->m_sKey);
  if (found != m_records.end() && found->second == pRecord) {
    m_records.erase(found);
  }
  delete pRecord;
}

void JCache::addToFree(JCacheRecord* pRecord) {
  m_free.splice(m_free.end(), pRecord->m_place);  // takes no memory: a last user may go for want of it
  pRecord->m_freeStamp = JTime::now();
  if (m_free.size() > m_uMaxFree) {
    JCacheRecord* const pOldest = m_free.front();
    m_free.pop_front();
    erase(pOldest);
  }
}

void JCache::removeFromFree(JCacheRecord* pRecord) {
  const auto found = std::find(m_free.begin(), m_free.end(), pRecord);
  if (found != m_free.end()) {
    pRecord->m_place.splice(pRecord->m_place.end(), m_free, found);
  }
}

void JCache::dump() const {
  const JAutoLock lock(m_mutex);
  qm_err::log(qm_err::kLogDebug, "JCache::dump()");
  qm_err::log(qm_err::kLogDebug, "%d in Records:", static_cast<int>(m_records.size()));
  for (const auto& [sKey, pRecord] : m_records) {
    qm_err::log(qm_err::kLogDebug, "%d: \"%s\"", static_cast<int>(pRecord->m_iRefCount), sKey.c_str());
  }
  qm_err::log(qm_err::kLogDebug, "%d in Cache:", static_cast<int>(m_free.size()));
  for (const JCacheRecord* const pRecord : m_free) {
    qm_err::log(qm_err::kLogDebug, "\"%s\"", pRecord->m_sKey.c_str());
  }
  qm_err::log(qm_err::kLogDebug, "JCache::dump() [DONE]");
}
