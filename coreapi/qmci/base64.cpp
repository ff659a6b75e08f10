#include "coreapi/qmci/base64.h"

#include <array>

namespace qm_ci {

namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::uint8_t kNoDigit = 0xFF;

/// Value of each character; `kNoDigit` for those that have none.
constexpr std::array<std::uint8_t, 256> kValues = [] {
  std::array<std::uint8_t, 256> values{};
  values.fill(kNoDigit);
  for (std::uint8_t i = 0; i < 64; ++i) {
    values[static_cast<unsigned char>(kAlphabet[i])] = i;
  }
  return values;
}();

bool isBlank(char c) noexcept {
  return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

}  // namespace

std::string encodeBase64(std::span<const std::uint8_t> bytes) {
  std::string sText;
  sText.reserve(base64Size(bytes.size()));
  for (std::size_t at = 0; at < bytes.size(); at += 3) {
    const std::size_t rest = bytes.size() - at;
    const std::uint32_t uGroup = std::uint32_t{bytes[at]} << 16 |
                                 (rest > 1 ? std::uint32_t{bytes[at + 1]} << 8 : 0) |
                                 (rest > 2 ? std::uint32_t{bytes[at + 2]} : 0);
    sText += kAlphabet[uGroup >> 18];
    sText += kAlphabet[uGroup >> 12 & 0x3F];
    sText += rest > 1 ? kAlphabet[uGroup >> 6 & 0x3F] : '=';
    sText += rest > 2 ? kAlphabet[uGroup & 0x3F] : '=';
  }
  return sText;
}

std::optional<std::vector<std::uint8_t>> decodeBase64(std::string_view text) {
  std::vector<std::uint8_t> bytes;
  bytes.reserve(text.size() / 4 * 3);
  std::uint32_t uGroup = 0;
  int iDigits = 0;
  int iPadding = 0;
  for (const char c : text) {
    if (isBlank(c)) {
      continue;
    }
    const bool bPadding = c == '=';
    const std::uint8_t value = bPadding ? 0 : kValues[static_cast<unsigned char>(c)];
    // Only the last one or two digits of the last group may be padding.
    if (value == kNoDigit || (iPadding > 0 && (!bPadding || iDigits == 0)) || (bPadding && iDigits < 2)) {
      return std::nullopt;
    }
    iPadding += bPadding ? 1 : 0;
    uGroup = uGroup << 6 | value;
    if (++iDigits == 4) {
      for (int i = 0; i < 3 - iPadding; ++i) {
        bytes.push_back(static_cast<std::uint8_t>(uGroup >> (16 - 8 * i)));
      }
      uGroup = 0;
      iDigits = 0;
    }
  }
  return iDigits == 0 ? std::optional(std::move(bytes)) : std::nullopt;
}

}  // namespace qm_ci
