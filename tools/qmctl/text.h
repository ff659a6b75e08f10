#pragma once

#include <string>
#include <string_view>

/// The control takes and gives 16-bit text; the tool's users have UTF-8. Here it is the real one: a character
/// beyond the 16-bit range is a pair of surrogates on the control's side and one character on the user's.
namespace qmctl {

/// UTF-8 to 16-bit text. Throws `Failure` (wrong usage) for bytes that aren't UTF-8.
std::u16string toControl(std::string_view sText);

/// 16-bit text to UTF-8. Half a surrogate pair becomes U+FFFD, so that the result is always valid.
std::string fromControl(std::u16string_view sText);

/// A text as it may stand in a terminal: control characters become "?".
std::string printable(std::string_view sText);

/// The number of characters of a valid UTF-8 text.
std::size_t countCharacters(std::string_view sText) noexcept;

}  // namespace qmctl
