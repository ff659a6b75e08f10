#include "coreapi/platform/plainprint.h"

#include <algorithm>
#include <charconv>
#include <climits>
#include <cstring>

namespace qm_platform {

namespace {

/// Digits and sign of the longest number.
constexpr std::size_t kLongestNumber = 20;

/// A text that is cut to its buffer and knows its whole length.
class Target {
 public:
  Target(char* buffer, std::size_t size) noexcept : m_next(buffer), m_end(buffer + size - 1) {}

  void append(const char* text, std::size_t length) noexcept {
    const std::size_t fits = std::min(length, static_cast<std::size_t>(m_end - m_next));
    std::memcpy(m_next, text, fits);
    m_next += fits;
    m_length += length;
  }

  template <typename Number>
  void appendNumber(Number value, int base) noexcept {
    char digits[kLongestNumber];
    const char* end = std::to_chars(digits, digits + sizeof digits, value, base).ptr;
    append(digits, static_cast<std::size_t>(end - digits));
  }

  /// Ends the text. False when its length is none that can be told.
  bool finish(int& length) noexcept {
    *m_next = '\0';
    length = static_cast<int>(m_length);
    return m_length <= INT_MAX;
  }

 private:
  char* m_next;
  char* const m_end;  ///< the place of the NUL of a text that fills the buffer
  std::size_t m_length = 0;
};

/// The arguments, in a form that functions can take by reference.
struct Arguments {
  va_list list;
};

/// How many "l" stand before a letter; "z" counts as one, for `std::size_t` is a `long` here.
using Longs = int;
static_assert(sizeof(std::size_t) == sizeof(long));

void appendSigned(Target& target, Longs longs, Arguments& arguments) noexcept {
  if (longs == 0) {
    target.appendNumber(va_arg(arguments.list, int), 10);
  } else if (longs == 1) {
    target.appendNumber(va_arg(arguments.list, long), 10);
  } else {
    target.appendNumber(va_arg(arguments.list, long long), 10);
  }
}

void appendUnsigned(Target& target, Longs longs, int base, Arguments& arguments) noexcept {
  if (longs == 0) {
    target.appendNumber(va_arg(arguments.list, unsigned), base);
  } else if (longs == 1) {
    target.appendNumber(va_arg(arguments.list, unsigned long), base);
  } else {
    target.appendNumber(va_arg(arguments.list, unsigned long long), base);
  }
}

/// Prints one argument. False for a letter that isn't known, or not with this size.
bool appendArgument(Target& target, char letter, Longs longs, Arguments& arguments) noexcept {
  switch (letter) {
    case 'd':
    case 'i':
      appendSigned(target, longs, arguments);
      return true;
    case 'u':
      appendUnsigned(target, longs, 10, arguments);
      return true;
    case 'x':
      appendUnsigned(target, longs, 16, arguments);
      return true;
    case 's': {
      const char* text = va_arg(arguments.list, const char*);
      text = text != nullptr ? text : "(null)";
      target.append(text, std::strlen(text));
      return longs == 0;
    }
    case 'c': {
      const char c = static_cast<char>(va_arg(arguments.list, int));
      target.append(&c, 1);
      return longs == 0;
    }
    case '%':
      target.append("%", 1);
      return longs == 0;
    default:
      return false;
  }
}

/// Passes the size of a number. False when there is none like it.
bool passSize(const char*& format, Longs& longs) noexcept {
  if (*format == 'z') {
    longs = 1;
    ++format;
    return true;
  }
  while (*format == 'l') {
    ++longs;
    ++format;
  }
  return longs <= 2;
}

bool print(Target& target, const char* format, Arguments& arguments) noexcept {
  for (;;) {
    const char* literal = format;
    while (*format != '\0' && *format != '%') {
      ++format;
    }
    target.append(literal, static_cast<std::size_t>(format - literal));
    if (*format == '\0') {
      return true;
    }
    ++format;
    Longs longs = 0;
    if (!passSize(format, longs) || !appendArgument(target, *format++, longs, arguments)) {
      return false;
    }
  }
}

}  // namespace

bool printPlain(char* buffer, std::size_t size, const char* format, va_list arguments, int& length) noexcept {
  if (size == 0) {
    return false;
  }
  Target target(buffer, size);
  Arguments copy;
  va_copy(copy.list, arguments);
  const bool printed = print(target, format, copy);
  va_end(copy.list);
  return printed && target.finish(length);
}

}  // namespace qm_platform
