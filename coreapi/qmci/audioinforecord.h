#pragma once

#include "coreapi/qmci/inforecord.h"

namespace qm_ci {

/// Description of an audio stream, as files and sockets carry it; little-endian, then texts:
///
///     offset  width  field
///          0      4  dwAudioInfoSize        bytes of the block
///          4      4  version                0x10000
///          8      4  sampling rate          samplings a second
///         12      2  bits per sample
///         14      2  number of channels
///         16      4  samplings per frame
///         20      4  NomMaxBitstreamSize    nominal largest frame in bytes
///         24      4  dwMIMETypeOff          36 up to the block's size
///         28      4  dwPacketizedFormatOff  36 up to the block's size
///         32      4  dwXMLStreamParamsOff   1 up to the block's size
///         36         MIME type, packetized format, stream parameters, each with a final zero
class QMCIAudioInfo : public InfoRecord {
 public:
  static constexpr std::size_t kSamplingRateAt = 8;
  static constexpr std::size_t kBitsPerSampleAt = 12;
  static constexpr std::size_t kNumberOfChannelsAt = 14;
  static constexpr std::size_t kSamplingsPerFrameAt = 16;
  static constexpr std::size_t kNomMaxBitstreamSizeAt = 20;
  static constexpr std::size_t kMIMETypeOffAt = 24;
  static constexpr std::size_t kPacketizedFormatOffAt = 28;
  static constexpr std::size_t kXMLStreamParamsOffAt = 32;
  static constexpr std::size_t kFixedSize = 36;

  static constexpr InfoLayout kLayout = {
      .szName = "QMCIAudioInfo",
      .szClass = "QMAudioInfo",
      .szElement = "AudioInfo",
      .fixedSize = kFixedSize,
      .defaultSize = 136,
      .defaultPacketizedFormat = 106,
      .nomMaxBitstreamSizeAt = kNomMaxBitstreamSizeAt,
      .mimeTypeOffAt = kMIMETypeOffAt,
      .packetizedFormatOffAt = kPacketizedFormatOffAt,
      .streamParamsOffAt = kXMLStreamParamsOffAt,
      .streamParamsOffMin = 1,
  };

  /// The block at the start of `bytes`, checked. Throws JTextError.
  explicit QMCIAudioInfo(std::span<const std::uint8_t> bytes) : InfoRecord(kLayout, bytes) {}

  std::uint32_t getSamplingRate() const noexcept { return word(kSamplingRateAt); }
  std::uint16_t getBitsPerSample() const noexcept { return half(kBitsPerSampleAt); }
  std::uint16_t getNumberOfChannels() const noexcept { return half(kNumberOfChannelsAt); }
  std::uint32_t getSamplingsPerFrame() const noexcept { return word(kSamplingsPerFrameAt); }
};

}  // namespace qm_ci
