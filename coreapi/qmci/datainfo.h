#pragma once

#include <string>

#include "coreapi/qmci/datainfonoxml.h"
#include "coreapi/qmci/xmlmediainfo.h"

namespace qm_ci {

extern template class XmlMediaInfo<QMDataInfoNoXml>;

/// Description of a data stream with its XML form and its additional parameters. `QMXml::initialize` comes
/// before its use.
///
/// Belongs to one thread at a time.
class QMDataInfo : public XmlMediaInfo<QMDataInfoNoXml> {
 public:
  QMDataInfo() = default;

  /// As `init`.
  explicit QMDataInfo(std::span<const std::uint8_t> record, const char* szMIMEType = nullptr);

  /// Takes over an XML form. False, with the reason in the log, when it isn't one; this object then stays as
  /// it was. The text needs no final zero.
  bool updateDataInfoFromXMLDesc(const char* pText, std::size_t size);

  /// RELAX NG schema of the XML form.
  static const std::string& getSchema();
};

}  // namespace qm_ci
