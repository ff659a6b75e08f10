#pragma once

#include <memory>

#include "coreapi/qmutils/time/jtime.h"

class FileInput;
class TimeSpan;

/// A source of media files by time: what an archive directory is to those who read recordings.
class FileFactory {
 public:
  virtual ~FileFactory() = default;

  /// Opens the file that holds a span; mode 1 takes the next one and mode 2 the one before when none fits
  /// exactly. The pointers take the span of the file that was opened.
  virtual std::unique_ptr<FileInput> openFile(const TimeSpan& span, JTime* pStart, JTime* pEnd,
                                              int iMode) = 0;
};
