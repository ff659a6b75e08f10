#pragma once

#include <bit>
#include <concepts>
#include <cstdint>
#include <cstring>

/// Reading and writing of integers with an explicit byte order, at any address. Nothing else in the project
/// converts byte order, and nothing casts a buffer to a wider type.
///
/// None of these functions checks a length: the caller has made sure that the bytes are there.
namespace qm_platform {

namespace detail {

template <std::unsigned_integral T>
constexpr T byteSwap(T value) noexcept {
  if constexpr (sizeof(T) == 1) {
    return value;
  } else if constexpr (sizeof(T) == 2) {
    return __builtin_bswap16(value);
  } else if constexpr (sizeof(T) == 4) {
    return __builtin_bswap32(value);
  } else {
    static_assert(sizeof(T) == 8);
    return __builtin_bswap64(value);
  }
}

template <std::unsigned_integral T>
T read(const void* from, std::endian order) noexcept {
  T value;
  std::memcpy(&value, from, sizeof value);
  return order == std::endian::native ? value : byteSwap(value);
}

template <std::unsigned_integral T>
void write(void* to, T value, std::endian order) noexcept {
  if (order != std::endian::native) {
    value = byteSwap(value);
  }
  std::memcpy(to, &value, sizeof value);
}

}  // namespace detail

inline std::uint16_t readLE16(const void* from) noexcept {
  return detail::read<std::uint16_t>(from, std::endian::little);
}
inline std::uint32_t readLE32(const void* from) noexcept {
  return detail::read<std::uint32_t>(from, std::endian::little);
}
inline std::uint64_t readLE64(const void* from) noexcept {
  return detail::read<std::uint64_t>(from, std::endian::little);
}
inline std::uint16_t readBE16(const void* from) noexcept {
  return detail::read<std::uint16_t>(from, std::endian::big);
}
inline std::uint32_t readBE32(const void* from) noexcept {
  return detail::read<std::uint32_t>(from, std::endian::big);
}
inline std::uint64_t readBE64(const void* from) noexcept {
  return detail::read<std::uint64_t>(from, std::endian::big);
}

inline void writeLE16(void* to, std::uint16_t value) noexcept {
  detail::write(to, value, std::endian::little);
}
inline void writeLE32(void* to, std::uint32_t value) noexcept {
  detail::write(to, value, std::endian::little);
}
inline void writeLE64(void* to, std::uint64_t value) noexcept {
  detail::write(to, value, std::endian::little);
}
inline void writeBE16(void* to, std::uint16_t value) noexcept {
  detail::write(to, value, std::endian::big);
}
inline void writeBE32(void* to, std::uint32_t value) noexcept {
  detail::write(to, value, std::endian::big);
}
inline void writeBE64(void* to, std::uint64_t value) noexcept {
  detail::write(to, value, std::endian::big);
}

/// Reverses the bytes of the 16-bit word at `at`, in place.
inline void swap16InPlace(void* at) noexcept {
  writeBE16(at, readLE16(at));
}

/// Reverses the bytes of the 32-bit word at `at`, in place.
inline void swap32InPlace(void* at) noexcept {
  writeBE32(at, readLE32(at));
}

/// Reverses the bytes of the 64-bit word at `at`, in place.
inline void swap64InPlace(void* at) noexcept {
  writeBE64(at, readLE64(at));
}

}  // namespace qm_platform
