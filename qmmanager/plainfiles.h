#pragma once

#include <string>
#include <string_view>

/// Files of one directory that clients name. Any thread.
namespace qm_manager {

/// Whether a name has neither separators of any system, nor the end of a text, nor other control characters,
/// which would only confuse a log. It may still be empty, "." or "..".
bool isPlainName(std::string_view sName) noexcept;

/// Deletes a file; a failure is logged.
void discardFile(const std::string& sPath) noexcept;

}  // namespace qm_manager
