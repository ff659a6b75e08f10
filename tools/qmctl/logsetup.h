#pragma once

#include <string>

namespace qmctl {

/// Sets the log up for the process's life: no output without a level and a file; to standard error without a
/// file; from INFO up without a level. Throws `Failure` (wrong usage) for a level that there isn't and a file
/// that can't be opened.
void setUpLog(const std::string& sLevel, const std::string& sFile);

/// Writes what the log still holds.
void endLog();

/// The names of all levels, for help texts and messages.
std::string logLevelNames();

}  // namespace qmctl
