#pragma once

#include <cstdarg>
#include <cstddef>

namespace qm_platform {

/// Prints formats that hold nothing but "%s", "%c", "%d", "%i", "%u", "%x" and "%%", the numbers also with
/// "l", "ll" or "z" before the letter: most of what the system prints, in half the time of the C library, and
/// the same in every locale. Writes at most `size` bytes, the NUL included, and sets `length` to that of the
/// whole text.
///
/// False for any other format, and for an empty buffer; then the buffer holds nothing of use.
[[gnu::format(printf, 3, 0)]] bool printPlain(char* buffer, std::size_t size, const char* format,
                                              va_list arguments, int& length) noexcept;

}  // namespace qm_platform
