#pragma once

#include <string>

#include "coreapi/qmci/audioinfonoxml.h"
#include "coreapi/qmci/xmlmediainfo.h"

namespace qm_ci {

extern template class XmlMediaInfo<QMAudioInfoNoXml>;

/// Description of an audio stream with its XML form and its additional parameters. `QMXml::initialize` comes
/// before its use.
///
/// Belongs to one thread at a time.
class QMAudioInfo : public XmlMediaInfo<QMAudioInfoNoXml> {
 public:
  QMAudioInfo() = default;

  /// As `init`.
  explicit QMAudioInfo(std::span<const std::uint8_t> record, const char* szMIMEType = nullptr,
                       const char* szPacketizedFormat = nullptr);

  /// Takes over an XML form. False, with the reason in the log, when it isn't one; this object then stays as
  /// it was. The text needs no final zero.
  bool updateAudioInfoFromXMLDesc(const char* pText, std::size_t size);

  /// Takes over a wave header and the bytes behind it: an XML form, unless `cbSize` is 12; then what the
  /// header tells. False, with the reason in the log, for a header that ends early.
  bool updateFromWFX(std::span<const std::uint8_t> header);

  /// Takes over what a wave header tells, whatever its `cbSize`; it may be of the older form, without it. All
  /// that stands behind the header are coding parameters. False when it ends early.
  bool updateNotQMCIFromWFX(std::span<const std::uint8_t> header);

  /// RELAX NG schema of the XML form.
  static const std::string& getSchema();
};

}  // namespace qm_ci
