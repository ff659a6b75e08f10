#pragma once

#include <cstdint>
#include <string>

#include "storage/FileInfo.h"

/// The description of an AVI file: a record for the video stream and one for the audio stream.
class AVIFileInfo : public FileInfo {
 public:
  /// Of a file that is being written; both streams may still be absent.
  explicit AVIFileInfo(std::string sFileName);

  /// Place of the first frame chunk in the file; 0 until it is known.
  std::uint64_t getDataStart() const noexcept { return m_uDataStart; }
  void setDataStart(std::uint64_t uPlace) noexcept { m_uDataStart = uPlace; }

 private:
  std::uint64_t m_uDataStart = 0;
};
