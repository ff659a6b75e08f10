#pragma once

#include <cstdint>
#include <string>

namespace qm_platform {

/// File name, without directory, of the program that runs in this process. Read once.
const std::string& runningModuleName();

/// Number of this process, as the system shows it.
std::uint32_t processId() noexcept;

/// Number of the calling thread, as the system shows it; unique among all living threads of the machine.
std::uint32_t threadId() noexcept;

}  // namespace qm_platform
