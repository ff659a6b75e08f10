#pragma once

#include <cstdint>
#include <string>
#include <string_view>

/// What may be done with a stored file.
struct FileAttributes {
  bool allowRecording = true;
  bool original = true;
  bool crc = false;
  std::int32_t scrambling = -1;  ///< -1: none

  bool operator==(const FileAttributes&) const = default;

  /// "allowRecording=1", "original=1", "crc=0" and "scrambling=-1", with a separator between two.
  std::string toText(std::string_view sSeparator) const;
};
