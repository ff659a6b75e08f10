#include "tools/qmctl/commandline.h"

#include <exception>
#include <ostream>
#include <sstream>
#include <stdexcept>
#include <vector>

#include "coreapi/qmutils/error/jerror.h"
#include "tools/programlog.h"
#include "tools/qmctl/dates.h"
#include "tools/qmctl/failure.h"
#include "tools/qmctl/text.h"

namespace {

constexpr const char* kFooter =
    "Dates: MM/DD/YYYY HH:MM:SS.uuuuuuUTC, YYYY-MM-DDTHH:MM:SS[.uuuuuu]Z,\n"
    "or @ and the count of microseconds since 1601.\n"
    "Exit status: 0 done, 1 the operation failed, 2 wrong usage, 3 no connection,\n"
    "130 interrupted.\n"
    "\n"
    "Example:\n"
    "  qmctl --server archive.example search --source gate --start 2011-03-03T10:00:00Z\n"
    "\n"
    "'qmctl COMMAND --help' tells about a command.";

/// The lines of a failure, each with the tool's name in front.
void tell(std::ostream& error, const std::string& sText) {
  std::istringstream lines(sText);
  for (std::string sLine; std::getline(lines, sLine);) {
    error << "qmctl: " << qmctl::printable(sLine) << '\n';
  }
}

void addGlobalOptions(CLI::App& app, qmctl::Settings& settings, std::string& sLogLevel,
                      std::string& sLogFile) {
  app.add_option("--server", settings.sServer, "Host name of the Manager")->capture_default_str();
  app.add_option("--port", settings.iPort, "Its port")->check(CLI::Range(1, 65535))->capture_default_str();
  app.add_option("--tunnel-port", settings.iTunnelPort,
                 "A port that leads to it, where its own can't be reached; 0 for none")
      ->check(CLI::Range(0, 65535))
      ->capture_default_str();
  app.add_option("--timeout", settings.iTimeOut, "Milliseconds to wait for an answer; -1 for no limit")
      ->check(CLI::Range(-1, INT32_MAX))
      ->capture_default_str();
  app.add_flag("--json", settings.bJson, "One JSON object a line in the place of tables");
  app.add_option("--log-level", sLogLevel, "Log from this level up: " + qm_programlog::levelNames());
  app.add_option("--log", sLogFile, "Log into this file; without it to standard error");
}

void setUpLog(const std::string& sLevel, const std::string& sFile) {
  try {
    qm_programlog::setUp("qmctl", sLevel, sFile);
  } catch (const std::invalid_argument& error) {
    throw qmctl::Failure(qmctl::kWrongUsage, error.what());
  }
}

int attempt(qmctl::Context& context, const std::string& sLogLevel, const std::string& sLogFile) {
  try {
    setUpLog(sLogLevel, sLogFile);
    context.todo();
    if (!context.out.flush()) {
      throw qmctl::Failure(qmctl::kFailed, "can't write to standard output");
    }
    return qmctl::kDone;
  } catch (const qmctl::Failure& failure) {
    context.out.flush();
    tell(context.error, failure.what());
    return failure.getStatus();
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    tell(context.error, error->getMessage());
  } catch (const std::exception& exception) {
    tell(context.error, exception.what());
  }
  return qmctl::kFailed;
}

}  // namespace

namespace qmctl {

CLI::App& addCommand(CLI::App& parent, const std::string& sName, const std::string& sDescription,
                     const std::string& sExample) {
  CLI::App& command = *parent.add_subcommand(sName, sDescription);
  command.footer("Example:\n  qmctl " + sExample);
  return command;
}

CLI::Validator isFrameRate() {
  return CLI::Range(0, INT32_MAX, "RATE");
}

CLI::Validator isDate() {
  const auto check = [](const std::string& sDate) -> std::string {
    try {
      toControlDate(sDate);
      return {};
    } catch (const Failure& failure) {
      return failure.what();
    }
  };
  return CLI::Validator(check, "DATE");
}

void addRecording(CLI::App& command, std::string& sSource, std::int32_t& iFps) {
  command.add_option("SOURCE", sSource, "Source name")->required();
  command.add_option("FPS", iFps, "Frame rate, 0 for sound")->required()->check(isFrameRate());
}

int runCommandLine(int argc, const char* const* argv, Context& context) {
  CLI::App app("Works with the archive of a storage Manager.", "qmctl");
  app.set_version_flag("--version", "qmctl " QM_VERSION);
  app.footer(kFooter);
  app.require_subcommand(1);
  app.fallthrough();
  std::string sLogLevel;
  std::string sLogFile;
  addGlobalOptions(app, context.settings, sLogLevel, sLogFile);
  addStatusCommand(app, context);
  addListCommands(app, context);
  addSearchCommand(app, context);
  addArchiveCommands(app, context);
  addCopyCommands(app, context);
  addFileCommands(app, context);
  addExportCommand(app, context);
  addImportCommand(app, context);
  addScriptCommand(app, context);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    const std::vector<std::string> unread = app.remaining();
    if (app.get_subcommands().empty() && !unread.empty() && error.get_exit_code() != 0) {
      tell(context.error, "there is no command '" + unread.front() + "'; see 'qmctl --help'");
      return kWrongUsage;
    }
    return app.exit(error, context.out, context.error) == 0 ? kDone : kWrongUsage;
  }
  const int iStatus = attempt(context, sLogLevel, sLogFile);
  qm_programlog::end();
  return iStatus;
}

}  // namespace qmctl
