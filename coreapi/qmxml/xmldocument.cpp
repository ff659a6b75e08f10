#include "coreapi/qmxml/xmldocument.h"

#include <climits>
#include <libxml/chvalid.h>
#include <libxml/xinclude.h>

#include "coreapi/qmutils/error/loghook.h"
#include "coreapi/qmxml/qmxml.h"
#include "coreapi/qmxml/xmlscope.h"

namespace qm_xml {

OwnedDoc readDocument(const std::string& sText) {
  const XmlScope scope(XmlScope::kMemory);
  const bool bFits = fitsLimit(sText.size()) && sText.size() <= INT_MAX;
  OwnedDoc document(bFits ? xmlParseMemory(sText.data(), static_cast<int>(sText.size())) : nullptr);
  if (!document) {
    qm_err::log(qm_err::kLogWarning, "read(): Error parsing XML content (%s).",
                (bFits ? QMXml::getLastError() : limitText()).c_str());
  } else if (xmlXIncludeProcess(document.get()) == -1) {
    document.reset();
    qm_err::log(qm_err::kLogWarning, "read(): The XInclude substitution failed (%s).",
                QMXml::getLastError().c_str());
  }
  return document;
}

OwnedDoc openDocument(const char* szFileName) {
  const XmlScope scope(XmlScope::kFile);
  const bool bFits = fileFitsLimit(szFileName);
  OwnedDoc document(bFits ? xmlParseFile(szFileName) : nullptr);
  if (!document) {
    qm_err::log(qm_err::kLogWarning, "open(): Error parsing the XML document %s (%s).", szFileName,
                (bFits ? QMXml::getLastError() : limitText()).c_str());
  } else if (xmlXIncludeProcess(document.get()) == -1) {
    document.reset();
    qm_err::log(qm_err::kLogWarning, "open(): The XInclude substitution in %s failed (%s).", szFileName,
                QMXml::getLastError().c_str());
  }
  return document;
}

std::string dumpDocument(xmlDoc* pDocument, bool bFormat) {
  const XmlScope scope(XmlScope::kMemory);
  xmlChar* pText = nullptr;
  int iSize = 0;
  xmlDocDumpFormatMemory(pDocument, &pText, &iSize, bFormat ? 1 : 0);
  const OwnedText text(pText);
  return fromXml(text);
}

std::string dumpNode(xmlDoc* pDocument, xmlNode* pNode) {
  const OwnedBuffer buffer(xmlBufferCreate());
  if (!buffer || xmlNodeDump(buffer.get(), pDocument, pNode, 0, 0) == -1) {
    return {};
  }
  return fromXml(xmlBufferContent(buffer.get()));
}

bool isXmlText(const std::string& sText) noexcept {
  const xmlChar* pText = toXml(sText);
  for (int iAt = 0, iRest = static_cast<int>(sText.size()); iRest > 0;) {
    int iLength = iRest;
    const int iCharacter = xmlGetUTF8Char(pText + iAt, &iLength);
    if (iCharacter <= 0 || !xmlIsCharQ(static_cast<unsigned>(iCharacter))) {
      return false;
    }
    iAt += iLength;
    iRest -= iLength;
  }
  return true;
}

bool isXmlName(const std::string& sName) noexcept {
  return isXmlText(sName) && xmlValidateNCName(toXml(sName), 0) == 0;
}

}  // namespace qm_xml
