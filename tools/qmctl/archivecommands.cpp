#include <istream>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "tools/qmctl/commandline.h"
#include "tools/qmctl/dates.h"
#include "tools/qmctl/failure.h"
#include "tools/qmctl/output.h"
#include "tools/qmctl/text.h"

// The commands that change the archive.

namespace qmctl {

namespace {

/// The arguments of all of them; each uses those that it has options for. Dates become the control's own
/// when the command is carried out.
struct Arguments {
  std::string sSource;
  std::int32_t iFps = 0;
  std::string sStart;
  std::string sEnd;
  std::string sName;  ///< of an alarm
  std::string sAt;    ///< date of an alarm
  std::string sValidFrom;
  std::string sUntil;
  std::string sDetails;
  std::string sParams;
  std::vector<std::string> dates;  ///< of spans, start and end in turn
  std::string sFile;
  std::string sDiskSpace;
  bool bYes = false;
};

using ArgumentsPtr = std::shared_ptr<Arguments>;

std::u16string dateOf(const std::string& sDate) {
  return toControl(toControlDate(sDate));
}

std::u16string optionalDateOf(const std::string& sDate) {
  return sDate.empty() ? std::u16string() : dateOf(sDate);
}

/// Connects and runs a command.
void carryOut(Context& context, const std::string& sName, const Session::Command& command) {
  Session session(context.settings);
  session.run(command);
  if (context.settings.bJson) {
    writeJson(context.out, {{"command", sName}, {"result", 0}});
  } else {
    context.out << "done\n";
  }
}

/// A command and its arguments, the recording's first. `prepare` reads the arguments, and gives what is to be
/// done when they are right.
using Prepare = std::function<Session::Command(const Arguments&)>;

struct Builder {
  CLI::App& command;
  ArgumentsPtr pArguments;

  Builder& recording() {
    addRecording(command, pArguments->sSource, pArguments->iFps);
    return *this;
  }
  Builder& span(bool bRequired = true) {
    command.add_option("START", pArguments->sStart, "First date of the span")
        ->required(bRequired)
        ->check(isDate());
    command.add_option("END", pArguments->sEnd, "Last date of the span")
        ->required(bRequired)
        ->check(isDate());
    return *this;
  }
  Builder& text(const char* szName, std::string Arguments::*pText, const char* szHelp) {
    command.add_option(szName, (*pArguments).*pText, szHelp)->required(szName[0] != '-');
    return *this;
  }
  Builder& date(const char* szName, std::string Arguments::*pText, const char* szHelp) {
    command.add_option(szName, (*pArguments).*pText, szHelp)->check(isDate());
    return *this;
  }
  void does(Context& context, Prepare prepare) {
    command.callback(
        [&context, pGiven = pArguments, sName = command.get_name(), prepare = std::move(prepare)] {
          context.todo = [&context, pGiven, sName, prepare] { carryOut(context, sName, prepare(*pGiven)); };
        });
  }
};

Builder build(CLI::App& app, const char* szName, const char* szDescription, const char* szExample) {
  return {addCommand(app, szName, szDescription, szExample), std::make_shared<Arguments>()};
}

/// A command on one span whose member takes the source, the rate, the span's ends, and nothing else.
using SpanMember = QMStatus (JQMStorageAccessCtrl::*)(const char16_t*, std::int32_t, const char16_t*,
                                                      const char16_t*, std::int32_t&);

Session::Command onSpan(const Arguments& given, SpanMember member) {
  return [sSource = toControl(given.sSource), iFps = given.iFps, sStart = dateOf(given.sStart),
          sEnd = dateOf(given.sEnd), member](JQMStorageAccessCtrl& control, std::int32_t& iResult) {
    (control.*member)(sSource.c_str(), iFps, sStart.c_str(), sEnd.c_str(), iResult);
  };
}

void addProtection(CLI::App& app, Context& context) {
  build(app, "protect", "Keeps a span from being erased",
        "protect gate 25 2011-03-03T10:00:00Z 2011-03-03T11:00:00Z --details 'case 17'")
      .recording()
      .span()
      .date("--valid-from", &Arguments::sValidFrom, "When the protection begins to hold; at once without it")
      .date("--until", &Arguments::sUntil, "When it ends; never without it")
      .text("--details", &Arguments::sDetails, "Why")
      .does(context, [](const Arguments& given) -> Session::Command {
        return [sSource = toControl(given.sSource), iFps = given.iFps, sStart = dateOf(given.sStart),
                sEnd = dateOf(given.sEnd), sFrom = optionalDateOf(given.sValidFrom),
                sUntil = optionalDateOf(given.sUntil),
                sDetails = toControl(given.sDetails)](auto& control, auto& iResult) {
          control.Protect(sSource.c_str(), iFps, sStart.c_str(), sEnd.c_str(), sFrom.c_str(), sUntil.c_str(),
                          sDetails.c_str(), iResult);
        };
      });
  build(app, "unprotect", "Ends the protection of a span",
        "unprotect gate 25 2011-03-03T10:00:00Z 2011-03-03T11:00:00Z")
      .recording()
      .span()
      .does(context, [](const Arguments& given) { return onSpan(given, &JQMStorageAccessCtrl::Unprotect); });
}

/// Spans in the form of the Manager: "START-END;START-END".
std::u16string intervalsOf(const std::vector<std::string>& dates) {
  if (dates.size() % 2 != 0) {
    throw Failure(kWrongUsage, "each START needs an END");
  }
  std::string sIntervals;
  for (std::size_t i = 0; i < dates.size(); i += 2) {
    sIntervals += (i == 0 ? "" : ";") + toControlDate(dates[i]) + "-" + toControlDate(dates[i + 1]);
  }
  return toControl(sIntervals);
}

using TextMember = QMStatus (JQMStorageAccessCtrl::*)(const char16_t*, std::int32_t, const char16_t*,
                                                      std::int32_t&);

void addHiding(CLI::App& app, Context& context, const char* szName, const char* szDescription,
               TextMember member) {
  const std::string sExample = std::string(szName) + " gate 25 2011-03-03T10:00:00Z 2011-03-03T10:05:00Z";
  Builder builder = build(app, szName, szDescription, sExample.c_str());
  builder.recording();
  builder.command.add_option("DATES", builder.pArguments->dates, "START END [START END ...]")
      ->required()
      ->check(isDate());
  builder.does(context, [member](const Arguments& given) -> Session::Command {
    return [sSource = toControl(given.sSource), iFps = given.iFps, sIntervals = intervalsOf(given.dates),
            member](JQMStorageAccessCtrl& control, std::int32_t& iResult) {
      (control.*member)(sSource.c_str(), iFps, sIntervals.c_str(), iResult);
    };
  });
}

void addAlarms(CLI::App& app, Context& context) {
  build(app, "alarm", "Marks a span with an alarm",
        "alarm gate 25 door 2011-03-03T10:00:00Z 2011-03-03T10:05:00Z --at 2011-03-03T10:01:30Z")
      .recording()
      .text("NAME", &Arguments::sName, "Name of the alarm")
      .span()
      .date("--at", &Arguments::sAt, "When it happened; the start of the span without it")
      .does(context, [](const Arguments& given) -> Session::Command {
        return [sSource = toControl(given.sSource), iFps = given.iFps, sName = toControl(given.sName),
                sAt = dateOf(given.sAt.empty() ? given.sStart : given.sAt), sStart = dateOf(given.sStart),
                sEnd = dateOf(given.sEnd)](auto& control, auto& iResult) {
          control.Alarm(sSource.c_str(), iFps, sName.c_str(), sAt.c_str(), sStart.c_str(), sEnd.c_str(),
                        iResult);
        };
      });
  build(app, "remove-alarm", "Removes alarms: those inside a span, or the one of a date",
        "remove-alarm gate 25 door --at 2011-03-03T10:01:30Z")
      .recording()
      .text("NAME", &Arguments::sName, "Name of the alarm")
      .span(false)
      .date("--at", &Arguments::sAt, "When it happened, in the place of a span")
      .does(context, [](const Arguments& given) -> Session::Command {
        if (given.sAt.empty() ? given.sEnd.empty() : !given.sStart.empty()) {
          throw Failure(kWrongUsage, "give START and END, or --at");
        }
        return [sSource = toControl(given.sSource), iFps = given.iFps, sName = toControl(given.sName),
                sAt = optionalDateOf(given.sAt), sStart = optionalDateOf(given.sStart),
                sEnd = optionalDateOf(given.sEnd)](auto& control, auto& iResult) {
          if (!sAt.empty()) {
            control.RemoveAlarmByDate(sSource.c_str(), iFps, sName.c_str(), sAt.c_str(), iResult);
          } else {
            control.RemoveAlarmByInterval(sSource.c_str(), iFps, sName.c_str(), sStart.c_str(), sEnd.c_str(),
                                          iResult);
          }
        };
      });
}

/// Asks on a terminal; elsewhere nobody is there who could answer.
void confirmErase(Context& context, const Arguments& given) {
  if (given.bYes || !context.bTerminal) {
    return;
  }
  context.error << "Erase '" << printable(given.sSource) << "' at " << given.iFps << " fps from "
                << toControlDate(given.sStart) << " to " << toControlDate(given.sEnd) << "? [y/N] "
                << std::flush;
  std::string sAnswer;
  if (!std::getline(context.in, sAnswer) || (sAnswer != "y" && sAnswer != "Y" && sAnswer != "yes")) {
    throw Failure(kFailed, "nothing was erased");
  }
}

void addErase(CLI::App& app, Context& context) {
  Builder builder = build(app, "erase", "Erases a span for good; asks first on a terminal",
                          "erase gate 25 2011-03-03T10:00:00Z 2011-03-03T11:00:00Z --yes");
  builder.recording().span();
  builder.command.add_flag("--yes", builder.pArguments->bYes, "Don't ask");
  builder.does(context, [&context](const Arguments& given) {
    Session::Command command = onSpan(given, &JQMStorageAccessCtrl::Erase);
    confirmErase(context, given);
    return command;
  });
}

using MetaDataMember = QMStatus (JQMStorageAccessCtrl::*)(const char16_t*, std::int32_t, const char16_t*,
                                                          const char16_t*, const char16_t*, std::int32_t&);

Session::Command onMetaData(const Arguments& given, MetaDataMember member) {
  return [sSource = toControl(given.sSource), iFps = given.iFps, sStart = dateOf(given.sStart),
          sEnd = dateOf(given.sEnd), sParams = toControl(given.sParams),
          member](JQMStorageAccessCtrl& control, std::int32_t& iResult) {
    (control.*member)(sSource.c_str(), iFps, sStart.c_str(), sEnd.c_str(), sParams.c_str(), iResult);
  };
}

void addMetaData(CLI::App& app, Context& context) {
  build(app, "set-metadata", "Attaches metadata to a span",
        "set-metadata gate 25 2011-03-03T10:00:00Z 2011-03-03T10:05:00Z 'case=17,officer=\"Lee\"'")
      .recording()
      .span()
      .text("PARAMS", &Arguments::sParams, "A parameter list")
      .does(context,
            [](const Arguments& given) { return onMetaData(given, &JQMStorageAccessCtrl::SetMetaData); });
  build(app, "unset-metadata", "Takes metadata off a span",
        "unset-metadata gate 25 2011-03-03T10:00:00Z 2011-03-03T10:05:00Z case,officer")
      .recording()
      .span()
      .text("NAMES", &Arguments::sParams, "Names with commas between them")
      .does(context,
            [](const Arguments& given) { return onMetaData(given, &JQMStorageAccessCtrl::UnsetMetaData); });
}

void addAddFile(CLI::App& app, Context& context) {
  build(app, "add-file", "Adds a media file of the Manager's side to the archive",
        "add-file clip.asf gate --start 2011-03-03T10:00:00Z")
      .text("FILE", &Arguments::sFile, "File name on the Manager's side")
      .text("SOURCE", &Arguments::sSource, "Source name")
      .text("--alarm", &Arguments::sName, "Name of an alarm that it belongs to")
      .date("--start", &Arguments::sStart, "Date of its first frame")
      .text("--disk-space", &Arguments::sDiskSpace, "Where it is to be kept")
      .does(context, [](const Arguments& given) -> Session::Command {
        return [sFile = toControl(given.sFile), sDiskSpace = toControl(given.sDiskSpace),
                sSource = toControl(given.sSource), sName = toControl(given.sName),
                sStart = optionalDateOf(given.sStart)](auto& control, auto& iResult) {
          control.AddFile(sFile.c_str(), sDiskSpace.c_str(), sSource.c_str(), sName.c_str(), sStart.c_str(),
                          iResult);
        };
      });
}

}  // namespace

void addArchiveCommands(CLI::App& app, Context& context) {
  addProtection(app, context);
  addAlarms(app, context);
  addErase(app, context);
  addHiding(app, context, "hide", "Hides spans from searches", &JQMStorageAccessCtrl::HideIntervals);
  addHiding(app, context, "unhide", "Shows hidden spans again", &JQMStorageAccessCtrl::UnhideIntervals);
  addMetaData(app, context);
  addAddFile(app, context);
}

}  // namespace qmctl
