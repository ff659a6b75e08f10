#pragma once

#include <cstdint>
#include <string>

/// What the system knows of files, directories and file systems. Every operation reports 0, or the `errno`
/// value of what failed.
namespace qm_platform {

enum class FileKind { kPlain, kDirectory, kOther };

/// Times are microseconds since 1970; where the file system keeps no time of creation, the last write stands
/// for it.
struct FileStatus {
  FileKind kind = FileKind::kOther;
  std::uint64_t size = 0;
  std::int64_t creation = 0;
  std::int64_t lastWrite = 0;
  std::int64_t lastAccess = 0;
};

/// Of what a path leads to, or an open file. Any thread.
int statusOfPath(const std::string& path, FileStatus& status) noexcept;
int statusOfFile(int descriptor, FileStatus& status) noexcept;

/// Bytes of a file system.
struct DiskSpace {
  std::uint64_t freeToCaller = 0;
  std::uint64_t total = 0;
  std::uint64_t totalFree = 0;
};

/// Of the file system that holds a path. Any thread.
int diskSpaceOf(const std::string& path, DiskSpace& space) noexcept;

/// The names in a directory, as the system gives them out. One thread at a time.
class DirectoryListing {
 public:
  DirectoryListing() = default;
  ~DirectoryListing();
  DirectoryListing(const DirectoryListing&) = delete;
  DirectoryListing& operator=(const DirectoryListing&) = delete;

  /// Opens a directory; at most once. With `through` set a path that is a symbolic link is followed.
  int open(const std::string& path, bool through = true) noexcept;

  /// Opens a directory inside one that is open, and not through a symbolic link.
  int openInside(const DirectoryListing& parent, const std::string& name) noexcept;

  /// The next name; empty at the end.
  int next(std::string& name);

  /// Of what an entry leads to, or of the entry itself when that is nothing. `link`: whether the entry is a
  /// symbolic link.
  int statusOf(const std::string& name, FileStatus& status, bool& link) const noexcept;

  /// Removes an entry: an empty directory when `directory` says so, anything else otherwise.
  int remove(const std::string& name, bool directory) const noexcept;

 private:
  int openAt(int directory, const std::string& path, int flags) noexcept;
  int descriptor() const noexcept;

  void* m_pDirectory = nullptr;  ///< the system's stream of names; null until opened
};

}  // namespace qm_platform
