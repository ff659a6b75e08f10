#pragma once

#include <atomic>
#include <string>

#include "coreapi/qmutils/thread/jmutex.h"

namespace qm_utils {

/// The file "software.reg", which the tree's branch "SOFTWARE" is read from and kept in. For the two classes
/// of keys; no other code includes this.
///
/// Any thread. The lock of the file is held while it is read or written; the lock of the tree is inside it,
/// and whatever is logged meanwhile doesn't wait for a configuration of the log (`isBusyHere`).
class RegistryFile {
 public:
  /// The name of the branch.
  static constexpr const char* kBranch = "SOFTWARE";

  /// The one file of the process. It is never destroyed.
  static RegistryFile& get();

  /// Whether the calling thread is reading or writing the file: the log must not let such a thread wait for
  /// its configuration, which may itself be waiting for the file.
  static bool isBusyHere() noexcept;

  /// Reads the file in the system directory, if it is there and the branch wasn't read from anywhere yet. A
  /// failure is logged, and what was read before it is in the tree; the file isn't tried again until
  /// something is changed or the file is read anew.
  void ensureRead();

  /// Reads the file that the branch came from again in place of what the branch holds; without a file the
  /// branch is empty then. Changes that aren't in the file yet are given up. Throws as
  /// `JLightRegistryKey::flush`.
  void reload();

  /// Runs a change of the branch, which was read from the file before; without a file makes an empty one
  /// first. Throws, and changes nothing, when the file can't be made or read as a whole: what it holds beyond
  /// the failure would be lost.
  template <typename Work>
  void change(Work work) {
    const Section section(*this);
    prepareChange();
    work();
    m_bChanged = true;
  }

  /// Writes the branch into the file if it was changed. A failure is thrown, and the change stays pending.
  void save();

  /// As `save` when no batch is going on; a failure is logged.
  void saveAtClose() noexcept;

  /// What `JLightRegistryKey::flush` does.
  void flush(bool bReload, const char* szPath);

  /// Lets keys be closed without a save of their own, for a routine that changes many of them. `end` saves;
  /// without it, on the way out of a failure, the destructor does.
  class Batch {
   public:
    Batch();
    ~Batch();
    Batch(const Batch&) = delete;
    Batch& operator=(const Batch&) = delete;
    void end();

   private:
    bool m_bEnded = false;
  };

 private:
  /// Holds the lock and marks the thread.
  class Section {
   public:
    explicit Section(RegistryFile& file);
    ~Section();
    Section(const Section&) = delete;
    Section& operator=(const Section&) = delete;

   private:
    JAutoLock m_lock;
  };

  RegistryFile() = default;

  // All of these run in a section.
  std::string currentPath() const;
  void load(const std::string& sPath);
  bool loadIfThere(const std::string& sPath);
  void prepareChange();

  JMutex m_mutex;
  bool m_bLoaded = false;               ///< the branch was read as a whole
  std::string m_sPath;                  ///< where it was read from, or where that failed; empty before
  std::atomic<bool> m_bChanged{false};  ///< it was changed since it was read or written
  std::atomic<int> m_iBatches{0};
};

}  // namespace qm_utils
