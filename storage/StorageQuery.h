#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "coreapi/qmutils/time/jtime.h"
#include "storage/IStorageRpcObject.h"

class SourceTable;
class StorageSearchResultSet;

/// Which recordings a client wants: of which source, which kind of data, which frame rates and which time,
/// and what must or must not hold of alarms, protections, metadata and analytics.
///
/// Of each pair of flags (alarm, protected) and each group of four (metadata, analytics) at most one is set:
/// a setter that is called with true clears the others, one that is called with false only its own. So where
/// several are set one after the other, the last one wins.
///
/// A plain value without lock; one thread at a time.
class StorageQuery : public IStorageRpcObject {
 public:
  /// A copy of its own.
  virtual std::unique_ptr<StorageQuery> clone() const = 0;

  /// Takes the query from a host's criteria, a parameter list such as `SourceName="cam 1",MinFps=5`. What the
  /// list doesn't name keeps its default; so does a value that doesn't convert, and everything when the text
  /// is no list.
  ///
  /// False, with an error in the log and the query as it was, when a date isn't valid.
  virtual bool parse(const std::string& sCriteria) = 0;

  /// What of an archive fulfils the query: an item for each span of each stream, by source, rate and time.
  /// Holds the table's lock for reading throughout. Of a unit whose type of data was never asked for it opens
  /// one file, and no other. Throws JVariant::SyntaxError for pairs of metadata that are no list. Any thread
  /// that holds the query.
  virtual std::unique_ptr<StorageSearchResultSet> execute(const SourceTable& sourceTable) const = 0;

  /// 0 any, 1 video, 2 audio, 3 application data. Another number fails an assertion and changes nothing.
  virtual void setFileType(std::int32_t iFileType) = 0;

  /// MIME-like pattern of the wanted type of data, a glob.
  virtual std::string getDataType() const = 0;

  /// A glob over the names of sources.
  virtual void setSourceName(const std::string& sSourceName) = 0;
  virtual std::string getSourceName() const = 0;

  // The frame rates that are wanted, both ends included. The first form sets both ends.

  virtual void setFPS(std::int32_t iFps) = 0;
  virtual void setFPS(std::int32_t iMin, std::int32_t iMax) = 0;
  virtual void setMinFPS(std::int32_t iMin) = 0;
  virtual void setMaxFPS(std::int32_t iMax) = 0;

  // The time that is searched, both ends included.

  virtual void setDates(JTime start, JTime end) = 0;
  virtual void setStartDate(JTime start) = 0;
  virtual void setEndDate(JTime end) = 0;

  // What lies inside an alarm, or outside all alarms. The name is a glob over the names of alarms and applies
  // to both.

  virtual void setRequireAlarm(bool bRequire) = 0;
  virtual void setExcludeAlarm(bool bExclude) = 0;
  virtual void setAlarmName(const std::string& sAlarmName) = 0;

  // What lies inside a protection, or outside all protections.

  virtual void setRequireProtected(bool bRequire) = 0;
  virtual void setExcludeProtected(bool bExclude) = 0;

  // What has metadata, or hasn't: with one of the named keys, or with the given pairs.

  virtual void setRequireMetaDataByName(bool bRequire) = 0;
  virtual void setRequireMetaDataByValue(bool bRequire) = 0;
  virtual void setExcludeMetaDataByName(bool bExclude) = 0;
  virtual void setExcludeMetaDataByValue(bool bExclude) = 0;

  /// By name: names separated by commas; by value: a parameter list; "*" or the empty text: any metadata.
  virtual void setMetaData(const std::string& sMetaData) = 0;

  // Sources that are analytics streams, and sources from which one is derived.

  virtual void setRequireSrcAnalytics(bool bRequire) = 0;
  virtual void setRequireSrcWithAnalytics(bool bRequire) = 0;
  virtual void setExcludeSrcAnalytics(bool bExclude) = 0;
  virtual void setExcludeSrcWithAnalytics(bool bExclude) = 0;

  /// A glob over the types of analytics processors.
  virtual void setAnalyticsType(const std::string& sAnalyticsType) = 0;

  /// Writes the query to standard output, one line a field.
  virtual void dump() const = 0;

  /// The query on one line, for logs.
  virtual std::string toString() const = 0;
};
