#include "tests/coreapi/qmci/allocationcount.h"

#include <cstdlib>
#include <new>

namespace {

thread_local std::size_t t_nAllocations = 0;

void* allocate(std::size_t size) noexcept {
  ++t_nAllocations;
  return std::malloc(size != 0 ? size : 1);
}

void* allocateOrThrow(std::size_t size) {
  void* pBlock = allocate(size);
  if (pBlock == nullptr) {
    throw std::bad_alloc();
  }
  return pBlock;
}

}  // namespace

void* operator new(std::size_t size) {
  return allocateOrThrow(size);
}
void* operator new[](std::size_t size) {
  return allocateOrThrow(size);
}
void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
  return allocate(size);
}
void* operator new[](std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
  return allocate(size);
}
void operator delete(void* pBlock) noexcept {
  std::free(pBlock);
}
void operator delete[](void* pBlock) noexcept {
  std::free(pBlock);
}
void operator delete(void* pBlock, std::size_t /*size*/) noexcept {
  std::free(pBlock);
}
void operator delete[](void* pBlock, std::size_t /*size*/) noexcept {
  std::free(pBlock);
}

std::size_t qm_test::allocationCount() noexcept {
  return t_nAllocations;
}
