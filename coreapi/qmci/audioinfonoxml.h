#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "coreapi/qmci/audioinforecord.h"
#include "coreapi/qmci/mediainfo.h"
#include "coreapi/qmci/waveheader.h"

namespace qm_ci {

/// Description of an audio stream by its record alone.
///
/// Belongs to one thread at a time.
class QMAudioInfoNoXml : public MediaInfo {
 public:
  QMAudioInfoNoXml();

  /// As `init`.
  explicit QMAudioInfoNoXml(std::span<const std::uint8_t> record, const char* szMIMEType = nullptr,
                            const char* szPacketizedFormat = nullptr);

  using MediaInfo::getPacketizedFormat;
  using MediaInfo::setPacketizedFormat;

  /// Samplings a second.
  std::uint32_t getSamplingRate() const noexcept { return word(QMCIAudioInfo::kSamplingRateAt); }
  void setSamplingRate(std::uint32_t uRate) noexcept { setWord(QMCIAudioInfo::kSamplingRateAt, uRate); }
  std::uint16_t getBitsPerSample() const noexcept { return half(QMCIAudioInfo::kBitsPerSampleAt); }
  void setBitsPerSample(std::uint16_t wBits) noexcept { setHalf(QMCIAudioInfo::kBitsPerSampleAt, wBits); }
  std::uint16_t getNumberOfChannels() const noexcept { return half(QMCIAudioInfo::kNumberOfChannelsAt); }
  void setNumberOfChannels(std::uint16_t wChannels) noexcept {
    setHalf(QMCIAudioInfo::kNumberOfChannelsAt, wChannels);
  }
  std::uint32_t getSamplingsPerFrame() const noexcept { return word(QMCIAudioInfo::kSamplingsPerFrameAt); }
  void setSamplingsPerFrame(std::uint32_t uSamplings) noexcept {
    setWord(QMCIAudioInfo::kSamplingsPerFrameAt, uSamplings);
  }

  /// Whether the other describes the same stream: all fields but the stream parameters, the MIME type without
  /// regard to case. With `bCompareSize` the blocks must be of the same size too.
  bool isSameStream(const QMAudioInfoNoXml& other, bool bCompareSize) const;

  /// The description as XML.
  std::string getXML() const;

  /// A wave header with the XML form behind it, `cbSize` bytes, and a zero where that makes the size even.
  /// Throws JTextError for sizes that a header can't hold.
  std::vector<std::uint8_t> createWFX() const;

  /// The same header with the coding parameters behind it.
  std::vector<std::uint8_t> createWFXWithCodingParams() const;

 private:
  std::vector<std::uint8_t> createWFX(std::span<const std::uint8_t> extra) const;
};

}  // namespace qm_ci
