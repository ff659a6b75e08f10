#pragma once

#include <string>

namespace qm_platform {

/// The process's current directory; 0 or an `errno` value. Any thread.
int currentDirectory(std::string& path);
int changeDirectory(const std::string& path) noexcept;

/// The directory for temporary files: $TMPDIR, else /tmp; without a slash at its end unless it is the root.
std::string temporaryDirectory();

/// A path that stays the same when the current directory changes; 0 or an `errno` value.
int absolutePath(const std::string& path, std::string& absolute);

/// The directory in which a path's last part stands: "." when the path has no other.
std::string directoryOf(const std::string& path);

}  // namespace qm_platform
