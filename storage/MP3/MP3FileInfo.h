#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "storage/FileInfo.h"

/// The description of a file of MPEG audio, which has one audio stream.
class MP3FileInfo : public FileInfo {
 public:
  /// Of a file that is being written, with an index that grows as frames pass; the stream may still be
  /// absent.
  explicit MP3FileInfo(std::string sFileName);

  /// Reads the first frame's header and the trailer of a file whose start the socket stands at. A file
  /// without a trailer is dated from its creation, and its index grows as it is walked. Throws JTextError for
  /// what isn't such a file.
  MP3FileInfo(JFileSocket& socket, const std::string& sName, bool bMapIndex);

  /// Walks the file; the frame that it saw last is left out. Nothing is written: the index stays in memory.
  void rebuildIndex(bool bWriteBack, FileProgress* pProgress, JTime date) override;

  /// Of the first frame: samplings, each of all channels, and bytes without padding.
  std::uint32_t getFrameSamples() const noexcept { return m_uFrameSamples; }
  std::uint32_t getFrameBytes() const noexcept { return m_uFrameBytes; }

  /// Samplings a second.
  std::uint32_t getSampleRate() const noexcept { return m_uSampleRate; }

 protected:
  std::unique_ptr<FileInput> makeInput(std::unique_ptr<JISocket> pSocket) override;

 private:
  void describe(const std::uint8_t* pHeader);
  void readTrailer(JFileSocket& socket, bool bMapIndex);
  void readIndex(JFileSocket& socket, std::uint64_t& ullEnd, bool bMapIndex);
  void readParams(JFileSocket& socket, std::uint64_t& ullEnd);

  std::uint32_t m_uFrameSamples = 0;
  std::uint32_t m_uFrameBytes = 0;
  std::uint32_t m_uSampleRate = 0;
};
