#include "tools/qmctl/framereader.h"

#include <algorithm>
#include <ostream>
#include <utility>

#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/socket/jfilesocket.h"
#include "storage/ASFIO/ASFFileInfoIn.h"
#include "storage/filekinds.h"
#include "tools/qmctl/failure.h"
#include "tools/qmctl/text.h"

namespace qmctl {

namespace {

bool isOf(const FileInfo& fileInfo, std::uint32_t uMagic) noexcept {
  return fileInfo.getTypeMagic() == uMagic;
}

}  // namespace

void onFile(const std::string& sFile, const std::function<void()>& step) {
  try {
    step();
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    throw Failure(kFailed, sFile + ": " + error->getMessage());
  }
}

const char* formatOf(const FileInfo& fileInfo) noexcept {
  return isOf(fileInfo, file_kinds::kAsfMagic)    ? "asf"
         : isOf(fileInfo, file_kinds::kRiffMagic) ? "avi"
         : isOf(fileInfo, file_kinds::kWaveMagic) ? "wave"
                                                  : "mp3";
}

bool isFinished(const FileInfo& fileInfo) {
  if (!isOf(fileInfo, file_kinds::kRiffMagic)) {
    const auto* const pAsf = dynamic_cast<const ASFFileInfoIn*>(&fileInfo);
    return !fileInfo.isIndexRebuild() && (pAsf == nullptr || !pAsf->lacksIndex());
  }
  for (std::uint32_t uStream = 1; uStream <= fileInfo.getStreamCount(); ++uStream) {
    if (fileInfo.getStream(uStream)->getEntry(0)) {
      return true;
    }
  }
  return fileInfo.getDataSize() == 0;
}

FrameReader::FrameReader(std::string sFile, std::ostream& error) : m_sFile(std::move(sFile)), m_error(error) {
  onFile(m_sFile, [this] {
    auto pSocket = std::make_unique<JFileSocket>(m_sFile, JFileSocket::kRead, true);
    m_pInput = FileInput::create(std::move(pSocket), false, m_sFile);
  });
  if (!m_pInput) {
    throw Failure(kFailed, m_sFile + ": not a media file of a kind known (ASF, AVI, WAVE, MP3)");
  }
  m_bFinished = isFinished(getFileInfo());
}

bool FrameReader::next() {
  int iResult = FileInput::kFailed;
  onFile(m_sFile, [&] { iResult = m_pInput->readNextFrame(m_uStream, m_frame, true); });
  if (iResult < 0) {
    end(iResult);
    return false;
  }
  m_payload = {m_frame.getPacketData(0), m_frame.getPacketLength(0)};
  if (m_bFinished && isOf(getFileInfo(), file_kinds::kWaveMagic)) {
    // The last frame of a wave file is filled up; what the file hasn't isn't given out as its sound.
    const std::uint64_t uLeft = getFileInfo().getDataSize() - std::min(getFileInfo().getDataSize(), m_uBytes);
    m_payload = m_payload.first(static_cast<std::size_t>(std::min<std::uint64_t>(m_payload.size(), uLeft)));
  }
  m_uBytes += m_payload.size();
  return true;
}

/// A reader passes over what it can't take and ends at damage; that mustn't go by unnoticed.
void FrameReader::end(int iResult) {
  if (iResult == FileInput::kFailed) {
    const std::string sWhere = "cut short or damaged behind " + std::to_string(m_uBytes) + " bytes of frames";
    if (m_bFinished) {
      throw Failure(kFailed, m_sFile + ": " + sWhere);
    }
    tell(sWhere);
    return;
  }
  const FileInfo& fileInfo = getFileInfo();
  if (!isOf(fileInfo, file_kinds::kAsfMagic) && !isOf(fileInfo, file_kinds::kRiffMagic)) {
    if (fileInfo.getDataSize() > m_uBytes) {
      tell("the last " + std::to_string(fileInfo.getDataSize() - m_uBytes) + " bytes aren't whole frames");
    }
    return;
  }
  for (std::uint32_t uStream = 1; m_bFinished && uStream <= fileInfo.getStreamCount(); ++uStream) {
    const FileStreamInfo& stream = *fileInfo.getStream(uStream);
    const std::int64_t iRead = m_pInput->getLastNumber(uStream) + 1;
    if (stream.getEntry(0) && iRead != stream.getCount()) {
      tell("stream " + std::to_string(uStream) + " has " + std::to_string(stream.getCount()) +
           " frames by its index, but " + std::to_string(iRead) + " could be read");
    }
  }
}

void FrameReader::tell(const std::string& sText) {
  m_error << "qmctl: " << printable(m_sFile) << ": " << sText << '\n';
}

}  // namespace qmctl
