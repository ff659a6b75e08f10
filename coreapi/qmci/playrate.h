#pragma once

#include <cstdint>

namespace qm_ci {

class ConstBitstream;
class QMCIVideoInfo;

/// Converts between the times of frames and of their play-back at a rate, which is kept in 64ths. All times
/// are microseconds in unsigned 64-bit arithmetic, which wraps. Where pictures have no rate, the decoder's
/// pipe counts for nothing.
class PlayRate {
 public:
  /// Throws JTextError "invalid play rate" for a rate that rounds to 0 or isn't a positive number that 64ths
  /// can hold.
  explicit PlayRate(double rate);

  /// When a moment `ullOffset` behind a frame is played.
  std::uint64_t toPlayTime(const ConstBitstream& frame, const QMCIVideoInfo& video,
                           std::uint64_t ullOffset) const noexcept;

  /// How far behind a frame the moment lies that is told by a play time.
  std::uint64_t toOffset(const ConstBitstream& frame, const QMCIVideoInfo& video,
                         std::uint64_t ullPlayTime) const noexcept;

 private:
  std::uint64_t m_rate64;
};

}  // namespace qm_ci
