#pragma once

#include <filesystem>
#include <string>

namespace qm_test {

/// A new directory that is removed, with all that it holds, at the end.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  /// Path of a file in the directory.
  std::string path(const std::string& sName) const { return (m_path / sName).string(); }

  /// Writes a file and returns its path.
  std::string write(const std::string& sName, const std::string& sContent) const;

 private:
  std::filesystem::path m_path;
};

/// All bytes of a file; the empty text when it can't be read.
std::string readFile(const std::string& sPath);

}  // namespace qm_test
