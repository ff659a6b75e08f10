#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "qmactivexctrl/qmstorageaccesscontroller/GenerationController.h"
#include "storage/StorageSearch.h"

// What queries leave behind at the client: the answer as an object, and a place in it. A row's text is made
// when it is asked for. `next` gives it and moves on; the empty text at the end.

/// Recordings that a search has found.
class GenerationController::DbQueryResult {
 public:
  explicit DbQueryResult(std::unique_ptr<StorageSearchResultSet> pItems) : m_pItems(std::move(pItems)) {}
  virtual ~DbQueryResult() = default;
  DbQueryResult(const DbQueryResult&) = delete;
  DbQueryResult& operator=(const DbQueryResult&) = delete;

  std::string next();

 private:
  std::unique_ptr<StorageSearchResultSet> m_pItems;
  std::uint32_t m_uNext = 0;
};

/// Names of alarms.
class GenerationController::ListAlarmNamesResult {
 public:
  using Names = std::set<std::string>;

  explicit ListAlarmNamesResult(std::unique_ptr<Names> pNames)
      : m_pNames(std::move(pNames)), m_next(m_pNames->begin()) {}
  virtual ~ListAlarmNamesResult() = default;
  ListAlarmNamesResult(const ListAlarmNamesResult&) = delete;
  ListAlarmNamesResult& operator=(const ListAlarmNamesResult&) = delete;

  std::string next();

 private:
  std::unique_ptr<Names> m_pNames;
  Names::const_iterator m_next;
};

/// Sources and the frame rates of their recordings.
class GenerationController::ListSourcesResult {
 public:
  using Sources = std::map<std::string, std::vector<std::int32_t>>;

  explicit ListSourcesResult(std::unique_ptr<Sources> pSources)
      : m_pSources(std::move(pSources)), m_next(m_pSources->begin()) {}
  virtual ~ListSourcesResult() = default;
  ListSourcesResult(const ListSourcesResult&) = delete;
  ListSourcesResult& operator=(const ListSourcesResult&) = delete;

  std::string next();

 private:
  std::unique_ptr<Sources> m_pSources;
  Sources::const_iterator m_next;
};
