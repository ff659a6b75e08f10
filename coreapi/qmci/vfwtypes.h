#pragma once

#include <cstdint>
#include <string_view>

/// MIME types of streams that a bitmap header describes by itself, and how their nominal sizes are made.
namespace qm_ci {

/// Any of them; a four-character code follows, or what makes it one of the two below.
inline constexpr std::string_view kVfwType = "video/x-VfW-";

/// Plain RGB; the bits a pixel follow in decimal. `kVfwTopDownRgbType` gets a header with a negative height.
inline constexpr std::string_view kVfwTopDownRgbType = "video/x-VfW-WINRGB";
inline constexpr std::string_view kVfwRgbType = "video/x-VfW-RGB";

/// What the nominal size of a frame has beyond the size of its picture.
inline constexpr std::uint32_t kSizeMargin = 100;

}  // namespace qm_ci
