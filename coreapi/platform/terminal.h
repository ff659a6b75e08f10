#pragma once

namespace qm_platform {

/// Whether a descriptor of this process is a terminal. 0 is the standard input.
bool isTerminal(int iDescriptor) noexcept;

}  // namespace qm_platform
