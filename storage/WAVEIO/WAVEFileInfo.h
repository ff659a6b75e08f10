#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include "storage/FileInfo.h"

/// The description of a WAVE file, which has one audio stream. Its frames are steps of equal size; there is
/// no index.
class WAVEFileInfo : public FileInfo {
 public:
  /// Of a file that is being written; the stream may still be absent.
  explicit WAVEFileInfo(std::string sFileName);

  /// Reads the header of a file whose start the socket stands at: PCM, G.711 or G.726. An audio size of 0
  /// says that the file is still being written. Throws JTextError for what isn't such a file.
  WAVEFileInfo(JFileSocket& socket, const std::string& sName);

  /// Dates the file.
  void rebuildIndex(bool bWriteBack, FileProgress* pProgress, JTime date) override;

  /// Bytes of one index step; 0 until the stream is known.
  std::uint32_t getFrameBytes() const noexcept { return m_uFrameBytes; }
  void setFrameBytes(std::uint32_t uBytes) noexcept { m_uFrameBytes = uBytes; }

  /// Place of the audio in the file.
  std::uint32_t getDataStart() const noexcept { return m_uDataStart; }
  void setDataStart(std::uint32_t uPlace) noexcept { m_uDataStart = uPlace; }

 protected:
  std::unique_ptr<FileInput> makeInput(std::unique_ptr<JISocket> pSocket) override;

 private:
  void readFormat(std::span<const std::uint8_t> format);
  void beginData(std::uint32_t uPlace, std::uint32_t uSize, std::uint64_t ullThere);

  std::uint32_t m_uFrameBytes = 0;
  std::uint32_t m_uDataStart = 0;
};
