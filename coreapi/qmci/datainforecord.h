#pragma once

#include "coreapi/qmci/inforecord.h"

namespace qm_ci {

/// Description of a data stream; 32-bit little-endian words, then texts:
///
///     offset  field
///          0  dwDataInfoSize        bytes of the block
///          4  version               0x10000
///          8  NomMaxBitstreamSize   nominal largest frame in bytes
///         12  dwMIMETypeOff         20 up to the block's size
///         16  dwXMLStreamParamsOff  21 up to the block's size
///         20  MIME type, stream parameters, each with a final zero
class QMCIDataInfo : public InfoRecord {
 public:
  static constexpr std::size_t kNomMaxBitstreamSizeAt = 8;
  static constexpr std::size_t kMIMETypeOffAt = 12;
  static constexpr std::size_t kXMLStreamParamsOffAt = 16;
  static constexpr std::size_t kFixedSize = 20;

  static constexpr InfoLayout kLayout = {
      .szName = "QMCIDataInfo",
      .szClass = "QMDataInfo",
      .szElement = "DataInfo",
      .fixedSize = kFixedSize,
      .defaultSize = 120,
      .defaultPacketizedFormat = 0,
      .nomMaxBitstreamSizeAt = kNomMaxBitstreamSizeAt,
      .mimeTypeOffAt = kMIMETypeOffAt,
      .packetizedFormatOffAt = 0,
      .streamParamsOffAt = kXMLStreamParamsOffAt,
      .streamParamsOffMin = kFixedSize + 1,
  };

  /// The block at the start of `bytes`, checked. Throws JTextError.
  explicit QMCIDataInfo(std::span<const std::uint8_t> bytes) : InfoRecord(kLayout, bytes) {}
};

}  // namespace qm_ci
