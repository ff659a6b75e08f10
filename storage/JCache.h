#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <map>
#include <string>

#include "coreapi/qmutils/thread/jmutex.h"
#include "coreapi/qmutils/time/jtime.h"

class JCache;

/// Base of what a `JCache` holds. A new record has one user, who made it. Count, stamp and mark are the
/// cache's, under its mutex.
class JCacheRecord {
 public:
  explicit JCacheRecord(std::string sKey) : m_sKey(std::move(sKey)) {}
  virtual ~JCacheRecord() = default;
  JCacheRecord(const JCacheRecord&) = delete;
  JCacheRecord& operator=(const JCacheRecord&) = delete;

  /// One user less. The record may be gone when this returns. Does nothing outside a cache.
  virtual void release();

  virtual std::string getKey() const { return m_sKey; }
  virtual JCache* getCache() const { return m_pCache; }

  /// One user more. Does nothing outside a cache.
  virtual void addRef();

 private:
  friend class JCache;

  std::int32_t m_iRefCount = 1;
  JCache* m_pCache = nullptr;
  std::string m_sKey;
  JTime m_freeStamp;  ///< when the record last went to the free list
  bool m_bRemovePending = false;
  std::list<JCacheRecord*> m_place{this};  ///< its entry of the free list as long as that hasn't got it
};

/// Records by key, kept while they have users, and for a while after: those without users stand on a free
/// list of bounded length, from which the oldest one is deleted.
///
/// A record is made by its first user and owned by the cache from `add` on. Any thread may call anything; one
/// mutex guards all of it, and records are deleted under it, so that a record's destructor must not call the
/// cache.
class JCache {
 public:
  /// `uMaxFree`: records kept that nobody uses.
  explicit JCache(std::uint32_t uMaxFree) noexcept : m_uMaxFree(uMaxFree) {}
  JCache(const JCache&) = delete;
  JCache& operator=(const JCache&) = delete;

  /// Deletes a record that nobody uses; one in use is deleted at its last release.
  virtual void remove(JCacheRecord* pRecord);

  /// Deletes every record: nobody may use one any more.
  virtual ~JCache();

  virtual bool contains(const std::string& sKey) const;

  /// The record of a key with one user more, or null.
  virtual JCacheRecord* acquire(const std::string& sKey);

  /// Takes a record over. One that stood under its key stays with its users, and is deleted at its last
  /// release.
  virtual void add(JCacheRecord* pRecord);

  /// Logs all records and all keys of the free list.
  virtual void dump() const;

  /// One user less of a record.
  virtual void release(JCacheRecord* pRecord);

  /// As `add`, unless the cache has a record of that key by now: then that one is returned, with one user
  /// more, and `pRecord` stays the caller's. Otherwise returns `pRecord`.
  JCacheRecord* addOrAcquire(JCacheRecord* pRecord);

  /// One user more of a record that is in use.
  void addRef(JCacheRecord* pRecord);

 protected:
  // Both run under the mutex.

  /// Puts a record without users at the end of the free list; the oldest one goes when the list is too long.
  virtual void addToFree(JCacheRecord* pRecord);
  virtual void removeFromFree(JCacheRecord* pRecord);

 private:
  void erase(JCacheRecord* pRecord);
  void dropDisplaced(JCacheRecord* pRecord);
  JCacheRecord* findAndUse(const std::string& sKey);

  std::uint32_t m_uMaxFree;
  std::map<std::string, JCacheRecord*> m_records;
  std::list<JCacheRecord*> m_free;
  mutable JMutex m_mutex;
};
