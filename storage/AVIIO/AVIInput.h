#pragma once

#include <array>
#include <cstdint>
#include <memory>

#include "storage/AVIIO/AVIFileInfo.h"
#include "storage/FileInput.h"

/// Reads the frames of an AVI file, of this system or of others. Threads as in `FileInput`.
class AVIInput : public FileInput {
 public:
  AVIInput(std::unique_ptr<JISocket> pSocket, AVIFileInfo& fileInfo);

  int seekFrame(std::uint32_t uStream, std::uint32_t uNumber, std::uint32_t* pSize,
                qm_ci::Bitstream* pBitstream, bool bToKeyFrame) override;

  /// A time before the stream's first date is a JTextError "seek before start".
  int seekTime(std::uint32_t uStream, std::uint32_t* pSize, JTime time, qm_ci::Bitstream* pBitstream,
               bool bToKeyFrame) override;
  int getNextFrame(std::uint32_t* pStream, std::uint32_t* pSize, qm_ci::Bitstream* pBitstream,
                   bool bKeepAuthentication) override;
  std::size_t read(void* pBuffer, std::size_t uSize) override;
  void skip(std::size_t uSize) override;

  /// Throws JTextError for a file that isn't there any more as it was.
  bool rewind() override;

 private:
  struct Chunk {
    std::uint32_t uCode = 0;
    std::uint32_t uSize = 0;
  };

  bool readChunk(Chunk& chunk);
  int enter(std::uint32_t uStream, std::uint32_t uNumber, const Chunk& chunk, std::uint32_t* pSize,
            qm_ci::Bitstream* pBitstream);
  bool readFrameBlock(std::uint32_t& uPayload, qm_ci::Bitstream* pBitstream);
  void describeForeign(std::uint32_t uStream, std::uint32_t uNumber, qm_ci::Bitstream* pBitstream);
  void rewindInSequence();
  bool isChunkValid(std::uint32_t uStream, std::uint32_t uSize) const;
  bool isPast(std::uint64_t ullPlace) const;
  std::uint64_t foreignTime(std::uint32_t uStream, std::uint32_t uNumber) const;
  void moveAudioTo(std::uint32_t uStream, std::uint64_t ullTime);

  AVIFileInfo& m_info;
  std::uint64_t m_ullPlace;                                            ///< of the next chunk in the file
  std::uint64_t m_ullPending = 0;                                      ///< bytes in front of it
  std::array<std::uint64_t, AVIFileInfo::kMaxStreams> m_audioBytes{};  ///< of each stream, read so far
};
