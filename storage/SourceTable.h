#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "coreapi/qmutils/thread/jrwmutex.h"

class ArchiveUnit;

/// The index of an archive: its units by source and frame rate, both in ascending order, names by byte. The
/// searches walk it. It is filled by whoever owns the archive.
///
/// Any thread. Its lock comes before the mutexes of the units. A unit that is taken out lives on with those
/// who still hold it.
class SourceTable {
 public:
  using UnitPtr = std::shared_ptr<ArchiveUnit>;
  using Units = std::map<std::int32_t, UnitPtr>;
  using Sources = std::map<std::string, Units>;

  SourceTable() = default;
  SourceTable(const SourceTable&) = delete;
  SourceTable& operator=(const SourceTable&) = delete;

  /// Puts a unit in, in the place of one that was there. Null fails an assertion and changes nothing.
  void add(const std::string& sSource, std::int32_t iFps, UnitPtr pUnit);

  /// Takes a unit out, and its source with the last one. Whether it was there.
  bool remove(const std::string& sSource, std::int32_t iFps);

  /// A unit, or null.
  UnitPtr find(const std::string& sSource, std::int32_t iFps) const;

  /// A copy of the whole table, for long work that mustn't hold the lock.
  Sources copy() const;

  /// The table itself, for those who hold the lock at least for reading.
  const Sources& getSources() const noexcept { return m_sources; }
  JRWMutex& getLock() const noexcept { return m_lock; }

 private:
  mutable JRWMutex m_lock;
  Sources m_sources;
};
