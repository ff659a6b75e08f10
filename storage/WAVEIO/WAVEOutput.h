#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "storage/FileOutput.h"
#include "storage/WAVEIO/WAVEFileInfo.h"

/// Writes a WAVE file of PCM, G.711 or G.726, laid out as `WAVEIO/waveformat.h` tells. The header is written
/// with sizes of 0 and replaced at the end.
///
/// The format's sizes have 32 bits: a frame that would take the file above 4 GiB is refused, and what was
/// written before stays a whole file.
class WAVEOutput : public FileOutput {
 public:
  WAVEOutput(std::unique_ptr<JSocket> pSocket, const std::string& sFileName);

  /// Throws JTextError "no audio" without a stream.
  void start(const FileAttributes* pAttributes) override;
  ~WAVEOutput() override;

  /// Returns 1. Throws JTextError for a stream that isn't audio or is coded otherwise, and for a second one.
  std::uint32_t addStream(const qm_ci::StreamInfo& streamInfo) override;

  void writeFrame(std::uint32_t uStreamNumber, const qm_ci::ConstBitstream& oCIBitstream, std::uint32_t uTime,
                  std::uint32_t uReserved) override;

 private:
  std::vector<std::uint8_t> makeHeader(std::uint32_t uRiffSize, std::uint32_t uDataSize) const;
  void finish();

  WAVEFileInfo& m_fileInfo;          ///< what `m_poFileInfo` points to
  std::uint32_t m_writtenBytes = 0;  ///< all of the file so far
};
