#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

/// Binary values in XML: base64 as RFC 4648 (section 4) has it, with padding.
namespace qm_ci {

/// Bytes that the text of `n` bytes takes, its final zero included.
constexpr std::size_t base64Size(std::size_t n) noexcept {
  return (n + 2) / 3 * 4 + 1;
}

std::string encodeBase64(std::span<const std::uint8_t> bytes);

/// The bytes of a text, in which white space counts for nothing. None for a text that isn't base64.
std::optional<std::vector<std::uint8_t>> decodeBase64(std::string_view text);

}  // namespace qm_ci
