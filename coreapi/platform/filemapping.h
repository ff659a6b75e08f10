#pragma once

#include <cstddef>
#include <cstdint>

/// Views of files in memory. Every operation reports 0, or the `errno` value of what failed. Any thread.
namespace qm_platform {

/// What the offset of a view is a multiple of; 0 when the system doesn't tell.
std::uint64_t mappingGranularity() noexcept;

/// Maps a part of a file, shared with it. `address` is null after a failure.
int mapFile(int descriptor, std::uint64_t offset, std::size_t size, bool writable, void*& address) noexcept;

int unmapFile(void* address, std::size_t size) noexcept;

}  // namespace qm_platform
