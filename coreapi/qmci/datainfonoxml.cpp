#include "coreapi/qmci/datainfonoxml.h"

#include "coreapi/qmutils/text/jtext.h"

namespace qm_ci {

QMDataInfoNoXml::QMDataInfoNoXml() : MediaInfo(QMCIDataInfo::kLayout) {}

QMDataInfoNoXml::QMDataInfoNoXml(std::span<const std::uint8_t> record, const char* szMIMEType)
    : QMDataInfoNoXml() {
  MediaInfo::init(record, szMIMEType);
}

bool QMDataInfoNoXml::isSameStream(const QMDataInfoNoXml& other, bool bCompareSize) const {
  return isSameBase(other, bCompareSize);
}

std::string QMDataInfoNoXml::getXML() const {
  return qm_utils::format(
             "<DataInfo version=\"1.0\">\n"
             "<NomMaxBitstreamSize>%u</NomMaxBitstreamSize>\n",
             getNomMaxBitstreamSize()) +
         getXMLTail();
}

}  // namespace qm_ci
