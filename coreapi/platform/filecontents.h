#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace qm_platform {

/// Reads a small file whole. Returns 0, or the `errno` value of what failed; EFBIG when the file holds more
/// than `limit` bytes. `contents` is empty after a failure. Any thread.
int readFileContents(const std::string& path, std::size_t limit, std::vector<std::uint8_t>& contents);

}  // namespace qm_platform
