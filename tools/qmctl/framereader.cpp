#include "tools/qmctl/framereader.h"

#include <algorithm>
#include <array>
#include <ostream>
#include <string_view>
#include <utility>

#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/socket/jfilesocket.h"
#include "storage/ASFIO/ASFFileInfoIn.h"
#include "storage/WAVEIO/WAVEFileInfo.h"
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

void refuseKind(const std::string& sFile) {
  std::array<char, 3> start{};
  onFile(sFile, [&] { JFileSocket(sFile, JFileSocket::kRead, true).read(start.data(), start.size()); });
  throw Failure(kFailed, sFile + (std::string_view(start.data(), start.size()) == "ID3"
                                      ? ": begins with an ID3 tag of version 2, which isn't read; take it off"
                                      : ": not a media file of a kind known (ASF, AVI, WAVE, MP3)"));
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
    m_pFile = pSocket.get();
    m_pInput = FileInput::create(std::move(pSocket), false, m_sFile);
  });
  if (!m_pInput) {
    refuseKind(m_sFile);
  }
  m_bFinished = isFinished(getFileInfo());
  m_seen.resize(getFileInfo().getStreamCount());
}

bool FrameReader::next() {
  int iResult = FileInput::kFailed;
  onFile(m_sFile, [&] { iResult = m_pInput->readNextFrame(m_uStream, m_frame, true); });
  if (iResult < 0) {
    end(iResult);
    return false;
  }
  m_payload = {m_frame.getPacketData(0), m_frame.getPacketLength(0)};
  if (isOf(getFileInfo(), file_kinds::kWaveMagic)) {
    // The last frame of a wave file is filled up; what the file hasn't isn't given out as its sound.
    const std::uint64_t uSound = getSoundSize();
    const std::uint64_t uLeft = uSound - std::min(uSound, m_uBytes);
    m_payload = m_payload.first(static_cast<std::size_t>(std::min<std::uint64_t>(m_payload.size(), uLeft)));
  }
  m_uBytes += m_payload.size();
  count();
  return true;
}

/// Bytes of sound in a file of nothing else. A wave file that was never finished doesn't tell them.
std::uint64_t FrameReader::getSoundSize() const {
  const auto* const pWave = dynamic_cast<const WAVEFileInfo*>(&getFileInfo());
  if (pWave == nullptr || m_bFinished) {
    return getFileInfo().getDataSize();
  }
  std::uint64_t uFile = 0;
  onFile(m_sFile, [&] { m_pFile->getInfo(nullptr, &uFile); });
  return uFile - std::min<std::uint64_t>(uFile, pWave->getDataStart());
}

void FrameReader::count() {
  if (m_pInput->isAuthentication()) {
    return;
  }
  Seen& seen = m_seen.at(m_uStream - 1);
  seen.ullLast = m_frame.getTimestamp();
  if (seen.uFrames++ == 0) {
    seen.ullFirst = seen.ullLast;
  }
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

void FrameReader::tell(const std::string& sText) {
  m_error << "qmctl: " << printable(m_sFile) << ": " << sText << '\n';
}

}  // namespace qmctl
