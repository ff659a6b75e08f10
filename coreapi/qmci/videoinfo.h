#pragma once

#include <string>

#include "coreapi/qmci/videoinfonoxml.h"
#include "coreapi/qmci/xmlmediainfo.h"

namespace qm_ci {

extern template class XmlMediaInfo<QMVideoInfoNoXml>;

/// Description of a video stream with its XML form and its additional parameters. `QMXml::initialize` comes
/// before its use.
///
/// Belongs to one thread at a time.
class QMVideoInfo : public XmlMediaInfo<QMVideoInfoNoXml> {
 public:
  QMVideoInfo() = default;

  /// As `init`.
  explicit QMVideoInfo(std::span<const std::uint8_t> record, const char* szMIMEType = nullptr,
                       const char* szPacketizedFormat = nullptr);

  /// Takes over an XML form. False, with the reason in the log, when it isn't one; this object then stays as
  /// it was. The text needs no final zero.
  bool updateVideoInfoFromXMLDesc(const char* pText, std::size_t size);

  /// Takes over a bitmap header and the bytes behind it: an XML form for the compression "QMCI"; otherwise
  /// what the header tells, with `uInterlace` for the system's own codings. False, with the reason in the
  /// log, for a header with sizes that can't be.
  bool updateFromBMI(std::span<const std::uint8_t> header, std::uint32_t uInterlace);

  /// RELAX NG schema of the XML form.
  static const std::string& getSchema();

 private:
  bool updateFromHeader(const BitmapInfoHeader& header, std::span<const std::uint8_t> extra,
                        std::uint32_t uInterlace);
};

}  // namespace qm_ci
