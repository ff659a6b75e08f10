#pragma once

#include <cstdint>

namespace qm_ci {

/// What of a video description the conversion of times needs. A numerator of 0 means that pictures have no
/// duration, and the decoder's pipe then counts for nothing.
struct VideoTiming {
  std::uint32_t uDecoderPipe = 0;  ///< pictures
  std::uint32_t uRateNumerator = 0;
  std::uint32_t uRateDenominator = 0;
};

class ConstBitstream;

/// Converts between the times of frames and of their play-back at a rate, which is kept in 64ths. All times
/// are microseconds in unsigned 64-bit arithmetic, which wraps.
class PlayRate {
 public:
  /// Throws JTextError "invalid play rate" for a rate that rounds to 0 or isn't a positive number that 64ths
  /// can hold.
  explicit PlayRate(double rate);

  /// When a moment `ullOffset` behind a frame is played.
  std::uint64_t toPlayTime(const ConstBitstream& frame, const VideoTiming& timing,
                           std::uint64_t ullOffset) const noexcept;

  /// How far behind a frame the moment lies that is told by a play time.
  std::uint64_t toOffset(const ConstBitstream& frame, const VideoTiming& timing,
                         std::uint64_t ullPlayTime) const noexcept;

 private:
  std::uint64_t m_rate64;
};

}  // namespace qm_ci
