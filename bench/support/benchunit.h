#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

/// A unit of an archive that has something in it.
namespace qm_bench {

/// How a unit is filled: slices of frames of one size, apart by a period; one frame in a hundred is a key
/// frame.
struct UnitContent {
  std::size_t uFrame = 0;     ///< bytes
  std::uint64_t uFrames = 0;  ///< in each slice
  std::uint64_t uSlices = 1;
  std::uint64_t uPeriod = 1000;  ///< microseconds
};

/// 03/03/2011 08:00:00 UTC, where every unit begins.
constexpr std::uint64_t kUnitBegin = 12943612800000000;

/// Writes the slices into the unit's directory under an archive's root, which are made when they are missing.
void recordUnit(const std::string& sRoot, const std::string& sSource, std::int32_t iFps,
                const UnitContent& content);

}  // namespace qm_bench
