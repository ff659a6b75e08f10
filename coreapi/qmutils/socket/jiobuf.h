#pragma once

#include <cstdint>

/// One buffer of a gathering write or a scattering read. The memory belongs to whoever fills the array; a
/// write never changes it.
///
/// The order of the fields is the system's own; the socket layer copies an array into the platform's form.
struct JIoBuf {
  void* pBuf = nullptr;         ///< first byte
  std::uint32_t bufLength = 0;  ///< bytes from there
};
