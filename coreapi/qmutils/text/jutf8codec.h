#pragma once

#include <cstddef>
#include <memory>
#include <string>

/// Conversion between UTF-8, which all text inside the system is, and the 16-bit text of the control's
/// members. A wide string is a sequence of 16-bit units ended by a NUL.
///
/// Each unit is coded by itself: the two halves of a surrogate pair are three bytes each, and come back as
/// the same pair. A sequence of any length gives one unit, so that a well-formed sequence of four bytes
/// doesn't survive; whoever speaks real UTF-8 to the outside pairs surrogates itself. Continuation bytes
/// aren't checked.
///
/// Conversion to wide text ends, and what there is so far stands, at a byte that starts no sequence (0x80 to
/// 0xC1, 0xFE, 0xFF) and at a sequence that runs past the end of the string.
///
/// A null input is no text: it gives a NUL in the buffer, an empty string, or a null array. No shared state;
/// any thread. What allocates throws `std::bad_alloc`.
class JUTF8Codec {
 public:
  JUTF8Codec() = delete;

  /// Bytes that a wide string takes, without the NUL.
  static std::size_t getUtf8Length(const char16_t* szWide) noexcept;

  /// Units that room is needed for, without the NUL: a last sequence that runs past the end counts, though it
  /// isn't converted.
  static std::size_t getWideLength(const char* szUtf8) noexcept;

  /// Converts into a buffer of `iSize` bytes, its NUL included, and stops before a unit that wouldn't fit
  /// whole. A size below 1 leaves the buffer alone. Returns the buffer.
  static char* toUtf8(const char16_t* szWide, char* szBuf, std::ptrdiff_t iSize) noexcept;

  /// Converts into a buffer that has room for `getUtf8Length` bytes and the NUL. Returns the buffer.
  static char* toUtf8(const char16_t* szWide, char* szBuf) noexcept;

  /// Converts into a string.
  static std::string toUtf8(const char16_t* szWide);

  /// Converts into a new array, ended by a NUL, and returns its length without that. A null input gives no
  /// array.
  static std::size_t toUtf8(const char16_t* szWide, std::unique_ptr<char[]>& pNew);

  /// Converts into a buffer of `iSize` units, its NUL included. A size below 1 leaves the buffer alone.
  /// Returns the buffer.
  static char16_t* toWide(const char* szUtf8, char16_t* szBuf, std::ptrdiff_t iSize) noexcept;

  /// Converts into a buffer that has room for `getWideLength` units and the NUL. Returns the buffer.
  static char16_t* toWide(const char* szUtf8, char16_t* szBuf) noexcept;

  /// Converts into a string.
  static std::u16string toWide(const char* szUtf8);

  /// Converts into a new array, ended by a NUL, and returns its length without that. A null input gives no
  /// array.
  static std::size_t toWide(const char* szUtf8, std::unique_ptr<char16_t[]>& pNew);
};
