#pragma once

#include <string>

namespace qm_test {

/// What the XML library's own program says of a document under a schema.
bool validUnderRelaxNg(const std::string& sDocument, const std::string& sSchema);
bool validUnderXmlSchema(const std::string& sDocument, const std::string& sSchema);

/// Whether it takes a text as a RELAX NG schema at all.
bool isRelaxNg(const std::string& sSchema);

}  // namespace qm_test
