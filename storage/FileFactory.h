#pragma once

#include <memory>

#include "coreapi/qmutils/time/jtime.h"

class FileInput;
class TimeSpan;

/// A source of media files by time: what an archive directory is to those who read recordings.
class FileFactory {
 public:
  virtual ~FileFactory() = default;

  /// Opens the first file that has an instant of a span; mode 1 takes the next one and mode 2 the one before
  /// when there is none. The pointers, each of which may be null, take the span of the file that was opened.
  /// Throws JTextError when no file fits, and what opening throws.
  virtual std::unique_ptr<FileInput> openFile(const TimeSpan& span, JTime* pStart, JTime* pEnd,
                                              int iMode) = 0;

  /// Opens the first file that goes on behind a date, such as the end of the file before: who reads a long
  /// span walks it so. Null when there is none; throws what opening throws, and the pointers are set then, so
  /// that the walk can pass a damaged file over.
  virtual std::unique_ptr<FileInput> openNextFile(JTime after, JTime* pStart, JTime* pEnd) = 0;
};
