#include "coreapi/qmxml/xmldocument.h"

#include <climits>
#include <libxml/chvalid.h>
#include <libxml/xinclude.h>

#include "coreapi/qmutils/error/loghook.h"
#include "coreapi/qmxml/qmxml.h"
#include "coreapi/qmxml/xmlscope.h"

namespace qm_xml {

namespace {

bool isInclude(const xmlNode* pNode) noexcept {
  return pNode->type == XML_ELEMENT_NODE && pNode->ns != nullptr &&
         xmlStrEqual(pNode->name, XINCLUDE_NODE) != 0 &&
         (xmlStrEqual(pNode->ns->href, XINCLUDE_NS) != 0 ||
          xmlStrEqual(pNode->ns->href, XINCLUDE_OLD_NS) != 0);
}

/// The node behind another one in document order, below a root; null behind the last one.
const xmlNode* nextNode(const xmlNode* pNode, const xmlNode* pRoot) noexcept {
  if (pNode->type == XML_ELEMENT_NODE && pNode->children != nullptr) {
    return pNode->children;
  }
  while (pNode != pRoot && pNode->next == nullptr) {
    pNode = pNode->parent;
  }
  return pNode != pRoot ? pNode->next : nullptr;
}

}  // namespace

bool hasPointer(const xmlDoc* pDocument) noexcept {
  const xmlNode* pRoot = pDocument != nullptr ? xmlDocGetRootElement(pDocument) : nullptr;
  for (const xmlNode* pNode = pRoot; pNode != nullptr; pNode = nextNode(pNode, pRoot)) {
    // Those of a namespace are found with the defaults that the text itself declares.
    if (isInclude(pNode) && (xmlHasProp(pNode, XINCLUDE_PARSE_XPOINTER) != nullptr ||
                             xmlHasNsProp(pNode, XINCLUDE_PARSE_XPOINTER, XINCLUDE_NS) != nullptr ||
                             xmlHasNsProp(pNode, XINCLUDE_PARSE_XPOINTER, XINCLUDE_OLD_NS) != nullptr)) {
      return true;
    }
  }
  return false;
}

OwnedDoc readDocument(const std::string& sText) {
  const XmlScope scope(XmlScope::kMemory);
  const bool bFits = fitsLimit(sText.size()) && sText.size() <= INT_MAX;
  OwnedDoc document(bFits ? xmlParseMemory(sText.data(), static_cast<int>(sText.size())) : nullptr);
  if (!document) {
    qm_err::log(qm_err::kLogWarning, "read(): Error parsing XML content (%s).",
                (bFits ? QMXml::getLastError() : limitText()).c_str());
  } else if (hasPointer(document.get())) {
    document.reset();
    qm_err::log(qm_err::kLogWarning, "read(): The XInclude substitution failed (%s).", kPointerText);
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
