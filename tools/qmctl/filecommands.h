#pragma once

#include "tools/qmctl/commandline.h"

namespace qmctl {

/// `file rebuild FILE` and `file cut FILE DATE`.
void addMendCommands(CLI::App& file, Context& context);

/// Adds the argument that names a media file.
void addFileArgument(CLI::App& command, std::string& sFile);

}  // namespace qmctl
