#include "coreapi/qmxml/qmxml.h"

#include <algorithm>
#include <atomic>
#include <climits>
#include <libxml/xinclude.h>
#include <libxml/xmlerror.h>
#include <libxml/xmlschemastypes.h>
#include <libxml/xmlversion.h>
#include <mutex>

#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmxml/xmldocument.h"
#include "coreapi/qmxml/xmlmisuse.h"
#include "coreapi/qmxml/xmlparserref.h"
#include "coreapi/qmxml/xmlscope.h"

using qm_xml::fromXml;
using qm_xml::XmlScope;

namespace {

/// Oldest release of the library that this layer works with.
constexpr int kOldestLibrary = 20632;

std::atomic<std::size_t> g_textLimit{QMXml::kDefaultTextLimit};

/// Held while the first user sets the library up and while the last one cleans it up.
std::mutex g_lifeMutex;

/// Says why a parse failed: the limit, or what the library has to say.
std::string reason(bool bFits) {
  return bFits ? QMXml::getLastError() : qm_xml::limitText();
}

const char* urlOf(const xmlDoc* pDocument) {
  return pDocument->URL != nullptr ? reinterpret_cast<const char*>(pDocument->URL) : "";
}

/// Validates one parsed document against another. The caller has a scope open.
bool validateDocument(xmlDoc* pDocument, xmlDoc* pSchemaDocument, std::string& sErrorOut) {
  const qm_xml::OwnedSchemaParser parser(xmlSchemaNewDocParserCtxt(pSchemaDocument));
  if (!parser) {
    QM_THROW(JTextError, "Cannot create a new Schema parser context for %s (%s).", urlOf(pSchemaDocument),
             QMXml::getLastError().c_str());
  }
  const qm_xml::OwnedSchema schema(xmlSchemaParse(parser.get()));
  if (!schema) {
    QM_THROW(JTextError, "Error parsing the XML Schema %s (%s).", urlOf(pSchemaDocument),
             QMXml::getLastError().c_str());
  }
  const qm_xml::OwnedSchemaValidator validator(xmlSchemaNewValidCtxt(schema.get()));
  if (!validator) {
    QM_THROW(JTextError, "Error creating a Schema valid context for %s (%s).", urlOf(pSchemaDocument),
             QMXml::getLastError().c_str());
  }
  const int iResult = xmlSchemaValidateDoc(validator.get(), pDocument);
  if (iResult == -1) {
    QM_THROW(JTextError, "LibXml internal error (%s).", QMXml::getLastError().c_str());
  }
  if (iResult != 0) {
    sErrorOut = QMXml::getLastError();
  }
  return iResult == 0;
}

}  // namespace

void QMXml::setTextLimit(std::size_t limit) noexcept {
  g_textLimit = limit;
}

std::size_t QMXml::getTextLimit() noexcept {
  return g_textLimit;
}

void QMXml::initialize() {
  const std::lock_guard lock(g_lifeMutex);
  const int iBefore = xmlParserRefCounter();
  const int iResult = xmlInitParserQM();
  QM_XML_FATAL_ASSERT(
      iResult == 0,
      "Fatal: first call to QMXml::initialize found parser already initialized. (External use of "
      "libxml2?)");
  if (iBefore != 0) {
    return;
  }
  xmlCheckVersion(kOldestLibrary);
  xmlResetLastError();
  qm_xml::silenceErrors();
  xmlKeepBlanksDefault(0);
  // The library makes these tables at the first validation, and not safely from two threads at once.
  xmlSchemaInitTypes();
  xmlRelaxNGInitTypes();
  qm_xml::installEntityLoader();
}

void QMXml::shutdown() {
  const std::lock_guard lock(g_lifeMutex);
  if (xmlParserRefCounter() == 1) {
    qm_xml::removeEntityLoader();
  }
  const int iResult = xmlCleanupParserQM();
  QM_XML_FATAL_ASSERT(
      iResult == 0,
      "Fatal: call to QMXml::shutdown found parser already shutdown. Check shutDown() is not called "
      "too many times!");
}

bool QMXml::isInitialized() noexcept {
  return xmlParserRefCounter() != 0;
}

_xmlDoc* QMXml::open(const char* szFileName) {
  const XmlScope scope(XmlScope::kFile);
  const bool bFits = qm_xml::fileFitsLimit(szFileName);
  qm_xml::OwnedDoc document(bFits ? xmlParseFile(szFileName) : nullptr);
  if (!document) {
    QM_THROW(JTextError, "Error parsing the XML document %s (%s).", szFileName, reason(bFits).c_str());
  }
  if (xmlXIncludeProcess(document.get()) == -1) {
    document.reset();
    QM_THROW(JTextError, "The XInclude substitution in %s failed (%s).", szFileName, getLastError().c_str());
  }
  return document.release();
}

_xmlDoc* QMXml::read(const char* pBuffer, std::size_t size) {
  const XmlScope scope(XmlScope::kMemory);
  const bool bFits = qm_xml::fitsLimit(size) && size <= INT_MAX;
  qm_xml::OwnedDoc document(bFits ? xmlParseMemory(pBuffer, static_cast<int>(size)) : nullptr);
  if (!document) {
    QM_THROW(JTextError, "Error parsing the XML document (%s).", reason(bFits).c_str());
  }
  if (xmlXIncludeProcess(document.get()) == -1) {
    document.reset();
    QM_THROW(JTextError, "The XInclude substitution failed (%s).", getLastError().c_str());
  }
  return document.release();
}

void QMXml::close(_xmlDoc* pDocument) {
  JASSERT(pDocument);
  xmlFreeDoc(pDocument);
}

bool QMXml::validate(const char* szDocumentFile, const char* szSchemaFile, std::string& sErrorOut) {
  QM_XML_FATAL_ASSERT(isInitialized(), "Fatal: QMXml::validate method called before QMXml::initialize().");
  const qm_xml::OwnedDoc document(open(szDocumentFile));
  const qm_xml::OwnedDoc schema(open(szSchemaFile));
  const XmlScope scope(XmlScope::kFile);
  return validateDocument(document.get(), schema.get(), sErrorOut);
}

bool QMXml::validate(const char* pDocument, std::size_t documentSize, const char* pSchema,
                     std::size_t schemaSize, std::string& sErrorOut) {
  QM_XML_FATAL_ASSERT(isInitialized(), "Fatal: QMXml::validate method called before QMXml::initialize().");
  const qm_xml::OwnedDoc document(read(pDocument, documentSize));
  const qm_xml::OwnedDoc schema(read(pSchema, schemaSize));
  const XmlScope scope(XmlScope::kMemory);
  return validateDocument(document.get(), schema.get(), sErrorOut);
}

std::string QMXml::escapeText(const std::string& sText) {
  std::string sStorable = sText;
  if (!qm_xml::isXmlText(sText)) {
    std::replace_if(
        sStorable.begin(), sStorable.end(), [](char c) { return c < ' ' || c > '~'; }, '?');
  }
  return fromXml(qm_xml::OwnedText(xmlEncodeSpecialChars(nullptr, qm_xml::toXml(sStorable))));
}

std::string QMXml::getLastError() {
  const xmlError* pError = xmlGetLastError();
  if (pError == nullptr) {
    return "No error generated by libxml";
  }
  std::string sText;
  if (pError->message != nullptr) {
    sText += std::string(pError->message) + ", ";
  }
  if (pError->file != nullptr) {
    sText += "file: " + std::string(pError->file) + " line: " + std::to_string(pError->line) + ", ";
  }
  return sText.substr(0, sText.size() < 2 ? 0 : sText.size() - 2);
}
