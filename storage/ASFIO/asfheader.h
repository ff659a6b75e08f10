#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "coreapi/qmci/streaminfo.h"
#include "coreapi/qmutils/params/jparams.h"
#include "storage/ASFIO/asfformat.h"

/// Making of an ASF file's header. A header is laid out once, when a file is started; what is only known at
/// the end are numbers of fixed width, which are put into the same bytes. So it keeps its length.

/// The file properties that aren't constant.
struct AsfFileProperties {
  std::uint64_t ullCreationDate = 0;  ///< 100 ns since the start of 1601
  std::uint64_t ullLastTime = 0;
  std::uint32_t dwFlags = 0;
  std::uint32_t dwPeakBitRate = 0;  ///< bits a second
  std::uint32_t dwAverageUnit = 0;  ///< bytes
  std::uint32_t dwLargestUnit = 0;
  std::uint32_t dwFrameCount = 0;
  std::uint16_t wStreamCount = 0;
};

/// The numbers of a stream's properties that are known at the end.
struct AsfStreamStatistics {
  std::uint64_t ullFirstDate = 0;
  std::uint64_t ullLastDate = 0;
  std::uint32_t dwAverageBitRate = 0;  ///< bits a second
  std::uint32_t dwPeakBitRate = 0;
  std::uint32_t dwAverageUnit = 0;  ///< bytes
  std::uint32_t dwLargestUnit = 0;
};

/// A stream, as the header describes it.
struct AsfStreamDescription {
  const qm_ci::StreamInfo* pStreamInfo;
  const JParams* pParams;
  double framesPerSecond;
};

/// A header object, and where the stream properties objects stand in it. The file properties object stands at
/// `asf_layout::file_properties::kPlace`.
struct AsfHeader {
  std::vector<std::uint8_t> bytes;
  std::vector<std::size_t> streamsAt;
};

/// Lays out the header of a file, the streams in the order of their numbers from 1, with statistics of 0.
/// Throws JTextError for what a header can't hold: too many streams, a description that is too long, a header
/// above `asf_layout::kMaxHeaderSize`.
AsfHeader makeAsfHeader(const AsfFileProperties& properties, std::span<const AsfStreamDescription> streams,
                        const JParams& fileParams);

/// Writes the numbers into a file properties object.
void writeAsfFileProperties(const AsfFileProperties& properties, std::uint8_t* pObject) noexcept;

/// Writes the numbers into a stream properties object.
void writeAsfStreamStatistics(const AsfStreamStatistics& statistics, std::uint8_t* pObject) noexcept;

/// Writes the head of an object, 24 bytes.
void writeAsfObjectHead(const asf_layout::Guid& id, std::uint64_t uSize, std::uint8_t* pTo) noexcept;
