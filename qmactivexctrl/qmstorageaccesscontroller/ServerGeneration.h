#pragma once

#include <cstdint>

/// The dialects of the servers.
enum class ServerGeneration {
  k22SP6,  ///< the oldest, all 2.x
  k3X4X,   ///< up to 4.2: the reference
  k43,     ///< 4.3 and above
};

/// The dialect of a server's version. There is one for every version; one that isn't known, 0.0, counts as
/// the reference. A minor version is a tenth of a major one, so 3.13 counts as 4.3.
ServerGeneration selectGeneration(std::int32_t iMajor, std::int32_t iMinor) noexcept;

/// "2.2 SP6", "3.x/4.x" or "4.3": for people.
const char* getGenerationName(ServerGeneration eGeneration) noexcept;
