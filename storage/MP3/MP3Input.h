#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "storage/FileInput.h"
#include "storage/MP3/MP3FileInfo.h"

/// Reads the frames of a file of MPEG audio. Threads as in `FileInput`.
class MP3Input : public FileInput {
 public:
  MP3Input(std::unique_ptr<JISocket> pSocket, MP3FileInfo& fileInfo);

  int seekFrame(std::uint32_t uStream, std::uint32_t uNumber, std::uint32_t* pSize,
                qm_ci::Bitstream* pBitstream, bool bToKeyFrame) override;
  int seekTime(std::uint32_t uStream, std::uint32_t* pSize, JTime time, qm_ci::Bitstream* pBitstream,
               bool bToKeyFrame) override;
  int getNextFrame(std::uint32_t* pStream, std::uint32_t* pSize, qm_ci::Bitstream* pBitstream,
                   bool bKeepAuthentication) override;
  std::size_t read(void* pBuffer, std::size_t uSize) override;
  void skip(std::size_t uSize) override;
  bool rewind() override;

  /// Place of the frame read last in the file.
  std::uint64_t getFramePosition() const noexcept { return m_ullFrame; }

 private:
  static constexpr std::size_t kBufferSize = 2048;

  std::size_t held() const noexcept { return m_uFilled - m_uTaken; }
  bool refill(std::size_t uWanted);
  std::uint32_t frameSize(const std::uint8_t* pHeader) const noexcept;
  int goTo(std::uint64_t ullPlace, std::uint32_t uNumber, std::uint32_t* pSize, qm_ci::Bitstream* pBitstream);
  void moveTo(std::uint64_t ullPlace);
  void fill(std::uint32_t uNumber, qm_ci::Bitstream* pBitstream);

  MP3FileInfo& m_info;
  std::array<std::uint8_t, kBufferSize> m_buffer{};
  std::size_t m_uTaken = 0;
  std::size_t m_uFilled = 0;
  std::uint64_t m_ullRead = 0;   ///< place in the file of the byte behind the buffer
  std::uint64_t m_ullFrame = 0;  ///< place of the frame read last
  std::size_t m_uPending = 0;    ///< bytes of its payload that are still to pass
};
