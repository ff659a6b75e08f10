#pragma once

#include <cstdarg>
#include <string>
#include <string_view>

/// Printing into strings, and trimming them. No shared state; any thread.
namespace qm_utils {

/// Prints into a string, numbers in the "C" locale whatever the host's is. Throws `JTextError` when there is
/// no memory, or when the format can't be carried out.
[[gnu::format(printf, 1, 2)]] std::string format(const char* szFormat, ...);
[[gnu::format(printf, 1, 0)]] std::string vformat(const char* szFormat, va_list arguments);

/// The same into 16-bit text. The format takes the conversions of `printf` but "%n"; "%s" takes a 16-bit
/// string and "%c" a 16-bit unit, "%hs" a UTF-8 string and "%hc" a byte. Widths and precisions count 16-bit
/// units, and a null string prints "(null)".
std::u16string format(const char16_t* szFormat, ...);
std::u16string vformat(const char16_t* szFormat, va_list arguments);

/// Removes the blanks (U+0020 alone) at the start or the end.
void trimLeft(std::string& sText);
void trimLeft(std::u16string& sText);
void trimRight(std::string& sText);
void trimRight(std::u16string& sText);

/// Removes the white space of the "C" locale at the start, the end or both.
void trimSpaceLeft(std::string& sText);
void trimSpaceRight(std::string& sText);
void trimSpace(std::string& sText);

/// Whether two texts are the same but for the case of the letters A to Z.
bool equalsInAnyCase(std::string_view sLeft, std::string_view sRight) noexcept;

}  // namespace qm_utils
