#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace qm_manager {

/// Told how far a long work on a file is, bytes of its media of all; of all 0 while that isn't known. It ends
/// the work by returning false, which then throws JTextError "interrupted". Comes on the thread that works.
using MediaProgress = std::function<bool(std::uint64_t uDone, std::uint64_t uAll)>;

/// What a media file has for a recording, found by a walk through all of its frames before anything is
/// recorded. A plain value.
///
/// One stream is recorded: the first one of pictures, else the first of sound, else the first of data.
struct MediaSurvey {
  std::string sFile;
  std::uint32_t uStream = 0;

  /// Pictures a second, rounded, at least 1; 0 for streams that have none. Empty for pictures whose rate the
  /// file doesn't tell.
  std::optional<std::int32_t> fps;

  /// Whether the times of the frames are dates that stand in the file itself, rather than counted from the
  /// rate.
  bool bDated = false;

  /// Whether a reader may start at every frame, marked or not: of sound, and of data without marks.
  bool bStartsAnywhere = false;

  std::uint64_t uLeading = 0;  ///< in front of the first key frame, which aren't recorded
  std::uint64_t ullBegin = 0;  ///< time of the stream's first frame, microseconds
  std::uint64_t ullFirst = 0;  ///< of the first one that is recorded
  std::uint64_t ullLast = 0;   ///< of the last one
  std::uint64_t uBytes = 0;    ///< of all streams

  std::vector<std::string> notes;  ///< what isn't taken, in words
};

/// Walks through a file. Throws JTextError for a file that can't be recorded: without a frame of a stream
/// known, with pictures but no key frame, with times that go back or that aren't there; and as `FrameWalk`.
MediaSurvey surveyMedia(const std::string& sFile, const MediaProgress& progress);

/// Throws JTextError "interrupted" when the progress, which may be empty, ends the work.
void goOn(const MediaProgress& progress, std::uint64_t uDone, std::uint64_t uAll);

}  // namespace qm_manager
