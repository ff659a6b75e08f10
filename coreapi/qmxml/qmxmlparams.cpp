#include "coreapi/qmxml/qmxmlparams.h"

#include "coreapi/qmxml/qmxml.h"
#include "coreapi/qmxml/qmxmltree.h"
#include "coreapi/qmxml/xmldocument.h"
#include "coreapi/qmxml/xmlscan.h"
#include "coreapi/qmxml/xmlscope.h"

using qm_xml::contentOf;
using qm_xml::findSibling;
using qm_xml::fromXml;
using qm_xml::toXml;

namespace {

constexpr const char* kDefaultRoot = "PARAMETERS";

void logWarning(const char* szText) {
  qm_err::logText(qm_err::kLogWarning, szText);
}

/// Logs a text that has a "%s" for what the library said last.
void logLibraryError(const std::string& sBefore, const char* szAfter) {
  logWarning((sBefore + QMXml::getLastError() + szAfter).c_str());
}

/// Values are scanned from the start of their texts; what stands behind counts for nothing.
bool scanInt(const std::string& sText, std::int32_t& iOut) {
  return qm_xml::scanInteger(qm_xml::trimmed(sText), iOut) != 0;
}

/// An unsigned 64-bit number in the signed type of the same bits.
bool scanLong(const std::string& sText, std::int64_t& llOut) {
  const std::string_view text = qm_xml::trimmed(sText);
  if (!text.empty() && text.front() == '-') {
    return qm_xml::scanInteger(text, llOut) != 0;
  }
  std::uint64_t ullValue = 0;
  const bool bScanned = qm_xml::scanInteger(text, ullValue) != 0;
  if (bScanned) {
    llOut = static_cast<std::int64_t>(ullValue);
  }
  return bScanned;
}

bool scanDouble(const std::string& sText, double& dOut) {
  return qm_xml::scanDouble(sText, dOut) != 0;
}

bool scanBool(const std::string& sText, bool& bOut) {
  const std::string_view text = qm_xml::trimmed(sText);
  std::int32_t iValue = 0;
  if (text == "true" || text == "false") {
    bOut = text == "true";
    return true;
  }
  if (!scanInt(sText, iValue)) {
    return false;
  }
  bOut = iValue != 0;
  return true;
}

const char* boolText(bool bValue) {
  return bValue ? "true" : "false";
}

xmlDoc* copyDocument(xmlDoc* pDocument) {
  return pDocument != nullptr ? xmlCopyDoc(pDocument, 1) : nullptr;
}

}  // namespace

QMXmlParams::QMXmlParams(bool bRootNodeIsElement, const char* szRootName, const char* szSubNodeName)
    : m_sRootName(szRootName != nullptr ? szRootName : kDefaultRoot),
      m_sSchemaHead(
          "<?xml version=\"1.0\"?><grammar xmlns=\"http://relaxng.org/ns/structure/1.0\" "
          "datatypeLibrary=\"http://www.w3.org/2001/XMLSchema-datatypes\"><start>") {
  if (bRootNodeIsElement) {
    m_sSchemaHead += "<element name=\"" + m_sRootName + "\"><zeroOrMore><ref name=\"" +
                     (szSubNodeName != nullptr ? szSubNodeName : "Sub1") +
                     "\"/></zeroOrMore></element></start>";
  } else {
    m_sSchemaHead += "<ref name=\"" + m_sRootName + "\"/></start>";
  }
}

QMXmlParams::QMXmlParams(const QMXmlParams& other)
    : m_pConfig(copyDocument(other.m_pConfig)),
      m_pSchema(copyDocument(other.m_pSchema)),
      m_sConfig(other.m_sConfig),
      m_sSchema(other.m_sSchema),
      m_bSchemaComplete(other.m_bSchemaComplete),
      m_sRootName(other.m_sRootName),
      m_sSchemaHead(other.m_sSchemaHead) {}

QMXmlParams::QMXmlParams(QMXmlParams&& other) noexcept {
  swap(other);
}

QMXmlParams& QMXmlParams::operator=(QMXmlParams other) noexcept {
  swap(other);
  return *this;
}

void QMXmlParams::swap(QMXmlParams& other) noexcept {
  std::swap(m_pConfig, other.m_pConfig);
  std::swap(m_pSchema, other.m_pSchema);
  std::swap(m_pSchemaBuffer, other.m_pSchemaBuffer);
  m_sConfig.swap(other.m_sConfig);
  m_sSchema.swap(other.m_sSchema);
  std::swap(m_bSchemaComplete, other.m_bSchemaComplete);
  m_sRootName.swap(other.m_sRootName);
  m_sSchemaHead.swap(other.m_sSchemaHead);
}

QMXmlParams::~QMXmlParams() {
  xmlFreeDoc(m_pConfig);
  xmlFreeDoc(m_pSchema);
  xmlBufferFree(m_pSchemaBuffer);
}

int QMXmlParams::setConfig(const std::string& sText, bool bValidateNow) {
  qm_xml::OwnedDoc document = qm_xml::readDocument(sText);
  if (!document) {
    return -1;
  }
  clearConfig();
  m_pConfig = document.release();
  return bValidateNow && !validate(m_pConfig) ? -2 : 0;
}

void QMXmlParams::clearConfig() noexcept {
  xmlFreeDoc(m_pConfig);
  m_pConfig = nullptr;
}

const std::string& QMXmlParams::getConfig(bool bFormat) {
  m_sConfig.clear();
  if (m_pConfig == nullptr) {
    logWarning("getConfig(): No XML Doc currently created");
    return m_sConfig;
  }
  m_sConfig = qm_xml::dumpDocument(m_pConfig, bFormat);
  if (m_sConfig.empty()) {
    logLibraryError("getConfig(): XML Doc has 0 size. (", ")");
  }
  return m_sConfig;
}

std::string QMXmlParams::getConfig(const std::string& sPath) const {
  const xmlNode* pRoot = getRoot();
  if (pRoot == nullptr) {
    QM_THROW(JXmlParamsError, m_sRootName.c_str(), sPath.c_str());
  }
  xmlNode* pChild = findSibling(pRoot->children, sPath);
  return pChild != nullptr ? qm_xml::dumpNode(m_pConfig, pChild) : std::string();
}

std::string QMXmlParams::getContent(const std::string& sPath) const {
  const xmlNode* pNode = findNode(sPath);
  if (pNode == nullptr) {
    logWarning("getContent(): No content node");
    return {};
  }
  std::string sContent;
  for (xmlNode* pChild = pNode->children; pChild != nullptr; pChild = pChild->next) {
    sContent += qm_xml::dumpNode(m_pConfig, pChild);
  }
  return sContent;
}

bool QMXmlParams::validateParams() {
  if (m_pConfig == nullptr) {
    logWarning("validateParams(): No doc to validate!)");
    return false;
  }
  if (m_pSchema == nullptr) {
    logWarning("validateParams(): No schema to validate against!)");
    return false;
  }
  if (!validate(m_pConfig)) {
    clearConfig();
    return false;
  }
  return true;
}

_xmlNode* QMXmlParams::getRoot() const {
  return m_pConfig != nullptr ? xmlDocGetRootElement(m_pConfig) : nullptr;
}

_xmlNode* QMXmlParams::findNode(const std::string& sPath) const {
  xmlNode* pNode = getRoot();
  for (const std::string& sName : splitXmlPath(sPath)) {
    pNode = pNode != nullptr ? findSibling(pNode->children, sName) : nullptr;
  }
  return pNode;
}

_xmlNode* QMXmlParams::findParam(const std::string& sName, const std::string& sPath) const {
  const xmlNode* pNode = findNode(sPath);
  return pNode != nullptr ? findSibling(pNode->children, sName) : nullptr;
}

template <typename Value>
Value QMXmlParams::getValue(const std::string& sName, const std::string& sPath,
                            bool (*scan)(const std::string&, Value&), const char* szFailure) const {
  xmlNode* pNode = findParam(sName, sPath);
  if (pNode != nullptr) {
    const std::string sText = contentOf(pNode);
    Value value{};
    if (scan(sText, value)) {
      return value;
    }
    logWarning((szFailure + (" (" + sText + ").")).c_str());
  }
  QM_THROW(JXmlParamsError, sName.c_str(), sPath.c_str());
}

std::int32_t QMXmlParams::getInt(const std::string& sName, const std::string& sPath) const {
  return getValue<std::int32_t>(sName, sPath, scanInt,
                                "integerFromNode(): Could not convert content of a Node to integer value");
}

std::int64_t QMXmlParams::getLong(const std::string& sName, const std::string& sPath) const {
  return getValue<std::int64_t>(sName, sPath, scanLong,
                                "longFromNode(): Could not convert content of a Node to long value");
}

double QMXmlParams::getDouble(const std::string& sName, const std::string& sPath) const {
  return getValue<double>(sName, sPath, scanDouble,
                          "doubleFromNode(): Could not convert content of a Node to double value");
}

bool QMXmlParams::getBool(const std::string& sName, const std::string& sPath) const {
  return getValue<bool>(sName, sPath, scanBool,
                        "boolFromNode(): Could not convert content of a Node to bool value");
}

std::string QMXmlParams::getString(const std::string& sName, const std::string& sPath) const {
  xmlNode* pNode = findParam(sName, sPath);
  if (pNode == nullptr) {
    QM_THROW(JXmlParamsError, sName.c_str(), sPath.c_str());
  }
  return contentOf(pNode);
}

bool QMXmlParams::has(const std::string& sName, const std::string& sPath) const {
  return findParam(sName, sPath) != nullptr;
}

bool QMXmlParams::setInt(const std::string& sName, std::int32_t iValue, const std::string& sPath) {
  return setString(sName, qm_xml::numberText(iValue), sPath);
}

bool QMXmlParams::setLong(const std::string& sName, std::int64_t llValue, const std::string& sPath) {
  return setString(sName, qm_xml::numberText(llValue), sPath);
}

bool QMXmlParams::setDouble(const std::string& sName, double dValue, const std::string& sPath) {
  return setString(sName, qm_xml::numberText(dValue), sPath);
}

bool QMXmlParams::setBool(const std::string& sName, bool bValue, const std::string& sPath) {
  return setString(sName, boolText(bValue), sPath);
}

bool QMXmlParams::setString(const std::string& sName, const std::string& sValue, const std::string& sPath) {
  xmlNode* pNode = findParam(sName, sPath);
  if (pNode == nullptr || !qm_xml::isXmlText(sValue)) {
    return false;
  }
  // The content that is set is a piece of a document: what is markup in it has to be escaped.
  const qm_xml::OwnedText escaped(xmlEncodeSpecialChars(m_pConfig, toXml(sValue)));
  xmlNodeSetContent(pNode, escaped.get());
  return true;
}

template <typename Value>
bool QMXmlParams::differs(const std::string& sName, const std::string& sPath,
                          bool (*scan)(const std::string&, Value&), const Value& value) const {
  xmlNode* pNode = findParam(sName, sPath);
  Value stored{};
  return pNode != nullptr && (!scan(contentOf(pNode), stored) || stored != value);
}

bool QMXmlParams::changeInt(const std::string& sName, std::int32_t iValue, const std::string& sPath) {
  return differs(sName, sPath, scanInt, iValue) && setInt(sName, iValue, sPath);
}

bool QMXmlParams::changeLong(const std::string& sName, std::int64_t llValue, const std::string& sPath) {
  return differs(sName, sPath, scanLong, llValue) && setLong(sName, llValue, sPath);
}

bool QMXmlParams::changeDouble(const std::string& sName, double dValue, const std::string& sPath) {
  return differs(sName, sPath, scanDouble, dValue) && setDouble(sName, dValue, sPath);
}

bool QMXmlParams::changeBool(const std::string& sName, bool bValue, const std::string& sPath) {
  return differs(sName, sPath, scanBool, bValue) && setBool(sName, bValue, sPath);
}

bool QMXmlParams::changeString(const std::string& sName, const std::string& sValue,
                               const std::string& sPath) {
  xmlNode* pNode = findParam(sName, sPath);
  return pNode != nullptr && contentOf(pNode) != sValue && setString(sName, sValue, sPath);
}

std::string QMXmlParams::getRootName() const {
  const xmlNode* pRoot = getRoot();
  return pRoot != nullptr ? fromXml(pRoot->name) : std::string();
}

bool QMXmlParams::getRootAttribute(const std::string& sName, std::string& sValueOut) const {
  xmlNode* pRoot = getRoot();
  if (pRoot == nullptr || xmlHasProp(pRoot, toXml(sName)) == nullptr) {
    return false;
  }
  sValueOut = fromXml(qm_xml::OwnedText(xmlGetProp(pRoot, toXml(sName))));
  return true;
}

std::vector<std::string> QMXmlParams::getChildNames(const std::string& sPath, NodeKind eKind) const {
  std::vector<std::string> names;
  const xmlNode* pNode = findNode(sPath);
  for (const xmlNode* pChild = pNode != nullptr ? pNode->children : nullptr; pChild != nullptr;
       pChild = pChild->next) {
    if (static_cast<int>(pChild->type) == eKind) {
      names.push_back(fromXml(pChild->name));
    }
  }
  return names;
}

bool QMXmlParams::setDynamic(const std::string& sName, const std::string& sPath, bool bOn) {
  xmlNode* pNode = findParam(sName, sPath);
  if (pNode == nullptr) {
    return false;
  }
  xmlAttr* pAttribute = xmlHasProp(pNode, toXml(qm_xml::kDynamic));
  if (bOn && pAttribute == nullptr) {
    xmlNewProp(pNode, toXml(qm_xml::kDynamic), toXml(boolText(true)));
  } else if (!bOn && pAttribute != nullptr) {
    xmlRemoveProp(pAttribute);
  }
  return true;
}

bool QMXmlParams::isDynamic(const std::string& sName, const std::string& sPath) const {
  xmlNode* pNode = findParam(sName, sPath);
  return pNode != nullptr && qm_xml::isDynamicNode(pNode);
}

bool QMXmlParams::isLeaf(const std::string& sName, const std::string& sPath) const {
  const xmlNode* pNode = findParam(sName, sPath);
  return pNode != nullptr && (pNode->children == nullptr || pNode->children->type == XML_TEXT_NODE);
}

_xmlNode* QMXmlParams::makePath(const std::string& sPath) {
  if (m_pConfig == nullptr) {
    m_pConfig = xmlNewDoc(toXml("1.0"));
    xmlDocSetRootElement(m_pConfig, xmlNewDocNode(m_pConfig, nullptr, toXml(m_sRootName), nullptr));
  }
  xmlNode* pNode = getRoot();
  for (const std::string& sName : splitXmlPath(sPath)) {
    if (sName.empty()) {
      break;
    }
    xmlNode* pChild = findSibling(pNode->children, sName);
    pNode = pChild != nullptr ? pChild : xmlNewChild(pNode, nullptr, toXml(sName), nullptr);
  }
  return pNode;
}

bool QMXmlParams::addNode(const std::string& sName, const std::string& sPath) {
  return addTextNode(sName, sPath, {});
}

bool QMXmlParams::addTextNode(const std::string& sName, const std::string& sPath, const std::string& sContent,
                              const std::map<std::string, std::string>& attributes) {
  bool bStorable = qm_xml::isXmlName(sName) && qm_xml::isXmlText(sContent);
  for (const std::string& sElement : splitXmlPath(sPath)) {
    bStorable = bStorable && (sElement.empty() || qm_xml::isXmlName(sElement));
  }
  for (const auto& [sAttribute, sValue] : attributes) {
    bStorable = bStorable && qm_xml::isXmlName(sAttribute) && qm_xml::isXmlText(sValue);
  }
  if (!bStorable) {
    return false;
  }
  xmlNode* pParent = makePath(sPath);
  xmlNode* pNode = xmlNewDocNode(m_pConfig, nullptr, toXml(sName), nullptr);
  if (!sContent.empty()) {
    xmlAddChild(pNode, xmlNewDocText(m_pConfig, toXml(sContent)));
  }
  for (const auto& [sAttribute, sValue] : attributes) {
    xmlNewProp(pNode, toXml(sAttribute), toXml(sValue));
  }
  xmlAddChild(pParent, pNode);
  return true;
}
