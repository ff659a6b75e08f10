#pragma once

#include <cstdint>
#include <optional>
#include <string>

class FileInfo;

/// What a data stream says of itself that a plug-in computes from another source. A plain value.
struct AnalyticsStream {
  std::string processorName;
  std::string processorType;
  std::string processedSourceName;  ///< the source that was looked at
  std::int32_t gridWidth = 0;
  std::int32_t gridHeight = 0;
};

/// What all files of one archive directory have in common, told by stream 1 of one of them. A plain value.
struct UnitMedia {
  UnitMedia() = default;

  /// What a file says; nothing where it has no stream or the stream no description.
  explicit UnitMedia(const FileInfo& fileInfo);

  std::string sDataType;                     ///< MIME type
  std::uint64_t uFramePeriod = 0;            ///< microseconds, 0: not known
  std::optional<AnalyticsStream> analytics;  ///< of an analytics stream alone
};
