#include <algorithm>
#include <cstring>
#include <limits>
#include <span>
#include <vector>

#include "coreapi/platform/byteorder.h"
#include "coreapi/qmci/audioinfonoxml.h"
#include "coreapi/qmci/bitstream.h"
#include "coreapi/qmci/waveheader.h"
#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/socket/jfilesocket.h"
#include "storage/WAVEIO/WAVEFileInfo.h"
#include "storage/WAVEIO/WAVEInput.h"
#include "storage/WAVEIO/waveformat.h"
#include "storage/filekinds.h"
#include "storage/fileread.h"

using namespace riff_layout;
using namespace wave_layout;
using qm_platform::readLE32;

namespace {

/// Samplings that make up a step of a frame.
constexpr std::uint32_t kPcmSamplings = 1024;
constexpr std::uint32_t kTelephonySamplings = 160;
constexpr std::uint16_t kG726SampleBits = 16;

/// What a frame's record has beside its payload.
constexpr std::uint32_t kFrameOverhead = 72;

/// The largest step that is read: what a header claims mustn't be asked memory for, and silence fills it up.
constexpr std::uint64_t kMaxFrameBytes = 64U << 20;

/// The largest "fmt " chunk that is looked at.
constexpr std::uint32_t kMaxFormat = 0x10000;

constexpr const char* kBadFormat = "invalid wave format";
constexpr std::uint16_t kKeyFrameFlags = qm_ci::kAccessBit0 | qm_ci::kAccessBit1;

}  // namespace

WAVEFileInfo::WAVEFileInfo(JFileSocket& socket, const std::string& sName) : FileInfo(sName) {
  m_uTypeMagic = file_kinds::kWaveMagic;
  FileHeadReader reader(socket);
  std::uint8_t head[kListHeadSize];
  if (!reader.fill(head, sizeof head) || readLE32(head) != kRiff ||
      readLE32(head + kChunkHeadSize) != kWave) {
    QM_THROW(JTextError, "%s", kBadFormat);
  }
  resetStreams(1);
  std::uint8_t chunk[kChunkHeadSize];
  while (reader.fill(chunk, sizeof chunk)) {
    const std::uint32_t uCode = readLE32(chunk + kCodeAt);
    const std::uint32_t uSize = readLE32(chunk + kSizeAt);
    if (uCode == kData) {
      std::uint64_t ullFileSize = 0;
      socket.getInfo(nullptr, &ullFileSize);
      const std::uint64_t ullThere = ullFileSize - std::min(ullFileSize, reader.getPosition());
      beginData(static_cast<std::uint32_t>(reader.getPosition()), uSize, ullThere);
      return;
    }
    std::uint64_t ullLeft = padded(uSize);
    if (uCode == kFormat) {
      std::vector<std::uint8_t> format(std::min(uSize, kMaxFormat));
      if (!reader.fill(format.data(), format.size())) {
        break;
      }
      readFormat(format);
      ullLeft -= format.size();
    }
    if (!reader.skip(ullLeft) || reader.getPosition() > std::numeric_limits<std::uint32_t>::max()) {
      break;
    }
  }
  QM_THROW(JTextError, "%s", kBadFormat);
}

void WAVEFileInfo::readFormat(std::span<const std::uint8_t> format) {
  if (format.size() < qm_ci::kPcmHeaderSize) {
    QM_THROW(JTextError, "%s", kBadFormat);
  }
  const bool bLong = format.size() >= qm_ci::kWaveHeaderSize;
  const qm_ci::WaveFormatEx wave =
      bLong ? qm_ci::readWaveHeader(format.data()) : qm_ci::readPcmHeader(format.data());
  const auto coding = std::find_if(kCodings.begin(), kCodings.end(),
                                   [&](const Coding& c) { return c.wFormatTag == wave.wFormatTag; });
  if (coding == kCodings.end()) {
    return;  // the sound can't be read then
  }
  const bool bOtherBits = wave.wFormatTag == kTagG726 && wave.wBitsPerSample != wave_layout::kG726Bits;
  if (wave.cbSize != 0 || wave.nChannels == 0 || wave.nSamplesPerSec == 0 || bOtherBits) {
    QM_THROW(JTextError, "%s", kBadFormat);
  }
  const bool bPcm = wave.wFormatTag == kTagPcm;
  const std::uint16_t wBits = wave.wFormatTag == kTagG726 ? kG726SampleBits : wave.wBitsPerSample;
  const std::uint32_t uSamplings = bPcm ? kPcmSamplings : kTelephonySamplings;
  const std::uint64_t ullFrameBytes = std::uint64_t{wBits / 8U} * uSamplings * wave.nChannels;
  if (ullFrameBytes > kMaxFrameBytes) {
    QM_THROW(JTextError, "%s", kBadFormat);
  }
  const auto uFrameBytes = static_cast<std::uint32_t>(ullFrameBytes);
  qm_ci::QMAudioInfoNoXml info;
  info.setMIMEType(coding->sMIMEType);
  info.setPacketizedFormat("linear");
  info.setSamplingRate(wave.nSamplesPerSec);
  info.setNumberOfChannels(wave.nChannels);
  info.setBitsPerSample(wBits);
  info.setSamplingsPerFrame(uSamplings);
  info.setNomMaxBitstreamSize(uFrameBytes + kFrameOverhead);
  getStream(1)->setIndexType(FILEINDEX_NTP);
  getStream(1)->setStreamInfo(makeStreamInfo(qm_ci::QMCIAudioInfo(info.getCIInfo())));
  m_uFirstAudioStream = 1;
  switch (wave.wFormatTag) {
    case kTagPcm:
      m_uFrameBytes = uFrameBytes;
      break;
    case kTagG726:
      m_uFrameBytes = (uSamplings >> 1U) * wave.nChannels;
      break;
    default:
      m_uFrameBytes = uSamplings * wave.nChannels;
  }
}

/// The audio begins at a place, and is said to have a size; of a file that was cut short only what is there
/// counts.
void WAVEFileInfo::beginData(std::uint32_t uPlace, std::uint32_t uSize, std::uint64_t ullThere) {
  if (m_uFrameBytes == 0) {
    QM_THROW(JTextError, "wrong format wave file");
  }
  m_uDataStart = uPlace;
  m_uDataSize = std::min<std::uint64_t>(uSize, ullThere);
  const std::uint64_t ullCount = (m_uDataSize + m_uFrameBytes - 1) / m_uFrameBytes;
  getStream(1)->setCount(static_cast<std::uint32_t>(ullCount));
  m_bIndexRebuild = uSize == 0;
}

void WAVEFileInfo::rebuildIndex(bool /*bWriteBack*/, FileProgress* /*pProgress*/, JTime date) {
  FileStreamInfo* const pStream = getStream(1);
  if (pStream == nullptr || date == JTime::lastQueryTime()) {
    return;
  }
  const FramePeriod period = pStream->getPeriod();
  const double dPeriod =
      period.uDenominator == 0 ? 0.0 : static_cast<double>(period.uNumerator) / period.uDenominator;
  pStream->setFirstDate(date);
  pStream->setLastDate(date.add(static_cast<std::int64_t>(pStream->getCount() * dPeriod * 1000.0)));
}

std::unique_ptr<FileInput> WAVEFileInfo::makeInput(std::unique_ptr<JISocket> pSocket) {
  return std::make_unique<WAVEInput>(std::move(pSocket), *this);
}

WAVEInput::WAVEInput(std::unique_ptr<JISocket> pSocket, WAVEFileInfo& fileInfo)
    : FileInput(std::move(pSocket), fileInfo), m_info(fileInfo) {
  moveTo(0);
}

void WAVEInput::moveTo(std::uint32_t uNumber) {
  m_ullNext = std::uint64_t{m_info.getFrameBytes()} * uNumber;
  m_ullAt = m_ullNext;
  setLastNumber(1, std::int64_t{uNumber} - 1);
  if (m_pFile != nullptr) {
    m_pFile->seek(static_cast<std::int64_t>(m_info.getDataStart() + m_ullAt), JFileSocket::kStart);
  }
}

int WAVEInput::seekFrame(std::uint32_t uStream, std::uint32_t uNumber, std::uint32_t* pSize,
                         qm_ci::Bitstream* pBitstream, bool /*bToKeyFrame*/) {
  checkSingleStream(uStream);
  if (uNumber >= m_info.getStream(1)->getCount()) {
    QM_THROW(JTextError, "seek past end");
  }
  moveTo(uNumber);
  return getNextFrame(nullptr, pSize, pBitstream, false);
}

int WAVEInput::seekTime(std::uint32_t uStream, std::uint32_t* pSize, JTime time, qm_ci::Bitstream* pBitstream,
                        bool bToKeyFrame) {
  checkSingleStream(uStream);
  if (time < m_info.getStream(1)->getFirstDate()) {
    QM_THROW(JTextError, "seek before start");
  }
  const std::uint64_t ullNumber = numberByPeriod(1, time.getMicroseconds());
  return seekFrame(uStream, static_cast<std::uint32_t>(std::min<std::uint64_t>(ullNumber, 0xFFFFFFFF)), pSize,
                   pBitstream, bToKeyFrame);
}

/// Whether a file that is still being written goes on behind the step before; if not, it ends there.
bool WAVEInput::hasMore() {
  std::uint64_t ullFileSize = 0;
  if (m_pFile != nullptr) {
    m_pFile->getInfo(nullptr, &ullFileSize);
  }
  if (m_pFile != nullptr && m_info.getDataStart() + m_ullNext >= ullFileSize) {
    m_info.setIndexRebuild(false);
    return false;
  }
  return true;
}

int WAVEInput::getNextFrame(std::uint32_t* pStream, std::uint32_t* pSize, qm_ci::Bitstream* pBitstream,
                            bool /*bKeepAuthentication*/) {
  const JAutoLock lock(m_info.getMutex());
  FileStreamInfo& stream = *m_info.getStream(1);
  int iResult = kFrame;
  auto ullNumber = static_cast<std::uint64_t>(getLastNumber(1) + 1);
  const bool bGrowing = m_info.isIndexRebuild() && hasMore();
  if (ullNumber > stream.getCount() || (ullNumber == stream.getCount() && !bGrowing)) {
    if (!m_bLoop || stream.getCount() == 0) {
      setLastNumber(1, std::int64_t{stream.getCount()} - 1);
      return kEnd;
    }
    moveTo(0);
    ullNumber = 0;
    iResult = kWrapped;
  }
  if (m_ullAt != m_ullNext && m_pFile != nullptr) {
    m_pFile->seek(static_cast<std::int64_t>(m_info.getDataStart() + m_ullNext), JFileSocket::kStart);
    m_ullAt = m_ullNext;
  }
  m_ullNext += m_info.getFrameBytes();
  if (bGrowing && ullNumber == stream.getCount()) {
    stream.countOnly();
    m_info.addToDataSize(m_info.getFrameBytes());
  }
  setLastNumber(1, static_cast<std::int64_t>(ullNumber));
  if (pStream != nullptr) {
    *pStream = 1;
  }
  if (pSize != nullptr) {
    *pSize = m_info.getFrameBytes();
  }
  m_bKeyFrame = true;
  if (pBitstream != nullptr) {
    pBitstream->setTimestamp(timeByPeriod(1, ullNumber, Rounding::kDown));
    pBitstream->setFrameNumber(ullNumber);
    pBitstream->setAccessFlags(pBitstream->getAccessFlags() | kKeyFrameFlags);
  }
  return iResult;
}

std::size_t WAVEInput::read(void* pBuffer, std::size_t uSize) {
  auto* const pBytes = static_cast<std::uint8_t*>(pBuffer);
  std::size_t uWanted = uSize;
  const bool bGrowing = m_info.isIndexRebuild();
  if (!bGrowing) {
    const std::uint64_t ullLeft = m_info.getDataSize() - std::min(m_info.getDataSize(), m_ullAt);
    uWanted = static_cast<std::size_t>(std::min<std::uint64_t>(ullLeft, uSize));
  }
  const std::size_t uRead = qm_utils::readFully(*m_pSocket, pBytes, uWanted);
  if (uRead < uWanted && bGrowing) {
    m_info.setIndexRebuild(false);
  }
  m_ullAt += uRead;
  const qm_ci::StreamInfo* const pStreamInfo = m_info.getStream(1)->getStreamInfo();
  const qm_ci::QMCIAudioInfo audio(pStreamInfo->getBytes().subspan(qm_ci::StreamInfo::kDescriptionAt));
  constexpr std::uint8_t kSilenceOf8Bits = 0x80;
  std::memset(pBytes + uRead, audio.getBitsPerSample() == 8 ? kSilenceOf8Bits : 0, uSize - uRead);
  return uSize;
}

/// What isn't read is passed over on the way to the next step.
void WAVEInput::skip(std::size_t /*uSize*/) {}

bool WAVEInput::rewind() {
  moveTo(0);
  return true;
}
