#pragma once

#include <cstdint>
#include <string>

namespace qm_platform {

/// File name, without directory, of the program that runs in this process. Read once.
const std::string& runningModuleName();

/// Directory of that program, without a slash at its end unless it is the root; empty when it can't be told.
/// Read once.
const std::string& runningModuleDirectory();

/// Number of this process, as the system shows it.
std::uint32_t processId() noexcept;

/// Number of the calling thread, as the system shows it; unique among all living threads of the machine.
std::uint32_t threadId() noexcept;

}  // namespace qm_platform
