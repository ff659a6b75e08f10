#include "coreapi/qmci/playrate.h"

#include "coreapi/qmci/bitstream.h"
#include "coreapi/qmci/videoinforecord.h"
#include "coreapi/qmutils/error/jerror.h"

namespace qm_ci {

namespace {

constexpr std::uint64_t kMicrosecondsPerSecond = 1000000;

/// How much later than its time stamp says a frame leaves the decoder, since its pipe wasn't as full then as
/// the stream's is. Wraps like the times that it is added to, where the pipe was fuller.
std::uint64_t pipeDelay(const ConstBitstream& frame, const QMCIVideoInfo& video) noexcept {
  if (video.getPictureRateNum() == 0) {
    return 0;
  }
  const std::uint32_t uFrame = frame.getDecoderPipe();
  const bool bFuller = uFrame > video.getDecoderPipe();
  const std::uint64_t ullPictures =
      bFuller ? uFrame - video.getDecoderPipe() : video.getDecoderPipe() - uFrame;
  const std::uint64_t ullDelay =
      ullPictures * video.getPictureRateDen() * kMicrosecondsPerSecond / video.getPictureRateNum();
  return bFuller ? 0 - ullDelay : ullDelay;
}

}  // namespace

PlayRate::PlayRate(double rate) : m_rate64(0) {
  const double rounded = rate * 64 + 0.5;
  // Neither a negative number nor one from 2^64 on has a value to be cut to; "not a number" fails both tests.
  if (rounded >= 1 && rounded < 0x1p64) {
    m_rate64 = static_cast<std::uint64_t>(rounded);
  }
  if (m_rate64 == 0) {
    QM_THROW(JTextError, "invalid play rate");
  }
}

std::uint64_t PlayRate::toPlayTime(const ConstBitstream& frame, const QMCIVideoInfo& video,
                                   std::uint64_t ullOffset) const noexcept {
  return ((frame.getTimestamp() + pipeDelay(frame, video) + ullOffset) * m_rate64) >> 6;
}

std::uint64_t PlayRate::toOffset(const ConstBitstream& frame, const QMCIVideoInfo& video,
                                 std::uint64_t ullPlayTime) const noexcept {
  return ((ullPlayTime * m_rate64) >> 6) - frame.getTimestamp() - pipeDelay(frame, video);
}

}  // namespace qm_ci
