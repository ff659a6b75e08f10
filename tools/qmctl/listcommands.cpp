#include "tools/qmctl/listcommands.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <memory>
#include <ostream>

#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/params/jparams.h"
#include "coreapi/qmutils/time/jtime.h"
#include "tools/qmctl/text.h"

namespace qmctl {

namespace {

Json numberOrText(std::string_view sValue) {
  std::int64_t iValue = 0;
  const auto [pEnd, error] = std::from_chars(sValue.data(), sValue.data() + sValue.size(), iValue);
  const bool bNumber = error == std::errc() && pEnd == sValue.data() + sValue.size();
  return bNumber ? Json(iValue) : Json(sValue);
}

Json ratesToJson(const std::string& sRates) {
  Json rates = Json::array();
  for (std::size_t uAt = 0; uAt < sRates.size();) {
    const std::size_t uEnd = std::min(sRates.find(',', uAt), sRates.size());
    rates.push_back(numberOrText(std::string_view(sRates).substr(uAt, uEnd - uAt)));
    uAt = uEnd + 1;
  }
  return rates;
}

/// The pairs of a metadata record as an object; as they stand when they aren't a parameter list.
Json pairsToJson(const std::string& sPairs) {
  try {
    JParams params;
    params.parse(sPairs);
    return toJson(params);
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    return sPairs;
  }
}

// The rows.

constexpr std::array kSourceFields{
    RowField{"SourceName", "source", "SOURCE", RowField::kText},
    RowField{"Fps", "fps", "FPS", RowField::kQuoted},
};
constexpr std::array kAlarmFields{
    RowField{"Name", "name", "NAME", RowField::kText},
    RowField{"SpanStartDate", "start", "START", RowField::kQuoted},
    RowField{"SpanEndDate", "end", "END", RowField::kQuoted},
    RowField{"AlarmDate", "date", "DATE", RowField::kQuoted},
};
constexpr std::array kProtectionFields{
    RowField{"ProtectedStartDate", "start", "START", RowField::kQuoted},
    RowField{"ProtectedEndDate", "end", "END", RowField::kQuoted},
    RowField{"ValidityStartDate", "validFrom", "VALID FROM", RowField::kQuoted},
    RowField{"ValidityEndDate", "validUntil", "VALID UNTIL", RowField::kQuoted},
    RowField{"Details", "details", "DETAILS", RowField::kText},
};
constexpr std::array kMetaDataFields{
    RowField{"SpanStartDate", "start", "START", RowField::kQuoted},
    RowField{"SpanEndDate", "end", "END", RowField::kQuoted},
    RowField{"", "params", "METADATA", RowField::kRest},
};

/// A bare name.
constexpr std::array kAlarmNameFields{RowField{"", "alarm", "ALARM", RowField::kRest}};

/// Only the first of its names is looked for as one that may hold anything: the Manager's own names are the
/// others.
constexpr std::array kAnalyticsFields{
    RowField{"Sourcename", "source", "SOURCE", RowField::kText},
    RowField{"AnalyticsSourceName", "analyticsSource", "ANALYTICS SOURCE", RowField::kQuoted},
    RowField{"AnalyticsName", "analytics", "ANALYTICS", RowField::kQuoted},
    RowField{"AnalyticsType", "type", "TYPE", RowField::kQuoted},
    RowField{"Fps", "fps", "FPS", RowField::kNumber},
    RowField{"GridWidth", "gridWidth", "GRID WIDTH", RowField::kNumber},
    RowField{"GridHeight", "gridHeight", "GRID HEIGHT", RowField::kNumber},
};

Json sourceToJson(const RowField& field, const std::string& sValue) {
  return field.eKind == RowField::kText ? Json(sValue) : ratesToJson(sValue);
}

Json textToJson(const RowField& /*field*/, const std::string& sValue) {
  return sValue;
}

constexpr std::string_view kValidityStart = "ValidityStartDate";
constexpr std::string_view kValidityEnd = "ValidityEndDate";

/// An open end of a validity is the date 0, which no row can print.
bool isOpenEnd(const RowField& field, const std::string& sValue) {
  return (field.szLabel == kValidityStart || field.szLabel == kValidityEnd) &&
         sValue == JTime::zero().toUSFormat();
}

std::string protectionToCell(const RowField& field, const std::string& sValue) {
  return !isOpenEnd(field, sValue) ? sValue : field.szLabel == kValidityStart ? "at once" : "for good";
}

Json protectionToJson(const RowField& field, const std::string& sValue) {
  return isOpenEnd(field, sValue) ? Json() : toJsonValue(field, sValue);
}

/// A query about one recording, as a command of a group.
struct RecordingQuery {
  const char* szName;
  const char* szDescription;
  std::span<const RowField> fields;
  QMStatus (JQMStorageAccessCtrl::*query)(const char16_t*, std::int32_t, std::int32_t&);
  Json (*toJson)(const RowField& field, const std::string& sValue) = nullptr;
  std::string (*toCell)(const RowField& field, const std::string& sValue) = nullptr;
};

void addRecordingQuery(CLI::App& group, Context& context, const RecordingQuery& query) {
  CLI::App& command = addCommand(group, query.szName, query.szDescription,
                                 group.get_name() + " " + query.szName + " gate 25");
  struct Arguments {
    std::string sSource;
    std::int32_t iFps = 0;
  };
  const auto pArguments = std::make_shared<Arguments>();
  addRecording(command, pArguments->sSource, pArguments->iFps);
  command.callback([=, &context] {
    context.todo = [=, &context] {
      const std::u16string sSource = toControl(pArguments->sSource);
      printRows(context, {query.fields, query.toJson, query.toCell, "there is no entry"},
                [&](auto& control, auto& iQueryId) {
                  (control.*query.query)(sSource.c_str(), pArguments->iFps, iQueryId);
                });
    };
  });
}

}  // namespace

Json toJsonValue(const RowField& field, const std::string& sValue) {
  switch (field.eKind) {
    case RowField::kNumber:
      return numberOrText(sValue);
    case RowField::kRest:
      return pairsToJson(sValue);
    default:
      return sValue;
  }
}

void printRows(Context& context, const Listing& listing, const Session::Query& query) {
  std::vector<std::string> headers;
  for (const RowField& field : listing.fields) {
    headers.emplace_back(field.szHeader);
  }
  Session session(context.settings);
  Table table(context.out, std::move(headers));
  bool bAny = false;
  std::vector<std::string> values;
  const auto take = [&](const std::string& sRow) {
    bAny = true;
    const bool bSplit = splitRow(sRow, listing.fields, values);
    if (!context.settings.bJson) {
      for (std::size_t i = 0; bSplit && listing.toCell != nullptr && i < values.size(); ++i) {
        values[i] = listing.toCell(listing.fields[i], values[i]);
      }
      table.add(bSplit ? values : std::vector{sRow});
      return;
    }
    Json object = Json::object();
    for (std::size_t i = 0; bSplit && i < values.size(); ++i) {
      object[listing.fields[i].szKey] =
          (listing.toJson != nullptr ? listing.toJson : toJsonValue)(listing.fields[i], values[i]);
    }
    writeJson(context.out, bSplit ? object : Json{{"row", sRow}});
  };
  try {
    session.forEachRow(query, take);
  } catch (...) {
    table.finish();
    throw;
  }
  table.finish();
  if (!bAny && !context.settings.bJson) {
    context.error << "qmctl: " << listing.szNone << '\n';
  }
}

void addListCommands(CLI::App& app, Context& context) {
  addCommand(app, "sources", "Lists the sources and their frame rates", "--json sources")
      .callback([&context] {
        context.todo = [&context] {
          const Listing listing{kSourceFields, sourceToJson, nullptr, "there are no sources"};
          printRows(context, listing, [](auto& control, auto& iQueryId) { control.SourcesQuery(iQueryId); });
        };
      });
  addCommand(app, "alarms", "Lists the names of the alarms", "alarms").callback([&context] {
    context.todo = [&context] {
      const Listing listing{kAlarmNameFields, textToJson, nullptr, "there are no alarms"};
      printRows(context, listing, [](auto& control, auto& iQueryId) { control.AlarmNamesQuery(iQueryId); });
    };
  });
  CLI::App& log =
      addCommand(app, "log", "Prints a log of a recording, one row a record", "log alarm gate 25");
  log.require_subcommand(1);
  addRecordingQuery(log, context,
                    {"alarm", "Alarms and their spans", kAlarmFields, &JQMStorageAccessCtrl::AlarmLogQuery});
  addRecordingQuery(log, context,
                    {"protection", "Protected spans", kProtectionFields,
                     &JQMStorageAccessCtrl::ProtectedLogQuery, protectionToJson, protectionToCell});
  addRecordingQuery(
      log, context,
      {"metadata", "Spans that carry metadata", kMetaDataFields, &JQMStorageAccessCtrl::MetaDataLogQuery});
  CLI::App& analytics = addCommand(app, "analytics", "Tells about analytics", "analytics sources gate 25");
  analytics.require_subcommand(1);
  addRecordingQuery(analytics, context,
                    {"sources", "Streams with the results of analytics", kAnalyticsFields,
                     &JQMStorageAccessCtrl::AnalyticsSourceQuery});
}

}  // namespace qmctl
