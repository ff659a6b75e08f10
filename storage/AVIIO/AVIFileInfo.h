#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include "coreapi/qmxml/qmxml.h"
#include "storage/FileInfo.h"
#include "storage/riff.h"

class FileHeadReader;

/// The description of an AVI file: of one that is written, which has a record for the video stream and one
/// for the audio stream, or of one that is read, of whatever origin. Positions in its indexes count from the
/// start of the file.
class AVIFileInfo : public FileInfo {
 public:
  /// Streams that are read of a file; further ones are left out.
  static constexpr std::size_t kMaxStreams = 16;

  /// Of a file that is being written; both streams may still be absent.
  explicit AVIFileInfo(std::string sFileName);

  /// Reads header and index of a file whose start the socket stands at. A file without an index can be
  /// walked. Throws JTextError for what isn't such a file, and for one of several parts (OpenDML), of which
  /// only the first would be seen.
  AVIFileInfo(JFileSocket& socket, const std::string& sName);

  /// Reads the header alone, of a channel that can only be read in sequence; the reader stands at the first
  /// frame chunk then.
  AVIFileInfo(FileHeadReader& reader, const std::string& sName);

  /// Whether frames of a stream have the system's block in front: of the first video stream by its handler.
  virtual bool isCIStream(std::uint32_t uStream) const;

  /// The same of any stream; that of audio is told by the marks in the block.
  bool hasFrameBlocks(std::uint32_t uStream) const;

  /// How the frames of a stream without the system's block follow each other.
  struct Timing {
    std::uint32_t uScale = 0;  ///< with the rate, seconds a unit
    std::uint32_t uRate = 0;
    std::uint32_t uSampleSize = 0;  ///< bytes of a unit; 0 when each frame is one
    std::uint32_t uLength = 0;      ///< units of the whole stream, as the header has it
  };

  /// That of an audio stream; zeros for other streams.
  Timing getAudioTiming(std::uint32_t uStream) const;

  /// Place of the first frame chunk in the file; 0 until it is known.
  std::uint64_t getDataStart() const noexcept { return m_uDataStart; }
  void setDataStart(std::uint64_t uPlace) noexcept { m_uDataStart = uPlace; }

  /// The stream that a chunk of a frame belongs to, from its code, two digits and "dc", "db" or "wb"; 0 for
  /// any other chunk. The system's writer calls sound the second stream, where there is no first one too.
  std::uint32_t streamOfChunk(std::uint32_t uCode) const noexcept;

 protected:
  std::unique_ptr<FileInput> makeInput(std::unique_ptr<JISocket> pSocket) override;

 private:
  void readHeader(FileHeadReader& reader);
  void readStreams(std::span<const std::uint8_t> list);
  void describeStream(std::span<const std::uint8_t> header, std::span<const std::uint8_t> list);
  void describeVideo(std::span<const std::uint8_t> header, std::span<const std::uint8_t> list);
  void describeAudio(std::span<const std::uint8_t> header, std::span<const std::uint8_t> list);
  void setMeanSamplings(std::uint32_t uStream, std::uint32_t uFrames);
  void findMovi(FileHeadReader& reader);
  void readIndex(JFileSocket& socket);
  void takeIndex(JFileSocket& socket, std::span<const std::uint8_t> entries);
  std::uint64_t placesFrom(JFileSocket& socket, std::span<const std::uint8_t> entries) const;
  void dateStream(JFileSocket& socket, std::uint32_t uStream, JTime creation);
  JTime frameTime(JFileSocket& socket, std::uint32_t uStream, std::uint32_t uNumber) const;
  bool findAudioBlocks(JFileSocket& socket) const;

  QMXmlUse m_xml;  ///< descriptions of streams are XML
  std::uint64_t m_uDataStart = 0;
  std::uint32_t m_uVideoHandler = 0;
  std::array<Timing, kMaxStreams> m_audioTimings{};
  bool m_bAudioBlocks = false;
};
