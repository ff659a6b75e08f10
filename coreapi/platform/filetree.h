#pragma once

#include <string>

/// Making, removing, moving and copying of files and directories by their paths. Every operation reports 0,
/// or the `errno` value of what failed. Any thread.
namespace qm_platform {

int makeDirectory(const std::string& path) noexcept;
int removeEmptyDirectory(const std::string& path) noexcept;

/// Removes a directory and all in it, without following symbolic links; stops at the first failure.
/// ENAMETOOLONG when directories stand more than 1000 deep in each other.
int removeTree(const std::string& path);

int deleteFile(const std::string& path) noexcept;

/// Where a path leads: its absolute form, free of symbolic links.
int resolvePath(const std::string& path, std::string& resolved);

/// Gives a file or a directory another name, and syncs the directories. Without `replace` EEXIST when there
/// is something at `to`. A file goes to another file system by `copyFile`.
int moveFile(const std::string& from, const std::string& to, bool replace);

/// Copies a plain file with its permissions and the time of its last write, and syncs it. The copy is made
/// under a work name beside `to` and renamed when it is whole; a failure leaves `to` as it was. Without
/// `replace` EEXIST when there is something at `to`; EINVAL when both are one file or one isn't a plain file,
/// EISDIR when `to` is a directory. A symbolic link at `to` stays, what it leads to is replaced.
int copyFile(const std::string& from, const std::string& to, bool replace);

}  // namespace qm_platform
