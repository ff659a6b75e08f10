#pragma once

#include <string>

namespace qm_manager {

/// The root directory of an archive, taken by one process at a time: its lock on the marker file stands as
/// long as this object does, and goes with the process. Any thread.
class ArchiveRoot {
 public:
  enum class Creation {
    kExisting,   ///< the directory must be an archive
    kWhenEmpty,  ///< an empty or missing directory is made one
  };

  /// Throws JTextError when the directory isn't an archive (so that no folder of somebody's files is taken
  /// for one) or another process has it, and JSysError when the system refuses.
  ArchiveRoot(std::string sPath, Creation creation);
  ~ArchiveRoot();
  ArchiveRoot(const ArchiveRoot&) = delete;
  ArchiveRoot& operator=(const ArchiveRoot&) = delete;

  /// As it was given, without separators at its end.
  const std::string& getPath() const noexcept { return m_sPath; }

  /// Where files go that can't be recovered; made when the first one comes.
  std::string getQuarantine() const;

 private:
  std::string m_sPath;
  int m_iMarker;  ///< the descriptor that holds the lock
};

}  // namespace qm_manager
