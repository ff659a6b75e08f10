#pragma once

#include <string>
#include <vector>

#include "tests/tools/qmctl/toolsupport.h"
#include "tools/qmctl/output.h"

namespace qm_test {

/// The lines of a shell command's output.
std::vector<std::string> linesOf(const std::string& sCommand);

/// Two seconds of a moving picture and a tone, as ffmpeg codes them. Returns the path.
std::string makeClip(const std::string& sPath, const std::string& sOptions);

/// Writes every frame of a media file into a new one, whose kind its name tells. With `sUnfinished` that file
/// gets what stands there before the writer ends it.
void rewrite(const std::string& sFrom, const std::string& sTo, const std::string& sUnfinished = {});

/// The objects that a command prints with --json; fails a test when it doesn't end well or one isn't valid.
std::vector<qmctl::Json> jsonOf(const std::vector<std::string>& command);

}  // namespace qm_test
