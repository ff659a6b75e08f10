#include "storage/FrameWalk.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/socket/jfilesocket.h"
#include "storage/ASFIO/ASFFileInfoIn.h"
#include "storage/WAVEIO/WAVEFileInfo.h"
#include "storage/filekinds.h"
#include "storage/fileread.h"

namespace {

bool isOf(const FileInfo& fileInfo, std::uint32_t uMagic) noexcept {
  return fileInfo.getTypeMagic() == uMagic;
}

}  // namespace

const char* FrameWalk::formatOf(const FileInfo& fileInfo) noexcept {
  return isOf(fileInfo, file_kinds::kAsfMagic)    ? "asf"
         : isOf(fileInfo, file_kinds::kRiffMagic) ? "avi"
         : isOf(fileInfo, file_kinds::kWaveMagic) ? "wave"
                                                  : "mp3";
}

bool FrameWalk::isFinished(const FileInfo& fileInfo) {
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

void FrameWalk::refuseKind(const std::string& sFile) {
  std::array<char, 3> start{};
  JFileSocket(sFile, JFileSocket::kRead, true).read(start.data(), start.size());
  if (std::string_view(start.data(), start.size()) == "ID3") {
    QM_THROW(JTextError, "begins with an ID3 tag of version 2, which isn't read; take it off");
  }
  QM_THROW(JTextError, "not a media file of a kind known (ASF, AVI, WAVE, MP3)");
}

FrameWalk::FrameWalk(const std::string& sFile, Tell tell) : m_tell(std::move(tell)) {
  checkNoPipe(sFile);
  auto pSocket = std::make_unique<JFileSocket>(sFile, JFileSocket::kRead, true);
  m_pFile = pSocket.get();
  m_pInput = FileInput::create(std::move(pSocket), false, sFile);
  if (!m_pInput) {
    refuseKind(sFile);
  }
  m_bFinished = isFinished(getFileInfo());
  m_seen.resize(getFileInfo().getStreamCount());
}

bool FrameWalk::next() {
  const int iResult = m_pInput->readNextFrame(m_uStream, m_frame, true);
  if (iResult < 0) {
    end(iResult);
    return false;
  }
  const std::uint32_t uRead = m_frame.getPacketLength(0);
  take(uRead);
  if (m_uSize < uRead) {
    m_frame.setPacketLength(m_uSize, 0);
  }
  return true;
}

bool FrameWalk::pass() {
  if (m_frame.getQMCIBitstreamPtr() == nullptr) {
    m_frame.setMaxSize(0, qm_ci::QMCI_FMT_PACKET, 1);
  }
  std::uint32_t uSize = 0;
  const int iResult = m_pInput->getNextFrame(&m_uStream, &uSize, &m_frame, true);
  if (iResult < 0) {
    end(iResult);
    return false;
  }
  take(uSize);
  return true;
}

/// The last frame of a wave file is filled up; what the file hasn't isn't given out as its sound.
void FrameWalk::take(std::uint32_t uSize) {
  m_uSize = uSize;
  if (isOf(getFileInfo(), file_kinds::kWaveMagic)) {
    const std::uint64_t uSound = getSoundSize();
    m_uSize = static_cast<std::uint32_t>(std::min<std::uint64_t>(uSize, uSound - std::min(uSound, m_uBytes)));
  }
  m_uBytes += m_uSize;
  if (m_pInput->isAuthentication()) {
    return;
  }
  Seen& seen = m_seen.at(m_uStream - 1);
  seen.ullLast = m_frame.getTimestamp();
  if (seen.uFrames++ == 0) {
    seen.ullFirst = seen.ullLast;
  }
}

/// Bytes of sound in a file of nothing else. A wave file that was never finished doesn't tell them.
std::uint64_t FrameWalk::getSoundSize() const {
  const auto* const pWave = dynamic_cast<const WAVEFileInfo*>(&getFileInfo());
  if (pWave == nullptr || m_bFinished) {
    return getFileInfo().getDataSize();
  }
  std::uint64_t uFile = 0;
  m_pFile->getInfo(nullptr, &uFile);
  return uFile - std::min<std::uint64_t>(uFile, pWave->getDataStart());
}

void FrameWalk::end(int iResult) {
  if (iResult == FileInput::kFailed) {
    const std::string sWhere = "cut short or damaged behind " + std::to_string(m_uBytes) + " bytes of frames";
    if (m_bFinished) {
      QM_THROW(JTextError, sWhere);
    }
    tell(sWhere);
    return;
  }
  const FileInfo& fileInfo = getFileInfo();
  if (!isOf(fileInfo, file_kinds::kAsfMagic) && !isOf(fileInfo, file_kinds::kRiffMagic)) {
    if (const std::uint64_t uSound = getSoundSize(); uSound > m_uBytes) {
      tell("the last " + std::to_string(uSound - m_uBytes) + " bytes aren't whole frames");
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

void FrameWalk::tell(const std::string& sText) const {
  if (m_tell) {
    m_tell(sText);
  }
}
