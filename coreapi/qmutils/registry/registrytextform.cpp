#include "coreapi/qmutils/registry/registrytextform.h"

#include <cstddef>

#include "coreapi/qmutils/registry/jregistrytext.h"
#include "coreapi/qmutils/registry/registrypath.h"

namespace qm_utils {

namespace {

bool hasLineBreak(std::string_view text) noexcept {
  return text.find('\n') != std::string_view::npos;
}

}  // namespace

bool isTextType(std::uint32_t uType) noexcept {
  switch (uType) {
    case kRegSz:
    case kRegExpandSz:
    case kRegBinary:
    case kRegDword:
    case kRegMultiSz:
      return true;
    default:
      return false;
  }
}

bool hasTextForm(const std::string& sName, std::uint32_t uType, std::string_view data) noexcept {
  constexpr std::size_t kTextPerByte = 3;  // two digits and a comma, which is more than a text needs
  constexpr std::size_t kAround = 16;      // quotes, "=" and the mark of the type
  const bool bBytes = uType == kRegBinary || uType == kRegDword;
  return sName.find('"') == std::string::npos && !hasLineBreak(sName) && (bBytes || !hasLineBreak(data)) &&
         sName.size() <= kRegistryLineLimit / 2 &&
         data.size() <= (kRegistryLineLimit / 2 - kAround) / kTextPerByte;
}

bool hasTextForm(const std::string& sPath) noexcept {
  constexpr std::size_t kAround = 32;  // brackets and the name of the root
  return !hasLineBreak(sPath) && sPath.size() <= kRegistryLineLimit - kAround &&
         countNames(sPath) <= kRegistryDepthLimit;
}

}  // namespace qm_utils
