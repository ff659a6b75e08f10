#include "coreapi/qmci/datainfo.h"

#include <limits>

#include "coreapi/qmci/descriptionreader.h"

namespace qm_ci {

QMDataInfo::QMDataInfo(std::span<const std::uint8_t> record, const char* szMIMEType) {
  XmlMediaInfo::init(record, szMIMEType);
}

const std::string& QMDataInfo::getSchema() {
  static const std::string s_sSchema = [] {
    DescriptionSchema schema(QMCIDataInfo::kLayout);
    schema.add("NomMaxBitstreamSize", QMXmlParams::kNonNegativeInteger);
    schema.add("MIMEType", QMXmlParams::kString);
    return schema.finish();
  }();
  return s_sSchema;
}

bool QMDataInfo::updateDataInfoFromXMLDesc(const char* pText, std::size_t size) {
  DescriptionReader reader(getLayout(), m_pSchema, getSchema());
  if (!reader.open({pText, size}) || !reader.readTexts()) {
    return false;
  }
  const auto nominal = reader.number("", "NomMaxBitstreamSize", "no NomMaxBitstreamSize given !", 0,
                                     std::numeric_limits<std::uint32_t>::max());
  if (!nominal) {
    return false;
  }
  if (!setTexts(reader.getMIMEType(), {}, reader.getStreamParams())) {
    return reader.refuse("error while getting StreamParams !");
  }
  setNomMaxBitstreamSize(static_cast<std::uint32_t>(*nominal));
  return true;
}

}  // namespace qm_ci
