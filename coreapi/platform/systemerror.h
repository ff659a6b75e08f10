#pragma once

#include <string>

namespace qm_platform {

/// The system's English text for an `errno` value, whatever the host's locale; empty when the system has
/// none.
std::string systemErrorText(unsigned code);

}  // namespace qm_platform
