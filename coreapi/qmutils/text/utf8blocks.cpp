#include "coreapi/qmutils/text/utf8blocks.h"

#include <array>
#include <bit>
#include <cstdint>
#include <string>

#ifdef __x86_64__
#include <tmmintrin.h>
#endif

namespace qm_utils {

namespace {

/// Units that are looked at together on their way to UTF-8, and bytes whose sequences are found together on
/// the way back.
constexpr std::size_t kEncodeBlock = 16;
constexpr std::size_t kDecodeWindow = 32;

}  // namespace

void encodeAsciiBlocks(EncodeCursor& cursor) noexcept {
  while (cursor.left() >= kEncodeBlock && cursor.room >= kEncodeBlock) {
    char16_t all = 0;
    for (std::size_t i = 0; i < kEncodeBlock; ++i) {
      all = static_cast<char16_t>(all | cursor.pFrom[i]);
      cursor.pTo[i] = static_cast<char>(cursor.pFrom[i]);
    }
    if (all >= 0x80) {
      return;
    }
    cursor.advance(kEncodeBlock, kEncodeBlock);
  }
}

void decodeAsciiBlocks(DecodeCursor& cursor) noexcept {
  while (cursor.left() >= kDecodeWindow && cursor.room >= kDecodeWindow) {
    unsigned all = 0;
    for (std::size_t i = 0; i < kDecodeWindow; ++i) {
      const auto byte = static_cast<unsigned char>(cursor.pFrom[i]);
      all |= byte;
      cursor.pTo[i] = byte;
    }
    if (all >= 0x80) {
      return;
    }
    cursor.advance(kDecodeWindow, kDecodeWindow);
  }
}

#ifdef __x86_64__

namespace {

/// The instructions beyond the processor family's common base that the shuffling steps need.
#define QM_SHUFFLING [[gnu::target("ssse3")]]

bool haveShuffles() noexcept {
  return __builtin_cpu_supports("ssse3") != 0;
}

/// Byte positions that a shuffle collects; a position with its top bit set gives a zero byte.
using Shuffle = std::array<std::uint8_t, 16>;
constexpr std::uint8_t kZeroByte = 0x80;

__m128i load(const void* pFrom) noexcept {
  return _mm_loadu_si128(static_cast<const __m128i*>(pFrom));
}

void store(void* pTo, __m128i value) noexcept {
  _mm_storeu_si128(static_cast<__m128i*>(pTo), value);
}

std::uint32_t maskOf(__m128i bytes) noexcept {
  return static_cast<std::uint32_t>(_mm_movemask_epi8(bytes));
}

// ---- Wide to UTF-8 ----

/// How the bytes of four units, each of them at the front of four bytes, are pushed together.
struct Packing {
  Shuffle shuffle;
  std::uint8_t length;
};

/// Index: bit i is set when unit i takes two bytes or more, bit 4 + i when it takes three.
constexpr std::array<Packing, 256> kPackings = [] {
  std::array<Packing, 256> packings{};
  for (unsigned index = 0; index < packings.size(); ++index) {
    Packing& packing = packings[index];
    packing.shuffle.fill(kZeroByte);
    for (unsigned unit = 0; unit < 4; ++unit) {
      const unsigned length = 1 + (index >> unit & 1) + (index >> (4 + unit) & 1);
      for (unsigned byte = 0; byte < length; ++byte) {
        packing.shuffle[packing.length++] = static_cast<std::uint8_t>(4 * unit + byte);
      }
    }
  }
  return packings;
}();

/// Converts four units, one in each 32 bits, and returns how many bytes they take. Writes 16 bytes.
QM_SHUFFLING inline std::size_t encodeFour(__m128i units, char* pTo) noexcept {
  const __m128i lowSix = _mm_set1_epi32(0x3F);
  const __m128i last = _mm_or_si128(_mm_and_si128(units, lowSix), _mm_set1_epi32(0x80));
  const __m128i upper = _mm_srli_epi32(units, 6);
  const __m128i two = _mm_or_si128(_mm_or_si128(upper, _mm_set1_epi32(0xC0)), _mm_slli_epi32(last, 8));
  const __m128i middle = _mm_or_si128(_mm_and_si128(upper, lowSix), _mm_set1_epi32(0x80));
  const __m128i three = _mm_or_si128(_mm_or_si128(_mm_srli_epi32(units, 12), _mm_set1_epi32(0xE0)),
                                     _mm_or_si128(_mm_slli_epi32(middle, 8), _mm_slli_epi32(last, 16)));
  const __m128i isLong = _mm_cmpgt_epi32(units, _mm_set1_epi32(0x7F));
  const __m128i isLongest = _mm_cmpgt_epi32(units, _mm_set1_epi32(0x7FF));
  const __m128i shorter = _mm_or_si128(_mm_andnot_si128(isLong, units), _mm_and_si128(isLong, two));
  const __m128i coded = _mm_or_si128(_mm_andnot_si128(isLongest, shorter), _mm_and_si128(isLongest, three));
  const Packing& packing = kPackings[static_cast<unsigned>(
      _mm_movemask_ps(_mm_castsi128_ps(isLong)) | _mm_movemask_ps(_mm_castsi128_ps(isLongest)) << 4)];
  store(pTo, _mm_shuffle_epi8(coded, load(packing.shuffle.data())));
  return packing.length;
}

/// How the bytes of eight units, each of them at the front of two bytes, are pushed together. Index: bit i is
/// set when unit i takes two bytes.
constexpr std::array<Packing, 256> kShortPackings = [] {
  std::array<Packing, 256> packings{};
  for (unsigned index = 0; index < packings.size(); ++index) {
    Packing& packing = packings[index];
    packing.shuffle.fill(kZeroByte);
    for (unsigned unit = 0; unit < 8; ++unit) {
      const unsigned length = 1 + (index >> unit & 1);
      for (unsigned byte = 0; byte < length; ++byte) {
        packing.shuffle[packing.length++] = static_cast<std::uint8_t>(2 * unit + byte);
      }
    }
  }
  return packings;
}();

/// Converts eight units below 0x800 and returns how many bytes they take. Writes 16 bytes.
QM_SHUFFLING inline std::size_t encodeEightShort(__m128i units, char* pTo) noexcept {
  const __m128i last = _mm_or_si128(_mm_and_si128(units, _mm_set1_epi16(0x3F)), _mm_set1_epi16(0x80));
  const __m128i two =
      _mm_or_si128(_mm_or_si128(_mm_srli_epi16(units, 6), _mm_set1_epi16(0xC0)), _mm_slli_epi16(last, 8));
  const __m128i isLong = _mm_cmpgt_epi16(units, _mm_set1_epi16(0x7F));
  const __m128i coded = _mm_or_si128(_mm_andnot_si128(isLong, units), _mm_and_si128(isLong, two));
  const Packing& packing = kShortPackings[maskOf(_mm_packs_epi16(isLong, _mm_setzero_si128()))];
  store(pTo, _mm_shuffle_epi8(coded, load(packing.shuffle.data())));
  return packing.length;
}

QM_SHUFFLING void encodeShuffled(EncodeCursor& position) noexcept {
  EncodeCursor cursor = position;  // stores can't touch a copy, which stays in registers
  const __m128i zero = _mm_setzero_si128();
  const auto noneBeyond = [zero](__m128i units, int mask) {
    return maskOf(_mm_cmpeq_epi16(_mm_and_si128(units, _mm_set1_epi16(static_cast<short>(mask))), zero)) ==
           0xFFFF;
  };
  while (cursor.left() >= kEncodeBlock && cursor.room >= kEncodeBlock) {
    const __m128i low = load(cursor.pFrom);
    const __m128i high = load(cursor.pFrom + 8);
    const __m128i all = _mm_or_si128(low, high);
    if (noneBeyond(all, 0xFF80)) {
      store(cursor.pTo, _mm_packus_epi16(low, high));
      cursor.advance(kEncodeBlock, kEncodeBlock);
      continue;
    }
    // A block takes up to 48 bytes, and the last store reaches four bytes further.
    if (cursor.room < 3 * kEncodeBlock + 4) {
      break;
    }
    std::size_t length = 0;
    if (noneBeyond(all, 0xF800)) {
      length = encodeEightShort(low, cursor.pTo);
      length += encodeEightShort(high, cursor.pTo + length);
    } else {
      length = encodeFour(_mm_unpacklo_epi16(low, zero), cursor.pTo);
      length += encodeFour(_mm_unpackhi_epi16(low, zero), cursor.pTo + length);
      length += encodeFour(_mm_unpacklo_epi16(high, zero), cursor.pTo + length);
      length += encodeFour(_mm_unpackhi_epi16(high, zero), cursor.pTo + length);
    }
    cursor.advance(kEncodeBlock, length);
  }
  position = cursor;
}

// ---- UTF-8 to wide ----

/// How those of eight units that are wanted are pushed together.
struct Selection {
  Shuffle shuffle;
  std::uint8_t units;
};

/// Index: bit i is set when unit i is wanted.
constexpr std::array<Selection, 256> kSelections = [] {
  std::array<Selection, 256> selections{};
  for (unsigned index = 0; index < selections.size(); ++index) {
    Selection& selection = selections[index];
    selection.shuffle.fill(kZeroByte);
    for (unsigned unit = 0; unit < 8; ++unit) {
      if ((index >> unit & 1) != 0) {
        selection.shuffle[2U * selection.units] = static_cast<std::uint8_t>(2 * unit);
        selection.shuffle[2U * selection.units + 1] = static_cast<std::uint8_t>(2 * unit + 1);
        ++selection.units;
      }
    }
  }
  return selections;
}();

/// What stands in a window, one bit a byte.
struct WindowMasks {
  std::uint32_t beyondAscii = 0;
  std::uint32_t continuations = 0;  ///< 0x80 to 0xBF
  std::uint32_t threes = 0;         ///< 0xE0 and above
  std::uint32_t hard = 0;           ///< bytes that start no sequence, or a longer one than three bytes
};

inline WindowMasks classify(const char* pFrom) noexcept {
  WindowMasks masks;
  for (std::size_t at = 0; at < kDecodeWindow; at += 16) {
    const __m128i bytes = load(pFrom + at);
    const auto isAtLeast = [bytes](int lowest) {
      const __m128i bound = _mm_set1_epi8(static_cast<char>(lowest));
      return _mm_cmpeq_epi8(_mm_max_epu8(bytes, bound), bytes);
    };
    const __m128i isC0OrC1 = _mm_cmpeq_epi8(_mm_and_si128(bytes, _mm_set1_epi8(static_cast<char>(0xFE))),
                                            _mm_set1_epi8(static_cast<char>(0xC0)));
    masks.beyondAscii |= maskOf(bytes) << at;
    masks.continuations |= maskOf(_mm_cmplt_epi8(bytes, _mm_set1_epi8(static_cast<char>(0xC0)))) << at;
    masks.threes |= maskOf(isAtLeast(0xE0)) << at;
    masks.hard |= maskOf(_mm_or_si128(isC0OrC1, isAtLeast(0xF0))) << at;
  }
  return masks;
}

/// Writes those of eight units that are wanted, and returns how many they are. Writes 16 bytes.
QM_SHUFFLING inline std::size_t putSelected(__m128i units, std::uint32_t wanted, char16_t* pTo) noexcept {
  const Selection& selection = kSelections[wanted & 0xFF];
  store(pTo, _mm_shuffle_epi8(units, load(selection.shuffle.data())));
  return selection.units;
}

/// Converts the sequences that end among sixteen bytes, and returns how many they are. `last`, `middle` and
/// `first` hold those bytes, the bytes one before and the bytes two before.
QM_SHUFFLING inline std::size_t decodeSixteen(__m128i last, __m128i middle, __m128i first, std::uint32_t ends,
                                              char16_t* pTo) noexcept {
  const auto bits = [](__m128i bytes, int mask) {
    return _mm_and_si128(bytes, _mm_set1_epi8(static_cast<char>(mask)));
  };
  // Which of the bytes before the last one belong to it, the values tell: none to an ASCII byte, and none
  // before a first byte. The bits that mark first and continuation bytes fall to the masks.
  const __m128i isLong = _mm_cmplt_epi8(last, _mm_setzero_si128());
  middle = _mm_and_si128(middle, isLong);
  first = _mm_and_si128(first, _mm_cmplt_epi8(middle, _mm_set1_epi8(static_cast<char>(0xC0))));
  const __m128i lower = _mm_or_si128(bits(last, 0x7F), _mm_slli_epi16(bits(middle, 0x03), 6));
  const __m128i upper =
      _mm_or_si128(_mm_srli_epi16(bits(middle, 0x3C), 2), _mm_slli_epi16(bits(first, 0x0F), 4));
  const std::size_t units = putSelected(_mm_unpacklo_epi8(lower, upper), ends, pTo);
  return units + putSelected(_mm_unpackhi_epi8(lower, upper), ends >> 8, pTo + units);
}

QM_SHUFFLING void decodeShuffled(DecodeCursor& position) noexcept {
  DecodeCursor cursor = position;  // stores can't touch a copy, which stays in registers
  while (cursor.left() >= kDecodeWindow && cursor.room >= kDecodeWindow) {
    const WindowMasks masks = classify(cursor.pFrom);
    if (masks.beyondAscii == 0) {
      for (std::size_t at = 0; at < kDecodeWindow; at += 16) {
        const __m128i bytes = load(cursor.pFrom + at);
        store(cursor.pTo + at, _mm_unpacklo_epi8(bytes, _mm_setzero_si128()));
        store(cursor.pTo + at + 8, _mm_unpackhi_epi8(bytes, _mm_setzero_si128()));
      }
      cursor.advance(kDecodeWindow, kDecodeWindow);
      continue;
    }
    const std::uint32_t firsts = masks.beyondAscii & ~masks.continuations;
    const std::uint32_t expected = firsts << 1 | masks.threes << 2;
    // A store of eight units may begin at the window's last one.
    if (masks.hard != 0 || expected != masks.continuations || cursor.room < kDecodeWindow + 8) {
      break;
    }
    // A sequence ends before a byte that continues none. That isn't known of the window's last byte, which is
    // left to the next window with what belongs to it.
    const std::uint32_t ends = ~masks.continuations >> 1;
    const __m128i start = load(cursor.pFrom);
    std::size_t units =
        decodeSixteen(start, _mm_slli_si128(start, 1), _mm_slli_si128(start, 2), ends, cursor.pTo);
    units += decodeSixteen(load(cursor.pFrom + 16), load(cursor.pFrom + 15), load(cursor.pFrom + 14),
                           ends >> 16, cursor.pTo + units);
    cursor.advance(static_cast<std::size_t>(std::bit_width(ends)), units);
  }
  position = cursor;
}

}  // namespace

void encodeBlocks(EncodeCursor& cursor) noexcept {
  if (haveShuffles()) {
    encodeShuffled(cursor);
  } else {
    encodeAsciiBlocks(cursor);
  }
}

void decodeBlocks(DecodeCursor& cursor) noexcept {
  if (haveShuffles()) {
    decodeShuffled(cursor);
  } else {
    decodeAsciiBlocks(cursor);
  }
}

// Whole aligned vectors are read, so that the last one may hold bytes that aren't the string's. An aligned
// vector never reaches into another page, so the processor allows it; the sanitizers are told not to mind.
[[gnu::no_sanitize_address]] [[gnu::no_sanitize_thread]] std::size_t wideLength(
    const char16_t* szWide) noexcept {
  constexpr std::size_t kUnits = sizeof(__m128i) / sizeof(char16_t);
  const char16_t* pAt = szWide;
  for (; reinterpret_cast<std::uintptr_t>(pAt) % sizeof(__m128i) != 0; ++pAt) {
    if (*pAt == 0) {
      return static_cast<std::size_t>(pAt - szWide);
    }
  }
  for (;; pAt += kUnits) {
    const __m128i units = _mm_load_si128(reinterpret_cast<const __m128i*>(pAt));
    const auto zeros = static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi16(units, _mm_setzero_si128())));
    if (zeros != 0) {
      return static_cast<std::size_t>(pAt - szWide) + static_cast<std::size_t>(std::countr_zero(zeros)) / 2;
    }
  }
}

#else

void encodeBlocks(EncodeCursor& cursor) noexcept {
  encodeAsciiBlocks(cursor);
}

void decodeBlocks(DecodeCursor& cursor) noexcept {
  decodeAsciiBlocks(cursor);
}

std::size_t wideLength(const char16_t* szWide) noexcept {
  return std::char_traits<char16_t>::length(szWide);
}

#endif

}  // namespace qm_utils
