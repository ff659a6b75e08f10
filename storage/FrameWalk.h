#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "coreapi/qmci/bitstream.h"
#include "coreapi/qmxml/qmxml.h"
#include "storage/FileInput.h"

class JFileSocket;

/// The frames of a media file of any origin, once from the first to the last, and word of everything that
/// isn't given out: a reader passes over what it can't take and ends at damage, which mustn't go by unnoticed
/// where a file is kept or handed on.
///
/// The index is read into memory, so that a file that shrinks meanwhile can't end the process. One thread.
class FrameWalk {
 public:
  /// Takes a line for what is wrong with a file and doesn't keep its frames from being read.
  using Tell = std::function<void(const std::string& sText)>;

  /// "asf", "avi", "wave" or "mp3".
  static const char* formatOf(const FileInfo& fileInfo) noexcept;

  /// Whether a file's writer came to its end: it has its final header, and its index if its kind has one.
  static bool isFinished(const FileInfo& fileInfo);

  /// Throws the JTextError of a file that isn't of a kind known.
  [[noreturn]] static void refuseKind(const std::string& sFile);

  /// Opens a plain file; `tell` may be empty. Throws JTextError for what isn't a media file of a kind known
  /// or is damaged, and what opening throws.
  FrameWalk(const std::string& sFile, Tell tell);

  /// Goes to the next frame and reads its payload; false behind the last one. Frames that authenticate others
  /// come too. Throws JTextError for a finished file that is damaged, and what reading throws.
  bool next();

  /// The same without the payload; of a file that was cut short the last frame may be counted so that `next`
  /// doesn't give.
  bool pass();

  FileInfo& getFileInfo() const { return m_pInput->getFileInfo(); }
  const FileInput& getInput() const { return *m_pInput; }

  // The frame. Valid until the next one.
  std::uint32_t getStream() const noexcept { return m_uStream; }
  qm_ci::Bitstream& getFrame() noexcept { return m_frame; }
  const qm_ci::Bitstream& getFrame() const noexcept { return m_frame; }

  /// Bytes of its payload, read or passed over.
  std::uint32_t getSize() const noexcept { return m_uSize; }

  /// What was seen of a stream so far, frames that authenticate others left out.
  struct Seen {
    std::uint32_t uFrames = 0;
    std::uint64_t ullFirst = 0;  ///< times, of the first frame and of the last one
    std::uint64_t ullLast = 0;
  };
  const Seen& getSeen(std::uint32_t uStream) const { return m_seen.at(uStream - 1); }

  /// Bytes of payload of all frames so far.
  std::uint64_t getBytes() const noexcept { return m_uBytes; }

 private:
  void take(std::uint32_t uSize);
  std::uint64_t getSoundSize() const;
  void end(int iResult);
  void tell(const std::string& sText) const;

  QMXmlUse m_xml;
  Tell m_tell;
  JFileSocket* m_pFile = nullptr;  ///< belongs to the reader
  std::unique_ptr<FileInput> m_pInput;
  std::vector<Seen> m_seen;  ///< of stream n at n - 1
  bool m_bFinished;
  qm_ci::Bitstream m_frame;
  std::uint32_t m_uStream = 0;
  std::uint32_t m_uSize = 0;
  std::uint64_t m_uBytes = 0;
};
