#pragma once

#include <string>

#include "coreapi/qmci/datainforecord.h"
#include "coreapi/qmci/mediainfo.h"

namespace qm_ci {

/// Description of a data stream by its record alone.
///
/// Belongs to one thread at a time.
class QMDataInfoNoXml : public MediaInfo {
 public:
  QMDataInfoNoXml();

  /// As `init`.
  explicit QMDataInfoNoXml(std::span<const std::uint8_t> record, const char* szMIMEType = nullptr);

  /// Whether the other describes the same stream: all fields but the stream parameters, the MIME type without
  /// regard to case. With `bCompareSize` the blocks must be of the same size too.
  bool isSameStream(const QMDataInfoNoXml& other, bool bCompareSize) const;

  /// The description as XML.
  std::string getXML() const;
};

}  // namespace qm_ci
