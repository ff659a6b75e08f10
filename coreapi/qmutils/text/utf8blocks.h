#pragma once

#include <cstddef>

/// The part of text conversion that goes many characters at a time, by vector instructions where the
/// processor has them. It takes the easy stretches only, and leaves everything else, the end of every text
/// too, to code that goes one by one: what comes out never depends on it.
namespace qm_utils {

/// Where a conversion stands: the rest of the input, and where the next output goes. `room` counts units or
/// bytes that may still be written there.
template <class From, class To>
struct ConversionCursor {
  const From* pFrom;
  const From* pEnd;
  To* pTo;
  std::size_t room;

  void advance(std::size_t taken, std::size_t given) noexcept {
    pFrom += taken;
    pTo += given;
    room -= given;
  }
  std::size_t left() const noexcept { return static_cast<std::size_t>(pEnd - pFrom); }
};

using EncodeCursor = ConversionCursor<char16_t, char>;
using DecodeCursor = ConversionCursor<char, char16_t>;

/// Takes units from the front as long as that goes in blocks, none at worst. Writes inside the room only, but
/// perhaps behind where the output ends.
void encodeBlocks(EncodeCursor& cursor) noexcept;

/// Takes whole, well-formed sequences of one to three bytes from the front as long as that goes in blocks,
/// none at worst. The front must be the start of a sequence. Writes as `encodeBlocks` does.
void decodeBlocks(DecodeCursor& cursor) noexcept;

/// The parts of the two that every processor can do: blocks of ASCII alone.
void encodeAsciiBlocks(EncodeCursor& cursor) noexcept;
void decodeAsciiBlocks(DecodeCursor& cursor) noexcept;

/// Units before the NUL that ends a wide string.
std::size_t wideLength(const char16_t* szWide) noexcept;

}  // namespace qm_utils
