#include "coreapi/qmci/xmlmediainfo.h"

#include <utility>

#include "coreapi/qmci/audioinfonoxml.h"
#include "coreapi/qmci/datainfonoxml.h"
#include "coreapi/qmci/videoinfonoxml.h"
#include "coreapi/qmutils/error/jerror.h"

namespace qm_ci {

template <class NoXml>
XmlMediaInfo<NoXml>::XmlMediaInfo(const XmlMediaInfo& other)
    : NoXml(other), m_additional(other.m_additional) {}

template <class NoXml>
XmlMediaInfo<NoXml>& XmlMediaInfo<NoXml>::operator=(const XmlMediaInfo& other) {
  if (this != &other) {
    NoXml::operator=(other);
    if (!readAdditional()) {
      const char* szClass = this->getLayout().szClass;
      qm_err::log(qm_err::kLogWarning, "%s::operator = : xml additional parameters could no be retrieve",
                  szClass);
      QM_THROW(JTextError, "%s::operator = : xml setConfig failed", szClass);
    }
  }
  return *this;
}

template <class NoXml>
void XmlMediaInfo<NoXml>::init(std::span<const std::uint8_t> record, const char* szMIMEType,
                               const char* szPacketizedFormat, std::size_t minSize) {
  NoXml copy(*this);
  copy.init(record, szMIMEType, szPacketizedFormat, minSize);
  AdditionalParams additional;
  if (!additional.read(copy.getStreamParams())) {
    qm_err::logText(qm_err::kLogWarning, "init(): xml additional parameters could no be retrieve");
    QM_THROW(JTextError, "%s::init(): xml setConfig failed", this->getLayout().szClass);
  }
  NoXml::operator=(std::move(copy));
  m_additional = std::move(additional);
  keepCodingParams();
}

template <class NoXml>
void XmlMediaInfo<NoXml>::reset() {
  NoXml::reset();
  m_additional = AdditionalParams();
  setCodingParams({});
}

template <class NoXml>
void XmlMediaInfo<NoXml>::setCodingParams(std::span<const std::uint8_t> params) {
  NoXml::setCodingParams(params);
  setBinary(kCodingParams, params);
}

template <class NoXml>
bool XmlMediaInfo<NoXml>::setStreamParams(std::string_view sStreamParams) {
  NoXml::setStreamParams(sStreamParams);
  if (!readAdditional()) {
    NoXml::setStreamParams({});
    return false;
  }
  return true;
}

template <class NoXml>
bool XmlMediaInfo<NoXml>::setTexts(const std::string& sMIMEType, const std::string& sPacketizedFormat,
                                   const std::string& sStreamParams) {
  AdditionalParams additional;
  if (!additional.read(sStreamParams)) {
    return false;
  }
  NoXml::setTexts(sMIMEType, sPacketizedFormat, sStreamParams);
  m_additional = std::move(additional);
  keepCodingParams();
  return true;
}

template <class NoXml>
bool XmlMediaInfo<NoXml>::readAdditional() {
  if (!m_additional.read(this->getStreamParams())) {
    return false;
  }
  keepCodingParams();
  return true;
}

template <class NoXml>
void XmlMediaInfo<NoXml>::keepCodingParams() {
  try {
    NoXml::setCodingParams(hasParam(kCodingParams) ? getBinary(kCodingParams) : std::vector<std::uint8_t>());
  } catch (JXmlParamsError* pError) {
    const qm_err::CaughtError error(pError);  // the text of others, which isn't base64
    JCATCH_LOG(error.get());
    NoXml::setCodingParams({});
  }
}

template <class NoXml>
bool XmlMediaInfo<NoXml>::store(bool bSet) {
  if (bSet) {
    NoXml::setStreamParams(m_additional.getText());
  }
  return bSet;
}

template class XmlMediaInfo<QMVideoInfoNoXml>;
template class XmlMediaInfo<QMAudioInfoNoXml>;
template class XmlMediaInfo<QMDataInfoNoXml>;

}  // namespace qm_ci
