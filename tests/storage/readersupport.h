#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "storage/FileInput.h"
#include "tests/storage/writersupport.h"

namespace qm_test {

/// A frame as a reader gave it.
struct Read {
  std::uint32_t uStream = 0;
  std::string sPayload;
  std::uint64_t ullTimeStamp = 0;
  std::uint64_t ullFrameNumber = 0;
  bool bKeyFrame = false;

  bool operator==(const Read&) const = default;
};

std::ostream& operator<<(std::ostream& stream, const Read& read);

/// A reader of a file with a description of its own, which ends at the last frame.
std::unique_ptr<FileInput> readerOf(const std::string& sPath);

/// The payload of the frame that a reader stands at.
std::string payload(FileInput& input, std::uint32_t uSize);

/// All frames that are left, to the end of the file or the first failure.
std::vector<Read> readAll(FileInput& input);
std::vector<Read> framesOf(const std::string& sPath);

/// The same of a file that may be damaged: none of one that can't be opened.
std::vector<Read> framesThereAre(const std::string& sPath);

/// Frame `i` of a stream: its payload begins with both numbers; one in four is a key frame; 40 ms each.
Frame numbered(std::uint32_t uStream, std::uint64_t i, std::size_t size = 50);
Read asRead(std::uint32_t uStream, const Frame& frame);

/// A video stream as `videoStream`, with all that a file's header needs of it.
qm_ci::StreamInfo wholeVideoStream(const std::string& sProperties = {});

/// A date in 2011, microseconds.
inline constexpr std::uint64_t kBegin = 12943612800000000;
inline constexpr std::uint64_t kPeriod = 40'000;

/// Writes an ASF file of one data stream.
void writeAsf(const std::string& sPath, std::uint64_t uFrames, std::size_t size = 50);

}  // namespace qm_test
