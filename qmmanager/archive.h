#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "coreapi/qmutils/thread/jmutex.h"
#include "qmmanager/archiveroot.h"
#include "storage/ArchiveUnit.h"
#include "storage/SourceTable.h"

namespace qm_manager {

/// An archive that this process has taken: its root directory and its units, all of them open, by source and
/// frame rate.
///
/// Any thread. The lock under which units are made comes first of all: before the table's lock and the units'
/// mutexes. A unit is the caller's as long as the pointer is held.
class Archive {
 public:
  struct Settings {
    /// See ArchiveUnit::Settings.
    bool bJoinGaps = true;
  };

  /// Takes the root (as ArchiveRoot) and opens every unit in it, on as many threads as the machine has cores.
  /// What doesn't belong to an archive is reported in the log and passed over, and so is a unit that can't be
  /// opened. Throws what ArchiveRoot throws, what listing the root throws, and as ArchiveUnit::open without
  /// the process's cache of descriptions.
  Archive(const std::string& sPath, ArchiveRoot::Creation creation, Settings settings);
  Archive(const std::string& sPath, ArchiveRoot::Creation creation) : Archive(sPath, creation, Settings()) {}
  Archive(const Archive&) = delete;
  Archive& operator=(const Archive&) = delete;

  const ArchiveRoot& getRoot() const noexcept { return m_root; }
  const SourceTable& getTable() const noexcept { return m_table; }

  /// The unit of a source and a rate. Throws JTextError with words for the user when there is none.
  std::shared_ptr<ArchiveUnit> requireUnit(const std::string& sSource, std::int32_t iFps) const;

  /// The same, which is made when there is none; its directory is on the disk when this returns. Throws
  /// JTextError for a source or a rate that no directory can be named by, and JSysError when the system
  /// refuses.
  std::shared_ptr<ArchiveUnit> makeUnit(const std::string& sSource, std::int32_t iFps);

 private:
  class Opening;
  struct Found;

  std::shared_ptr<ArchiveUnit> open(const std::string& sDirectory, std::int32_t iFps) const;

  const Settings m_settings;
  ArchiveRoot m_root;
  SourceTable m_table;
  JMutex m_makeMutex;  ///< one unit is made at a time
};

}  // namespace qm_manager
