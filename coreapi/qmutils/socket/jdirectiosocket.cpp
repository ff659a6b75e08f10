#include "coreapi/qmutils/socket/jdirectiosocket.h"

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "coreapi/platform/faultseam.h"
#include "coreapi/platform/fileaccess.h"

JDirectIOSocket::JDirectIOSocket(const std::string& sPath, int iMode, bool bShared)
    : JFileSocket(sPath, iMode, {.exclusive = !bShared, .unbuffered = true}) {}

std::uint32_t JDirectIOSocket::getAlignment() const {
  return m_uAlignment;
}

void JDirectIOSocket::setAlignment(std::uint32_t uAlignment) {
  m_uAlignment = uAlignment;
}

namespace qm_utils {

namespace {

constexpr std::size_t kPageSize = 4096;

/// The largest size or alignment that is asked of the heap: rounding up stays within the type.
constexpr std::size_t kLargest = std::numeric_limits<std::ptrdiff_t>::max() / 4;

}  // namespace

void* allocAligned(std::size_t uSize, std::size_t uAlignment) noexcept {
  if (uSize > kLargest || uAlignment > kLargest ||
      qm_platform::takeFault(qm_platform::Seam::kAllocation).kind != qm_platform::FaultKind::kNone) {
    return nullptr;
  }
  const std::size_t uUsed = std::bit_ceil(std::max(uAlignment, sizeof(void*)));
  // The system wants a multiple, and gives an address for a size of 0 only so.
  return std::aligned_alloc(uUsed, std::max(uUsed, (uSize + uUsed - 1) / uUsed * uUsed));
}

void freeAligned(void* pAddress) noexcept {
  std::free(pAddress);
}

void* allocPages(std::size_t uSize, std::size_t uAlignment) noexcept {
  if (uSize > kLargest || uAlignment > kLargest) {
    return nullptr;
  }
  const std::size_t uUnit = std::max(uAlignment, kPageSize);
  const std::size_t uRounded = (uSize + uUnit - 1) / uUnit * uUnit;
  void* const pPages = allocAligned(uRounded, uUnit);
  if (pPages != nullptr) {
    std::memset(pPages, 0, uRounded);
  }
  return pPages;
}

void freePages(void* pAddress) noexcept {
  freeAligned(pAddress);
}

}  // namespace qm_utils
