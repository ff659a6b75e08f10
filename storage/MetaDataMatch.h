#pragma once

#include <string>
#include <vector>

#include "coreapi/qmutils/params/jparams.h"

/// What a search says of metadata, tested on the pairs of one record. No shared state; any thread that holds
/// the lists.
namespace qm_storage {

/// Whether one of some globs matches a key.
bool matchesAnyName(const std::string& sKey, const std::vector<std::string>& globs);

/// Whether every pair that is asked for finds one in a record, as MetaDataLog::getSpans tells.
bool matchesPairs(const JParams& record, const JParams& wanted);

}  // namespace qm_storage
