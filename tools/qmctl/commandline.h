#pragma once

#include <functional>
#include <iosfwd>
#include <string>

#include <CLI/CLI.hpp>

#include "tools/qmctl/session.h"

namespace qmctl {

/// What commands are given: the settings, filled when the command line has been read, and where they write.
struct Context {
  Settings settings;
  std::istream& in;
  std::ostream& out;
  std::ostream& error;
  bool bTerminal;              ///< `in` is a terminal
  std::function<void()> todo;  ///< the command of the command line
  bool bShowProgress = false;  ///< `error` is a terminal: long work shows there how far it is
};

// Each adds its family of commands. A command puts what it does into `Context::todo`.

void addStatusCommand(CLI::App& app, Context& context);
void addListCommands(CLI::App& app, Context& context);
void addSearchCommand(CLI::App& app, Context& context);
void addArchiveCommands(CLI::App& app, Context& context);
void addCopyCommands(CLI::App& app, Context& context);
void addFileCommands(CLI::App& app, Context& context);
void addExportCommand(CLI::App& app, Context& context);
void addImportCommand(CLI::App& app, Context& context);
void addScriptCommand(CLI::App& app, Context& context);

/// A command with an example in its help text.
CLI::App& addCommand(CLI::App& parent, const std::string& sName, const std::string& sDescription,
                     const std::string& sExample);

/// Adds the two arguments that name a recording.
void addRecording(CLI::App& command, std::string& sSource, std::int32_t& iFps);

/// What a frame rate on the command line must be.
CLI::Validator isFrameRate();

/// What a date on the command line must be: anything but a date is wrong usage, the empty text too.
CLI::Validator isDate();

/// Reads the command line and does what it says. Returns the exit status; nothing is thrown.
int runCommandLine(int argc, const char* const* argv, Context& context);

}  // namespace qmctl
