#include "storage/WAVEIO/WAVEOutput.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "coreapi/platform/byteorder.h"
#include "coreapi/qmci/waveheader.h"
#include "storage/WAVEIO/waveformat.h"
#include "storage/saturated.h"

namespace {

using namespace riff_layout;
using namespace wave_layout;
using Bytes = std::vector<std::uint8_t>;

constexpr std::uint32_t kStream = 1;

/// How a type is stored; null when it can't be.
const Coding* findCoding(std::string_view sMIMEType) noexcept {
  const auto found = std::find_if(kCodings.begin(), kCodings.end(),
                                  [&](const Coding& coding) { return coding.sMIMEType == sMIMEType; });
  return found != kCodings.end() ? &*found : nullptr;
}

qm_ci::WaveFormatEx waveFormat(const qm_ci::StreamInfo& streamInfo) {
  const qm_ci::InfoBlock block = *streamInfo.getAudioInfo();
  const qm_ci::QMCIAudioInfo audio(block);
  const Coding* const pCoding = findCoding(audio.getMIMEType());
  if (pCoding == nullptr) {
    QM_THROW(JTextError, "wrong format");
  }
  qm_ci::WaveFormatEx format;
  format.wFormatTag = pCoding->wFormatTag;
  format.nChannels = audio.getNumberOfChannels();
  format.nSamplesPerSec = audio.getSamplingRate();
  if (pCoding->wFormatTag == kTagG726) {
    format.wBitsPerSample = kG726Bits;
    format.nBlockAlign = kG726BlockAlign;
    format.nAvgBytesPerSec = audio.getSamplingRate() / 2;
  } else {
    format.wBitsPerSample = audio.getBitsPerSample();
    format.nBlockAlign =
        saturated<std::uint16_t>(std::uint32_t{audio.getBitsPerSample()} / 8 * audio.getNumberOfChannels());
    format.nAvgBytesPerSec =
        saturated<std::uint32_t>(std::uint64_t{format.nBlockAlign} * audio.getSamplingRate());
  }
  return format;
}

}  // namespace

WAVEOutput::WAVEOutput(std::unique_ptr<JSocket> pSocket, const std::string& sFileName)
    : FileOutput(std::move(pSocket), std::make_unique<WAVEFileInfo>(sFileName)),
      m_fileInfo(static_cast<WAVEFileInfo&>(*m_poFileInfo)) {}

WAVEOutput::~WAVEOutput() {
  if (m_bStarted) {
    finishing([this] { finish(); });
  }
}

std::uint32_t WAVEOutput::addStream(const qm_ci::StreamInfo& streamInfo) {
  checkNotStarted();
  if (streamInfo.getType() != qm_ci::StreamInfo::kAudio) {
    QM_THROW(JTextError, "WAVE files can only be used with audio");
  }
  if (findCoding(streamInfo.getMIMEType()) == nullptr) {
    QM_THROW(JTextError, "WAVE files can only be used with PCM encoded audio or G726");
  }
  FileStreamInfo& record = *m_fileInfo.getStream(kStream);
  if (record.getStreamInfo() != nullptr) {
    QM_THROW(JTextError, "WAVE files can only contain one stream");
  }
  record.setStreamInfo(streamInfo);
  m_fileInfo.setFirstAudioStream(kStream);
  const qm_ci::InfoBlock block = *streamInfo.getAudioInfo();
  const qm_ci::QMCIAudioInfo audio(block);
  m_fileInfo.setFrameBytes(
      saturated<std::uint32_t>(std::uint64_t{audio.getBitsPerSample()} / 8 * audio.getNumberOfChannels() *
                               (audio.getSamplingRate() / kStepsPerSecond)));
  return kStream;
}

/// The header with all of the audio behind it, of which there are `uDataSize` bytes.
Bytes WAVEOutput::makeHeader(std::uint32_t uRiffSize, std::uint32_t uDataSize) const {
  const qm_ci::StreamInfo* const pStreamInfo = m_fileInfo.getStream(kStream)->getStreamInfo();
  if (pStreamInfo == nullptr) {
    QM_THROW(JTextError, "no audio");
  }
  const qm_ci::WaveFormatEx format = waveFormat(*pStreamInfo);
  Bytes formatBytes(qm_ci::kWaveHeaderSize);
  qm_ci::writeWaveHeader(format, formatBytes.data());
  formatBytes.resize(qm_ci::kPcmHeaderSize);

  Bytes header(kListHeadSize);
  writeChunkHead(kRiff, uRiffSize, header.data());
  qm_platform::writeLE32(header.data() + kChunkHeadSize, kWave);
  appendChunk(header, kFormat, formatBytes);
  if (format.wFormatTag == kTagG726) {
    appendChunk(header, kFact, {});
  }
  header.resize(header.size() + kChunkHeadSize);
  writeChunkHead(kData, uDataSize, header.data() + header.size() - kChunkHeadSize);
  return header;
}

void WAVEOutput::start(const FileAttributes* pAttributes) {
  checkNotStarted();
  const Bytes header = makeHeader(0, 0);
  m_writer.append(header.data(), header.size());
  m_writtenBytes = static_cast<std::uint32_t>(header.size());
  m_fileInfo.setDataStart(m_writtenBytes);
  FileOutput::start(pAttributes);
}

void WAVEOutput::writeFrame(std::uint32_t uStreamNumber, const qm_ci::ConstBitstream& oCIBitstream,
                            std::uint32_t /*uTime*/, std::uint32_t /*uReserved*/) {
  if (!isCounted(oCIBitstream)) {
    return;
  }
  checkStream(uStreamNumber);
  const JIoBuf payload = payloadOf(oCIBitstream);
  if (payload.bufLength > std::numeric_limits<std::uint32_t>::max() - m_writtenBytes) {
    QM_THROW(JTextError, "a WAVE file can't be larger than 4 GiB");
  }
  m_writer.append(payload.pBuf, payload.bufLength);
  m_writtenBytes += payload.bufLength;
  const JAutoLock lock(m_fileInfo.getMutex());
  m_fileInfo.addToDataSize(payload.bufLength);
  const std::uint64_t uStep = m_fileInfo.getFrameBytes();
  if (uStep != 0) {
    m_fileInfo.getStream(kStream)->setCount(
        static_cast<std::uint32_t>((m_fileInfo.getDataSize() + uStep - 1) / uStep));
  }
}

void WAVEOutput::finish() {
  m_writer.overwriteStart(
      makeHeader(m_writtenBytes - kChunkHeadSize, static_cast<std::uint32_t>(m_fileInfo.getDataSize())));
}
