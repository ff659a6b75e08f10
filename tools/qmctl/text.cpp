#include "tools/qmctl/text.h"

#include <algorithm>
#include <array>
#include <cstddef>

#include "tools/qmctl/failure.h"

namespace {

constexpr char32_t kBad = 0xFFFFFFFF;
constexpr char32_t kReplacement = 0xFFFD;

constexpr bool isContinuation(char c) noexcept {
  return (static_cast<unsigned char>(c) & 0xC0U) == 0x80U;
}

/// The character at a place, which is moved behind it; `kBad` for what isn't UTF-8 (RFC 3629).
char32_t nextCharacter(std::string_view sText, std::size_t& uAt) {
  const auto uLead = static_cast<unsigned char>(sText[uAt++]);
  if (uLead < 0x80) {
    return uLead;
  }
  const std::size_t uMore = uLead >= 0xF0 ? 3 : uLead >= 0xE0 ? 2 : 1;
  if (uLead < 0xC2 || uLead > 0xF4 || uMore > sText.size() - uAt) {
    return kBad;
  }
  char32_t character = uLead & (0x3FU >> uMore);
  for (std::size_t i = 0; i < uMore; ++i) {
    const char c = sText[uAt++];
    if (!isContinuation(c)) {
      return kBad;
    }
    character = character << 6 | (static_cast<unsigned char>(c) & 0x3FU);
  }
  constexpr std::array<char32_t, 4> kLowest{0, 0x80, 0x800, 0x10000};
  const bool bSurrogate = character >= 0xD800 && character <= 0xDFFF;
  return character < kLowest[uMore] || character > 0x10FFFF || bSurrogate ? kBad : character;
}

void appendCharacter(std::string& sText, char32_t character) {
  const auto append = [&](char32_t bits) { sText += static_cast<char>(bits); };
  if (character < 0x80) {
    append(character);
    return;
  }
  if (character < 0x800) {
    append(0xC0 | character >> 6);
  } else {
    if (character < 0x10000) {
      append(0xE0 | character >> 12);
    } else {
      append(0xF0 | character >> 18);
      append(0x80 | (character >> 12 & 0x3F));
    }
    append(0x80 | (character >> 6 & 0x3F));
  }
  append(0x80 | (character & 0x3F));
}

}  // namespace

namespace qmctl {

std::u16string toControl(std::string_view sText) {
  std::u16string sWide;
  for (std::size_t uAt = 0; uAt < sText.size();) {
    const char32_t character = nextCharacter(sText, uAt);
    if (character == kBad) {
      throw Failure(kWrongUsage, "an argument is not UTF-8 text");
    }
    if (character < 0x10000) {
      sWide += static_cast<char16_t>(character);
    } else {
      sWide += static_cast<char16_t>(0xD7C0 + (character >> 10));
      sWide += static_cast<char16_t>(0xDC00 | (character & 0x3FF));
    }
  }
  return sWide;
}

std::string fromControl(std::u16string_view sText) {
  std::string sBytes;
  for (std::size_t i = 0; i < sText.size(); ++i) {
    const char16_t unit = sText[i];
    if (unit < 0xD800 || unit > 0xDFFF) {
      appendCharacter(sBytes, unit);
    } else if (unit < 0xDC00 && i + 1 < sText.size() && sText[i + 1] >= 0xDC00 && sText[i + 1] <= 0xDFFF) {
      const char32_t high = unit & 0x3FFU;
      appendCharacter(sBytes, 0x10000 + (high << 10 | (sText[++i] & 0x3FFU)));
    } else {
      appendCharacter(sBytes, kReplacement);
    }
  }
  return sBytes;
}

std::string printable(std::string_view sText) {
  std::string sPrintable;
  for (std::size_t i = 0; i < sText.size(); ++i) {
    const auto uByte = static_cast<unsigned char>(sText[i]);
    // U+0080 to U+009F are control characters too.
    const bool bHighControl =
        uByte == 0xC2 && i + 1 < sText.size() && static_cast<unsigned char>(sText[i + 1]) < 0xA0;
    if (uByte < 0x20 || uByte == 0x7F || bHighControl) {
      sPrintable += '?';
      i += bHighControl ? 1 : 0;
    } else {
      sPrintable += sText[i];
    }
  }
  return sPrintable;
}

std::size_t countCharacters(std::string_view sText) noexcept {
  return static_cast<std::size_t>(std::ranges::count_if(sText, [](char c) { return !isContinuation(c); }));
}

}  // namespace qmctl
