#pragma once

#include <cstddef>

#include "coreapi/qmutils/socket/jiosocket.h"

namespace qm_utils {

/// Fills a buffer from a channel, with as many reads as that takes; fewer bytes only at the channel's end.
/// Throws what the channel throws.
std::size_t readFully(JISocket& socket, void* pBuffer, std::size_t uSize);

}  // namespace qm_utils
