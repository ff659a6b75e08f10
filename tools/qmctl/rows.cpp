#include "tools/qmctl/rows.h"

#include <algorithm>
#include <cstddef>

namespace {

using qmctl::RowField;

bool isQuoted(const RowField& field) {
  return field.eKind == RowField::kQuoted || field.eKind == RowField::kText;
}

/// What stands in front of a field's value, the end of the field before it included; for the number of
/// fields, what stands behind the last value.
std::string delimiterBefore(std::span<const RowField> fields, std::size_t uField) {
  std::string sDelimiter;
  if (uField > 0) {
    sDelimiter = isQuoted(fields[uField - 1]) ? "\"" : "";
    sDelimiter += uField < fields.size() ? "," : "";
  }
  if (uField < fields.size() && fields[uField].eKind != RowField::kRest) {
    sDelimiter.append(fields[uField].szLabel).append(isQuoted(fields[uField]) ? "=\"" : "=");
  }
  return sDelimiter;
}

}  // namespace

namespace qmctl {

bool splitRow(std::string_view sRow, std::span<const RowField> fields, std::vector<std::string>& values) {
  values.assign(fields.size(), {});
  const auto isOpen = [](const RowField& field) {
    return field.eKind == RowField::kText || field.eKind == RowField::kRest;
  };
  const auto uOpen = static_cast<std::size_t>(std::ranges::find_if(fields, isOpen) - fields.begin());

  // From the left up to the open field, or to the end.
  std::string sDelimiter = delimiterBefore(fields, 0);
  if (!sRow.starts_with(sDelimiter)) {
    return false;
  }
  sRow.remove_prefix(sDelimiter.size());
  for (std::size_t i = 0; i < uOpen; ++i) {
    sDelimiter = delimiterBefore(fields, i + 1);
    const std::size_t uEnd = sDelimiter.empty() ? sRow.size() : sRow.find(sDelimiter);
    if (uEnd == std::string_view::npos) {
      return false;
    }
    values[i] = sRow.substr(0, uEnd);
    sRow.remove_prefix(uEnd + sDelimiter.size());
  }
  if (uOpen == fields.size()) {
    return sRow.empty();
  }

  // From the right down to it.
  sDelimiter = delimiterBefore(fields, fields.size());
  if (!sRow.ends_with(sDelimiter)) {
    return false;
  }
  sRow.remove_suffix(sDelimiter.size());
  for (std::size_t i = fields.size() - 1; i > uOpen; --i) {
    sDelimiter = delimiterBefore(fields, i);
    const std::size_t uAt = sRow.rfind(sDelimiter);
    if (uAt == std::string_view::npos) {
      return false;
    }
    values[i] = sRow.substr(uAt + sDelimiter.size());
    sRow.remove_suffix(sRow.size() - uAt);
  }
  values[uOpen] = sRow;
  return true;
}

}  // namespace qmctl
