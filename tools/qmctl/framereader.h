#pragma once

#include <cstdint>
#include <functional>
#include <iosfwd>
#include <memory>
#include <span>
#include <string>

#include "coreapi/qmci/bitstream.h"
#include "storage/FrameWalk.h"

namespace qmctl {

/// Runs a step on a file. What it throws comes out as a `Failure` (failed) with the file's name in front.
void onFile(const std::string& sFile, const std::function<void()>& step);

/// The frames of a media file of any origin, from the first to the last, with their payload.
class FrameReader {
 public:
  /// Opens a file. Throws `Failure` for what isn't a media file of a kind known, is damaged or can't be
  /// opened. `error` takes a line for what is wrong with the file and doesn't keep its frames from being
  /// read.
  FrameReader(std::string sFile, std::ostream& error);

  /// Goes to the next frame; false behind the last one. Frames that authenticate others come too. Throws
  /// `Failure` for a finished file that is damaged.
  bool next();

  FileInfo& getFileInfo() const { return m_pWalk->getFileInfo(); }
  const FileInput& getInput() const { return m_pWalk->getInput(); }

  // The frame. Valid until the next one.
  std::uint32_t getStream() const noexcept { return m_pWalk->getStream(); }
  const qm_ci::Bitstream& getFrame() const noexcept { return m_pWalk->getFrame(); }
  std::span<const std::uint8_t> getPayload() const noexcept {
    return {getFrame().getPacketData(0), m_pWalk->getSize()};
  }

  /// See FrameWalk.
  const FrameWalk::Seen& getSeen(std::uint32_t uStream) const { return m_pWalk->getSeen(uStream); }

  /// Bytes of payload that have been read.
  std::uint64_t getBytesRead() const noexcept { return m_pWalk->getBytes(); }

 private:
  std::string m_sFile;
  std::unique_ptr<FrameWalk> m_pWalk;
};

/// Tells of a file on standard error.
void tellOf(std::ostream& error, const std::string& sFile, const std::string& sText);

}  // namespace qmctl
