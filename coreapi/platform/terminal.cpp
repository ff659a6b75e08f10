#include "coreapi/platform/terminal.h"

#include <unistd.h>

namespace qm_platform {

bool isTerminal(int iDescriptor) noexcept {
  return isatty(iDescriptor) == 1;
}

}  // namespace qm_platform
