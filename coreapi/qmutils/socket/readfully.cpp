#include "coreapi/qmutils/socket/readfully.h"

#include <cstdint>

namespace qm_utils {

std::size_t readFully(JISocket& socket, void* pBuffer, std::size_t uSize) {
  auto* const pBytes = static_cast<std::uint8_t*>(pBuffer);
  std::size_t uDone = 0;
  while (uDone < uSize) {
    const std::size_t uRead = socket.read(pBytes + uDone, uSize - uDone);
    if (uRead == 0) {
      break;
    }
    uDone += uRead;
  }
  return uDone;
}

}  // namespace qm_utils
