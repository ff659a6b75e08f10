#include <algorithm>
#include <array>
#include <memory>
#include <optional>
#include <string>

#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/params/jparams.h"
#include "tools/qmctl/dates.h"
#include "tools/qmctl/failure.h"
#include "tools/qmctl/listcommands.h"
#include "tools/qmctl/text.h"

namespace qmctl {

namespace {

/// The keys of a criteria text. The control passes over others, which would search for more than was meant.
constexpr std::array<std::string_view, 22> kCriteria{
    "AlarmName",
    "AnalyticsType",
    "EndDate",
    "ExcludeAlarm",
    "ExcludeMetaDataByName",
    "ExcludeMetaDataByValue",
    "ExcludeProtected",
    "ExcludeSrcAnalytics",
    "ExcludeSrcWithAnalytics",
    "FileType",
    "Fps",
    "MaxFps",
    "MetaData",
    "MinFps",
    "RequireAlarm",
    "RequireMetaDataByName",
    "RequireMetaDataByValue",
    "RequireProtected",
    "RequireSrcAnalytics",
    "RequireSrcWithAnalytics",
    "SourceName",
    "StartDate",
};

/// The options of the command line, each absent unless it was given.
struct Options {
  std::string sCriteria;
  std::optional<std::string> source;
  std::optional<std::string> type;
  std::optional<std::int32_t> fps;
  std::optional<std::int32_t> minFps;
  std::optional<std::int32_t> maxFps;
  std::optional<std::string> start;
  std::optional<std::string> end;
  std::optional<std::string> alarm;
  std::optional<std::string> excludeAlarm;
  bool bProtected = false;
  bool bExcludeProtected = false;
  std::optional<std::string> metaData;
  std::optional<std::string> excludeMetaData;
  std::optional<std::string> analytics;
  std::optional<std::string> analyticsType;
};

void parseCriteria(const std::string& sText, JParams& criteria) {
  try {
    const std::size_t uRead = criteria.parse(sText);
    if (sText.find_first_not_of(" \t\r\n", uRead) != std::string::npos) {
      throw Failure(kWrongUsage, "the criteria can't be read from '" + sText.substr(uRead) + "' on");
    }
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    throw Failure(kWrongUsage, "the criteria can't be read: " + error->getMessage());
  }
  for (const std::string& sName : criteria.getNames()) {
    if (std::ranges::find(kCriteria, sName) == kCriteria.end()) {
      std::string sMessage = "there is no criterion '" + sName + "'; there are";
      for (const std::string_view sKnown : kCriteria) {
        sMessage.append(sKnown == kCriteria.front() ? " " : ", ").append(sKnown);
      }
      throw Failure(kWrongUsage, sMessage);
    }
  }
}

/// Conditions on metadata are by value when they hold values, else by name.
void addMetaData(JParams& criteria, const std::string& sVerb, const std::string& sMetaData) {
  criteria.add("MetaData", sMetaData);
  criteria.add(sVerb + (sMetaData.find('=') != std::string::npos ? "MetaDataByValue" : "MetaDataByName"),
               true);
}

/// The conditions on analytics in words.
constexpr std::array<std::pair<const char*, const char*>, 4> kAnalytics{{
    {"only", "RequireSrcAnalytics"},
    {"exclude", "ExcludeSrcAnalytics"},
    {"with", "RequireSrcWithAnalytics"},
    {"without", "ExcludeSrcWithAnalytics"},
}};

void addConditions(JParams& criteria, const Options& options) {
  if (options.alarm || options.excludeAlarm) {
    criteria.add("AlarmName", options.alarm ? *options.alarm : *options.excludeAlarm);
    criteria.add(options.alarm ? "RequireAlarm" : "ExcludeAlarm", true);
  }
  if (options.bProtected || options.bExcludeProtected) {
    criteria.add(options.bProtected ? "RequireProtected" : "ExcludeProtected", true);
  }
  if (options.metaData || options.excludeMetaData) {
    addMetaData(criteria, options.metaData ? "Require" : "Exclude",
                options.metaData ? *options.metaData : *options.excludeMetaData);
  }
  for (const auto& [szWord, szKey] : kAnalytics) {
    if (options.analytics == szWord) {
      criteria.add(szKey, true);
    }
  }
}

/// The criteria text for the control. An option takes the place of its criterion.
std::string buildCriteria(const Options& options) {
  JParams criteria;
  parseCriteria(options.sCriteria, criteria);
  const auto add = [&](const char* szKey, const auto& value) {
    if (value) {
      criteria.add(szKey, *value);
    }
  };
  add("SourceName", options.source);
  add("FileType", options.type);
  add("Fps", options.fps);
  add("MinFps", options.minFps);
  add("MaxFps", options.maxFps);
  add("StartDate", options.start);
  add("EndDate", options.end);
  add("AnalyticsType", options.analyticsType);
  addConditions(criteria, options);
  for (const char* const szKey : {"StartDate", "EndDate"}) {
    std::string sDate;
    if (criteria.get(szKey, sDate)) {
      criteria.add(szKey, toControlDate(sDate));
    }
  }
  std::string sText;
  criteria.toText(sText);
  return sText;
}

/// The numbers of file types in rows.
std::string typeName(const std::string& sNumber) {
  constexpr std::array<std::string_view, 4> kNames{"any", "video", "audio", "data"};
  const bool bKnown = sNumber.size() == 1 && sNumber[0] >= '0' && sNumber[0] < '4';
  return bKnown ? std::string(kNames[static_cast<std::size_t>(sNumber[0] - '0')]) : sNumber;
}

constexpr std::array kFields{
    RowField{"Sourcename", "source", "SOURCE", RowField::kText},
    RowField{"FileType", "type", "TYPE", RowField::kNumber},
    RowField{"Fps", "fps", "FPS", RowField::kNumber},
    RowField{"StartDate", "start", "START", RowField::kQuoted},
    RowField{"EndDate", "end", "END", RowField::kQuoted},
};

bool isType(const RowField& field) {
  return std::string_view(field.szKey) == "type";
}

void search(Context& context, const Options& options) {
  const std::u16string sCriteria = toControl(buildCriteria(options));
  Listing listing;
  listing.fields = kFields;
  listing.toJson = [](const RowField& field, const std::string& sValue) {
    return isType(field) ? Json(typeName(sValue)) : toJsonValue(field, sValue);
  };
  listing.toCell = [](const RowField& field, const std::string& sValue) {
    return isType(field) ? typeName(sValue) : sValue;
  };
  listing.szNone = "no recording matches";
  printRows(context, listing,
            [&](auto& control, auto& iQueryId) { control.DatabaseQuery(sCriteria.c_str(), iQueryId); });
}

void addExcluding(CLI::Option* pOne, CLI::Option* pOther) {
  pOne->excludes(pOther);
}

}  // namespace

void addSearchCommand(CLI::App& app, Context& context) {
  CLI::App& command = addCommand(app, "search", "Searches recordings, one row each",
                                 "search --source 'gate*' --type video --start 2011-03-03T10:00:00Z\n"
                                 "  qmctl search 'SourceName=\"gate\",RequireAlarm=true'");
  const auto pOptions = std::make_shared<Options>();
  command.add_option("CRITERIA", pOptions->sCriteria,
                     "A parameter list; an option takes the place of its criterion");
  command.add_option("--source", pOptions->source, "Source name; * stands for any characters, ? for one");
  command.add_option("--type", pOptions->type, "What is recorded")
      ->check(CLI::IsMember({"any", "video", "audio", "data", "metadata"}, CLI::ignore_case));
  command.add_option("--fps", pOptions->fps, "Exactly this frame rate")->check(isFrameRate());
  command.add_option("--min-fps", pOptions->minFps, "At least this frame rate")->check(isFrameRate());
  command.add_option("--max-fps", pOptions->maxFps, "At most this frame rate")->check(isFrameRate());
  command.add_option("--start", pOptions->start, "From this date on")->check(isDate());
  command.add_option("--end", pOptions->end, "Up to this date")->check(isDate());
  auto* const pAlarm =
      command.add_option("--alarm", pOptions->alarm, "Only inside alarms of this name; * for any");
  addExcluding(pAlarm, command.add_option("--exclude-alarm", pOptions->excludeAlarm, "Only outside of them"));
  auto* const pProtected = command.add_flag("--protected", pOptions->bProtected, "Only what is protected");
  addExcluding(pProtected,
               command.add_flag("--exclude-protected", pOptions->bExcludeProtected, "Only what isn't"));
  auto* const pMetaData = command.add_option("--metadata", pOptions->metaData,
                                             "Only with these keys, or these 'key=value' pairs; * for any");
  addExcluding(pMetaData,
               command.add_option("--exclude-metadata", pOptions->excludeMetaData, "Only without them"));
  command
      .add_option("--analytics", pOptions->analytics,
                  "Analytics streams only, all but those, sources with one, or without")
      ->check(CLI::IsMember({"only", "exclude", "with", "without"}));
  command.add_option("--analytics-type", pOptions->analyticsType, "The type that --analytics looks at");
  command.callback(
      [&context, pOptions] { context.todo = [&context, pOptions] { search(context, *pOptions); }; });
}

}  // namespace qmctl
