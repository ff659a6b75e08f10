#include <memory>

#include "coreapi/qmutils/text/jglob.h"
#include "storage/AnalyticsData.h"
#include "storage/ArchiveUnit.h"
#include "storage/SourceTable.h"

std::unique_ptr<AnalyticsSourceResultSet> listAnalyticsSources(const SourceTable& sourceTable,
                                                               const std::string& sSourceGlob,
                                                               std::int32_t iFps) {
  auto pResults = std::make_unique<AnalyticsSourceResultSet>();
  const JAutoReadLock lock(sourceTable.getLock());
  for (const auto& [sSource, units] : sourceTable.getSources()) {
    const auto unit = units.find(iFps);
    if (unit == units.end()) {
      continue;
    }
    const auto analytics = unit->second->getMedia().analytics;
    if (!analytics || !qm_utils::matchesGlob(sSourceGlob, analytics->processedSourceName)) {
      continue;
    }
    auto pItem = std::make_unique<AnalyticsSourceItem>();
    pItem->sourceName = analytics->processedSourceName;
    pItem->analyticsSourceName = sSource;
    pItem->analyticsName = analytics->processorName;
    pItem->analyticsType = analytics->processorType;
    pItem->fps = iFps;
    pItem->gridWidth = analytics->gridWidth;
    pItem->gridHeight = analytics->gridHeight;
    pResults->add(std::move(pItem));
  }
  return pResults;
}
