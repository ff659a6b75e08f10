#include "tests/support/xmllint.h"

#include <cstdlib>
#include <stdexcept>
#include <sys/wait.h>

#include "tests/support/tempdir.h"

namespace qm_test {

namespace {

/// Exit statuses of xmllint: 0 valid, 3 and 4 not valid, 5 the schema doesn't compile.
int lint(const char* szOption, const std::string& sDocument, const std::string& sSchema) {
  const TempDir dir;
  const std::string sCommand = std::string("xmllint --nonet --noout ") + szOption + " " +
                               dir.write("schema.xml", sSchema) + " " + dir.write("document.xml", sDocument) +
                               " 2>/dev/null";
  const int iStatus = std::system(sCommand.c_str());
  if (!WIFEXITED(iStatus) || WEXITSTATUS(iStatus) == 127) {
    throw std::runtime_error("xmllint doesn't run");
  }
  return WEXITSTATUS(iStatus);
}

}  // namespace

bool validUnderRelaxNg(const std::string& sDocument, const std::string& sSchema) {
  return lint("--relaxng", sDocument, sSchema) == 0;
}

bool validUnderXmlSchema(const std::string& sDocument, const std::string& sSchema) {
  return lint("--schema", sDocument, sSchema) == 0;
}

bool isRelaxNg(const std::string& sSchema) {
  const int iStatus = lint("--relaxng", "<nothing/>", sSchema);
  return iStatus == 0 || iStatus == 3 || iStatus == 4;
}

}  // namespace qm_test
