#pragma once

#include <cstddef>
#include <cstdio>
#include <memory>

namespace qm_utils {

/// Writes the next name for a temporary file, "0000002A.tmp", into a buffer, cut to `uSize` bytes with the
/// NUL. Names count up through the whole process. Any thread.
void makeTempName(char* szBuffer, std::size_t uSize) noexcept;

struct StreamClose {
  void operator()(std::FILE* pStream) const noexcept { std::fclose(pStream); }
};
using StreamPointer = std::unique_ptr<std::FILE, StreamClose>;

/// Opens a new stream for reading and writing on a file of the current directory that nobody but the owner
/// may read, and that is gone when the stream is closed or the process ends. Names that are taken are passed
/// over. Null on failure. Any thread.
StreamPointer openTempFile();

}  // namespace qm_utils
