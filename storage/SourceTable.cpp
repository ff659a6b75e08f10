#include "storage/SourceTable.h"

#include <utility>

#include "coreapi/qmutils/error/jerror.h"
#include "storage/ArchiveUnit.h"

void SourceTable::add(const std::string& sSource, std::int32_t iFps, UnitPtr pUnit) {
  JASSERT(pUnit);
  if (!pUnit) {
    return;
  }
  const JAutoWriteLock lock(m_lock);
  m_sources[sSource].insert_or_assign(iFps, std::move(pUnit));
}

bool SourceTable::remove(const std::string& sSource, std::int32_t iFps) {
  const JAutoWriteLock lock(m_lock);
  const auto source = m_sources.find(sSource);
  if (source == m_sources.end() || source->second.erase(iFps) == 0) {
    return false;
  }
  if (source->second.empty()) {
    m_sources.erase(source);
  }
  return true;
}

SourceTable::UnitPtr SourceTable::find(const std::string& sSource, std::int32_t iFps) const {
  const JAutoReadLock lock(m_lock);
  const auto source = m_sources.find(sSource);
  if (source == m_sources.end()) {
    return nullptr;
  }
  const auto unit = source->second.find(iFps);
  return unit == source->second.end() ? nullptr : unit->second;
}

SourceTable::Sources SourceTable::copy() const {
  const JAutoReadLock lock(m_lock);
  return m_sources;
}
