#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "coreapi/qmutils/time/jtime.h"
#include "qmmanager/mediasurvey.h"
#include "storage/ArchiveUnit.h"
#include "storage/FrameWalk.h"

namespace qm_manager {

/// The dates that a file's recording takes when its first frame gets the date `start`: from the first frame
/// that is recorded to the last. Throws JTextError when they leave the range that hosts may use.
TimeSpan recordedSpan(const MediaSurvey& survey, JTime start);

/// Records the frames of one stream of a media file into a unit: as ASF slices of a given length, each of
/// which begins at a key frame. Frames keep all but their dates, which move together, so that nothing of the
/// file's timing is lost. The stream's description and parameters and the file's own parameters go along, but
/// for those that would tell of another recording ("sourceName", "startTimeStamp", "endTimeStamp").
///
/// A slice is written under a work name, finished, synced and renamed by what it holds before the unit is
/// told of it. Whatever ends the recording early leaves whole slices and no work file; when the process is
/// killed, the work file is left to the unit's recovery.
///
/// One recorder at a time a unit, and one thread a recorder. It takes the unit's mutex now and then.
class Recorder {
 public:
  static constexpr std::uint32_t kDefaultSliceSeconds = 60;

  /// The first frame of the file gets the date `start`. Throws as `recordedSpan`, and JTextError when the
  /// unit holds something of that span.
  Recorder(ArchiveUnit& unit, MediaSurvey survey, JTime start,
           std::uint32_t uSliceSeconds = kDefaultSliceSeconds);
  ~Recorder();
  Recorder(const Recorder&) = delete;
  Recorder& operator=(const Recorder&) = delete;

  /// From the first frame that is recorded to the last.
  const TimeSpan& getSpan() const noexcept { return m_span; }

  /// Records all of the file. When it returns, everything is on the disk. Throws as `FrameWalk::next`,
  /// JTextError "interrupted" when the progress ends it, and what writing throws; what `getSlices` tells
  /// stands then.
  void run(const MediaProgress& progress);

  /// The slices that are recorded, in order.
  const std::vector<Slice>& getSlices() const noexcept { return m_slices; }

  /// Frames in them, without those that authenticate others.
  std::uint64_t getFrames() const noexcept { return m_uFrames; }

  /// The slices that are recorded, in words.
  std::string getSummary() const;

  /// What isn't taken, in words.
  const std::vector<std::string>& getNotes() const noexcept { return m_survey.notes; }

 private:
  class SliceFile;

  void checkFree() const;
  void noteHidden();
  void take(FrameWalk& walk);
  void takeDate(FrameWalk& walk, bool bCounted);
  void endSlice();

  ArchiveUnit& m_unit;
  MediaSurvey m_survey;
  const JTime m_start;
  const std::uint64_t m_uSliceLength;  ///< microseconds
  const TimeSpan m_span;
  std::unique_ptr<SliceFile> m_pFile;  ///< the slice being written
  std::vector<Slice> m_slices;
  std::uint64_t m_uFrames = 0;
  std::uint64_t m_uSeen = 0;     ///< frames of the stream, those in front of the first key frame included
  std::uint64_t m_ullBegin = 0;  ///< time of the first of them in the file
};

}  // namespace qm_manager
