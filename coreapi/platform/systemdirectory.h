#pragma once

#include <string>

namespace qm_platform {

/// The directory that holds the machine's files of the system, such as its configuration, without a slash at
/// its end: the variable QM_SYSTEM_DIR; without it the user's own, `quelmarin` in $XDG_CONFIG_HOME or, when
/// that isn't set, in `~/.config`, if there is a file of this name in it; else `/etc/quelmarin`. It needn't
/// exist. Looked up at each call; any thread, as long as nobody changes the environment meanwhile.
std::string systemDirectory(const std::string& fileName);

}  // namespace qm_platform
