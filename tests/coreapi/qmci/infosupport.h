#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "coreapi/platform/byteorder.h"
#include "coreapi/qmutils/error/jerror.h"
#include "tests/support/thrownby.h"

namespace qm_test {

using Bytes = std::vector<std::uint8_t>;

inline Bytes bytesOf(std::span<const std::uint8_t> bytes) {
  return Bytes(bytes.begin(), bytes.end());
}

inline std::span<const std::uint8_t> bytesOf(std::string_view text) {
  return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

inline std::string textOf(std::span<const std::uint8_t> bytes) {
  return std::string(bytes.begin(), bytes.end());
}

/// A block with one word changed.
inline Bytes withWord(Bytes block, std::size_t at, std::uint32_t uValue) {
  qm_platform::writeLE32(block.data() + at, uValue);
  return block;
}

/// A text with the first `sOld` replaced.
inline std::string replaced(std::string sText, const std::string& sOld, const std::string& sNew) {
  const std::size_t at = sText.find(sOld);
  return at != std::string::npos ? sText.replace(at, sOld.size(), sNew) : sText;
}

}  // namespace qm_test
