#pragma once

#include <cstdio>
#include <string>

namespace qm_platform {

/// Makes a new file that its owner alone may read and write, takes its name away again, and opens a stream of
/// mode "wb+" on it; the caller closes that. 0, or the `errno` value of what failed: EEXIST when the name is
/// taken. `stream` is null after a failure. Any thread.
int openUnnamedStream(const std::string& path, std::FILE*& stream);

}  // namespace qm_platform
