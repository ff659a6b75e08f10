#pragma once

#include <string>

#include "storage/FileInfo.h"

/// The description of an AVI file: a record for the video stream and one for the audio stream.
class AVIFileInfo : public FileInfo {
 public:
  /// Of a file that is being written; both streams may still be absent.
  explicit AVIFileInfo(std::string sFileName);
};
