#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "coreapi/qmci/bitstream.h"
#include "coreapi/qmutils/socket/jfilesocket.h"
#include "storage/FileOutput.h"
#include "tests/coreapi/qmci/streamsamples.h"
#include "tests/support/tempdir.h"

namespace qm_test {

/// What a test says of a frame; the rest of its header follows from the number.
struct Frame {
  std::string sPayload;
  std::uint64_t ullTimeStamp = 0;
  std::uint64_t ullFrameNumber = 0;
  std::uint16_t wPictureType = 1;
  std::uint16_t wAccessFlags = 0;
};

/// Writes one frame. Its decoder pipe is 5, its extra word 0x1234.
void write(FileOutput& output, std::uint32_t uStream, const Frame& frame, std::uint32_t uTime = 0);

/// A writer of a type onto a new file.
std::unique_ptr<FileOutput> writerOf(const std::string& sType, const std::string& sPath);

/// Bytes written as hexadecimal digits, blanks between them.
std::string hex(const std::string& sDigits);

inline std::string zeros(std::size_t count) {
  return std::string(count, '\0');
}

/// Little-endian numbers as bytes, and read from bytes.
std::string le(std::uint64_t uValue, int iWidth);
std::uint64_t at(const std::string& sBytes, std::size_t place, int iWidth);

/// The output of a command, its error output left out.
std::string runTool(const std::string& sCommand);

}  // namespace qm_test
