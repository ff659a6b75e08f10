// A list from a peer, read as every object of a search: the query, the results, the logs. What is read must
// be written and read again as the same, and its rows must come.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "coreapi/qmutils/error/jerror.h"
#include "storage/AlarmLog.h"
#include "storage/AnalyticsData.h"
#include "storage/MetaDataLog.h"
#include "storage/ProtectedLog.h"
#include "storage/StorageQueryImpl.h"
#include "storage/StorageSearchImpl.h"

namespace {

std::string textOf(const JRPCObject& object) {
  JParams params;
  JRPCSerialisation(&params).serialise("X", object);
  std::string sText;
  params.toText(sText);
  return sText;
}

/// Reads an object, writes it, reads that and writes it again.
template <class Object>
void readBack(JRPCDeserialisation& source, Object& object) {
  try {
    source.deserialise("X", object, true);
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    return;
  }
  const std::string sText = textOf(object);
  Object again;
  JRPCDeserialisation(sText).deserialise("X", again, true);
  if (textOf(again) != sText) {
    std::abort();
  }
}

template <class Log>
void walk(const Log& log) {
  log.rewind();
  while (const auto* pRecord = log.getNext()) {
    if (pRecord->toString().empty()) {
      std::abort();
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t uSize) {
  const std::string_view sText(reinterpret_cast<const char*>(pData), uSize);
  try {
    StorageQueryImpl criteria;
    criteria.parse(std::string(sText));
    JRPCDeserialisation source(sText);
    StorageQueryImpl query;
    readBack(source, query);
    StorageSearchResultSetImpl results;
    readBack(source, results);
    for (std::uint32_t i = 0; i < results.size(); ++i) {
      results.at(i)->toString();
    }
    AnalyticsSourceResultSet analytics;
    readBack(source, analytics);
    ProtectedLog protections;
    readBack(source, protections);
    walk(protections);
    AlarmLog alarms;
    readBack(source, alarms);
    walk(alarms);
    MetaDataLog metaData;
    readBack(source, metaData);
    walk(metaData);
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
  }
  return 0;
}
