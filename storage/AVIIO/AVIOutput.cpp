#include "storage/AVIIO/AVIOutput.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <limits>
#include <span>
#include <utility>

#include "coreapi/platform/byteorder.h"
#include "coreapi/platform/process.h"
#include "coreapi/platform/tempstream.h"
#include "coreapi/qmutils/socket/fileoperations.h"
#include "storage/AVIIO/aviformat.h"
#include "storage/saturated.h"

namespace {

using namespace avi_layout;
using namespace riff_layout;
using qm_platform::writeLE16;
using qm_platform::writeLE32;
using qm_platform::writeLE64;
using Bytes = std::vector<std::uint8_t>;

/// Entries that are copied from the temporary file at once.
constexpr std::size_t kEntriesAtOnce = 512;

constexpr std::uint64_t kLargestFile = std::numeric_limits<std::uint32_t>::max();

[[noreturn]] void failTemporary(const char* szFunction) {
  QM_THROW(JSysError, static_cast<std::uint32_t>(errno), szFunction);
}

/// A temporary file of the current directory, or of the system where that one takes none.
qm_utils::StreamPointer openIndexFile() {
  if (qm_utils::StreamPointer pFile = qm_utils::openTempFile()) {
    return pFile;
  }
  char szName[16];
  qm_utils::makeTempName(szName, sizeof szName);
  std::FILE* pStream = nullptr;
  const int iError = qm_platform::openUnnamedStream(
      qm_utils::getTempPath() + "/" + std::to_string(qm_platform::processId()) + "-" + szName, pStream);
  if (iError != 0) {
    QM_THROW(JSysError, static_cast<std::uint32_t>(iError), "tmpfile");
  }
  return qm_utils::StreamPointer(pStream);
}

std::uint32_t chunkCode(std::uint32_t uStreamNumber) noexcept {
  switch (uStreamNumber) {
    case kVideoStream:
      return kVideoChunk;
    case kAudioStream:
      return kAudioChunk;
    default:
      return 0;
  }
}

/// What stands between a chunk's head and the payload.
void writeFrameBlock(const qm_ci::ConstBitstream& frame, std::uint8_t* pTo) noexcept {
  writeLE64(pTo + frame_block::kTimeStampAt, frame.getTimestamp());
  writeLE64(pTo + frame_block::kFrameNumberAt, frame.getFrameNumber());
  writeLE16(pTo + frame_block::kPictureTypeAt, frame.getPictureType());
  writeLE16(pTo + frame_block::kAccessFlagsAt, frame.getAccessFlags());
  writeLE32(pTo + frame_block::kDecoderPipeAt, frame.getDecoderPipe());
  pTo[frame_block::kFrameExtraAt] = static_cast<std::uint8_t>(frame.getFrameExtra());
  pTo[frame_block::kMark1At] = frame_block::kMark1;
  writeLE16(pTo + frame_block::kMark2At, frame_block::kMark2);
}

/// A "strl" list of a header and a format.
Bytes streamList(const Bytes& header, std::span<const std::uint8_t> format) {
  Bytes content;
  appendChunk(content, kStreamHeader, header);
  appendChunk(content, kStreamFormat, format);
  Bytes list;
  appendList(list, kStreamList, content);
  return list;
}

/// Microseconds of a picture.
std::uint32_t picturePeriod(qm_ci::Fraction rate) noexcept {
  if (rate.uNumerator == 0 || rate.uDenominator == 0) {
    return main_header::kNoVideoPeriod;
  }
  const double picturesPerSecond = static_cast<double>(rate.uNumerator) / rate.uDenominator;
  return saturated<std::uint32_t>(1000000.0 / picturesPerSecond);
}

}  // namespace

AVIOutput::AVIOutput(std::unique_ptr<JSocket> pSocket, const std::string& sFileName)
    : FileOutput(std::move(pSocket), std::make_unique<AVIFileInfo>(sFileName)),
      m_fileInfo(static_cast<AVIFileInfo&>(*m_poFileInfo)) {
  m_indexFile = openIndexFile();
}

AVIOutput::~AVIOutput() {
  if (m_bStarted) {
    finishing([this] { finish(); });
  }
}

std::uint32_t AVIOutput::addStream(const qm_ci::StreamInfo& streamInfo) {
  checkNotStarted();
  switch (streamInfo.getType()) {
    case qm_ci::StreamInfo::kVideo:
      if (m_poVideoInfo) {
        QM_THROW(JTextError, "Only one video stream per AVI file is supported");
      }
      m_poVideoInfo.emplace(*streamInfo.getVideoInfo());
      m_fileInfo.getStream(kVideoStream)->setStreamInfo(streamInfo);
      m_fileInfo.setFirstVideoStream(kVideoStream);
      return kVideoStream;
    case qm_ci::StreamInfo::kAudio:
      if (m_poAudioInfo) {
        QM_THROW(JTextError, "Only one audio stream per AVI file is supported");
      }
      m_poAudioInfo.emplace(*streamInfo.getAudioInfo());
      m_fileInfo.getStream(kAudioStream)->setStreamInfo(streamInfo);
      m_fileInfo.setFirstAudioStream(kAudioStream);
      return kAudioStream;
    default:
      QM_THROW(JTextError, "AVI files can only contain video and audio streams");
  }
}

void AVIOutput::addVideoStream(const qm_ci::QMVideoInfoNoXml& videoInfo, const FileAttributes* pAttributes) {
  addStream(makeStreamInfo(qm_ci::QMCIVideoInfo(videoInfo.getCIInfo())));
  start(pAttributes);
}

void AVIOutput::start(const FileAttributes* pAttributes) {
  checkNotStarted();
  const Bytes header = makeHeader(0);
  m_writer.append(header.data(), header.size());
  m_fileInfo.setDataStart(header.size());
  FileOutput::start(pAttributes);
}

void AVIOutput::writeFrame(std::uint32_t uStreamNumber, const qm_ci::ConstBitstream& oCIBitstream,
                           std::uint32_t /*uTime*/, std::uint32_t /*uReserved*/) {
  if (!isCounted(oCIBitstream)) {
    return;
  }
  if (!m_bStarted) {
    QM_THROW(JTextError, "the file isn't started");
  }
  const JIoBuf payload = payloadOf(oCIBitstream);
  const std::uint64_t uChunkSize =
      padded(kChunkHeadSize + frame_block::kSize + std::uint64_t{payload.bufLength});
  const std::uint64_t uIndexSize = kChunkHeadSize + (m_uIndexEntries + std::uint64_t{1}) * index_entry::kSize;
  if (m_writer.getEnd() + uChunkSize + uIndexSize > kLargestFile) {
    QM_THROW(JTextError, "an AVI file can't be larger than 4 GiB");
  }
  const std::uint32_t uCode = chunkCode(uStreamNumber);
  const auto uBodySize = static_cast<std::uint32_t>(frame_block::kSize + payload.bufLength);
  std::array<std::uint8_t, kChunkHeadSize + frame_block::kSize> head{};
  writeChunkHead(uCode, uBodySize, head.data());
  writeFrameBlock(oCIBitstream, head.data() + kChunkHeadSize);
  std::uint8_t pad = 0;
  const std::array<JIoBuf, 3> chunk = {
      {{head.data(), head.size()}, payload, {&pad, static_cast<std::uint32_t>(uBodySize % 2)}}};
  const bool bKeyFrame =
      uStreamNumber == kVideoStream && (oCIBitstream.getAccessFlags() & qm_ci::kAccessBit0) != 0;
  storeIndexEntry(uCode, bKeyFrame ? index_entry::kKeyFrame : 0, uBodySize);
  m_bIndexTorn = true;
  m_writer.append(chunk);
  m_bIndexTorn = false;
  ++m_uIndexEntries;
  account(uStreamNumber, m_fileInfo.getDataStart() + m_moviSize, oCIBitstream);
  m_moviSize += uChunkSize;
  m_fileInfo.addToDataSize(uChunkSize);
}

/// Appends an entry to the temporary file. It doesn't count before its chunk stands in the file: what is
/// there beyond the count is overwritten.
void AVIOutput::storeIndexEntry(std::uint32_t uCode, std::uint32_t dwFlags, std::uint32_t uBodySize) {
  if (m_bIndexTorn) {
    const auto place = static_cast<long>(std::uint64_t{m_uIndexEntries} * index_entry::kSize);
    if (std::fseek(m_indexFile.get(), place, SEEK_SET) != 0) {
      failTemporary("fseek");
    }
    m_bIndexTorn = false;
  }
  std::array<std::uint8_t, index_entry::kSize> entry;
  writeLE32(entry.data() + index_entry::kCodeAt, uCode);
  writeLE32(entry.data() + index_entry::kFlagsAt, dwFlags);
  writeLE32(entry.data() + index_entry::kPlaceAt,
            static_cast<std::uint32_t>(m_moviSize + index_entry::kPlaceOfFirst));
  writeLE32(entry.data() + index_entry::kBodySizeAt, uBodySize);
  if (std::fwrite(entry.data(), entry.size(), 1, m_indexFile.get()) != 1) {
    m_bIndexTorn = true;
    failTemporary("fwrite");
  }
}

std::uint32_t AVIOutput::framesOf(std::uint32_t uStreamNumber) const {
  return m_fileInfo.getStream(uStreamNumber)->getCount();
}

Bytes AVIOutput::makeMainHeader() const {
  namespace at = main_header;
  Bytes header(at::kSize);
  writeLE32(header.data() + at::kMicroSecPerFrameAt,
            m_poVideoInfo ? picturePeriod(m_poVideoInfo->getPictureRate()) : at::kNoVideoPeriod);
  writeLE32(header.data() + at::kMaxBytesPerSecAt, at::kMaxBytesPerSec);
  writeLE32(header.data() + at::kPaddingGranularityAt, at::kPaddingGranularity);
  const bool bBoth = m_poVideoInfo && m_poAudioInfo;
  writeLE32(header.data() + at::kFlagsAt, at::kFlags | (bBoth ? at::kInterleavedFlag : 0));
  writeLE32(header.data() + at::kStreamsAt, bBoth ? 2 : 1);
  if (m_poVideoInfo) {
    writeLE32(header.data() + at::kTotalFramesAt, framesOf(kVideoStream));
    writeLE32(header.data() + at::kSuggestedBufferSizeAt, m_poVideoInfo->getNomMaxBitstreamSize());
    writeLE32(header.data() + at::kWidthAt, m_poVideoInfo->getWidth());
    writeLE32(header.data() + at::kHeightAt, m_poVideoInfo->getHeight());
  }
  return header;
}

Bytes AVIOutput::makeVideoList() const {
  namespace at = stream_header;
  Bytes header(at::kSize);
  writeLE32(header.data() + at::kTypeAt, at::kVideoType);
  writeLE32(header.data() + at::kHandlerAt, at::kHandler);
  const qm_ci::Fraction rate = m_poVideoInfo->getPictureRate();
  writeLE32(header.data() + at::kScaleAt, rate.uDenominator);
  writeLE32(header.data() + at::kRateAt, rate.uNumerator);
  writeLE32(header.data() + at::kLengthAt, framesOf(kVideoStream));
  writeLE32(header.data() + at::kSuggestedBufferSizeAt, m_poVideoInfo->getNomMaxBitstreamSize());
  writeLE32(header.data() + at::kQualityAt, at::kDefaultQuality);
  writeLE16(header.data() + at::kFrameWidthAt, saturated<std::uint16_t>(m_poVideoInfo->getWidth()));
  writeLE16(header.data() + at::kFrameHeightAt, saturated<std::uint16_t>(m_poVideoInfo->getHeight()));
  return streamList(header, m_poVideoInfo->createBMI());
}

Bytes AVIOutput::makeAudioList() const {
  namespace at = stream_header;
  const Bytes format = m_poAudioInfo->createWFX();
  const qm_ci::WaveFormatEx wave = qm_ci::readWaveHeader(format.data());
  const std::uint64_t ullSamplings = m_poAudioInfo->getSamplingsPerFrame();
  Bytes header(at::kSize);
  writeLE32(header.data() + at::kTypeAt, at::kAudioType);
  writeLE32(header.data() + at::kScaleAt, wave.nBlockAlign);
  writeLE32(header.data() + at::kRateAt, wave.nAvgBytesPerSec);
  writeLE32(header.data() + at::kLengthAt, saturated<std::uint32_t>(ullSamplings * framesOf(kAudioStream)));
  writeLE32(header.data() + at::kSuggestedBufferSizeAt,
            saturated<std::uint32_t>(ullSamplings * wave.nBlockAlign));
  writeLE32(header.data() + at::kQualityAt, at::kDefaultQuality);
  writeLE32(header.data() + at::kSampleSizeAt, wave.nBlockAlign);
  return streamList(header, std::span(format).first(qm_ci::kWaveHeaderSize + wave.cbSize));
}

Bytes AVIOutput::makeHeaderList() const {
  Bytes content;
  appendChunk(content, kMainHeader, makeMainHeader());
  for (const Bytes& list :
       {m_poVideoInfo ? makeVideoList() : Bytes(), m_poAudioInfo ? makeAudioList() : Bytes()}) {
    content.insert(content.end(), list.begin(), list.end());
  }
  Bytes list;
  appendList(list, kHeaderList, content);
  return list;
}

/// All that stands in front of the first frame chunk, with the counts as they are now. Its length depends on
/// the streams alone.
Bytes AVIOutput::makeHeader(std::uint64_t uIndexBytes) const {
  Bytes header(kListHeadSize);
  const Bytes headerList = makeHeaderList();
  header.insert(header.end(), headerList.begin(), headerList.end());
  const std::size_t mediaAt = (header.size() + kChunkHeadSize + kListHeadSize + kMediaAlignment - 1) /
                              kMediaAlignment * kMediaAlignment;
  appendChunk(header, kJunk, Bytes(mediaAt - header.size() - kChunkHeadSize - kListHeadSize));
  header.resize(mediaAt);
  std::uint8_t* const pMovi = header.data() + mediaAt - kListHeadSize;
  // The sizes fit: no frame is taken that lets the file grow beyond 4 GiB.
  writeChunkHead(kList, static_cast<std::uint32_t>(m_moviSize + sizeof kMovi), pMovi);
  writeLE32(pMovi + kChunkHeadSize, kMovi);
  writeChunkHead(kRiff, static_cast<std::uint32_t>(mediaAt - kChunkHeadSize + m_moviSize + uIndexBytes),
                 header.data());
  writeLE32(header.data() + kChunkHeadSize, kAvi);
  return header;
}

void AVIOutput::finish() {
  writeIndex();
  const Bytes header = makeHeader(kChunkHeadSize + std::uint64_t{m_uIndexEntries} * index_entry::kSize);
  m_writer.overwriteStart(header);
}

void AVIOutput::writeIndex() {
  std::array<std::uint8_t, kChunkHeadSize> head;
  writeChunkHead(kIndex, static_cast<std::uint32_t>(m_uIndexEntries * index_entry::kSize), head.data());
  if (std::fseek(m_indexFile.get(), 0, SEEK_SET) != 0) {
    failTemporary("fseek");
  }
  m_writer.append(head.data(), head.size());
  std::array<std::uint8_t, kEntriesAtOnce * index_entry::kSize> entries;
  for (std::size_t left = m_uIndexEntries; left > 0;) {
    const std::size_t count = std::min(left, kEntriesAtOnce);
    if (std::fread(entries.data(), index_entry::kSize, count, m_indexFile.get()) != count) {
      failTemporary("fread");
    }
    m_writer.append(entries.data(), count * index_entry::kSize);
    left -= count;
  }
  m_indexFile.reset();
}
