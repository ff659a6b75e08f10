#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string_view>
#include <utility>

namespace qm_utils {

/// Copies bytes that are few for the most part; returns the end of the copy. The two must not overlap.
inline char* copyFew(char* pTo, const char* pFrom, std::size_t size) noexcept {
  // Two words that overlap make up any length between one and two of them.
  if (size - 8 <= 8) {
    std::uint64_t uFirst;
    std::uint64_t uLast;
    std::memcpy(&uFirst, pFrom, 8);
    std::memcpy(&uLast, pFrom + size - 8, 8);
    std::memcpy(pTo, &uFirst, 8);
    std::memcpy(pTo + size - 8, &uLast, 8);
  } else if (size - 4 < 4) {
    std::uint32_t uFirst;
    std::uint32_t uLast;
    std::memcpy(&uFirst, pFrom, 4);
    std::memcpy(&uLast, pFrom + size - 4, 4);
    std::memcpy(pTo, &uFirst, 4);
    std::memcpy(pTo + size - 4, &uLast, 4);
  } else if (size > 16) {
    std::memcpy(pTo, pFrom, size);
  } else {
    for (std::size_t i = 0; i < size; ++i) {
      pTo[i] = pFrom[i];
    }
  }
  return pTo + size;
}

/// Bytes that are only ever added at the end. Unlike a string, it doesn't clear what is filled at once.
class GrowingBytes {
 public:
  /// Takes memory for exactly so many bytes.
  explicit GrowingBytes(std::size_t capacity = 0)
      : m_pBytes(capacity > 0 ? std::make_unique_for_overwrite<char[]>(capacity) : nullptr),
        m_capacity(capacity) {}

  GrowingBytes(GrowingBytes&& other) noexcept
      : m_pBytes(std::move(other.m_pBytes)),
        m_size(std::exchange(other.m_size, 0)),
        m_capacity(std::exchange(other.m_capacity, 0)) {}
  GrowingBytes& operator=(GrowingBytes&& other) noexcept {
    std::swap(m_pBytes, other.m_pBytes);
    std::swap(m_size, other.m_size);
    std::swap(m_capacity, other.m_capacity);
    return *this;
  }

  const char* data() const noexcept { return m_pBytes.get(); }
  std::size_t size() const noexcept { return m_size; }
  std::string_view view() const noexcept { return {data(), size()}; }

  /// Adds so many bytes, to be filled by the caller.
  char* extend(std::size_t size) {
    if (size > m_capacity - m_size) {
      grow(size);
    }
    char* const pAdded = m_pBytes.get() + m_size;
    m_size += size;
    return pAdded;
  }

  /// The bytes must not be some of these.
  void append(std::string_view sBytes) { std::copy(sBytes.begin(), sBytes.end(), extend(sBytes.size())); }

  /// Keeps the memory.
  void clear() noexcept { m_size = 0; }

 private:
  void grow(std::size_t size) {
    GrowingBytes larger(std::max(m_size + size, 2 * m_capacity));
    larger.append(view());
    *this = std::move(larger);
  }

  std::unique_ptr<char[]> m_pBytes;
  std::size_t m_size = 0;
  std::size_t m_capacity = 0;
};

}  // namespace qm_utils
