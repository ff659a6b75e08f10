#include "coreapi/qmci/mimetypes.h"

#include <algorithm>
#include <charconv>

namespace qm_ci {

namespace {

/// `sPrefix` is in lower case. ASCII letters only: a type has no others, and the host's locale has no say.
bool beginsWith(std::string_view sText, std::string_view sPrefix) noexcept {
  return sText.size() >= sPrefix.size() &&
         std::equal(sPrefix.begin(), sPrefix.end(), sText.begin(), [](char wanted, char found) {
           return wanted == (found >= 'A' && found <= 'Z' ? static_cast<char>(found - 'A' + 'a') : found);
         });
}

}  // namespace

std::string waveMIMEType(std::uint16_t wFormatTag) {
  constexpr std::uint16_t kPcm = 1;
  if (wFormatTag == kPcm) {
    return std::string(kMimeWavePcm);
  }
  constexpr std::string_view kDigits = "0123456789ABCDEF";
  std::string sType(kMimeWave);
  for (int iShift = 12; iShift >= 0; iShift -= 4) {
    sType += kDigits[wFormatTag >> iShift & 0xF];
  }
  return sType;
}

std::optional<std::uint16_t> waveTagOf(std::string_view sMIMEType) noexcept {
  if (sMIMEType == kMimeWavePcm) {
    return 1;
  }
  constexpr std::size_t kDigits = 4;
  if (!sMIMEType.starts_with(kMimeWave) || sMIMEType.size() != kMimeWave.size() + kDigits) {
    return std::nullopt;
  }
  std::uint16_t wTag = 0;
  const char* const pEnd = sMIMEType.data() + sMIMEType.size();
  const auto [pRead, error] = std::from_chars(pEnd - kDigits, pEnd, wTag, 16);
  return error == std::errc() && pRead == pEnd ? std::optional(wTag) : std::nullopt;
}

bool isVideoMIMEType(std::string_view sMIMEType) noexcept {
  return beginsWith(sMIMEType, "video/") || beginsWith(sMIMEType, "image/");
}

bool isAudioMIMEType(std::string_view sMIMEType) noexcept {
  return beginsWith(sMIMEType, "audio/");
}

}  // namespace qm_ci
