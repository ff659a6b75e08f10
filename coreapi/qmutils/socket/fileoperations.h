#pragma once

#include <cstdint>
#include <string>

#include "coreapi/qmutils/time/jtime.h"

/// What is done with files and directories by their paths. Paths are UTF-8 with "/" between their parts.
/// Failures are JSysError with an `errno` value and the label given at each operation. No shared state; any
/// thread.
namespace qm_utils {

/// What stands at a path. Never renumber: hosts see these numbers.
enum FileType : std::uint32_t {
  kPlainFile = 1,
  kDirectory = 2,
  kSystemEntry = 3,  ///< a device, a pipe, a socket
};

/// What the system knows of a file: its type, its size in bytes, and when it was created, last written and
/// last read. Where the file system keeps no time of creation, the last write stands for it. Every pointer
/// may be null. Separators at the end of a path of 4 characters and more are taken off. Throws
/// "FindFirstFile".
void getFileInfo(const std::string& sPath, std::uint32_t* pType, std::uint64_t* pSize = nullptr,
                 JTime* pCreation = nullptr, JTime* pLastWrite = nullptr, JTime* pLastAccess = nullptr);

/// Bytes of the file system that holds a path: those that the caller may still use, all, and all unused ones.
/// Every pointer may be null. Throws "GetDiskFreeSpaceEx".
void getDiskFreeSpace(const std::string& sPath, std::uint64_t* pFreeToCaller, std::uint64_t* pTotal = nullptr,
                      std::uint64_t* pTotalFree = nullptr);

/// Makes one directory. Throws "CreateDirectory("PATH")".
void createDirectory(const std::string& sPath);

/// Makes a directory and those above it that are missing. Throws "FindFirstFile" when nothing stands at the
/// path in the end.
void createDirectories(const std::string& sPath);

/// Removes an empty directory, or with `bRecursive` one with all that it holds; symbolic links are removed,
/// not followed. Throws "RemoveDirectory", with `bRecursive` "SHFileOperation", when the first thing can't be
/// removed; the rest then stands.
void removeDirectory(const std::string& sPath, bool bRecursive);

/// Sum of the sizes of all plain files under a directory; it is returned and added to `*pTotal` (unless that
/// is null). Symbolic links to directories aren't followed. Throws as `JDirectoryIterator`; `*pTotal` then
/// holds what was counted so far.
std::uint64_t getDirectorySize(const std::string& sPath, std::uint64_t* pTotal = nullptr);

/// The process's current directory. Throw "GetCurrentDirectory", "SetCurrentDirectory".
std::string getCurrentDirectory();
void setCurrentDirectory(const std::string& sPath);

/// The directory for temporary files, without a separator at its end.
std::string getTempPath();

/// Moves a file, or within a file system a directory, and returns when the new name is on the disk. Without
/// `bReplace` a target that exists is a failure (EEXIST). To another file system a file is copied first,
/// under a work name, so that the target is at any time the old or the whole new one. Throws "MoveFileEx".
void moveFile(const std::string& sFrom, const std::string& sTo, bool bReplace);

/// Copies a file with its permissions and the time of its last write, and returns when the copy is on the
/// disk. The copy takes its name when it is whole: a failure leaves the target as it was. Without `bReplace`
/// a target that exists is a failure (EEXIST). Throws "CopyFile".
void copyFile(const std::string& sFrom, const std::string& sTo, bool bReplace);

/// Deletes a file. Throws "DeleteFile".
void deleteFile(const std::string& sPath);

}  // namespace qm_utils
