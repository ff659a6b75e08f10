// The schema of a parameter document: how it is built, and how a document is validated against it.

#include <libxml/relaxng.h>

#include "coreapi/qmxml/qmxml.h"
#include "coreapi/qmxml/qmxmlparams.h"
#include "coreapi/qmxml/xmldocument.h"
#include "coreapi/qmxml/xmlscan.h"
#include "coreapi/qmxml/xmlscope.h"

using qm_xml::toXml;

namespace {

/// What every definition of a root's parameters is called.
constexpr const char* kSubNode = "Sub1";

constexpr const char* kTypeNames[] = {
    "integer", "nonNegativeInteger", "positiveInteger", "double", "string", "boolean", "long"};

const char* typeName(int iType) {
  const bool bKnown = iType >= 0 && iType < static_cast<int>(std::size(kTypeNames));
  return bKnown ? kTypeNames[iType] : kTypeNames[QMXmlParams::kString];
}

xmlNode* addChild(xmlNode* pParent, const char* szElement) {
  return xmlNewChild(pParent, nullptr, toXml(szElement), nullptr);
}

xmlNode* addNamed(xmlNode* pParent, const char* szElement, const std::string& sName) {
  xmlNode* pNode = addChild(pParent, szElement);
  xmlNewProp(pNode, toXml("name"), toXml(sName));
  return pNode;
}

void addFacet(xmlNode* pData, const char* szFacet, const std::string& sValue) {
  if (!sValue.empty()) {
    xmlNode* pParam = xmlNewTextChild(pData, nullptr, toXml("param"), toXml(sValue));
    xmlNewProp(pParam, toXml("name"), toXml(szFacet));
  }
}

void addChoices(xmlNode* pElement, const std::string& sChoices) {
  xmlNode* pChoice = addChild(pElement, "choice");
  for (std::size_t start = 0; start <= sChoices.size();) {
    const std::size_t end = std::min(sChoices.find(';', start), sChoices.size());
    xmlNewTextChild(pChoice, nullptr, toXml("value"), toXml(sChoices.substr(start, end - start)));
    start = end + 1;
  }
}

/// Logs what failed, and between brackets what the library has to say.
bool fail(const char* szText, const char* szEnd = ")") {
  qm_err::log(qm_err::kLogWarning, "%s (%s%s", szText, QMXml::getLastError().c_str(), szEnd);
  return false;
}

void ignoreStructured(void* /*pContext*/, xmlErrorPtr /*pError*/) {}

/// Compiles a schema. What fails is logged when `bLog` says so. The caller has a scope open.
qm_xml::OwnedRelax compile(xmlDoc* pSchema, bool bLog) {
  const qm_xml::OwnedRelaxParser parser(xmlRelaxNGNewDocParserCtxt(pSchema));
  if (!parser) {
    if (bLog) {
      fail("validate(): Could not create a Relax-NG parser context.");
    }
    return nullptr;
  }
  xmlRelaxNGSetParserStructuredErrors(parser.get(), ignoreStructured, nullptr);
  qm_xml::OwnedRelax schema(xmlRelaxNGParse(parser.get()));
  if (!schema && bLog) {
    fail("validate(): Error parsing Relax-NG schema.");
  }
  return schema;
}

}  // namespace

bool QMXmlParams::startSchemaCreation() {
  xmlBufferFree(m_pSchemaBuffer);
  m_pSchemaBuffer = xmlBufferCreate();
  if (m_pSchemaBuffer == nullptr || xmlBufferCCat(m_pSchemaBuffer, m_sSchemaHead.c_str()) != 0) {
    return fail("startSchemaCreation(): Could not create the Schema buffer", ").");
  }
  return true;
}

bool QMXmlParams::appendToSchema(const std::string& sText) {
  return m_pSchemaBuffer != nullptr && xmlBufferCCat(m_pSchemaBuffer, sText.c_str()) == 0;
}

bool QMXmlParams::endSchemaCreation() {
  if (m_pSchemaBuffer == nullptr) {
    return false;
  }
  appendToSchema("</grammar>");
  const qm_xml::XmlScope scope(qm_xml::XmlScope::kMemory);
  xmlDoc* pSchema = xmlParseDoc(xmlBufferContent(m_pSchemaBuffer));
  xmlBufferFree(m_pSchemaBuffer);
  m_pSchemaBuffer = nullptr;
  if (pSchema == nullptr) {
    return fail("endSchemaCreation(): Error parsing the given XML Schema", ").");
  }
  xmlFreeDoc(m_pSchema);
  m_pSchema = pSchema;
  m_bSchemaComplete = true;
  return true;
}

bool QMXmlParams::createSchema() {
  return startSchemaCreation() && endSchemaCreation();
}

int QMXmlParams::setSchema(const std::string& sText) {
  qm_xml::OwnedDoc document = qm_xml::readDocument(sText);
  if (!document) {
    return -1;
  }
  xmlFreeDoc(m_pSchema);
  m_pSchema = document.release();
  const qm_xml::XmlScope scope(qm_xml::XmlScope::kMemory);
  const qm_xml::OwnedRelax schema = compile(m_pSchema, false);
  const qm_xml::OwnedRelaxValidator validator(schema ? xmlRelaxNGNewValidCtxt(schema.get()) : nullptr);
  if (!validator) {
    xmlFreeDoc(m_pSchema);
    m_pSchema = nullptr;
    return -2;
  }
  return m_pConfig != nullptr && !validate(m_pConfig) ? -3 : 0;
}

const std::string& QMXmlParams::getSchema() {
  m_sSchema.clear();
  if (m_pSchema == nullptr) {
    qm_err::logText(qm_err::kLogWarning, "getSchema(): No XML Schema Doc currently created");
    return m_sSchema;
  }
  m_sSchema = qm_xml::dumpDocument(m_pSchema, false);
  if (m_sSchema.empty()) {
    fail("getSchema(): XML Schema Doc has 0 size.");
  }
  return m_sSchema;
}

bool QMXmlParams::validate(_xmlDoc* pDocument) const {
  if (m_pSchema == nullptr) {
    return true;
  }
  const qm_xml::XmlScope scope(qm_xml::XmlScope::kMemory);
  xmlResetLastError();
  const qm_xml::OwnedRelax schema = compile(m_pSchema, true);
  if (!schema) {
    return false;
  }
  const qm_xml::OwnedRelaxValidator validator(xmlRelaxNGNewValidCtxt(schema.get()));
  if (!validator) {
    return fail("validate(): Could not create a valid Relax-NG context.");
  }
  xmlRelaxNGSetValidStructuredErrors(validator.get(), ignoreStructured, nullptr);
  const int iResult = xmlRelaxNGValidateDoc(validator.get(), pDocument);
  if (iResult == -1) {
    return fail("validate(): Internal XML API error.");
  }
  if (iResult != 0) {
    qm_err::log(qm_err::kLogWarning, "validate(): Validation error #%d (%s).", iResult,
                QMXml::getLastError().c_str());
  }
  return iResult == 0;
}

_xmlNode* QMXmlParams::addSchemaGroup(const std::string& sName, _xmlNode* pParent, bool bOptional) {
  return addNamed(bOptional ? addChild(pParent, "optional") : pParent, "element", sName);
}

_xmlNode* QMXmlParams::addSchemaElement(const std::string& sName, _xmlNode* pParent, Type eType,
                                        bool bOptional, bool bDynamicAttribute, const std::string& sLow,
                                        const std::string& sHigh) {
  xmlNode* pElement = addSchemaGroup(sName, pParent, bOptional);
  if (bDynamicAttribute) {
    addSchemaAttribute(qm_xml::kDynamic, pElement);
  }
  if (eType == kString && !sLow.empty()) {
    addChoices(pElement, sLow);
    return pElement;
  }
  xmlNode* pData = addChild(pElement, "data");
  xmlNewProp(pData, toXml("type"), toXml(typeName(eType)));
  if (eType != kString) {
    addFacet(pData, "minInclusive", sLow);
    addFacet(pData, "maxInclusive", sHigh);
  }
  return pElement;
}

void QMXmlParams::addSchemaAttribute(const std::string& sName, _xmlNode* pParent) {
  addNamed(addChild(pParent, "optional"), "attribute", sName);
}

void QMXmlParams::addSchemaReferences(const std::string& sDefinition, _xmlNode* pParent) {
  addNamed(addChild(pParent, "zeroOrMore"), "ref", sDefinition);
}

_xmlNode* QMXmlParams::addSchemaDefinition(const std::string& sName) {
  return m_pSchema != nullptr ? addNamed(xmlDocGetRootElement(m_pSchema), "define", sName) : nullptr;
}

void QMXmlParams::declareSubNode(const std::string& sSubNode) {
  const std::string sParams = "Param" + sSubNode;
  for (xmlNode* pNode = xmlDocGetRootElement(m_pSchema)->children; pNode != nullptr; pNode = pNode->next) {
    if (pNode->type == XML_ELEMENT_NODE && qm_xml::fromXml(pNode->name) == "define" &&
        qm_xml::fromXml(qm_xml::OwnedText(xmlGetProp(pNode, toXml("name")))) == sParams) {
      return;
    }
  }
  xmlNode* pDefine = addSchemaDefinition(kSubNode);
  xmlNewProp(pDefine, toXml("combine"), toXml("interleave"));
  xmlNode* pElement = addSchemaGroup(sSubNode, pDefine, true);
  addNamed(addChild(pElement, "oneOrMore"), "ref", sParams);
}

bool QMXmlParams::declare(const std::string& sName, const std::string& sSubNode, Type eType, bool bDynamic,
                          const std::string& sLow, const std::string& sHigh) {
  if (m_pSchema == nullptr && !createSchema()) {
    return false;
  }
  if (!qm_xml::isXmlName(sName) || !(sSubNode.empty() || qm_xml::isXmlName(sSubNode))) {
    return false;
  }
  if (!sSubNode.empty()) {
    declareSubNode(sSubNode);
  }
  xmlNode* pDefine = addSchemaDefinition(sSubNode.empty() ? kSubNode : "Param" + sSubNode);
  xmlNewProp(pDefine, toXml("combine"), toXml("interleave"));
  addSchemaElement(sName, addChild(pDefine, "optional"), eType, true, bDynamic, sLow, sHigh);
  return true;
}

bool QMXmlParams::declareInt(const std::string& sName, const std::string& sSubNode, Bounds eBounds,
                             std::int32_t iLow, std::int32_t iHigh, bool bDynamic) {
  const bool bLower = eBounds == kLowerBound || eBounds == kBothBounds;
  const bool bUpper = eBounds == kUpperBound || eBounds == kBothBounds;
  Type eType = kInteger;
  std::string sLow;
  if (bLower) {
    eType = iLow < 0 ? kInteger : iLow == 0 ? kNonNegativeInteger : kPositiveInteger;
    if (iLow < 0 || iLow > 1) {
      sLow = qm_xml::numberText(iLow);
    }
  }
  return declare(sName, sSubNode, eType, bDynamic, sLow, bUpper ? qm_xml::numberText(iHigh) : "");
}

bool QMXmlParams::declareLong(const std::string& sName, const std::string& sSubNode, Bounds eBounds,
                              std::int64_t llLow, std::int64_t llHigh, bool bDynamic) {
  return declare(sName, sSubNode, kLong, bDynamic,
                 eBounds == kLowerBound || eBounds == kBothBounds ? qm_xml::numberText(llLow) : "",
                 eBounds == kUpperBound || eBounds == kBothBounds ? qm_xml::numberText(llHigh) : "");
}

bool QMXmlParams::declareDouble(const std::string& sName, const std::string& sSubNode, Bounds eBounds,
                                double dLow, double dHigh, bool bDynamic) {
  return declare(sName, sSubNode, kDouble, bDynamic,
                 eBounds == kLowerBound || eBounds == kBothBounds ? qm_xml::numberText(dLow) : "",
                 eBounds == kUpperBound || eBounds == kBothBounds ? qm_xml::numberText(dHigh) : "");
}

bool QMXmlParams::declareBool(const std::string& sName, const std::string& sSubNode, bool bDynamic) {
  return declare(sName, sSubNode, kBoolean, bDynamic, {}, {});
}

bool QMXmlParams::declareString(const std::string& sName, const std::string& sSubNode,
                                const std::string& sChoices, bool bDynamic) {
  return declare(sName, sSubNode, kString, bDynamic, sChoices, {});
}
