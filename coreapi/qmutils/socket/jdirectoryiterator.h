#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "coreapi/qmutils/time/jtime.h"

namespace qm_platform {
class DirectoryListing;
}

/// Lists a directory, "." and ".." included, in the order of the file system. One thread at a time.
///
/// An entry that disappears while the directory is listed may be missing; nothing else is left out. Names are
/// matched byte by byte, letter case included: "*" stands for any bytes, "?" for one, everything else for
/// itself, and the pattern "*.*" for every name. An empty directory is the current one.
class JDirectoryIterator {
 public:
  /// Separators at the end of the directory are taken off. The first `next` opens the listing.
  JDirectoryIterator(const std::string& sDirectory, const std::string& sPattern);
  ~JDirectoryIterator();
  JDirectoryIterator(const JDirectoryIterator&) = delete;
  JDirectoryIterator& operator=(const JDirectoryIterator&) = delete;

  /// Name of the next entry, UTF-8, valid until the next call; null at the end. The pointers, each of which
  /// may be null, take what `qm_utils::getFileInfo` tells. A symbolic link is told as what it leads to, or as
  /// a system entry when that is nothing. Throws JSysError "FindFirstFile" when the directory can't be
  /// opened, "FindNextFile" for a failure further on.
  const char* next(std::uint32_t* pType = nullptr, std::uint64_t* pSize = nullptr, JTime* pCreation = nullptr,
                   JTime* pLastWrite = nullptr, JTime* pLastAccess = nullptr);

  /// Whether the entry that `next` returned last, asked for more than its name, is a symbolic link:
  /// descending into it could go in circles.
  bool isLink() const;

  /// Closes the listing; the next call of `next` starts anew.
  void rewind();

 private:
  std::string m_sDirectory;
  std::string m_sPattern;
  std::unique_ptr<qm_platform::DirectoryListing> m_pListing;  ///< null until the first `next`
  std::string m_sName;
  bool m_bLink = false;
};
