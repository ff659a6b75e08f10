#pragma once

#include <cstdint>

namespace qm_ci {

/// Number of a four-character code: in little-endian memory its bytes spell the text.
constexpr std::uint32_t fourcc(const char (&code)[5]) noexcept {
  std::uint32_t uCode = 0;
  for (int i = 3; i >= 0; --i) {
    uCode = uCode << 8 | static_cast<unsigned char>(code[i]);
  }
  return uCode;
}

}  // namespace qm_ci
