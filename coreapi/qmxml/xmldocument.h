#pragma once

#include <string>

#include "coreapi/qmxml/xmlhandles.h"

/// Small operations on documents that several units share. Private to this folder.
namespace qm_xml {

/// The first element of a name among a node and its siblings behind it; null when there is none.
inline xmlNode* findSibling(xmlNode* pFrom, const std::string& sName) noexcept {
  while (pFrom != nullptr &&
         (pFrom->type != XML_ELEMENT_NODE || xmlStrEqual(pFrom->name, toXml(sName)) == 0)) {
    pFrom = pFrom->next;
  }
  return pFrom;
}

inline std::string contentOf(xmlNode* pNode) {
  return fromXml(OwnedText(xmlNodeGetContent(pNode)));
}

inline bool isTextOnly(const xmlNode* pNode) noexcept {
  return pNode->children != nullptr && pNode->children->next == nullptr &&
         pNode->children->type == XML_TEXT_NODE;
}

/// The attribute of parameters that may change while the system runs.
inline constexpr const char* kDynamic = "dynamic";

inline bool isDynamicNode(xmlNode* pNode) noexcept {
  return xmlHasProp(pNode, toXml(kDynamic)) != nullptr;
}

/// Whether an include of a document has an "xpointer". Where such a document is a text from memory, this can
/// only point into the text itself: it could repeat the text many times over, and evaluating it can take any
/// time.
bool hasPointer(const xmlDoc* pDocument) noexcept;

/// What is said about such a text.
inline constexpr const char* kPointerText = "an include of a text from memory has an xpointer";

/// Parses a text and carries out its XIncludes, or logs why not under "read()". The limit on texts applies.
OwnedDoc readDocument(const std::string& sText);

/// The same for a file, under "open()".
OwnedDoc openDocument(const char* szFileName);

/// A document as a text.
std::string dumpDocument(xmlDoc* pDocument, bool bFormat);

/// A node with what it holds as a text.
std::string dumpNode(xmlDoc* pDocument, xmlNode* pNode);

/// Whether a document can hold a text: well-formed UTF-8 of characters that XML has.
bool isXmlText(const std::string& sText) noexcept;

/// Whether a text can be an element's or attribute's name.
bool isXmlName(const std::string& sName) noexcept;

}  // namespace qm_xml
