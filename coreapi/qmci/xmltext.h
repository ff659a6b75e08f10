#pragma once

#include <string>
#include <string_view>

namespace qm_ci {

/// A text without the white space around it.
std::string_view trimmedText(std::string_view text) noexcept;

/// A text as the content of an XML element. What XML can't hold, such as control characters and bytes that
/// aren't UTF-8, is shown as "?".
std::string escapedText(std::string_view text);

/// Prints the fields of an XML form, in the C locale.
[[gnu::format(printf, 1, 2)]] std::string formatXML(const char* szFormat, ...);

}  // namespace qm_ci
