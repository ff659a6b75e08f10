#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "coreapi/qmutils/socket/jfilesocket.h"

/// A file whose transfers go past the system's cache, for media that is written or read once.
///
/// Positions, lengths and addresses of its transfers must be multiples of the alignment; others fail with
/// EINVAL where the file system can't do them. Where the file system refuses to work without its cache at
/// all, the file goes through the cache, and a line at level WARNING says so. Threads as in `JFileSocket`.
class JDirectIOSocket : public JFileSocket {
 public:
  static constexpr std::uint32_t kDefaultAlignment = 512;

  /// As `JFileSocket`.
  JDirectIOSocket(const std::string& sPath, int iMode, bool bShared);

  /// What the channel demands of its users, in bytes; a power of two.
  std::uint32_t getAlignment() const override;
  void setAlignment(std::uint32_t uAlignment);

 private:
  std::uint32_t m_uAlignment = kDefaultAlignment;
};

/// Memory for such transfers.
namespace qm_utils {

/// Memory of a size at an address that is a multiple of an alignment (a power of two), its contents unset.
/// Null when there is none. The caller gives it back through `freeAligned`, which takes null too. Any thread.
void* allocAligned(std::size_t uSize, std::size_t uAlignment) noexcept;
void freeAligned(void* pAddress) noexcept;

/// As above for whole pages, filled with 0: the size is rounded up to the larger of the alignment and 4096.
void* allocPages(std::size_t uSize, std::size_t uAlignment) noexcept;
void freePages(void* pAddress) noexcept;

/// Owner of memory from `allocAligned`.
struct AlignedFree {
  void operator()(void* pAddress) const noexcept { freeAligned(pAddress); }
};
using AlignedBuffer = std::unique_ptr<std::uint8_t[], AlignedFree>;

}  // namespace qm_utils
