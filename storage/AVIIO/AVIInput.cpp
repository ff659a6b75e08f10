#include "storage/AVIIO/AVIInput.h"

#include <algorithm>
#include <array>
#include <limits>
#include <utility>

#include "coreapi/platform/byteorder.h"
#include "coreapi/qmci/videoinforecord.h"
#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/socket/jfilesocket.h"
#include "coreapi/qmutils/thread/namedassert.h"
#include "storage/AVIIO/aviformat.h"
#include "storage/fileread.h"
#include "storage/saturated.h"

using namespace avi_layout;
using namespace riff_layout;
using qm_platform::readLE16;
using qm_platform::readLE32;
using qm_platform::readLE64;

namespace {

constexpr std::uint16_t kKeyFrameFlags = qm_ci::kAccessBit0 | qm_ci::kAccessBit1;

}  // namespace

std::unique_ptr<FileInput> AVIFileInfo::makeInput(std::unique_ptr<JISocket> pSocket) {
  return std::make_unique<AVIInput>(std::move(pSocket), *this);
}

AVIInput::AVIInput(std::unique_ptr<JISocket> pSocket, AVIFileInfo& fileInfo)
    : FileInput(std::move(pSocket), fileInfo), m_info(fileInfo), m_ullPlace(fileInfo.getDataStart()) {
  QM_ASSERT_AS(!m_info.isOnFlyIndexing(), "!m_pFileInfo->isLive() && !m_pFileInfo->isOnFlyIndexing()");
  if (m_pFile != nullptr) {
    m_pFile->seek(static_cast<std::int64_t>(m_ullPlace), JFileSocket::kStart);
  }
}

bool AVIInput::readChunk(Chunk& chunk) {
  std::array<std::uint8_t, kChunkHeadSize> head;
  if (qm_utils::readFully(*m_pSocket, head.data(), head.size()) != head.size()) {
    return false;
  }
  chunk = {readLE32(head.data() + kCodeAt), readLE32(head.data() + kSizeAt)};
  return true;
}

/// As `isFrameValid`, of a chunk: the block in front of a payload doesn't count.
bool AVIInput::isChunkValid(std::uint32_t uStream, std::uint32_t uSize) const {
  const bool bBlock = m_info.hasFrameBlocks(uStream) && uSize >= frame_block::kSize;
  return isFrameValid(uStream, bBlock ? uSize - static_cast<std::uint32_t>(frame_block::kSize) : uSize);
}

/// Whether a place lies behind the frames of the file.
bool AVIInput::isPast(std::uint64_t ullPlace) const {
  const std::uint64_t ullSize = m_info.getDataSize();
  return ullSize != 0 && ullPlace > m_info.getDataStart() + ullSize;
}

int AVIInput::getNextFrame(std::uint32_t* pStream, std::uint32_t* pSize, qm_ci::Bitstream* pBitstream,
                           bool /*bKeepAuthentication*/) {
  bool bWrapped = false;
  for (;;) {
    if (m_ullPending > 0 && !skipBytes(*m_pSocket, std::exchange(m_ullPending, 0))) {
      return kFailed;
    }
    Chunk chunk;
    if (isPast(m_ullPlace + kChunkHeadSize) || m_ullPlace == 0 || !readChunk(chunk)) {
      if (!m_bLoop || std::exchange(bWrapped, true)) {
        return m_bLoop ? kFailed : kEnd;
      }
      if (!rewind()) {
        return kFailed;
      }
      continue;
    }
    const std::uint64_t ullBody = m_ullPlace + kChunkHeadSize;
    if (chunk.uCode == kList) {
      // Its content is walked: only its type is passed over.
      m_ullPlace = ullBody + sizeof kList;
      m_ullPending = sizeof kList;
      continue;
    }
    m_ullPending = padded(chunk.uSize);
    m_ullPlace = ullBody + m_ullPending;
    const std::uint32_t uStream = m_info.streamOfChunk(chunk.uCode);
    if (uStream == 0 || isPast(ullBody + chunk.uSize) || !isChunkValid(uStream, chunk.uSize)) {
      continue;
    }
    const auto uNumber = static_cast<std::uint32_t>(getLastNumber(uStream) + 1);
    const int iResult = enter(uStream, uNumber, chunk, pSize, pBitstream);
    if (iResult != kFrame) {
      continue;
    }
    if (pStream != nullptr) {
      *pStream = uStream;
    }
    return bWrapped ? kWrapped : kFrame;
  }
}

/// Stands behind the head of a frame's chunk; `m_ullPending` bytes follow.
int AVIInput::enter(std::uint32_t uStream, std::uint32_t uNumber, const Chunk& chunk, std::uint32_t* pSize,
                    qm_ci::Bitstream* pBitstream) {
  std::uint32_t uPayload = chunk.uSize;
  m_bSynthetic = false;
  m_bAuthentication = false;
  if (m_info.hasFrameBlocks(uStream)) {
    if (!readFrameBlock(uPayload, pBitstream)) {
      return kFailed;
    }
  } else {
    describeForeign(uStream, uNumber, pBitstream);
  }
  setLastNumber(uStream, uNumber);
  m_audioBytes[uStream - 1] += uPayload;
  if (pSize != nullptr) {
    *pSize = uPayload;
  }
  return kFrame;
}

bool AVIInput::readFrameBlock(std::uint32_t& uPayload, qm_ci::Bitstream* pBitstream) {
  std::array<std::uint8_t, frame_block::kSize> block;
  if (uPayload < block.size() || read(block.data(), block.size()) != block.size()) {
    return false;
  }
  uPayload -= static_cast<std::uint32_t>(block.size());
  const std::uint16_t wAccessFlags = readLE16(block.data() + frame_block::kAccessFlagsAt);
  m_bKeyFrame = (wAccessFlags & qm_ci::kAccessBit0) != 0;
  if (pBitstream != nullptr) {
    pBitstream->setTimestamp(readLE64(block.data() + frame_block::kTimeStampAt));
    pBitstream->setFrameNumber(readLE64(block.data() + frame_block::kFrameNumberAt));
    pBitstream->setPictureType(readLE16(block.data() + frame_block::kPictureTypeAt));
    pBitstream->setAccessFlags(wAccessFlags);
    pBitstream->setDecoderPipe(readLE32(block.data() + frame_block::kDecoderPipeAt));
    pBitstream->setFrameExtra(block[frame_block::kFrameExtraAt]);
  }
  return true;
}

/// The time of a frame that brings none with it. Audio of others comes in pieces of any length, which their
/// bytes tell.
std::uint64_t AVIInput::foreignTime(std::uint32_t uStream, std::uint32_t uNumber) const {
  const AVIFileInfo::Timing timing = m_info.getAudioTiming(uStream);
  if (timing.uRate == 0 || timing.uScale == 0) {
    return timeByPeriod(uStream, uNumber);
  }
  const std::uint64_t ullUnits =
      timing.uSampleSize == 0 ? uNumber : m_audioBytes[uStream - 1] / timing.uSampleSize;
  const auto dMicroseconds = static_cast<double>(ullUnits) * timing.uScale * 1e6 / timing.uRate;
  const std::uint64_t ullFirst = m_info.getStream(uStream)->getFirstDate().getMicroseconds();
  return ullFirst + std::min(saturated<std::uint64_t>(dMicroseconds),
                             std::numeric_limits<std::uint64_t>::max() - ullFirst);
}

/// Lets the audio go on where a time puts it.
void AVIInput::moveAudioTo(std::uint32_t uStream, std::uint64_t ullTime) {
  const AVIFileInfo::Timing timing = m_info.getAudioTiming(uStream);
  const std::uint64_t ullFirst = m_info.getStream(uStream)->getFirstDate().getMicroseconds();
  if (timing.uRate == 0 || timing.uScale == 0 || ullTime < ullFirst) {
    return;
  }
  const double dUnits = static_cast<double>(ullTime - ullFirst) * timing.uRate / timing.uScale / 1e6;
  m_audioBytes[uStream - 1] = saturated<std::uint64_t>(dUnits) * timing.uSampleSize;
}

/// Key frame and time of a frame that brings neither with it.
void AVIInput::describeForeign(std::uint32_t uStream, std::uint32_t uNumber, qm_ci::Bitstream* pBitstream) {
  const FileStreamInfo& stream = *m_info.getStream(uStream);
  m_bKeyFrame = stream.getEntry(uNumber) ? stream.isKeyFrame(uNumber) : true;
  if (pBitstream == nullptr) {
    return;
  }
  std::uint64_t ullStep = 1;
  if (const qm_ci::StreamInfo* const pStreamInfo = stream.getStreamInfo();
      pStreamInfo != nullptr && pStreamInfo->getType() == qm_ci::StreamInfo::kVideo) {
    const auto description = pStreamInfo->getBytes().subspan(qm_ci::StreamInfo::kDescriptionAt);
    ullStep = qm_ci::QMCIVideoInfo(description).getStreamIndexStep();
  }
  pBitstream->setTimestamp(foreignTime(uStream, uNumber));
  pBitstream->setFrameNumber(uNumber * ullStep);
  pBitstream->setPictureType(0);
  pBitstream->setAccessFlags(m_bKeyFrame ? kKeyFrameFlags : std::uint16_t{0});
  pBitstream->setDecoderPipe(0);
  pBitstream->setFrameExtra(0);
}

int AVIInput::seekFrame(std::uint32_t uStream, std::uint32_t uNumber, std::uint32_t* pSize,
                        qm_ci::Bitstream* pBitstream, bool bToKeyFrame) {
  const FileStreamInfo* const pStream = m_info.getStream(uStream);
  if (pStream == nullptr) {
    QM_THROW(EndOfFileError);
  }
  const std::uint64_t ullPlace = pStream->getPosByNumber(uNumber, bToKeyFrame);
  if (m_pFile == nullptr) {
    return kFailed;
  }
  m_pFile->seek(static_cast<std::int64_t>(ullPlace), JFileSocket::kStart);
  m_ullPending = 0;
  Chunk chunk;
  if (!readChunk(chunk) || m_info.streamOfChunk(chunk.uCode) != uStream ||
      !isChunkValid(uStream, chunk.uSize) || isPast(ullPlace + kChunkHeadSize + chunk.uSize)) {
    return kFailed;
  }
  m_ullPending = padded(chunk.uSize);
  m_ullPlace = ullPlace + kChunkHeadSize + m_ullPending;
  const int iResult = enter(uStream, uNumber, chunk, pSize, pBitstream);
  if (iResult == kFrame) {
    const std::uint64_t ullTime = timeByPeriod(uStream, uNumber);
    moveOthersTo(uStream, ullTime, ullPlace);
    for (std::uint32_t uOther = 1; uOther <= m_info.getStreamCount(); ++uOther) {
      moveAudioTo(uOther, ullTime);
    }
  }
  return iResult;
}

int AVIInput::seekTime(std::uint32_t uStream, std::uint32_t* pSize, JTime time, qm_ci::Bitstream* pBitstream,
                       bool bToKeyFrame) {
  const FileStreamInfo* const pStream = m_info.getStream(uStream);
  if (pStream == nullptr) {
    QM_THROW(EndOfFileError);
  }
  if (time < pStream->getFirstDate()) {
    QM_THROW(JTextError, "seek before start");
  }
  std::uint64_t ullNumber = numberByPeriod(uStream, time.getMicroseconds());
  const std::uint32_t uCount = pStream->getCount();
  if (ullNumber >= uCount && uCount > 0 && time < pStream->getLastDate()) {
    ullNumber = uCount - 1;
  }
  return seekFrame(uStream, static_cast<std::uint32_t>(std::min<std::uint64_t>(ullNumber, 0xFFFFFFFF)), pSize,
                   pBitstream, bToKeyFrame);
}

std::size_t AVIInput::read(void* pBuffer, std::size_t uSize) {
  const std::size_t uRead = qm_utils::readFully(*m_pSocket, pBuffer, uSize);
  m_ullPending -= std::min<std::uint64_t>(m_ullPending, uRead);
  return uRead;
}

/// What isn't read is passed over on the way to the next frame.
void AVIInput::skip(std::size_t /*uSize*/) {}

bool AVIInput::rewind() {
  m_ullPending = 0;
  if (m_pFile != nullptr) {
    m_pFile->seek(static_cast<std::int64_t>(m_info.getDataStart()), JFileSocket::kStart);
  } else {
    rewindInSequence();
  }
  m_ullPlace = m_info.getDataStart();
  m_audioBytes.fill(0);
  resetLastNumbers();
  return true;
}

/// A channel that only goes back to its own start: walks to the frames from there.
void AVIInput::rewindInSequence() {
  if (m_pSocket->rewind() != 0) {
    QM_THROW(JTextError, "Rewind failed");
  }
  std::array<std::uint8_t, kListHeadSize> head;
  if (qm_utils::readFully(*m_pSocket, head.data(), head.size()) != head.size() ||
      readLE32(head.data()) != kRiff) {
    QM_THROW(JTextError, "Invalid RIFF header");
  }
  bool bHeaderSeen = false;
  for (;;) {
    Chunk chunk;
    if (!readChunk(chunk)) {
      QM_THROW(JTextError, "Chunk header is corrupted");
    }
    std::uint64_t ullLeft = padded(chunk.uSize);
    if (chunk.uCode == kList) {
      std::array<std::uint8_t, sizeof kList> type;
      if (qm_utils::readFully(*m_pSocket, type.data(), type.size()) != type.size() || ullLeft < type.size()) {
        QM_THROW(JTextError, "Chunk data is corrupted");
      }
      if (readLE32(type.data()) == kMovi) {
        return;
      }
      bHeaderSeen = bHeaderSeen || readLE32(type.data()) == kHeaderList;
      ullLeft -= type.size();
    }
    if (!bHeaderSeen) {
      QM_THROW(JTextError, "Invalid 'hdrl' chunk header");
    }
    if (!skipBytes(*m_pSocket, ullLeft)) {
      QM_THROW(JTextError, "Chunk data is corrupted");
    }
  }
}
