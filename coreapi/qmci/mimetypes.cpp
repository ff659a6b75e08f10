#include "coreapi/qmci/mimetypes.h"

#include <algorithm>

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

bool isVideoMIMEType(std::string_view sMIMEType) noexcept {
  return beginsWith(sMIMEType, "video/") || beginsWith(sMIMEType, "image/");
}

bool isAudioMIMEType(std::string_view sMIMEType) noexcept {
  return beginsWith(sMIMEType, "audio/");
}

}  // namespace qm_ci
