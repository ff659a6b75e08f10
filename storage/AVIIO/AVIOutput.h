#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "coreapi/qmci/audioinfonoxml.h"
#include "coreapi/qmci/videoinfonoxml.h"
#include "coreapi/qmutils/socket/tempfile.h"
#include "storage/AVIIO/AVIFileInfo.h"
#include "storage/FileOutput.h"

/// Writes an AVI file with one video and one audio stream at most, laid out as `AVIIO/aviformat.h` tells. The
/// index entries wait in a temporary file until the end. The header that `start` writes counts no frames; the
/// destructor appends the index and replaces the header by one of the same length.
///
/// The format's numbers have 32 bits: a frame that would take the file above 4 GiB is refused, and what was
/// written before stays a whole file.
class AVIOutput : public FileOutput {
 public:
  /// Throws JSysError "tmpfile" when there is no temporary file.
  AVIOutput(std::unique_ptr<JSocket> pSocket, const std::string& sFileName);

  void start(const FileAttributes* pAttributes) override;
  ~AVIOutput() override;

  /// Returns 1 for video and 2 for audio. Throws JTextError for a second stream of a kind, for any other
  /// kind, and behind the start; the streams that are there stay.
  std::uint32_t addStream(const qm_ci::StreamInfo& streamInfo) override;

  void writeFrame(std::uint32_t uStreamNumber, const qm_ci::ConstBitstream& oCIBitstream, std::uint32_t uTime,
                  std::uint32_t uReserved) override;

  /// Adds a video stream of a description and starts the file.
  void addVideoStream(const qm_ci::QMVideoInfoNoXml& videoInfo, const FileAttributes* pAttributes);

 private:
  std::vector<std::uint8_t> makeHeader(std::uint64_t uIndexBytes) const;
  std::vector<std::uint8_t> makeHeaderList() const;
  std::vector<std::uint8_t> makeMainHeader() const;
  std::vector<std::uint8_t> makeVideoList() const;
  std::vector<std::uint8_t> makeAudioList() const;
  std::uint32_t framesOf(std::uint32_t uStreamNumber) const;
  void storeIndexEntry(std::uint32_t uCode, std::uint32_t dwFlags, std::uint32_t uBodySize);
  void finish();
  void writeIndex();

  AVIFileInfo& m_fileInfo;  ///< what `m_poFileInfo` points to
  std::optional<qm_ci::QMVideoInfoNoXml> m_poVideoInfo;
  std::optional<qm_ci::QMAudioInfoNoXml> m_poAudioInfo;
  std::uint64_t m_moviSize = 0;  ///< bytes behind the type of the "movi" list
  qm_utils::StreamPointer m_indexFile;
  std::uint32_t m_uIndexEntries = 0;
  bool m_bIndexTorn = false;  ///< more than the entries may stand in the temporary file
};
