#include "coreapi/platform/systemerror.h"

#include <climits>
#include <cstring>

namespace qm_platform {

std::string systemErrorText(unsigned code) {
  const char* text = code <= INT_MAX ? strerrordesc_np(static_cast<int>(code)) : nullptr;
  return text != nullptr ? text : "";
}

}  // namespace qm_platform
