#pragma once

#include <libxml/parser.h>
#include <libxml/relaxng.h>
#include <libxml/tree.h>
#include <libxml/xmlschemas.h>
#include <memory>
#include <string>

/// Owners of the XML library's objects, and its texts as strings. Private to this folder: nothing outside
/// includes the library.
namespace qm_xml {

template <auto release>
struct Release {
  template <typename Object>
  void operator()(Object* pObject) const noexcept {
    release(pObject);
  }
};

inline void freeText(xmlChar* pText) noexcept {
  xmlFree(pText);
}

using OwnedDoc = std::unique_ptr<xmlDoc, Release<xmlFreeDoc>>;
using OwnedNode = std::unique_ptr<xmlNode, Release<xmlFreeNode>>;
using OwnedBuffer = std::unique_ptr<xmlBuffer, Release<xmlBufferFree>>;
using OwnedText = std::unique_ptr<xmlChar, Release<freeText>>;
using OwnedSchemaParser = std::unique_ptr<xmlSchemaParserCtxt, Release<xmlSchemaFreeParserCtxt>>;
using OwnedSchema = std::unique_ptr<xmlSchema, Release<xmlSchemaFree>>;
using OwnedSchemaValidator = std::unique_ptr<xmlSchemaValidCtxt, Release<xmlSchemaFreeValidCtxt>>;
using OwnedRelaxParser = std::unique_ptr<xmlRelaxNGParserCtxt, Release<xmlRelaxNGFreeParserCtxt>>;
using OwnedRelax = std::unique_ptr<xmlRelaxNG, Release<xmlRelaxNGFree>>;
using OwnedRelaxValidator = std::unique_ptr<xmlRelaxNGValidCtxt, Release<xmlRelaxNGFreeValidCtxt>>;

/// The library's texts are bytes of UTF-8 under another type.
inline const xmlChar* toXml(const char* szText) noexcept {
  return reinterpret_cast<const xmlChar*>(szText);
}
inline const xmlChar* toXml(const std::string& sText) noexcept {
  return toXml(sText.c_str());
}

/// Null gives the empty text.
inline std::string fromXml(const xmlChar* pText) {
  return pText != nullptr ? reinterpret_cast<const char*>(pText) : "";
}
inline std::string fromXml(const OwnedText& pText) {
  return fromXml(pText.get());
}

}  // namespace qm_xml
