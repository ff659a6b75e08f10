#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "coreapi/qmutils/thread/jmutex.h"
#include "coreapi/qmutils/time/jtime.h"

namespace qm_utils {

/// The names of the files of a rotating log: a base name and, as their last 30 characters, the local time of
/// their first line as "%04d_%02d_%02d_%02d_%02d_%02d_%06d.log": year, month, day, time of day, microseconds.
/// Both directions stand here.
std::string logFileSuffix(JTime time);

/// The time that a name tells; nothing when its end isn't of that form or is no time.
std::optional<JTime> parseLogFileSuffix(std::string_view name);

/// The files of one rotating log in its directory. One thread at a time.
class LogDirectory {
 public:
  LogDirectory(std::string sDirectory, std::string sBaseName);

  /// Lists the files. Throws as `JDirectoryIterator`; what was found before counts.
  void list();

  /// Deletes the oldest files until what is listed has at most so many bytes. A file whose name tells no time
  /// counts, and is never deleted. One that can't be deleted is logged at level EXCEPTION.
  void shrinkTo(std::uint64_t uBytes);

  /// The newest time that a name of the list tells; 0 when there is none.
  JTime getNewest() const noexcept { return m_files.empty() ? JTime() : m_files.back().time; }

  /// Whether a file of that suffix is in the list.
  bool has(const std::string& sSuffix) const;

  std::string getPath(const std::string& sSuffix) const;

 private:
  struct File {
    JTime time;
    std::string sName;
    std::uint64_t uSize;
  };

  std::string m_sDirectory;
  std::string m_sBaseName;
  std::vector<File> m_files;   ///< those whose names tell a time, by it
  std::uint64_t m_uTotal = 0;  ///< bytes of all files of the base name
};

/// Gives new files of rotating logs their times. A system clock that was never set would put them before all
/// that are there: they are put behind the newest one then. Any thread.
class LogFileClock {
 public:
  /// The suffix of the name of a new file in a directory that was listed. The first one has a whole minute,
  /// unless there is a file of that name already: what a process logged that ended within the minute stays.
  std::string nextSuffix(JTime now, const LogDirectory& directory);

  /// That of the process.
  static LogFileClock& ofProcess();

 private:
  JMutex m_mutex;
  bool m_bFirst = true;
  std::uint64_t m_uOffset = 0;  ///< microseconds that are added to a clock that wasn't set
};

}  // namespace qm_utils
