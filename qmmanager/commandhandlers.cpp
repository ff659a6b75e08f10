#include "qmmanager/commandhandlers.h"

#include <algorithm>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/params/jparams.h"
#include "coreapi/qmutils/text/jglob.h"
#include "coreapi/qmutils/text/jtext.h"
#include "qmmanager/alarms.h"
#include "qmmanager/archive.h"
#include "qmmanager/intervals.h"
#include "qmmanager/request.h"
#include "qmmanager/spantext.h"
#include "storage/ArchiveUnit.h"

namespace qm_manager {

namespace {

// The logs of metadata and of hidden spans give these two dates, and those beyond them, back as others.
constexpr JTime kBeforeFirst = JTime::firstQueryTime();
constexpr JTime kBehindLast = JTime::lastQueryTime();

/// What such a log can hold of a span; no recording lies outside it. Throws JTextError when that is nothing.
TimeSpan storable(const TimeSpan& span) {
  const TimeSpan cut(std::max(span.startDate, JTime(kBeforeFirst).add(1)),
                     std::min(span.endDate, JTime(kBehindLast).subtract(1)));
  if (cut.endDate <= cut.startDate) {
    QM_THROW(JTextError, "the span from " + textOf(span) + " has no length, or lies outside 1970 to 2038");
  }
  return cut;
}

TimeSpanList storable(TimeSpanList spans) {
  for (TimeSpan& span : spans) {
    span = storable(span);
  }
  spans.mergeGap(0);
  return spans;
}

// Protections.

void protect(ArchiveUnit& unit, const Request& request) {
  const TimeSpan media = request.getSpan("TsProtectedStart", "TsProtectedEnd");
  const TimeSpan validity(request.getTime("TsValidStart"), request.getTime("TsValidEnd"));
  if (validity.endDate != JTime::zero() && validity.endDate < validity.startDate) {
    QM_THROW(JTextError, "the validity ends before it starts");
  }
  auto pRecord = std::make_unique<ProtectedLogRecord>(media, validity, request.getText("Details"));
  if (!ProtectedLog::hasRoomFor(*pRecord)) {
    QM_THROW(JTextError, "the details are too long, or hold a line break");
  }
  unit.changeProtectedLog([&](ProtectedLog& log) { log.addRecord(std::move(pRecord), true); });
}

void unprotect(ArchiveUnit& unit, const Request& request) {
  const TimeSpan media = request.getSpan("TsProtectedStart", "TsProtectedEnd");
  unit.changeProtectedLog([&](ProtectedLog& log) { log.removeSpan(media, true); });
}

// Alarms.

void raiseAlarm(ArchiveUnit& unit, const Request& request) {
  addAlarm(unit, AlarmLogRecord(request.getText("AlarmName"), request.getTime("TsAlarmIncident"),
                                request.getSpan("TsAlarmStart", "TsAlarmEnd")));
}

void removeAlarmByInterval(ArchiveUnit& unit, const Request& request) {
  const std::string sName = request.getText("AlarmName");
  const TimeSpan media = request.getSpan("TsAlarmStart", "TsAlarmEnd");
  unit.changeAlarmLog([&](AlarmLog& log) { log.removeSpan(sName, media, true); });
}

void removeAlarmByDate(ArchiveUnit& unit, const Request& request) {
  const std::string sName = request.getText("AlarmName");
  const JTime incident = request.getTime("TsAlarmIncident");
  const auto isMeant = [&](const AlarmLogRecord& record) {
    return record.alarmDate == incident && qm_utils::matchesGlob(sName, record.name);
  };
  unit.changeAlarmLog([&](AlarmLog& log) {
    const AlarmLog::Records& records = log.getRecords();
    std::vector<AlarmLog::Records::Position> meant;
    for (auto position = records.begin(); position != records.end(); ++position) {
      if (isMeant(**position)) {
        meant.push_back(position);
      }
    }
    if (meant.empty()) {
      QM_THROW(JTextError, "no alarm \"" + sName + "\" was raised at " + incident.toUSFormat());
    }
    for (const auto position : meant) {
      log.removeRecord(position, position == meant.back());
    }
  });
}

// Metadata.

/// Whether a text is nothing but a list of at least one pair.
bool parseAll(const std::string& sText, JParams& pairs) {
  try {
    const std::size_t uRead = pairs.parse(sText);
    return !pairs.isEmpty() && sText.find_first_not_of(" \t", uRead) == std::string::npos;
  } catch (JVariant::SyntaxError* pError) {
    const qm_err::CaughtError error(pError);
    return false;
  }
}

JParams parsePairs(const std::string& sText) {
  JParams pairs;
  if (!parseAll(sText, pairs)) {
    QM_THROW(JTextError, "\"" + sText + "\" is no list of pairs; one is KEY=VALUE, KEY=VALUE");
  }
  return pairs;
}

void setMetaData(ArchiveUnit& unit, const Request& request) {
  const TimeSpan media = storable(request.getSpan("TsIntervalStart", "TsIntervalEnd"));
  const std::string sPairs = request.getText("Params");
  parsePairs(sPairs);
  unit.changeMetaDataLog([&](MetaDataLog& log) { log.addMetaData(sPairs, media, true); });
}

/// The names that commas separate, without the blanks around them.
std::vector<std::string> parseNames(std::string_view sList) {
  std::vector<std::string> names;
  std::size_t start = 0;
  for (std::size_t comma = 0; comma != std::string_view::npos; start = comma + 1) {
    comma = sList.find(',', start);
    std::string& sName =
        names.emplace_back(sList.substr(start, comma == std::string_view::npos ? comma : comma - start));
    qm_utils::trimSpace(sName);
    if (sName.empty()) {
      QM_THROW(JTextError, "\"" + std::string(sList) + "\" is no list of keys; one is KEY, KEY");
    }
  }
  return names;
}

void unsetMetaData(ArchiveUnit& unit, const Request& request) {
  const TimeSpan media = storable(request.getSpan("TsIntervalStart", "TsIntervalEnd"));
  const std::string sWhat = request.getText("Params");
  if (sWhat.find('=') == std::string::npos) {
    const std::vector<std::string> names = parseNames(sWhat);
    unit.changeMetaDataLog([&](MetaDataLog& log) { log.removeMetaData(names, media, true); });
    return;
  }
  const JParams pairs = parsePairs(sWhat);
  unit.changeMetaDataLog([&](MetaDataLog& log) { log.removePairs(pairs, media, true); });
}

// What searches show.

void erase(ArchiveUnit& unit, const Request& request) {
  unit.erase(storable(request.getSpan("TsEraseStart", "TsEraseEnd")));
}

void hideIntervals(ArchiveUnit& unit, const Request& request) {
  unit.hide(storable(parseIntervals(request.getText("Intervals"))));
}

void unhideIntervals(ArchiveUnit& unit, const Request& request) {
  unit.unhide(storable(parseIntervals(request.getText("Intervals"))));
}

using Command = void (*)(ArchiveUnit& unit, const Request& request);

constexpr struct {
  const char* szFunction;
  Command command;
} kCommands[] = {
    {"rpc_protect", protect},
    {"rpc_unprotect", unprotect},
    {"rpc_alarm", raiseAlarm},
    {"rpc_removeAlarmByInterval", removeAlarmByInterval},
    {"rpc_removeAlarmByDate", removeAlarmByDate},
    {"rpc_erase", erase},
    {"rpc_setMetaData", setMetaData},
    {"rpc_unsetMetaData", unsetMetaData},
    {"rpc_hideIntervals", hideIntervals},
    {"rpc_unhideIntervals", unhideIntervals},
};

}  // namespace

void addCommandHandlers(Handlers& handlers, const Archive& archive) {
  for (const auto& [szFunction, command] : kCommands) {
    handlers.emplace(szFunction, [&archive, command = command](const Request& request, JParams&) {
      command(*archive.requireUnit(request.getText("SourceName"), request.getInteger("Fps")), request);
    });
  }
}

}  // namespace qm_manager
