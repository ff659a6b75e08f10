#pragma once

#include <cstddef>
#include <string>

/// Opening, duplicating, writing and closing of descriptors. Every operation reports 0, or the `errno` value
/// of what failed; an interrupted call is taken up again. Every descriptor is close-on-exec. Any thread.
namespace qm_platform {

/// The value that stands for "no descriptor".
constexpr int kNoDescriptor = -1;

/// Opens a file for writing at its end, and makes it when it isn't there, with read and write permission for
/// the owner. `descriptor` is `kNoDescriptor` after a failure.
int openAppend(const std::string& path, int& descriptor) noexcept;

/// Gives a second descriptor of what `original` stands for, the first free one from `lowest` on. `descriptor`
/// is `kNoDescriptor` after a failure.
int duplicateDescriptor(int original, int& descriptor, int lowest = 0) noexcept;

/// Writes all of `size` bytes: goes on after a short count, and waits where a non-blocking descriptor has no
/// room. `written`, unless null, takes the number of bytes that went out, after a failure as well.
///
/// A pipe without a reader raises SIGPIPE unless the caller holds a `BrokenPipeGuard`.
int writeAll(int descriptor, const void* data, std::size_t size, std::size_t* written = nullptr) noexcept;

/// Closes a descriptor. Whatever it reports, the descriptor is gone afterwards.
int closeDescriptor(int descriptor) noexcept;

}  // namespace qm_platform
