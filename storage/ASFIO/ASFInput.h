#pragma once

#include <cstdint>
#include <memory>

#include "coreapi/qmutils/socket/jdirectiosocket.h"
#include "storage/ASFIO/ASFFileInfo.h"
#include "storage/FileInput.h"

/// Reads the payload bytes of a file, from a plain socket as they are asked for, and from one with an
/// alignment in whole blocks that hold a few more. Belongs to one thread.
class UnitSource {
 public:
  /// `uAlignment` 0 reads plainly. The socket outlives the object.
  UnitSource(JISocket& socket, std::uint32_t uAlignment);

  /// As `qm_utils::readFully` and `skipBytes`.
  std::size_t read(void* pBuffer, std::size_t uSize);
  bool skip(std::uint64_t uSize);

  /// The socket was moved elsewhere.
  void drop() noexcept { m_uTaken = m_uFilled = 0; }

 private:
  JISocket& m_socket;
  std::uint32_t m_uAlignment;
  qm_utils::AlignedBuffer m_pBlocks;  ///< what was read in whole blocks
  std::size_t m_uTaken = 0;
  std::size_t m_uFilled = 0;
};

/// Reads the frames of an ASF file of any kind. Threads as in `FileInput`.
class ASFInput : public FileInput {
 public:
  /// A socket with an alignment reads past the system's cache: throws JTextError "File not aligned for direct
  /// i/o" and "File alignment not compatible with direct i/o" for files that weren't written for it.
  ASFInput(std::unique_ptr<JISocket> pSocket, ASFFileInfo& fileInfo);

  int seekFrame(std::uint32_t uStream, std::uint32_t uNumber, std::uint32_t* pSize,
                qm_ci::Bitstream* pBitstream, bool bToKeyFrame) override;
  int seekTime(std::uint32_t uStream, std::uint32_t* pSize, JTime time, qm_ci::Bitstream* pBitstream,
               bool bToKeyFrame) override;
  int getNextFrame(std::uint32_t* pStream, std::uint32_t* pSize, qm_ci::Bitstream* pBitstream,
                   bool bKeepAuthentication) override;
  std::size_t read(void* pBuffer, std::size_t uSize) override;
  void skip(std::size_t uSize) override;
  bool rewind() override;

  /// Works the times of frames out from the frame periods rather than reading them.
  void setTimesFromPeriods(bool bOn) noexcept { m_bTimesFromPeriods = bOn; }

  /// Place of the frame read last in the media data.
  std::uint64_t getFramePosition() const noexcept { return m_uFramePosition; }

 private:
  /// What the head of a data unit says.
  struct Unit {
    std::uint32_t uStream = 0;  ///< 0 for one that doesn't exist
    std::uint32_t uPayload = 0;
    std::uint64_t ullTimeStamp = 0;
    std::uint64_t ullFrameNumber = 0;
    std::uint16_t wPictureType = 0;
    std::uint16_t wAccessFlags = 0;
    std::uint32_t dwDecoderPipe = 0;
    bool bKeyFrame = false;
    bool bSynthetic = false;
    bool bAuthentication = false;
  };

  enum class Head { kWhole, kShort, kDamaged };

  Head readHead(Unit& unit);
  void readHead2(const std::uint8_t* pHead, Unit& unit) const;
  void readHead1(const std::uint8_t* pHead, Unit& unit) const;
  bool readHead0(const std::uint8_t* pHead, Unit& unit);
  std::uint32_t streamOfUnit(std::uint16_t wNumber) const noexcept;
  std::uint64_t behind(std::uint64_t uPosition, const Unit& unit) const noexcept;
  void enter(std::uint64_t uPosition, std::uint64_t uNext) noexcept;
  int goTo(std::uint32_t uStream, std::uint32_t uNumber, std::uint64_t uPosition, std::uint32_t* pSize,
           qm_ci::Bitstream* pBitstream);
  const FileStreamInfo& indexedStream(std::uint32_t uStream) const;
  /// Of a unit that is frame `iNumber` of its stream; kind 0 has no other number.
  void settleFlags(Unit& unit, std::int64_t iNumber) const;
  bool workOutKeyFrame(const Unit& unit) const;
  void settleTime(Unit& unit, std::int64_t iNumber) const;
  void fill(const Unit& unit, qm_ci::Bitstream* pBitstream) const;
  void addToIndex(const Unit& unit, std::int64_t iNumber, std::uint64_t uPosition);
  int atEnd(bool& bWrapped);
  int wrap(bool& bWrapped);
  bool rewindInSequence();

  ASFFileInfo& m_info;
  UnitSource m_source;
  std::uint64_t m_uPosition = 0;       ///< of the next data unit in the media data
  std::uint64_t m_uFramePosition = 0;  ///< of the one read last
  std::uint64_t m_uPending = 0;        ///< bytes of payload and padding in front of the next data unit
  std::uint32_t m_uExtra = 0;          ///< word that goes with the frame read last
  bool m_bTimesFromPeriods = false;
};
