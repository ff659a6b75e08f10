#pragma once

#include "coreapi/qmci/inforecord.h"

namespace qm_ci {

/// Description of a video stream, as files and sockets carry it; 32-bit little-endian words, then texts:
///
///     offset  field
///          0  dwVideoInfoSize         bytes of the block
///          4  version                 0x10000
///          8  width                   pixels
///         12  height                  pixels
///         16  picture rate            numerator
///         20                          denominator
///         24  NomMaxBitstreamSize     nominal largest frame in bytes
///         28  interlace               a QMCI_INTERLACE
///         32  pixel aspect ratio      numerator
///         36                          denominator
///         40  visible region          left
///         44                          top
///         48                          width
///         52                          height
///         56  MaxNonDisposableAccLvl
///         60  StreamIndexStep         also called the decimation
///         64  GDRPeriod               signed; -1 when unset
///         68  DecoderPipe
///         72  TimeReversed            0 or 1
///         76  dwMIMETypeOff           88 up to the block's size
///         80  dwPacketizedFormatOff   88 up to the block's size
///         84  dwXMLStreamParamsOff    1 up to the block's size
///         88  MIME type, packetized format, stream parameters, each with a final zero
class QMCIVideoInfo : public InfoRecord {
 public:
  static constexpr std::size_t kWidthAt = 8;
  static constexpr std::size_t kHeightAt = 12;
  static constexpr std::size_t kPictureRateNumAt = 16;
  static constexpr std::size_t kPictureRateDenAt = 20;
  static constexpr std::size_t kNomMaxBitstreamSizeAt = 24;
  static constexpr std::size_t kInterlaceAt = 28;
  static constexpr std::size_t kPixelAspectRatioNumAt = 32;
  static constexpr std::size_t kPixelAspectRatioDenAt = 36;
  static constexpr std::size_t kVisibleLeftAt = 40;
  static constexpr std::size_t kVisibleTopAt = 44;
  static constexpr std::size_t kVisibleWidthAt = 48;
  static constexpr std::size_t kVisibleHeightAt = 52;
  static constexpr std::size_t kMaxNonDisposableAccLvlAt = 56;
  static constexpr std::size_t kStreamIndexStepAt = 60;
  static constexpr std::size_t kGDRPeriodAt = 64;
  static constexpr std::size_t kDecoderPipeAt = 68;
  static constexpr std::size_t kTimeReversedAt = 72;
  static constexpr std::size_t kMIMETypeOffAt = 76;
  static constexpr std::size_t kPacketizedFormatOffAt = 80;
  static constexpr std::size_t kXMLStreamParamsOffAt = 84;
  static constexpr std::size_t kFixedSize = 88;

  static constexpr InfoLayout kLayout = {
      .szName = "QMCIVideoInfo",
      .szClass = "QMVideoInfo",
      .szElement = "VideoInfo",
      .fixedSize = kFixedSize,
      .defaultSize = 188,
      .defaultPacketizedFormat = 158,
      .nomMaxBitstreamSizeAt = kNomMaxBitstreamSizeAt,
      .mimeTypeOffAt = kMIMETypeOffAt,
      .packetizedFormatOffAt = kPacketizedFormatOffAt,
      .streamParamsOffAt = kXMLStreamParamsOffAt,
      .streamParamsOffMin = 1,
  };

  /// The block at the start of `bytes`, checked. Throws JTextError.
  explicit QMCIVideoInfo(std::span<const std::uint8_t> bytes) : InfoRecord(kLayout, bytes) {}

  std::uint32_t getWidth() const noexcept { return word(kWidthAt); }
  std::uint32_t getHeight() const noexcept { return word(kHeightAt); }
  std::uint32_t getPictureRateNum() const noexcept { return word(kPictureRateNumAt); }
  std::uint32_t getPictureRateDen() const noexcept { return word(kPictureRateDenAt); }
  std::uint32_t getInterlace() const noexcept { return word(kInterlaceAt); }
  std::uint32_t getStreamIndexStep() const noexcept { return word(kStreamIndexStepAt); }
  std::uint32_t getDecoderPipe() const noexcept { return word(kDecoderPipeAt); }
};

}  // namespace qm_ci
