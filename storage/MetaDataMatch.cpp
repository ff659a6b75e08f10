#include "storage/MetaDataMatch.h"

#include <algorithm>
#include <optional>
#include <string_view>

#include "coreapi/qmutils/params/paramvalue.h"
#include "coreapi/qmutils/text/jglob.h"

namespace {

using qm_utils::matchesGlob;
using qm_utils::ParamValue;

constexpr std::string_view kListSeparator = ", ";
constexpr std::string_view kRangeSeparator = "..";

/// Whether a predicate holds for an element of a list.
template <class Predicate>
bool anyElement(std::string_view sList, Predicate predicate) {
  while (true) {
    const std::size_t end = sList.find(kListSeparator);
    if (predicate(sList.substr(0, end))) {
      return true;
    }
    if (end == std::string_view::npos) {
      return false;
    }
    sList.remove_prefix(end + kListSeparator.size());
  }
}

/// Whether a number lies in a range "low..high", both included, where "*" is an open end.
template <class Number>
bool liesInRange(Number value, std::string_view sRange, std::optional<Number> (*convert)(const ParamValue&)) {
  const std::size_t separator = sRange.find(kRangeSeparator);
  if (separator == std::string_view::npos) {
    return false;
  }
  const auto bound = [&](std::string_view sBound) {
    return sBound == "*" ? std::optional<Number>(value) : convert(ParamValue::ofText(sBound));
  };
  const std::optional<Number> low = bound(sRange.substr(0, separator));
  const std::optional<Number> high = bound(sRange.substr(separator + kRangeSeparator.size()));
  return low && high && *low <= value && value <= *high;
}

template <class Number>
bool matchesNumber(const ParamValue& value, Number number, std::string_view sPattern,
                   std::optional<Number> (*convert)(const ParamValue&)) {
  const std::string sNumber = *qm_utils::toString(value);
  return matchesGlob(sPattern, sNumber) || anyElement(sPattern, [&](std::string_view sElement) {
           return matchesGlob(sElement, sNumber) || liesInRange(number, sElement, convert);
         });
}

bool matchesValue(const ParamValue& value, std::string_view sPattern) {
  switch (value.type) {
    case JVariant::T_BOOL: {
      const std::optional<bool> wanted = qm_utils::toBool(ParamValue::ofText(sPattern));
      return sPattern == "*" || (wanted && *wanted == (value.integer != 0));
    }
    case JVariant::T_INT:
      return matchesNumber(value, value.integer, sPattern, qm_utils::toInt64);
    case JVariant::T_DOUBLE:
      return matchesNumber(value, value.number, sPattern, qm_utils::toDouble);
    case JVariant::T_STRING:
      return matchesGlob(sPattern, value.bytes()) || anyElement(sPattern, [&](std::string_view sElement) {
               return matchesGlob(sElement, value.bytes());
             });
    default:
      return sPattern == "*";
  }
}

/// Whether a pair of a record is what a pair asks for. A text can ask for a value of any type: lists and
/// ranges of numbers are texts.
bool matchesPair(const JVariant& pair, const JVariant& wanted) {
  const bool bComparable = pair.getType() == wanted.getType() || pair.getType() == JVariant::T_STRING ||
                           wanted.getType() == JVariant::T_STRING;
  const std::optional<std::string> sPattern = qm_utils::toString(wanted.value());
  return bComparable && sPattern && matchesGlob(wanted.getName(), pair.getName()) &&
         matchesValue(pair.value(), *sPattern);
}

}  // namespace

bool qm_storage::matchesAnyName(const std::string& sKey, const std::vector<std::string>& globs) {
  return std::any_of(globs.begin(), globs.end(),
                     [&sKey](const std::string& sGlob) { return matchesGlob(sGlob, sKey); });
}

bool qm_storage::matchesPairs(const JParams& record, const JParams& wanted) {
  const std::vector<std::string> names = record.getNames();
  const std::vector<std::string> wantedNames = wanted.getNames();
  return std::all_of(wantedNames.begin(), wantedNames.end(), [&](const std::string& sWanted) {
    return std::any_of(names.begin(), names.end(), [&](const std::string& sName) {
      return matchesPair(*record.find(sName), *wanted.find(sWanted));
    });
  });
}
