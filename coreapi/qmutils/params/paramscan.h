#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "coreapi/platform/byteorder.h"

/// What is known of single characters in the text of a parameter list, and looking at eight of them at a
/// time.
namespace qm_utils {

inline constexpr std::array<bool, 256> kNameCharacters = [] {
  std::array<bool, 256> is{};
  for (unsigned c = 0; c < is.size(); ++c) {
    is[c] = (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_' ||
            c == '[' || c == ']' || c == '.' || c == '-' || c >= 0x80;
  }
  return is;
}();

inline bool isNameCharacter(char c) noexcept {
  return kNameCharacters[static_cast<unsigned char>(c)];
}

inline bool isBlank(char c) noexcept {
  return c == ' ' || c == '\t';
}

inline bool isDigit(char c) noexcept {
  return c >= '0' && c <= '9';
}

inline bool isOctal(char c) noexcept {
  return c >= '0' && c <= '7';
}

inline bool isExponent(char c) noexcept {
  return c == 'e' || c == 'E' || c == 'd' || c == 'D';
}

/// The value of a hexadecimal digit, -1 for any other character.
inline int hexValue(char c) noexcept {
  if (isDigit(c)) {
    return c - '0';
  }
  if (c >= 'a' && c <= 'f') {
    return c - 'a' + 10;
  }
  return c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
}

inline constexpr std::size_t kCacheLine = 64;

/// Asks for memory that will be read soon; changes nothing else.
inline void prefetch(const char* p) noexcept {
#if defined(__GNUC__)
  __builtin_prefetch(p);
#else
  static_cast<void>(p);
#endif
}

/// Eight characters as one number, the first one lowest.
using Eight = std::uint64_t;

inline Eight loadEight(const char* p) noexcept {
  return qm_platform::readLE64(p);
}

/// The same character eight times.
constexpr Eight eightTimes(char c) noexcept {
  return Eight{0x0101010101010101} * static_cast<unsigned char>(c);
}

/// Marks the characters that are zero by their top bit. The lowest mark is exact, which is all that counts;
/// above it, there may be marks that are none.
constexpr Eight markZeros(Eight eight) noexcept {
  return (eight - eightTimes(1)) & ~eight & eightTimes('\x80');
}

/// The position of the lowest mark; there is one.
inline std::size_t firstMark(Eight marks) noexcept {
  return static_cast<std::size_t>(std::countr_zero(marks)) / 8;
}

constexpr bool areDigits(Eight eight) noexcept {
  return ((eight & eightTimes('\xF0')) | (((eight + eightTimes(6)) & eightTimes('\xF0')) >> 4)) ==
         eightTimes('\x33');
}

/// The number that eight digits stand for, zero bytes in front counting as 0: neighbours are put together to
/// pairs, fours and the whole.
constexpr std::uint64_t digitsToNumber(Eight digits) noexcept {
  digits = (digits & eightTimes(0x0F)) * (10 * 256 + 1) >> 8;
  digits = (digits & 0x00FF00FF00FF00FF) * (100 * 65536 + 1) >> 16;
  return (digits & 0x0000FFFF0000FFFF) * (10000 * (std::uint64_t{1} << 32) + 1) >> 32;
}

/// How many bytes two texts share from their start.
inline std::size_t sharedLength(std::string_view sLeft, std::string_view sRight) noexcept {
  const char* const pLeft = sLeft.data();
  const char* const pRight = sRight.data();
  const std::size_t limit = sLeft.size() < sRight.size() ? sLeft.size() : sRight.size();
  const auto difference = [&](std::size_t at) { return loadEight(pLeft + at) ^ loadEight(pRight + at); };
  std::size_t shared = 0;
  while (limit - shared >= 32 && (difference(shared) | difference(shared + 8) | difference(shared + 16) |
                                  difference(shared + 24)) == 0) {
    shared += 32;
  }
  for (; limit - shared >= 8; shared += 8) {
    const Eight here = difference(shared);
    if (here != 0) {
      return shared + firstMark(here);
    }
  }
  while (shared < limit && pLeft[shared] == pRight[shared]) {
    ++shared;
  }
  return shared;
}

/// Below, at or above 0 as the left text stands before, at or behind the right one in byte-wise order; texts
/// that are short and differ soon, for the most part.
inline int compareTexts(std::string_view sLeft, std::string_view sRight) noexcept {
  const std::size_t shared = sharedLength(sLeft, sRight);
  if (shared < sLeft.size() && shared < sRight.size()) {
    return static_cast<unsigned char>(sLeft[shared]) - static_cast<unsigned char>(sRight[shared]);
  }
  return (sLeft.size() > shared ? 1 : 0) - (sRight.size() > shared ? 1 : 0);
}

}  // namespace qm_utils
