#pragma once

#include <functional>
#include <span>

#include "tools/qmctl/commandline.h"
#include "tools/qmctl/output.h"
#include "tools/qmctl/rows.h"

namespace qmctl {

/// How one kind of row is shown.
struct Listing {
  std::span<const RowField> fields;

  /// What stands in JSON and in the table for a value; null for what its kind says, and for the value itself.
  Json (*toJson)(const RowField& field, const std::string& sValue) = nullptr;
  std::string (*toCell)(const RowField& field, const std::string& sValue) = nullptr;

  const char* szNone;  ///< said on standard error when there is no row, unless the output is JSON
};

/// A value in JSON by its kind alone: numbers as numbers, parameter lists as objects.
Json toJsonValue(const RowField& field, const std::string& sValue);

/// Connects, runs a query and prints its rows. A row of an unknown form is printed as it stands: nothing that
/// the Manager has is kept back.
void printRows(Context& context, const Listing& listing, const Session::Query& query);

}  // namespace qmctl
