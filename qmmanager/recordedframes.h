#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "coreapi/qmci/bitstream.h"
#include "coreapi/qmci/streaminfo.h"
#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/params/jparams.h"
#include "storage/ArchiveUnit.h"
#include "storage/FileInput.h"
#include "storage/TimeSpan.h"

namespace qm_manager {

/// The recorded frames of a unit's stream 1 within a span, one after the other through all of its files: what
/// a copy consists of.
///
///     video           from the key frame at or before the start, so that the copy can be decoded, as far as
///                     the file that holds the start has one
///     anything else   from the first frame at or behind the start
///
/// to the last frame at or before the end. Frames of hidden spans aren't among them. The file that is being
/// written counts as far as it has got when the walk comes there.
///
/// A file that can't be read is passed over, and so is what follows a damage inside one; the log tells how
/// much. When nothing could be read behind the damage, the recording is cut.
///
/// Holds one frame at a time, which may have `kMaxPayload` bytes; a frame that claims more is passed over.
/// One thread at a time. The unit's mutex is taken while it looks for the next file.
class RecordedFrames {
 public:
  enum class Next {
    kFrame,
    kDescription,  ///< what the frames from now on are; before the first one, and when it changes
    kEnd,
  };

  /// The payload of a frame has to fit the largest frame of a stream, together with its header.
  static constexpr std::uint32_t kMaxPayload = 64U * 1024 * 1024 - qm_ci::Bitstream::m_uMinQMCIBitstreamSize;

  /// `bAuthentication`: frames that authenticate others are taken too.
  RecordedFrames(std::shared_ptr<ArchiveUnit> pUnit, const TimeSpan& span, bool bAuthentication);

  /// Goes on. What this and the accessors give stays until the next call. Throws what shows that the system
  /// is short of memory or descriptors: then the walk has ended, and nothing says what else there is.
  Next next();

  /// Of the stream, its largest frame always given.
  const qm_ci::StreamInfo& getDescription() const noexcept { return *m_description; }

  /// A packet record of one packet.
  qm_ci::Bitstream& getFrame() noexcept { return m_frame; }

  /// Whether recorded frames of the span are missing behind the last one that was given.
  bool isCut() const noexcept { return m_bCut; }

  // Behind a description, of the file that it is from.

  /// When the first frame was taken.
  JTime getFrameDate() const noexcept { return JTime::fromMicroseconds(m_frame.getTimestamp()); }

  /// The stream's own parameters.
  JParams getStreamParams() const;

  /// The program that recorded it; empty when the file doesn't say.
  std::string getAuthoringApp() const;

 private:
  bool advance();
  bool openNext();
  bool goToStart();
  bool goToNumber(std::int64_t iNumber);
  bool skipHidden();
  bool isWanted();
  bool hasSizeOfFrame() const;
  bool isNewDescription() const;
  std::optional<std::int64_t> startNumber() const;
  FileStreamInfo& stream() const;
  void leaveFile();
  void leaveDamaged(JTime from, const char* szReason);
  bool isVisible(JTime from, JTime to) const;
  const TimeSpan* hiddenAt(JTime when) const;

  const std::shared_ptr<ArchiveUnit> m_pUnit;
  const TimeSpan m_span;
  const bool m_bAuthentication;

  JTime m_passed;         ///< everything up to here, included, has been seen to
  TimeSpanList m_hidden;  ///< as it was when the file was opened
  TimeSpan m_fileSpan;    ///< what is taken from the file
  JTime m_lower;          ///< frames of the file before this aren't taken
  bool m_bFirstFile = true;
  bool m_bNewFile = false;  ///< its description wasn't looked at
  std::unique_ptr<FileInput> m_pInput;

  qm_ci::Bitstream m_frame;
  std::uint32_t m_uPayload = 0;  ///< of the frame that the reader stands at
  bool m_bStanding = false;      ///< it is to be given next
  bool m_bGiven = false;         ///< the frame before was one of these; its authentication goes with it
  bool m_bCut = false;
  std::optional<qm_ci::StreamInfo> m_description;
};

/// The description under which a stream is copied: one that doesn't tell its largest frame gets the limit.
qm_ci::StreamInfo describeForCopy(const qm_ci::StreamInfo& info);

/// Whether frames of one stream can stand behind the description of the other.
bool isSameStream(const qm_ci::StreamInfo& described, const qm_ci::StreamInfo& other);

}  // namespace qm_manager
