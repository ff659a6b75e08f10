#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

/// The bare peer of all copies: a loop of recv and write with a buffer of 256 KiB, fed by a sender that has
/// its bytes in memory.
namespace qm_bench {

/// Connects to a port of the loopback and sends frames of a size in a remote copy stream, `uVolume` bytes in
/// all, and then the end of the stream.
void pushFrames(std::uint16_t uPort, std::size_t uFrame, std::size_t uVolume);

/// The seconds in which such a stream gets into a new file.
double rawCopy(const std::string& sPath, std::size_t uFrame, std::size_t uVolume);

}  // namespace qm_bench
