#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace qm_utils {

/// What can be written in text form (jregistrytext.h) and read again as it was.

/// Whether the form has a place for values of a type.
bool isTextType(std::uint32_t uType) noexcept;

/// Whether a value of such a type comes back; but for the types that are read as plain texts. A name with a
/// quote or a line break doesn't, nor a text with a line break, nor what is longer than a line may be.
bool hasTextForm(const std::string& sName, std::uint32_t uType, std::string_view data) noexcept;

/// Whether a key with such a path does.
bool hasTextForm(const std::string& sPath) noexcept;

}  // namespace qm_utils
