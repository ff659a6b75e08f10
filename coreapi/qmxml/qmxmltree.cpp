#include "coreapi/qmxml/qmxmltree.h"

#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmxml/qmxmlreader.h"
#include "coreapi/qmxml/xmlmisuse.h"
#include "coreapi/qmxml/xmlscan.h"

namespace {

using qm_xml::trimmed;

/// An optional sign, then a number whose base its first characters tell, all of the text.
bool convert(const std::string& sText, std::int32_t& iOut) {
  std::string_view text = trimmed(sText);
  const bool bSigned = !text.empty() && (text.front() == '-' || text.front() == '+');
  const bool bNegative = bSigned && text.front() == '-';
  text.remove_prefix(bSigned ? 1 : 0);
  int iBase = 10;
  if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
    iBase = 16;
    text.remove_prefix(2);
  } else if (text.size() > 1 && text[0] == '0') {
    iBase = 8;
  }
  std::uint32_t uMagnitude = 0;
  if (text.empty() || text.front() == '+' || qm_xml::scanInteger(text, uMagnitude, iBase) != text.size()) {
    return false;
  }
  const std::int64_t llValue = bNegative ? -std::int64_t{uMagnitude} : std::int64_t{uMagnitude};
  if (llValue != static_cast<std::int32_t>(llValue)) {
    return false;
  }
  iOut = static_cast<std::int32_t>(llValue);
  return true;
}

template <typename Integer>
bool convert(const std::string& sText, Integer& out) {
  const std::string_view text = trimmed(sText);
  Integer value = 0;
  if (text.empty() || qm_xml::scanInteger(text, value) != text.size()) {
    return false;
  }
  out = value;
  return true;
}

bool convert(const std::string& sText, double& dOut) {
  const std::string sTrimmed(trimmed(sText));
  double dValue = 0.0;
  if (sTrimmed.empty() || qm_xml::scanDouble(sTrimmed, dValue) != sTrimmed.size()) {
    return false;
  }
  dOut = dValue;
  return true;
}

bool convert(const std::string& sText, bool& bOut) {
  const std::string_view text = trimmed(sText);
  if (text != "true" && text != "false") {
    return false;
  }
  bOut = text == "true";
  return true;
}

template <typename Value>
Value converted(const std::string& sText, const char* szType) {
  Value value{};
  if (!convert(sText, value)) {
    QM_THROW(JTextError, "Cannot convert the string %s to %s", sText.c_str(), szType);
  }
  return value;
}

constexpr const char* kInteger = "an integer";
constexpr const char* kSignedQword = "a signed qword";
constexpr const char* kUnsigned = "an unsigned integer";
constexpr const char* kDouble = "a double";
constexpr const char* kBoolean = "a boolean";

}  // namespace

std::vector<std::string> splitXmlPath(const std::string& sPath) {
  std::vector<std::string> names;
  if (sPath.empty()) {
    return names;
  }
  std::size_t start = 0;
  for (std::size_t end; (end = sPath.find('\\', start)) != std::string::npos; start = end + 1) {
    names.push_back(sPath.substr(start, end - start));
  }
  names.push_back(sPath.substr(start));
  return names;
}

void QMXmlTree::parse(QMXmlReader* pReader) {
  clear();
  QM_XML_FATAL_ASSERT(pReader != nullptr, "QMXmlTree::parse(NULL) has been called");
  if (pReader == nullptr) {
    return;
  }
  const QMXmlReader::NodeType eType = pReader->getNodeType();
  QM_XML_FATAL_ASSERT(eType != QMXmlReader::ElementEnd,
                      "QMXmlTree::parse(NULL) has been called on a closing element tag");
  if (eType == QMXmlReader::ElementEnd) {
    return;
  }
  if (eType == QMXmlReader::Text) {
    m_eKind = kText;
    m_sValue = pReader->getText();
    return;
  }
  m_eKind = kElement;
  m_sValue = pReader->getElementName();
  pReader->getAttributes(m_attributes);
  while (pReader->next()) {
    if (pReader->getNodeType() == QMXmlReader::ElementEnd && pReader->getElementName() == m_sValue) {
      return;
    }
    m_children.push_back(std::make_unique<QMXmlTree>());
    m_children.back()->parse(pReader);
  }
  QM_THROW(
      JTextError,
      "In QMXmlTree::parse(..) method : end of XML file has been reached before encountering the closing "
      "tag of the element %s.",
      m_sValue.c_str());
}

void QMXmlTree::clear() {
  m_eKind = kNoKind;
  m_sValue.clear();
  m_children.clear();
  m_attributes.clear();
}

const QMXmlTree* QMXmlTree::find(const std::string& sPath, bool bRequired, std::string& sMissing) const {
  const std::vector<std::string> names = splitXmlPath(sPath);
  sMissing = sPath;
  if (names.empty()) {
    return m_eKind == kNoKind ? nullptr : this;
  }
  std::size_t step = 0;
  if (bRequired) {
    sMissing = names[0];
    if (m_eKind != kElement || m_sValue != names[0]) {
      return nullptr;
    }
    step = 1;
  }
  const QMXmlTree* pNode = this;
  for (; step < names.size(); ++step) {
    sMissing = names[step];
    const QMXmlTree* pFound = nullptr;
    for (const auto& pChild : pNode->m_children) {
      if (pChild->m_eKind == kElement && pChild->m_sValue == names[step]) {
        pFound = pChild.get();
        break;
      }
    }
    if (pFound == nullptr) {
      return nullptr;
    }
    pNode = pFound;
  }
  return pNode;
}

const QMXmlTree& QMXmlTree::get(const std::string& sPath, bool bRequired) const {
  std::string sMissing;
  const QMXmlTree* pNode = find(sPath, bRequired, sMissing);
  if (pNode == nullptr) {
    QM_THROW(JTextError, "Cannot find the element named %s", sMissing.c_str());
  }
  return *pNode;
}

bool QMXmlTree::has(const std::string& sPath, bool bRequired) const {
  std::string sMissing;
  return find(sPath, bRequired, sMissing) != nullptr;
}

const std::string* QMXmlTree::rawText() const {
  if (m_eKind == kText) {
    return &m_sValue;
  }
  for (const auto& pChild : m_children) {
    if (pChild->m_eKind == kText) {
      return &pChild->m_sValue;
    }
  }
  return nullptr;
}

std::string QMXmlTree::getRawString() const {
  const std::string* pText = rawText();
  if (pText == nullptr) {
    QM_THROW(JTextError, "QMXmlTree::getRawString() failed: element %s has no text content\n",
             m_sValue.c_str());
  }
  return *pText;
}

bool QMXmlTree::getRawString(std::string& sOut) const {
  const std::string* pText = rawText();
  if (pText != nullptr) {
    sOut = *pText;
  }
  return pText != nullptr;
}

std::string QMXmlTree::getRawString(const std::string& sPath) const {
  return get(sPath).getRawString();
}

bool QMXmlTree::getRawString(const std::string& sPath, std::string& sOut) const {
  std::string sMissing;
  const QMXmlTree* pNode = find(sPath, false, sMissing);
  return pNode != nullptr && pNode->getRawString(sOut);
}

// Every type has the same four forms.
#define QM_XML_TREE_GETTERS(operation, Value, szType)                     \
  Value QMXmlTree::operation() const {                                    \
    return converted<Value>(getRawString(), szType);                      \
  }                                                                       \
  Value QMXmlTree::operation(const std::string& sPath) const {            \
    return get(sPath).operation();                                        \
  }                                                                       \
  bool QMXmlTree::operation(Value& out) const {                           \
    std::string sText;                                                    \
    return getRawString(sText) && convert(sText, out);                    \
  }                                                                       \
  bool QMXmlTree::operation(const std::string& sPath, Value& out) const { \
    std::string sText;                                                    \
    return getRawString(sPath, sText) && convert(sText, out);             \
  }

QM_XML_TREE_GETTERS(getInteger, std::int32_t, kInteger)
QM_XML_TREE_GETTERS(getSignedQword, std::int64_t, kSignedQword)
QM_XML_TREE_GETTERS(getUnsigned, std::uint32_t, kUnsigned)
QM_XML_TREE_GETTERS(getDouble, double, kDouble)
QM_XML_TREE_GETTERS(getBool, bool, kBoolean)

#undef QM_XML_TREE_GETTERS

std::string QMXmlTree::getAttribute(const std::string& sName) const {
  const auto found = m_attributes.find(sName);
  return found != m_attributes.end() ? found->second : std::string();
}

bool QMXmlTree::hasAttribute(const std::string& sName) const {
  return m_attributes.contains(sName);
}
