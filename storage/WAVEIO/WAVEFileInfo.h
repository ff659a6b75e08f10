#pragma once

#include <cstdint>
#include <string>

#include "storage/FileInfo.h"

/// The description of a WAVE file, which has one audio stream. Its frames are steps of equal size; there is
/// no index.
class WAVEFileInfo : public FileInfo {
 public:
  /// Of a file that is being written; the stream may still be absent.
  explicit WAVEFileInfo(std::string sFileName);

  /// Bytes of one index step; 0 until the stream is known.
  std::uint32_t getFrameBytes() const noexcept { return m_uFrameBytes; }
  void setFrameBytes(std::uint32_t uBytes) noexcept { m_uFrameBytes = uBytes; }

  /// Place of the audio in the file.
  std::uint32_t getDataStart() const noexcept { return m_uDataStart; }
  void setDataStart(std::uint32_t uPlace) noexcept { m_uDataStart = uPlace; }

 private:
  std::uint32_t m_uFrameBytes = 0;
  std::uint32_t m_uDataStart = 0;
};
