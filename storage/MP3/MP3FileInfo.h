#pragma once

#include <string>

#include "storage/FileInfo.h"

/// The description of a file of MPEG audio, which has one audio stream.
class MP3FileInfo : public FileInfo {
 public:
  /// Of a file that is being written, with an index that grows as frames pass; the stream may still be
  /// absent.
  explicit MP3FileInfo(std::string sFileName);
};
