#include "coreapi/platform/filemapping.h"

#include <cerrno>
#include <sys/mman.h>
#include <sys/types.h>
#include <unistd.h>
#include <utility>

#include "coreapi/platform/systemcall.h"

namespace qm_platform {

std::uint64_t mappingGranularity() noexcept {
  int error = 0;
  const long size = uninterrupted(error, [](bool) { return ::sysconf(_SC_PAGESIZE); });
  return size > 0 ? static_cast<std::uint64_t>(size) : 0;
}

int mapFile(int descriptor, std::uint64_t offset, std::size_t size, bool writable, void*& address) noexcept {
  address = nullptr;
  if (!std::in_range<off_t>(offset)) {
    return EINVAL;
  }
  return errorOfCall([&] {
    void* const mapped = ::mmap(nullptr, size, writable ? PROT_READ | PROT_WRITE : PROT_READ, MAP_SHARED,
                                descriptor, static_cast<off_t>(offset));
    if (mapped == MAP_FAILED) {
      return -1;
    }
    address = mapped;
    return 0;
  });
}

int unmapFile(void* address, std::size_t size) noexcept {
  return errorOfCall([&] { return ::munmap(address, size); });
}

}  // namespace qm_platform
