#include "qmactivexctrl/qmstorageaccesscontroller/QueryResults.h"

#include "qmactivexctrl/qmstorageaccesscontroller/storageaccesscontrollerutils.h"

std::string GenerationController::DbQueryResult::next() {
  return m_uNext < m_pItems->size() ? m_pItems->at(m_uNext++)->toString() : std::string();
}

std::string GenerationController::ListAlarmNamesResult::next() {
  return m_next != m_names.end() ? *m_next++ : std::string();
}

std::string GenerationController::ListSourcesResult::next() {
  if (m_next == m_sources.end()) {
    return {};
  }
  const auto& [sName, rates] = *m_next++;
  return formatSource(sName, rates);
}
