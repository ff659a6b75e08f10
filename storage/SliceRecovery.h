#pragma once

#include <optional>
#include <string>

#include "storage/Slice.h"

/// Makes slices again of files that a writer left unfinished: the index that was never written is built by
/// walking the file, and the file gets the name that its content gives it.
///
/// It needs the process's cache of descriptions. No shared state but for the one switch; any thread, but one
/// thread a file.
class SliceRecovery {
 public:
  enum class Outcome {
    kRecovered,  ///< a slice
    kBroken,     ///< read, and nothing can be made of it
    kLeft,  ///< in use by a writer, no plain file (a link is none), or the system failed: to be tried another
            ///< time
  };

  /// Recovers a file of a directory. `slice` takes what it holds and where it stands by then, when the
  /// outcome is `kRecovered`. Never throws a JError; what went wrong is logged.
  static Outcome recover(const std::string& sDirectory, const std::string& sFileName,
                         std::optional<Slice>& slice);

  /// Process-wide: with `bOn` no file is changed, renamed or removed; its index is built in memory alone.
  static void setReadOnly(bool bOn) noexcept;
  static bool isReadOnly() noexcept;
};
