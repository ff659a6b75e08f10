#pragma once

#include <cstdint>
#include <limits>
#include <memory>
#include <span>
#include <string>

#include "storage/StorageQuery.h"
#include "storage/TimeSpan.h"

class JParams;

/// A query as it travels. All of a query's logic is here; controllers hold it as a StorageQuery.
class StorageQueryImpl final : public StorageQuery, public JRPCObject {
 public:
  struct Fields {
    std::string dataType = "*";    ///< a glob
    std::string sourceName = "*";  ///< a glob
    std::int32_t minFPS = 0;
    std::int32_t maxFPS = std::numeric_limits<std::int32_t>::max();
    TimeSpan searchSpan;
    std::string alarmName = "*";  ///< a glob; applies with `requireAlarm` and `excludeAlarm`
    bool requireAlarm = false;
    bool requireProtected = false;
    bool excludeAlarm = false;
    bool excludeProtected = false;
    bool requireMetaDataByName = false;
    bool requireMetaDataByValue = false;
    bool excludeMetaDataByName = false;
    bool excludeMetaDataByValue = false;
    std::string metaData = "*";
    bool requireSrcAnalytics = false;
    bool excludeSrcAnalytics = false;
    bool requireSrcWithAnalytics = false;
    bool excludeSrcWithAnalytics = false;
    std::string analyticsType = "*";  ///< a glob
  };

  StorageQueryImpl() : JRPCObject("StorageQuery") {}

  JRPCObject& getRpcObject() override { return *this; }
  const JRPCObject& getRpcObject() const override { return *this; }

  std::unique_ptr<StorageQuery> clone() const override;
  bool parse(const std::string& sCriteria) override;
  std::unique_ptr<StorageSearchResultSet> execute(const SourceTable& sourceTable) const override;
  void setFileType(std::int32_t iFileType) override;
  std::string getDataType() const override { return m_fields.dataType; }
  void setSourceName(const std::string& sSourceName) override { m_fields.sourceName = sSourceName; }
  std::string getSourceName() const override { return m_fields.sourceName; }
  void setFPS(std::int32_t iFps) override { setFPS(iFps, iFps); }
  void setFPS(std::int32_t iMin, std::int32_t iMax) override;
  void setMinFPS(std::int32_t iMin) override { m_fields.minFPS = iMin; }
  void setMaxFPS(std::int32_t iMax) override { m_fields.maxFPS = iMax; }
  void setDates(JTime start, JTime end) override { m_fields.searchSpan = TimeSpan(start, end); }
  void setStartDate(JTime start) override { m_fields.searchSpan.startDate = start; }
  void setEndDate(JTime end) override { m_fields.searchSpan.endDate = end; }
  void setRequireAlarm(bool bRequire) override;
  void setExcludeAlarm(bool bExclude) override;
  void setAlarmName(const std::string& sAlarmName) override { m_fields.alarmName = sAlarmName; }
  void setRequireProtected(bool bRequire) override;
  void setExcludeProtected(bool bExclude) override;
  void setRequireMetaDataByName(bool bRequire) override;
  void setRequireMetaDataByValue(bool bRequire) override;
  void setExcludeMetaDataByName(bool bExclude) override;
  void setExcludeMetaDataByValue(bool bExclude) override;
  void setMetaData(const std::string& sMetaData) override { m_fields.metaData = sMetaData; }
  void setRequireSrcAnalytics(bool bRequire) override;
  void setRequireSrcWithAnalytics(bool bRequire) override;
  void setExcludeSrcAnalytics(bool bExclude) override;
  void setExcludeSrcWithAnalytics(bool bExclude) override;
  void setAnalyticsType(const std::string& sAnalyticsType) override {
    m_fields.analyticsType = sAnalyticsType;
  }
  void dump() const override;
  std::string toString() const override;

  void serialise(JRPCSerialisation& target) const override;

  /// Resets all fields but the searched span first. What peers of earlier generations leave out keeps its
  /// default. Of flags that exclude each other and were all sent, one stays: here a required one goes before
  /// an excluded one, and metadata by name before metadata by value. Throws JDeserialisationError when one of
  /// the keys that every generation sends is missing; what was read before stays read.
  void deserialise(JRPCDeserialisation& source, bool bRequired) override;

  /// As `parse`, for callers that report failures themselves: instead of logging, puts the text into
  /// `sFailure`, which a success leaves alone.
  bool parseCriteria(const std::string& sCriteria, std::string& sFailure);

  const Fields& getFields() const noexcept { return m_fields; }

 private:
  using Flag = bool Fields::*;

  void setFlag(Flag pFlag, bool bValue, std::span<const Flag> group);
  bool takeDates(const JParams& criteria, std::string& sFailure);
  void takeCriteria(const JParams& criteria);
  void normalise() noexcept;

  Fields m_fields;
};
