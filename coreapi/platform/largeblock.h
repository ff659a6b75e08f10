#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>

#include "coreapi/platform/faultseam.h"

namespace qm_platform {

/// A block of `size` bytes for a frame or a file's table, its contents unset; null when there is no memory
/// for it.
inline std::unique_ptr<std::uint8_t[]> tryAllocate(std::size_t size) noexcept {
  if (takeFault(Seam::kAllocation).kind != FaultKind::kNone) {
    return nullptr;
  }
  return std::unique_ptr<std::uint8_t[]>(new (std::nothrow) std::uint8_t[size]);
}

}  // namespace qm_platform
