#include "tests/support/tempdir.h"

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace qm_test {

TempDir::TempDir() {
  std::string sTemplate = (std::filesystem::temp_directory_path() / "qmtest-XXXXXX").string();
  if (mkdtemp(sTemplate.data()) == nullptr) {
    throw std::runtime_error("no temporary directory");
  }
  m_path = sTemplate;
}

TempDir::~TempDir() {
  std::error_code error;
  std::filesystem::remove_all(m_path, error);
}

std::string TempDir::write(const std::string& sName, const std::string& sContent) const {
  std::ofstream(m_path / sName, std::ios::binary) << sContent;
  return path(sName);
}

std::string readFile(const std::string& sPath) {
  std::ifstream file(sPath, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(file), {});
}

}  // namespace qm_test
