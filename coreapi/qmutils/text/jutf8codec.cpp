#include "coreapi/qmutils/text/jutf8codec.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <iterator>

#include "coreapi/qmutils/text/utf8blocks.h"

namespace {

using qm_utils::DecodeCursor;
using qm_utils::EncodeCursor;

/// Characters that go one by one before blocks are tried again.
constexpr std::size_t kOneByOne = 16;

constexpr std::size_t utf8Length(char16_t unit) noexcept {
  return 1U + (unit >= 0x80 ? 1U : 0U) + (unit >= 0x800 ? 1U : 0U);
}

std::size_t utf8Length(const char16_t* pUnits, std::size_t count) noexcept {
  std::size_t length = 0;
  for (std::size_t i = 0; i < count; ++i) {
    length += utf8Length(pUnits[i]);
  }
  return length;
}

/// Writes the one to three bytes of a unit and returns where they end.
inline char* putUnit(char* pTo, char16_t unit) noexcept {
  if (unit < 0x80) {
    *pTo++ = static_cast<char>(unit);
  } else if (unit < 0x800) {
    *pTo++ = static_cast<char>(0xC0 | unit >> 6);
    *pTo++ = static_cast<char>(0x80 | (unit & 0x3F));
  } else {
    *pTo++ = static_cast<char>(0xE0 | unit >> 12);
    *pTo++ = static_cast<char>(0x80 | (unit >> 6 & 0x3F));
    *pTo++ = static_cast<char>(0x80 | (unit & 0x3F));
  }
  return pTo;
}

/// Converts one block where the rest of the input or the room is too small for blocks: by way of arrays on
/// the stack, with NULs behind the input. False, and nothing done, when that is of no use.
bool encodeAside(EncodeCursor& cursor) noexcept {
  constexpr std::size_t kBlock = 16;
  char16_t padded[kBlock] = {};
  char coded[64];
  const std::size_t real = std::min(cursor.left(), kBlock);
  const char16_t* pBlock = cursor.pFrom;
  if (real < kBlock) {
    std::memcpy(padded, cursor.pFrom, real * sizeof(char16_t));
    pBlock = padded;
  }
  EncodeCursor inner{pBlock, pBlock + kBlock, coded, sizeof coded};
  qm_utils::encodeBlocks(inner);
  if (inner.left() != 0) {
    return false;
  }
  const std::size_t length = static_cast<std::size_t>(inner.pTo - coded) - (kBlock - real);
  if (length > cursor.room) {
    return false;
  }
  std::memcpy(cursor.pTo, coded, length);
  cursor.advance(real, length);
  return true;
}

/// Converts a wide string into at most `room` bytes, without a NUL, and returns where they end.
char* encode(const char16_t* pFrom, const char16_t* pEnd, char* pTo, std::size_t room) noexcept {
  EncodeCursor cursor{pFrom, pEnd, pTo, room};
  for (;;) {
    qm_utils::encodeBlocks(cursor);
    if (cursor.left() != 0 && encodeAside(cursor)) {
      continue;
    }
    for (std::size_t i = 0; i < kOneByOne; ++i) {
      if (cursor.left() == 0 || utf8Length(*cursor.pFrom) > cursor.room) {
        return cursor.pTo;
      }
      cursor.advance(1, static_cast<std::size_t>(putUnit(cursor.pTo, *cursor.pFrom) - cursor.pTo));
    }
  }
}

/// Bytes of the sequence that a byte starts; 0 for a byte that starts none.
constexpr std::array<std::uint8_t, 256> kSequenceLength = [] {
  std::array<std::uint8_t, 256> lengths{};
  for (std::size_t first = 0; first < lengths.size(); ++first) {
    lengths[first] = first < 0x80   ? 1
                     : first < 0xC2 ? 0
                     : first < 0xE0 ? 2
                     : first < 0xF0 ? 3
                     : first < 0xF8 ? 4
                     : first < 0xFC ? 5
                     : first < 0xFE ? 6
                                    : 0;
  }
  return lengths;
}();

inline std::size_t sequenceLength(char first) noexcept {
  return kSequenceLength[static_cast<std::uint8_t>(first)];
}

constexpr std::uint32_t lowSix(char byte) noexcept {
  return static_cast<std::uint32_t>(byte) & 0x3F;
}

/// The unit of a sequence. The three bytes at the end of a sequence of three or more make it, the first
/// byte's four bits among them when it is the third from the end; what lies above 16 bits is cut off.
inline char16_t unitOf(const char* pFrom, std::size_t length) noexcept {
  switch (length) {
    case 1:
      return static_cast<char16_t>(*pFrom);
    case 2:
      return static_cast<char16_t>((static_cast<std::uint32_t>(pFrom[0]) & 0x1F) << 6 | lowSix(pFrom[1]));
    default: {
      const char* pLast = pFrom + length - 3;
      return static_cast<char16_t>(lowSix(pLast[0]) << 12 | lowSix(pLast[1]) << 6 | lowSix(pLast[2]));
    }
  }
}

/// As `encodeAside`.
bool decodeAside(DecodeCursor& cursor) noexcept {
  constexpr std::size_t kWindow = 32;
  char padded[kWindow] = {};
  char16_t units[kWindow + 16];
  const std::size_t real = std::min(cursor.left(), kWindow);
  const char* pWindow = cursor.pFrom;
  if (real < kWindow) {
    std::memcpy(padded, cursor.pFrom, real);
    pWindow = padded;
  }
  DecodeCursor inner{pWindow, pWindow + kWindow, units, std::size(units)};
  qm_utils::decodeBlocks(inner);
  const std::size_t taken = kWindow - inner.left();
  if (taken == 0) {
    return false;
  }
  const std::size_t padding = taken - std::min(taken, real);
  const std::size_t given = std::min(static_cast<std::size_t>(inner.pTo - units) - padding, cursor.room);
  std::memcpy(cursor.pTo, units, given * sizeof(char16_t));
  cursor.advance(taken - padding, given);
  return true;
}

/// Converts UTF-8 into at most `room` units, without a NUL, and returns where they end.
char16_t* decode(const char* pFrom, const char* pEnd, char16_t* pTo, std::size_t room) noexcept {
  DecodeCursor cursor{pFrom, pEnd, pTo, room};
  for (;;) {
    qm_utils::decodeBlocks(cursor);
    if (cursor.left() != 0 && cursor.room != 0 && decodeAside(cursor)) {
      continue;
    }
    for (std::size_t i = 0; i < kOneByOne; ++i) {
      const std::size_t length = cursor.left() != 0 ? sequenceLength(*cursor.pFrom) : 0;
      if (length == 0 || length > cursor.left() || cursor.room == 0) {
        return cursor.pTo;
      }
      *cursor.pTo = unitOf(cursor.pFrom, length);
      cursor.advance(length, 1);
    }
  }
}

std::size_t unitsOf(const char16_t* szWide) noexcept {
  return szWide != nullptr ? qm_utils::wideLength(szWide) : 0;
}

std::size_t bytesOf(const char* szUtf8) noexcept {
  return szUtf8 != nullptr ? std::strlen(szUtf8) : 0;
}

}  // namespace

std::size_t JUTF8Codec::getUtf8Length(const char16_t* szWide) noexcept {
  return utf8Length(szWide, unitsOf(szWide));
}

std::size_t JUTF8Codec::getWideLength(const char* szUtf8) noexcept {
  std::size_t left = bytesOf(szUtf8);
  std::size_t units = 0;
  while (left != 0) {
    const std::size_t length = sequenceLength(*szUtf8);
    if (length == 0) {
      break;
    }
    ++units;
    szUtf8 += std::min(length, left);
    left -= std::min(length, left);
  }
  return units;
}

char* JUTF8Codec::toUtf8(const char16_t* szWide, char* szBuf, std::ptrdiff_t iSize) noexcept {
  if (iSize >= 1) {
    *encode(szWide, szWide + unitsOf(szWide), szBuf, static_cast<std::size_t>(iSize) - 1) = '\0';
  }
  return szBuf;
}

char* JUTF8Codec::toUtf8(const char16_t* szWide, char* szBuf) noexcept {
  const std::size_t units = unitsOf(szWide);
  *encode(szWide, szWide + units, szBuf, utf8Length(szWide, units)) = '\0';
  return szBuf;
}

std::string JUTF8Codec::toUtf8(const char16_t* szWide) {
  const std::size_t units = unitsOf(szWide);
  std::string sUtf8(utf8Length(szWide, units), '\0');
  encode(szWide, szWide + units, sUtf8.data(), sUtf8.size());
  return sUtf8;
}

std::size_t JUTF8Codec::toUtf8(const char16_t* szWide, std::unique_ptr<char[]>& pNew) {
  pNew.reset();
  if (szWide == nullptr) {
    return 0;
  }
  const std::size_t length = getUtf8Length(szWide);
  pNew = std::make_unique_for_overwrite<char[]>(length + 1);
  toUtf8(szWide, pNew.get(), static_cast<std::ptrdiff_t>(length + 1));
  return length;
}

char16_t* JUTF8Codec::toWide(const char* szUtf8, char16_t* szBuf, std::ptrdiff_t iSize) noexcept {
  if (iSize >= 1) {
    *decode(szUtf8, szUtf8 + bytesOf(szUtf8), szBuf, static_cast<std::size_t>(iSize) - 1) = u'\0';
  }
  return szBuf;
}

char16_t* JUTF8Codec::toWide(const char* szUtf8, char16_t* szBuf) noexcept {
  return toWide(szUtf8, szBuf, static_cast<std::ptrdiff_t>(getWideLength(szUtf8)) + 1);
}

std::u16string JUTF8Codec::toWide(const char* szUtf8) {
  const std::size_t length = bytesOf(szUtf8);
  std::u16string sWide(length, u'\0');
  sWide.resize(
      static_cast<std::size_t>(decode(szUtf8, szUtf8 + length, sWide.data(), length) - sWide.data()));
  return sWide;
}

std::size_t JUTF8Codec::toWide(const char* szUtf8, std::unique_ptr<char16_t[]>& pNew) {
  pNew.reset();
  if (szUtf8 == nullptr) {
    return 0;
  }
  const std::size_t room = getWideLength(szUtf8);
  pNew = std::make_unique_for_overwrite<char16_t[]>(room + 1);
  char16_t* pEnd = decode(szUtf8, szUtf8 + bytesOf(szUtf8), pNew.get(), room);
  *pEnd = u'\0';
  return static_cast<std::size_t>(pEnd - pNew.get());
}
