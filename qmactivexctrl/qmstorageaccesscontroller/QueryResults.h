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

  explicit ListAlarmNamesResult(Names names) : m_names(std::move(names)), m_next(m_names.begin()) {}
  virtual ~ListAlarmNamesResult() = default;
  ListAlarmNamesResult(const ListAlarmNamesResult&) = delete;
  ListAlarmNamesResult& operator=(const ListAlarmNamesResult&) = delete;

  std::string next();

 private:
  Names m_names;
  Names::const_iterator m_next;
};

/// Sources and the frame rates of their recordings.
class GenerationController::ListSourcesResult {
 public:
  using Sources = std::map<std::string, std::vector<std::int32_t>>;

  explicit ListSourcesResult(Sources sources) : m_sources(std::move(sources)), m_next(m_sources.begin()) {}
  virtual ~ListSourcesResult() = default;
  ListSourcesResult(const ListSourcesResult&) = delete;
  ListSourcesResult& operator=(const ListSourcesResult&) = delete;

  std::string next();

 private:
  Sources m_sources;
  Sources::const_iterator m_next;
};
