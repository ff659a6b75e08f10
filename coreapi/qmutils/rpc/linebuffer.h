#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <span>
#include <string_view>

namespace qm_utils {

/// Cuts a stream of bytes into lines. What has arrived is put in through `makeRoom` and `addFilled`, in
/// pieces of any size, and comes out line by line.
///
/// A line ends with CR LF or with LF alone; the end isn't part of it. A CR that no LF follows is a byte like
/// any other. The buffer starts with `kInitialCapacity` bytes, is doubled when more than half of it is taken
/// at the time of a read, and never shrinks, so it stays below a small multiple of the longest line.
///
/// No lock; one thread at a time.
class LineBuffer {
 public:
  static constexpr std::size_t kInitialCapacity = 256;

  /// `uLimit` is the greatest length of a line in bytes, without its end.
  explicit LineBuffer(std::size_t uLimit);

  /// The next whole line, or nothing when its end isn't here yet. The line lies in this buffer, with a NUL
  /// behind it, until the next call of any operation but the getters. Throws JTextError for a line beyond the
  /// limit, as soon as that many bytes of it are here and at each call from then on: there is no way behind
  /// it.
  std::optional<std::string_view> takeLine();

  /// The room behind what is here, at least a byte. Throws JTextError when there is no memory for it.
  std::span<char> makeRoom();

  /// Says how many bytes of the room have been filled.
  void addFilled(std::size_t uBytes) noexcept { m_uEnd += uBytes; }

  /// Moves at most so many bytes out, whatever they are, and returns their number.
  std::size_t takeBytes(void* pBuffer, std::size_t uSize) noexcept;

  /// Forgets everything; the capacity stays.
  void clear() noexcept { m_uStart = m_uScanned = m_uEnd = 0; }

  std::size_t getCapacity() const noexcept { return m_uCapacity; }

 private:
  [[noreturn]] void throwTooLong() const;

  std::size_t m_uLimit;
  std::size_t m_uCapacity = kInitialCapacity;
  std::unique_ptr<char[]> m_pBytes;
  std::size_t m_uStart = 0;    ///< first byte that wasn't taken
  std::size_t m_uScanned = 0;  ///< no LF between the start and here
  std::size_t m_uEnd = 0;      ///< end of what has arrived
};

}  // namespace qm_utils
