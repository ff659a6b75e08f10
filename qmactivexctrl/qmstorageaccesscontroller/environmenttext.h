#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace qm_control {

/// The variables in the environment text of a host. Blanks (U+0020 alone) stand between them. One that begins
/// with a double quote reaches to the next one, blanks included; inside of it a backslash takes the character
/// behind it as it is.
std::vector<std::string> splitEnvironment(std::string_view sText);

}  // namespace qm_control
