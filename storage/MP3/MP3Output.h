#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "storage/FileOutput.h"
#include "storage/MP3/MP3FileInfo.h"

/// Writes a file of MPEG audio with a trailer, laid out as `MP3/mp3format.h` tells. Everything is written in
/// order, so that the file can go to a pipe.
class MP3Output : public FileOutput {
 public:
  MP3Output(std::unique_ptr<JSocket> pSocket, const std::string& sFileName);

  /// Parameters of the one stream, whatever the number.
  JParams* getStreamParams(std::uint32_t uStreamNumber) override;
  ~MP3Output() override;

  /// Returns 1. Throws JTextError for a stream that isn't MP3, and for a second one.
  std::uint32_t addStream(const qm_ci::StreamInfo& streamInfo) override;

  void writeFrame(std::uint32_t uStreamNumber, const qm_ci::ConstBitstream& oCIBitstream, std::uint32_t uTime,
                  std::uint32_t uReserved) override;

 private:
  std::vector<std::uint8_t> makeTrailer() const;
};
