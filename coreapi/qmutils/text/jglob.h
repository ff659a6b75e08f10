#pragma once

#include <string_view>

namespace qm_utils {

/// Whether a pattern matches a whole text, byte by byte, letter case included.
///
///     *      any run of bytes, none included
///     ?      any one byte
///     [...]  one byte that is listed or lies in a range such as a-z; a "-" in front of the "]" is a "-". The
///            first "]" closes the set, and there is no negation
///     \x     the byte x, in a set too, on either side of a range
///     x      itself
///
/// A set that isn't closed, and a "\" with nothing behind it, match nothing. Time grows with the length of
/// the pattern times that of the text at worst, whatever stars there are; no memory is taken. Any thread.
bool matchesGlob(std::string_view sPattern, std::string_view sText) noexcept;

}  // namespace qm_utils
