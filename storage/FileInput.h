#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "coreapi/qmci/bitstream.h"
#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/socket/jiosocket.h"
#include "storage/FileInfo.h"

class JFileSocket;

/// Reads the frames of a media file: one after the other, or by number or time. It works through a
/// `FileInfo`, whose index it fills as it walks a file that has none.
///
/// `seekFrame`, `seekTime` and `getNextFrame` place the reader in front of a frame's payload, tell its size,
/// and fill the header of a record if one is given; the payload then comes by `read`, in pieces of any size,
/// or is passed over: what was left of it goes with the next frame. Their results: a frame; a frame behind a
/// wrap to the file's start; a failure; the end of a file.
///
/// One reader is used by one thread. Several may share a description, each with its own socket.
class FileInput {
 public:
  /// Never renumber: hosts see these.
  enum Result : int { kFrame = 0, kWrapped = 1, kFailed = -1, kEnd = -2 };

  /// Whether a file can be read: opens it and tries. What stands against it is logged.
  static bool isValid(const std::string& sName);

  /// A reader with a description of its own, of a file whose start the socket stands at; `sName` is for
  /// messages. The index is read into memory, so that the file may be of any origin. Null for a file of no
  /// kind known. Throws JTextError for a file that isn't whole, and what the socket throws.
  static std::unique_ptr<FileInput> create(std::unique_ptr<JFileSocket> pSocket, bool bLoop,
                                           const std::string& sName = {});

  /// A reader of a channel that can only be read in sequence: nothing but the header is parsed. `iType` 1 is
  /// an ASF file and 3 an AVI file; 0 finds that out from the first word. Null for any other.
  static std::unique_ptr<FileInput> create(std::unique_ptr<JISocket> pSocket, bool bLoop, int iType);

  virtual ~FileInput();
  FileInput(const FileInput&) = delete;
  FileInput& operator=(const FileInput&) = delete;

  /// Whether the first frame follows the last one; so it is at construction.
  virtual void setLoop(bool bLoop) { m_bLoop = bLoop; }

  /// Goes to a frame of a stream by its number; with `bToKeyFrame` to the key frame at or before it, so that
  /// `getLastNumber` may then be lower. `pSize` and `pBitstream` may be null. Throws EndOfFileError, and what
  /// `FileStreamInfo::getPosByNumber` throws; kFailed for a frame that is damaged.
  virtual int seekFrame(std::uint32_t uStream, std::uint32_t uNumber, std::uint32_t* pSize,
                        qm_ci::Bitstream* pBitstream, bool bToKeyFrame);

  /// Goes to the frame of a stream that is in force at a time, likewise.
  virtual int seekTime(std::uint32_t uStream, std::uint32_t* pSize, JTime time, qm_ci::Bitstream* pBitstream,
                       bool bToKeyFrame);

  /// Goes to the next frame of any stream, whose number is stored. A damaged one is passed over and logged,
  /// or ends the file. Without `bKeepAuthentication` frames that authenticate others are passed over too.
  virtual int getNextFrame(std::uint32_t* pStream, std::uint32_t* pSize, qm_ci::Bitstream* pBitstream,
                           bool bKeepAuthentication) = 0;

  /// Reads payload; fewer bytes than asked for only at the end of the file.
  virtual std::size_t read(void* pBuffer, std::size_t uSize) = 0;

  /// Passes over payload.
  virtual void skip(std::size_t uSize) = 0;

  /// Goes back to the first frame. False when the file can't.
  virtual bool rewind() = 0;

  /// `getNextFrame` with the payload: `frame` becomes a packet record of one packet, and grows as needed.
  /// kFailed as well when the payload isn't whole.
  int readNextFrame(std::uint32_t& uStream, qm_ci::Bitstream& frame, bool bKeepAuthentication);

  /// The payload of the frame that the reader stands at, all of its `uSize` bytes: `frame`, whose header was
  /// filled, becomes a packet record of one packet, and grows as needed. False when it isn't whole.
  bool readPayload(std::uint32_t uSize, qm_ci::Bitstream& frame);

  FileInfo& getFileInfo() noexcept { return *m_pFileInfo; }

  /// Number of the frame of a stream that was read last; -1 before the first.
  std::int64_t getLastNumber(std::uint32_t uStream) const;

  // Of the frame read last.
  bool isKeyFrame() const noexcept { return m_bKeyFrame; }
  bool isSynthetic() const noexcept { return m_bSynthetic; }
  bool isAuthentication() const noexcept { return m_bAuthentication; }

  /// Makes the reader a user of its description rather than its owner.
  void share();

 protected:
  /// Over a description that somebody else holds, until `share` or `own` says more.
  FileInput(std::unique_ptr<JISocket> pSocket, FileInfo& fileInfo);

  /// Whether a frame can be one of this file: its stream exists, and its description allows the size. Logs it
  /// otherwise.
  bool isFrameValid(std::uint32_t uStream, std::uint32_t uSize) const;

  /// Throws EndOfFileError for a stream that a file of one stream hasn't.
  static void checkSingleStream(std::uint32_t uStream);

  void setLastNumber(std::uint32_t uStream, std::int64_t iNumber);
  void resetLastNumbers();

  enum class Rounding { kDown, kUp };

  /// The time of a frame by its number alone, from the stream's first date and frame period.
  std::uint64_t timeByPeriod(std::uint32_t uStream, std::uint64_t uNumber,
                             Rounding rounding = Rounding::kUp) const;

  /// The number of the frame that its period puts at or before a time; 0 for a time before the first date.
  std::uint64_t numberByPeriod(std::uint32_t uStream, std::uint64_t ullTime) const;

  /// Puts the numbers of the other streams where they are at a time and a place, so that the file goes on
  /// consistently: a frame of that time that stands further on in the file is still to come.
  void moveOthersTo(std::uint32_t uStream, std::uint64_t ullTime, std::uint64_t ullPosition);

  const std::string& getFileName() const { return m_pFileInfo->getFileName(); }

  bool m_bLoop = true;
  FileInfo* m_pFileInfo;
  std::unique_ptr<JISocket> m_pSocket;
  JFileSocket* m_pFile;  ///< the same socket where it is a file, else null
  bool m_bKeyFrame = true;
  bool m_bSynthetic = false;
  bool m_bAuthentication = false;

 private:
  static std::unique_ptr<FileInput> over(FileInfo::Ptr pFileInfo, std::unique_ptr<JISocket> pSocket,
                                         bool bLoop);

  std::vector<std::int64_t> m_lastNumbers;     ///< of each stream
  std::vector<std::uint32_t> m_largestFrames;  ///< bytes that each stream's description allows
  FileInfo::Ptr m_pOwned;                      ///< the description, unless somebody else holds it
  bool m_bInfoShared = false;
};
