#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "storage/FileInfo.h"
#include "storage/TimeSpan.h"

/// One media file of an archive directory, and the span that it holds as the directory's index tells it. A
/// plain value.
///
/// Its file is named by what it holds, so that a directory is indexed by its names alone:
///
///     YYYYMMDD-HHMMSSuuuuuu-YYYYMMDD-HHMMSSuuuuuu-SSSSSSSSSSSS.ext
///
/// the dates of the first and of the last frame in UTC, down to the microsecond, the file's size in bytes,
/// filled up to 12 digits, and the extension with its point. This class has the one writer and the one reader
/// of such names.
class Slice {
 public:
  /// What a name tells.
  struct Name {
    TimeSpan span;
    std::uint64_t uSize = 0;  ///< bytes
    std::string_view sExtension;
  };

  /// The largest size that fits its 12 digits; the name of a larger file has more of them.
  static constexpr std::uint64_t kMaxNamedSize = 999'999'999'999;

  Slice(const TimeSpan& span, std::string sPath, std::uint64_t uSize);
  Slice(const Slice&) = default;
  Slice& operator=(const Slice&) = default;
  virtual ~Slice() = default;

  const TimeSpan& getSpan() const noexcept { return m_span; }
  const std::string& getPath() const noexcept { return m_sPath; }

  /// Bytes of the file.
  std::uint64_t getSize() const noexcept { return m_uSize; }

  /// The file's description, from the process's cache. Null when it isn't a media file of a kind known.
  /// Throws what opening throws.
  FileInfo::Ptr getFileInfo() const;

  /// The bytes of a slice that a part of its span takes, taken as spread evenly over it.
  std::uint64_t getSizeWithin(const TimeSpan& part) const noexcept;

  /// The name of a file. `sExtension` begins with a point, or is empty. A size above `kMaxNamedSize` is
  /// logged.
  static std::string computeFileName(const TimeSpan& span, std::uint64_t uSize, std::string_view sExtension);

  /// Reads a name back; the extension lies in `sFileName`. None for what `computeFileName` doesn't make:
  /// other characters, days that there aren't, an end before the start.
  static std::optional<Name> parseFileName(std::string_view sFileName) noexcept;

 private:
  friend class SliceMap;

  TimeSpan m_span;
  std::string m_sPath;
  std::uint64_t m_uSize;
};
