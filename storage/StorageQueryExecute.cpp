#include <algorithm>
#include <string_view>
#include <vector>

#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/params/jparams.h"
#include "coreapi/qmutils/text/jglob.h"
#include "storage/ArchiveUnit.h"
#include "storage/SourceTable.h"
#include "storage/StorageQueryImpl.h"
#include "storage/StorageSearchImpl.h"

namespace {

using Fields = StorageQueryImpl::Fields;

TimeSpanList keepOrDrop(const TimeSpanList& spans, const TimeSpanList& list, bool bKeep) {
  return bKeep ? TimeSpanList::intersect(spans, list) : TimeSpanList::subtract(spans, list);
}

/// The names that commas separate.
std::vector<std::string> namesIn(std::string_view sList) {
  std::vector<std::string> names;
  while (true) {
    const std::size_t comma = sList.find(',');
    names.emplace_back(sList.substr(0, comma));
    if (comma == std::string_view::npos) {
      return names;
    }
    sList.remove_prefix(comma + 1);
  }
}

bool matchesTypeOfAnalytics(const Fields& fields, const AnalyticsStream& analytics) {
  return fields.analyticsType.empty() || fields.analyticsType == "*" ||
         qm_utils::matchesGlob(fields.analyticsType, analytics.processorType);
}

/// One query on its way over a table whose lock is held.
class Execution {
 public:
  Execution(const Fields& fields, const SourceTable::Sources& sources)
      : m_fields(fields), m_sources(sources) {
    if (fields.requireMetaDataByValue || fields.excludeMetaDataByValue) {
      m_pairs.parse(namesAnyMetaData() ? std::string() : fields.metaData);
    }
  }

  void run(StorageSearchResultSet& results) const {
    for (const auto& [sSource, units] : m_sources) {
      if (!qm_utils::matchesGlob(m_fields.sourceName, sSource)) {
        continue;
      }
      for (auto unit = units.lower_bound(m_fields.minFPS);
           unit != units.end() && unit->first <= m_fields.maxFPS; ++unit) {
        addItems(sSource, unit->first, *unit->second, results);
      }
    }
  }

 private:
  bool namesAnyMetaData() const { return m_fields.metaData.empty() || m_fields.metaData == "*"; }

  bool takesType(const ArchiveUnit& unit) const {
    const std::string& sWanted = m_fields.dataType;
    if (sWanted == "*") {
      return true;
    }
    const std::int32_t iWanted = sWanted == "video/*"         ? StorageSearchItem::kVideoFile
                                 : sWanted == "audio/*"       ? StorageSearchItem::kAudioFile
                                 : sWanted == "application/*" ? StorageSearchItem::kDataFile
                                                              : StorageSearchItem::kAnyFile;
    return iWanted != StorageSearchItem::kAnyFile && fileTypeOf(unit) == iWanted;
  }

  static std::int32_t fileTypeOf(const ArchiveUnit& unit) {
    return StorageSearchItemImpl({}, {}, 0, unit.getMedia().sDataType).getFileType();
  }

  void addItems(const std::string& sSource, std::int32_t iFps, const ArchiveUnit& unit,
                StorageSearchResultSet& results) const {
    TimeSpanList spans = unit.getStoredSpans(m_fields.searchSpan);
    // The type comes second: asking for it may open a file.
    if (spans.empty() || !takesType(unit)) {
      return;
    }
    if (m_fields.requireProtected || m_fields.excludeProtected) {
      spans = keepOrDrop(spans, unit.getProtectedSpans(), m_fields.requireProtected);
    }
    if (m_fields.requireAlarm || m_fields.excludeAlarm) {
      TimeSpanList alarms = unit.getAlarmSpans(m_fields.alarmName);
      alarms.mergeOverlap(1);
      spans = keepOrDrop(spans, alarms, m_fields.requireAlarm);
    }
    spans = byMetaData(std::move(spans), unit);
    spans = byAnalytics(std::move(spans), sSource, iFps, unit);
    spans = TimeSpanList::intersect(spans, {m_fields.searchSpan});
    spans.joinTouching();
    if (spans.empty()) {
      return;
    }
    using Item = StorageSearchItemImpl;
    const auto pStream =
        std::make_shared<const Item::Stream>(Item::Stream{sSource, unit.getMedia().sDataType});
    for (const TimeSpan& span : spans) {
      results.add(std::make_unique<Item>(span, iFps, pStream).release());
    }
  }

  TimeSpanList byMetaData(TimeSpanList spans, const ArchiveUnit& unit) const {
    const bool bByName = m_fields.requireMetaDataByName || m_fields.excludeMetaDataByName;
    const bool bByValue = m_fields.requireMetaDataByValue || m_fields.excludeMetaDataByValue;
    if (!bByName && !bByValue) {
      return spans;
    }
    const TimeSpanList list = namesAnyMetaData() ? unit.getMetaDataSpans()
                              : bByName          ? unit.getMetaDataSpans(namesIn(m_fields.metaData))
                                                 : unit.getMetaDataSpans(m_pairs);
    return keepOrDrop(spans, list, m_fields.requireMetaDataByName || m_fields.requireMetaDataByValue);
  }

  TimeSpanList byAnalytics(TimeSpanList spans, const std::string& sSource, std::int32_t iFps,
                           const ArchiveUnit& unit) const {
    const bool bOfStream = m_fields.requireSrcAnalytics || m_fields.excludeSrcAnalytics;
    if (!bOfStream && !m_fields.requireSrcWithAnalytics && !m_fields.excludeSrcWithAnalytics) {
      return spans;
    }
    const auto analytics = unit.getMedia().analytics;
    const bool bMatches = bOfStream ? analytics && matchesTypeOfAnalytics(m_fields, *analytics)
                                    : !analytics && isAnalysed(sSource, iFps);
    TimeSpanList list;
    if (bMatches) {
      list = unit.getStoredSpans(TimeSpan());
    }
    return keepOrDrop(spans, list, m_fields.requireSrcAnalytics || m_fields.requireSrcWithAnalytics);
  }

  /// Whether an analytics stream of the same rate and the wanted type is derived from a source.
  bool isAnalysed(const std::string& sSource, std::int32_t iFps) const {
    return std::any_of(m_sources.begin(), m_sources.end(), [&](const auto& source) {
      const auto unit = source.second.find(iFps);
      if (unit == source.second.end()) {
        return false;
      }
      const auto analytics = unit->second->getMedia().analytics;
      return analytics && analytics->processedSourceName == sSource &&
             matchesTypeOfAnalytics(m_fields, *analytics);
    });
  }

  const Fields& m_fields;
  const SourceTable::Sources& m_sources;
  JParams m_pairs;  ///< of metadata by value
};

}  // namespace

std::unique_ptr<StorageSearchResultSet> StorageQueryImpl::execute(const SourceTable& sourceTable) const {
  auto pResults = std::make_unique<StorageSearchResultSetImpl>();
  const JAutoReadLock lock(sourceTable.getLock());
  Execution(m_fields, sourceTable.getSources()).run(*pResults);
  return pResults;
}
