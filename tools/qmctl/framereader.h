#pragma once

#include <cstdint>
#include <functional>
#include <iosfwd>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "coreapi/qmci/bitstream.h"
#include "coreapi/qmxml/qmxml.h"
#include "storage/FileInput.h"

namespace qmctl {

/// Runs a step on a file. What it throws comes out as a `Failure` (failed) with the file's name in front.
void onFile(const std::string& sFile, const std::function<void()>& step);

/// "asf", "avi", "wave" or "mp3".
const char* formatOf(const FileInfo& fileInfo) noexcept;

/// Throws the `Failure` of a file that isn't of a kind known.
[[noreturn]] void refuseKind(const std::string& sFile);

/// Whether a file's writer came to its end: it has its final header, and its index if its kind has one.
bool isFinished(const FileInfo& fileInfo);

/// The frames of a media file of any origin, from the first to the last, with their payload. Its index is
/// read into memory, so that a file that shrinks meanwhile can't end the process.
class FrameReader {
 public:
  /// Opens a file. Throws `Failure` for what isn't a media file of a kind known, is damaged or can't be
  /// opened. `error` takes a line for what is wrong with the file and doesn't keep its frames from being
  /// read.
  FrameReader(std::string sFile, std::ostream& error);

  /// Goes to the next frame; false behind the last one. Frames that authenticate others come too. Throws
  /// `Failure` for a finished file that is damaged.
  bool next();

  FileInfo& getFileInfo() const { return m_pInput->getFileInfo(); }
  const FileInput& getInput() const { return *m_pInput; }

  // The frame. Valid until the next one.
  std::uint32_t getStream() const noexcept { return m_uStream; }
  const qm_ci::Bitstream& getFrame() const noexcept { return m_frame; }
  std::span<const std::uint8_t> getPayload() const noexcept { return m_payload; }

  /// What was seen of a stream so far, frames that authenticate others left out.
  struct Seen {
    std::uint32_t uFrames = 0;
    std::uint64_t ullFirst = 0;  ///< times, of the first frame and of the last one
    std::uint64_t ullLast = 0;
  };
  const Seen& getSeen(std::uint32_t uStream) const { return m_seen.at(uStream - 1); }

  /// Bytes of payload that have been read.
  std::uint64_t getBytesRead() const noexcept { return m_uBytes; }

 private:
  std::uint64_t getSoundSize() const;
  void count();
  void end(int iResult);
  void tell(const std::string& sText);

  QMXmlUse m_xml;
  std::string m_sFile;
  std::ostream& m_error;
  JFileSocket* m_pFile = nullptr;  ///< belongs to the reader
  std::unique_ptr<FileInput> m_pInput;
  std::vector<Seen> m_seen;  ///< of stream n at n - 1
  bool m_bFinished;
  qm_ci::Bitstream m_frame;
  std::uint32_t m_uStream = 0;
  std::span<const std::uint8_t> m_payload;
  std::uint64_t m_uBytes = 0;
};

}  // namespace qmctl
