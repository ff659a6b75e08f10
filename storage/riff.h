#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "coreapi/qmci/fourcc.h"

/// Chunks of RIFF files, the published form that AVI and WAVE share; little-endian:
///
///     offset  width  field
///          0      4  four-character code
///          4      4  size    bytes of the body, without the pad byte behind an odd one
///          8         body; that of "RIFF" and "LIST" begins with the four-character code of its type
namespace riff_layout {

inline constexpr std::uint32_t kRiff = qm_ci::fourcc("RIFF");
inline constexpr std::uint32_t kList = qm_ci::fourcc("LIST");
inline constexpr std::uint32_t kJunk = qm_ci::fourcc("JUNK");

inline constexpr std::size_t kCodeAt = 0;
inline constexpr std::size_t kSizeAt = 4;
inline constexpr std::size_t kChunkHeadSize = 8;
inline constexpr std::size_t kListHeadSize = 12;  ///< chunk head and type

/// Bytes that a body takes with its pad byte.
constexpr std::uint64_t padded(std::uint64_t uSize) noexcept {
  return uSize + uSize % 2;
}

}  // namespace riff_layout

/// Writes the head of a chunk, 8 bytes.
void writeChunkHead(std::uint32_t uCode, std::uint32_t uSize, std::uint8_t* pTo) noexcept;

/// Appends a chunk, with the pad byte of an odd body. A body of 4 GiB can't be.
void appendChunk(std::vector<std::uint8_t>& to, std::uint32_t uCode, std::span<const std::uint8_t> body);

/// Appends a list: a chunk "LIST" whose body is the code of its type and what it holds.
void appendList(std::vector<std::uint8_t>& to, std::uint32_t uType, std::span<const std::uint8_t> content);
