#pragma once

#include <cstddef>
#include <cstdint>

#include "coreapi/qmci/fourcc.h"

/// The published BITMAPINFOHEADER, little-endian:
///
///     offset  width  field
///          0      4  biSize           bytes of the header and of what follows it
///          4      4  biWidth          signed, pixels
///          8      4  biHeight         signed; negative: the top line comes first
///         12      2  biPlanes         1
///         14      2  biBitCount       bits a pixel
///         16      4  biCompression    0 (plain RGB) or a four-character code
///         20      4  biSizeImage      bytes of a picture, or 0
///         24      4  biXPelsPerMeter  signed
///         28      4  biYPelsPerMeter  signed
///         32      4  biClrUsed
///         36      4  biClrImportant
///         40         extra bytes, `biSize` - 40 of them
namespace qm_ci {

inline constexpr std::size_t kBitmapHeaderSize = 40;

struct BitmapInfoHeader {
  std::uint32_t biSize = kBitmapHeaderSize;
  std::int32_t biWidth = 0;
  std::int32_t biHeight = 0;
  std::uint16_t biPlanes = 1;
  std::uint16_t biBitCount = 0;
  std::uint32_t biCompression = 0;
  std::uint32_t biSizeImage = 0;
  std::int32_t biXPelsPerMeter = 0;
  std::int32_t biYPelsPerMeter = 0;
  std::uint32_t biClrUsed = 0;
  std::uint32_t biClrImportant = 0;

  bool operator==(const BitmapInfoHeader&) const = default;
};

/// Reads a header from, or writes it to, 40 bytes.
BitmapInfoHeader readBitmapHeader(const std::uint8_t* pFrom) noexcept;
void writeBitmapHeader(const BitmapInfoHeader& header, std::uint8_t* pTo) noexcept;

}  // namespace qm_ci
