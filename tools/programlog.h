#pragma once

#include <string>

/// The log of a program of this project.
namespace qm_programlog {

/// Sets the log up for the process's life: no output without a level and a file; to standard error without a
/// file; from INFO up without a level. The program's name stands in the records. Throws
/// std::invalid_argument, with words for the user, for a level that there isn't and a file that can't be
/// opened.
void setUp(const std::string& sProgram, const std::string& sLevel, const std::string& sFile);

/// Writes what the log still holds.
void end();

/// The names of all levels, for help texts and messages.
std::string levelNames();

}  // namespace qm_programlog
