#include "coreapi/qmutils/registry/jregistry.h"

namespace qm_utils {

std::string_view registryTypeName(std::uint32_t uType) noexcept {
  switch (uType) {
    case kRegNone:
      return "REG_NONE";
    case kRegSz:
      return "REG_SZ";
    case kRegExpandSz:
      return "REG_EXPAND_SZ";
    case kRegBinary:
      return "REG_BINARY";
    case kRegDword:
      return "REG_DWORD";
    case kRegMultiSz:
      return "REG_MULTI_SZ";
    case kRegQword:
      return "REG_QWORD";
    default:
      return "UNKNOWN";
  }
}

std::string_view registryRootName(RegistryRoot root) noexcept {
  switch (root) {
    case RegistryRoot::kClassesRoot:
      return "HKEY_CLASSES_ROOT";
    case RegistryRoot::kCurrentUser:
      return "HKEY_CURRENT_USER";
    case RegistryRoot::kLocalMachine:
      return "HKEY_LOCAL_MACHINE";
    case RegistryRoot::kUsers:
      return "HKEY_USERS";
    case RegistryRoot::kCurrentConfig:
      return "HKEY_CURRENT_CONFIG";
  }
  return "UNKNOWN HKEY";
}

}  // namespace qm_utils
