#include "coreapi/qmxml/qmxmlreader.h"

#include <climits>
#include <libxml/xmlreader.h>

#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmxml/qmxml.h"
#include "coreapi/qmxml/xmlmisuse.h"
#include "coreapi/qmxml/xmlscope.h"

using qm_xml::fromXml;
using qm_xml::XmlScope;

namespace {

constexpr int kReaderOptions = XML_PARSE_RECOVER | XML_PARSE_NOENT | XML_PARSE_PEDANTIC | XML_PARSE_NOBLANKS |
                               XML_PARSE_XINCLUDE | XML_PARSE_NOCDATA;
static_assert(kReaderOptions == 0x4583);

constexpr int kElementBegin = XML_READER_TYPE_ELEMENT;
constexpr int kText = XML_READER_TYPE_TEXT;
constexpr int kElementEnd = XML_READER_TYPE_END_ELEMENT;

}  // namespace

QMXmlReader::QMXmlReader(const char* szFileName) {
  QM_XML_FATAL_ASSERT(QMXml::isInitialized(), "QMXmlReader created before calling QMXml::initialize()");
  const XmlScope scope(XmlScope::kFile);
  const bool bFits = qm_xml::fileFitsLimit(szFileName);
  m_pReader = bFits ? xmlReaderForFile(szFileName, nullptr, kReaderOptions) : nullptr;
  if (m_pReader == nullptr) {
    QM_THROW(JTextError, "xmlReaderForFile(%s) failed (%s).", szFileName,
             (bFits ? QMXml::getLastError() : qm_xml::limitText()).c_str());
  }
}

QMXmlReader::QMXmlReader(const char* pBuffer, std::size_t size) : m_bFromMemory(true) {
  QM_XML_FATAL_ASSERT(QMXml::isInitialized(), "QMXmlReader created before calling QMXml::initialize()");
  const XmlScope scope(XmlScope::kMemory);
  const bool bFits = qm_xml::fitsLimit(size) && size <= INT_MAX;
  if (bFits) {
    m_sText.assign(pBuffer, size);
    m_pReader = xmlReaderForMemory(m_sText.data(), static_cast<int>(size), nullptr, nullptr, kReaderOptions);
  }
  if (m_pReader == nullptr) {
    QM_THROW(JTextError, "xmlReaderForMemory(..., %i) failed (%s).", static_cast<int>(size),
             (bFits ? QMXml::getLastError() : qm_xml::limitText()).c_str());
  }
}

QMXmlReader::~QMXmlReader() {
  xmlFreeTextReader(m_pReader);
}

bool QMXmlReader::next() {
  if (m_bPendingEnd) {
    m_bPendingEnd = false;
    m_iNodeType = kElementEnd;
    return true;
  }
  if (m_pReader == nullptr) {
    return false;
  }
  const XmlScope scope(m_bFromMemory ? XmlScope::kMemory : XmlScope::kFile);
  for (;;) {
    const int iRead = xmlTextReaderRead(m_pReader);
    if (iRead == -1) {
      QM_THROW(JTextError, "xmlTextReaderRead() failed (%s).", QMXml::getLastError().c_str());
    }
    if (iRead == 0) {
      return false;
    }
    if (iRead != 1) {
      QM_THROW(JTextError, "xmlTextReaderRead() returned an unknown value: %i.", iRead);
    }
    const int iType = xmlTextReaderNodeType(m_pReader);
    if (iType == -1) {
      QM_THROW(JTextError, "xmlTextReaderNodeType() failed (%s).", QMXml::getLastError().c_str());
    }
    if (iType == kElementBegin) {
      const int iEmpty = xmlTextReaderIsEmptyElement(m_pReader);
      if (iEmpty != 0 && iEmpty != 1) {
        QM_THROW(JTextError, "xmlTextReaderIsEmptyElement() failed (return value: %i)", iEmpty);
      }
      m_bPendingEnd = iEmpty == 1;
    }
    if (iType == kElementBegin || iType == kText || iType == kElementEnd) {
      m_iNodeType = iType;
      return true;
    }
  }
}

bool QMXmlReader::findElement(const std::string& sName) {
  while (next()) {
    if (m_iNodeType == kElementBegin && getElementName() == sName) {
      return true;
    }
  }
  return false;
}

QMXmlReader::NodeType QMXmlReader::getNodeType() const {
  QM_XML_FATAL_ASSERT(m_iNodeType == kElementBegin || m_iNodeType == kElementEnd || m_iNodeType == kText,
                      "Unknown node type in QMXmlReader::getNodeType()");
  switch (m_iNodeType) {
    case kElementBegin:
      return ElementBegin;
    case kText:
      return Text;
    default:
      return ElementEnd;
  }
}

std::string QMXmlReader::getText() const {
  QM_XML_FATAL_ASSERT(m_iNodeType == kText,
                      "QMXmlReader::getText() can only be called on a node of type Text");
  return m_iNodeType == kText ? fromXml(xmlTextReaderConstValue(m_pReader)) : std::string();
}

std::string QMXmlReader::getElementName() const {
  const bool bElement = m_iNodeType == kElementBegin || m_iNodeType == kElementEnd;
  QM_XML_FATAL_ASSERT(bElement,
                      "QMXmlReader::getElementName() can only be called on an node of type ElementBegin or "
                      "ElementEnd");
  return bElement ? fromXml(xmlTextReaderConstName(m_pReader)) : std::string();
}

void QMXmlReader::getAttributes(std::map<std::string, std::string>& attributesOut) {
  attributesOut.clear();
  if (m_iNodeType != kElementBegin) {
    return;
  }
  while (xmlTextReaderMoveToNextAttribute(m_pReader) == 1) {
    attributesOut[fromXml(xmlTextReaderConstName(m_pReader))] = fromXml(xmlTextReaderConstValue(m_pReader));
  }
  xmlTextReaderMoveToElement(m_pReader);
}

void QMXmlReader::close() {
  m_bPendingEnd = false;
  m_iNodeType = 0;
  if (m_pReader != nullptr) {
    const int iResult = xmlTextReaderClose(m_pReader);
    QM_XML_FATAL_ASSERT(iResult == 0, "Fatal: xmlTextReaderClose() failed");
    xmlFreeTextReader(m_pReader);
    m_pReader = nullptr;
  }
}
