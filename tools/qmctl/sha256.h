#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace qmctl {

/// SHA-256 (FIPS 180-4) in lower-case hexadecimal digits.
std::string sha256Of(std::span<const std::uint8_t> bytes);

}  // namespace qmctl
