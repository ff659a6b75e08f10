#pragma once

#include <cstdint>
#include <memory>

#include "storage/FileInput.h"
#include "storage/WAVEIO/WAVEFileInfo.h"

/// Reads a WAVE file in steps of equal size. Threads as in `FileInput`.
class WAVEInput : public FileInput {
 public:
  WAVEInput(std::unique_ptr<JISocket> pSocket, WAVEFileInfo& fileInfo);

  /// Throws JTextError "seek past end".
  int seekFrame(std::uint32_t uStream, std::uint32_t uNumber, std::uint32_t* pSize,
                qm_ci::Bitstream* pBitstream, bool bToKeyFrame) override;
  int seekTime(std::uint32_t uStream, std::uint32_t* pSize, JTime time, qm_ci::Bitstream* pBitstream,
               bool bToKeyFrame) override;
  int getNextFrame(std::uint32_t* pStream, std::uint32_t* pSize, qm_ci::Bitstream* pBitstream,
                   bool bKeepAuthentication) override;

  /// Always fills the buffer: what the file doesn't have is silence.
  std::size_t read(void* pBuffer, std::size_t uSize) override;
  void skip(std::size_t uSize) override;
  bool rewind() override;

 private:
  void moveTo(std::uint32_t uNumber);
  bool hasMore();

  WAVEFileInfo& m_info;
  std::uint64_t m_ullAt = 0;    ///< place in the audio
  std::uint64_t m_ullNext = 0;  ///< of the next step
};
