#include <algorithm>
#include <cstring>
#include <limits>
#include <optional>
#include <vector>

#include "coreapi/platform/byteorder.h"
#include "coreapi/platform/largeblock.h"
#include "coreapi/qmci/audioinfo.h"
#include "coreapi/qmci/bitmapheader.h"
#include "coreapi/qmci/mimetypes.h"
#include "coreapi/qmci/videoinfo.h"
#include "coreapi/qmci/waveheader.h"
#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/socket/jfilesocket.h"
#include "storage/AVIIO/AVIFileInfo.h"
#include "storage/AVIIO/aviformat.h"
#include "storage/filekinds.h"
#include "storage/fileread.h"

using namespace avi_layout;
using namespace riff_layout;
using qm_platform::readLE16;
using qm_platform::readLE32;
using qm_platform::readLE64;

namespace {

constexpr std::size_t kMaxHeaderList = 0x100000;

/// Bytes that a picture of others may have in any case, and those that no header can ask for.
constexpr std::uint32_t kLeastLimit = 1U << 20;
constexpr std::uint32_t kMostLimit = 64U << 20;
constexpr std::uint32_t kDisabled = 1;           ///< a flag of a stream header
constexpr std::uint32_t kSizeTopBit = 1U << 31;  ///< of chunks that can't be
constexpr std::uint32_t kSizeNotKnown = 0xFFFFFFFF;
constexpr std::uint64_t kMicrosecondsPerMillisecond = 1000;

/// Bits of a sample of coded sound, once it is decoded.
constexpr std::uint16_t kDecodedBits = 16;

/// A chunk's head.
struct ChunkHead {
  std::uint32_t uCode = 0;
  std::uint32_t uSize = 0;
};

ChunkHead chunkAt(const std::uint8_t* pFrom) noexcept {
  return {readLE32(pFrom + kCodeAt), readLE32(pFrom + kSizeAt)};
}

/// Takes the chunk at the front of some bytes off, with its pad byte. Nothing when there is none.
std::optional<ChunkHead> takeChunk(std::span<const std::uint8_t>& bytes,
                                   std::span<const std::uint8_t>& body) {
  if (bytes.size() < kChunkHeadSize) {
    return std::nullopt;
  }
  const ChunkHead head = chunkAt(bytes.data());
  bytes = bytes.subspan(kChunkHeadSize);
  if (head.uSize > bytes.size()) {
    return std::nullopt;
  }
  body = bytes.first(head.uSize);
  bytes = bytes.subspan(static_cast<std::size_t>(std::min<std::uint64_t>(padded(head.uSize), bytes.size())));
  return head;
}

bool readChunkHead(JISocket& socket, ChunkHead& head) {
  std::uint8_t bytes[kChunkHeadSize];
  if (qm_utils::readFully(socket, bytes, sizeof bytes) != sizeof bytes) {
    return false;
  }
  head = chunkAt(bytes);
  return true;
}

/// Samplings of a frame of so many units, at least 1: a description without them couldn't be stored.
std::uint32_t samplingsOf(const AVIFileInfo::Timing& timing, std::uint32_t uSamplingRate, double dUnits) {
  const double dSamplings =
      timing.uRate == 0 ? 0 : dUnits * uSamplingRate * timing.uScale / timing.uRate + 0.5;
  return static_cast<std::uint32_t>(
      std::clamp<double>(dSamplings, 1, std::numeric_limits<std::uint32_t>::max()));
}

/// Takes over the description that this system's own writer puts behind the wave header; false for a header
/// of others. The header itself calls all of the system's sound PCM.
bool takeOwnAudio(std::span<const std::uint8_t> format, qm_ci::QMAudioInfo& info) {
  return format.size() > qm_ci::kWaveHeaderSize && format[qm_ci::kWaveHeaderSize] == '<' &&
         info.updateFromWFX(format);
}

void moveTo(JFileSocket& socket, std::uint64_t ullPlace) {
  socket.seek(static_cast<std::int64_t>(ullPlace), JFileSocket::kStart);
}

}  // namespace

AVIFileInfo::AVIFileInfo(JFileSocket& socket, const std::string& sName) : FileInfo(sName) {
  FileHeadReader reader(socket);
  readHeader(reader);
  readIndex(socket);
}

AVIFileInfo::AVIFileInfo(FileHeadReader& reader, const std::string& sName) : FileInfo(sName) {
  readHeader(reader);
  m_bAudioBlocks = m_bAudioBlocks || isCIStream(m_uFirstVideoStream);
}

std::uint32_t AVIFileInfo::streamOfChunk(std::uint32_t uCode) const noexcept {
  if (uCode == kAudioChunk && getStreamCount() == 1 && m_uFirstAudioStream == 1) {
    return 1;
  }
  const auto character = [uCode](int i) { return static_cast<char>(uCode >> (8 * i) & 0xFF); };
  const auto digit = [&](int i) { return static_cast<unsigned>(character(i) - '0'); };
  const bool bFrame = (character(2) == 'd' && (character(3) == 'c' || character(3) == 'b')) ||
                      (character(2) == 'w' && character(3) == 'b');
  return bFrame && digit(0) <= 9 && digit(1) <= 9 ? digit(0) * 10 + digit(1) + 1 : 0;
}

bool AVIFileInfo::isCIStream(std::uint32_t uStream) const {
  return uStream != 0 && uStream == m_uFirstVideoStream &&
         (m_uVideoHandler == stream_header::kHandler || m_uVideoHandler == fourcc("qmci"));
}

bool AVIFileInfo::hasFrameBlocks(std::uint32_t uStream) const {
  return isCIStream(uStream) || (m_bAudioBlocks && uStream != 0 && uStream == m_uFirstAudioStream);
}

// The header.

void AVIFileInfo::readHeader(FileHeadReader& reader) {
  m_uTypeMagic = file_kinds::kRiffMagic;
  std::uint8_t head[kListHeadSize];
  if (!reader.fill(head, sizeof head) || chunkAt(head).uCode != kRiff ||
      readLE32(head + kChunkHeadSize) != kAvi) {
    QM_THROW(JTextError, "Not an AVI file");
  }
  if (!reader.fill(head, sizeof head) || chunkAt(head).uCode != kList ||
      readLE32(head + kChunkHeadSize) != kHeaderList) {
    QM_THROW(JTextError, "Invalid AVI file : no header");
  }
  const std::uint32_t uSize = chunkAt(head).uSize;
  if (uSize > kMaxHeaderList) {
    QM_THROW(JTextError, "Invalid AVI file : header too long (%d bytes)", static_cast<int>(uSize));
  }
  std::vector<std::uint8_t> list = makeHeadBytes(uSize < sizeof kHeaderList ? 0 : uSize - sizeof kHeaderList);
  if (!reader.fill(list.data(), list.size())) {
    QM_THROW(JTextError, "Missing AVI compatibility header");
  }
  reader.skip(uSize % 2);
  readStreams(list);
  findMovi(reader);
}

void AVIFileInfo::readStreams(std::span<const std::uint8_t> list) {
  std::span<const std::uint8_t> body;
  const auto mainHeader = takeChunk(list, body);
  if (!mainHeader || mainHeader->uCode != kMainHeader || mainHeader->uSize < main_header::kSize) {
    QM_THROW(JTextError, "Missing AVI compatibility header");
  }
  m_streams.clear();
  while (m_streams.size() < kMaxStreams) {
    const auto chunk = takeChunk(list, body);
    if (!chunk) {
      return;
    }
    if (chunk->uCode == kJunk) {
      continue;
    }
    if (chunk->uCode != kList || body.size() < sizeof kStreamList || readLE32(body.data()) != kStreamList) {
      return;
    }
    body = body.subspan(sizeof kStreamList);
    std::span<const std::uint8_t> header;
    const auto headerChunk = takeChunk(body, header);
    // Some writers leave the last eight bytes of the published header out.
    if (!headerChunk || headerChunk->uCode != kStreamHeader || headerChunk->uSize < stream_header::kSize) {
      QM_THROW(JTextError, "bad type for stream header");
    }
    m_streams.push_back(std::make_unique<FileStreamInfo>());
    describeStream(header, body);
  }
}

void AVIFileInfo::describeStream(std::span<const std::uint8_t> header, std::span<const std::uint8_t> list) {
  const std::uint32_t uType = readLE32(header.data() + stream_header::kTypeAt);
  if ((readLE32(header.data() + stream_header::kFlagsAt) & kDisabled) != 0) {
    return;
  }
  const std::uint32_t uStream = getStreamCount();
  if (uType == stream_header::kVideoType) {
    if (m_uFirstVideoStream == 0) {
      m_uFirstVideoStream = uStream;
      m_uVideoHandler = readLE32(header.data() + stream_header::kHandlerAt);
    }
    describeVideo(header, list);
  } else if (uType == stream_header::kAudioType) {
    if (m_uFirstAudioStream == 0) {
      m_uFirstAudioStream = uStream;
    }
    describeAudio(header, list);
  }
}

void AVIFileInfo::describeVideo(std::span<const std::uint8_t> header, std::span<const std::uint8_t> list) {
  FileStreamInfo& stream = *m_streams.back();
  stream.setCount(readLE32(header.data() + stream_header::kLengthAt));
  std::span<const std::uint8_t> format;
  const auto chunk = takeChunk(list, format);
  if (!chunk || chunk->uCode != kStreamFormat || chunk->uSize < qm_ci::kBitmapHeaderSize) {
    QM_THROW(JTextError, "Missing stream format");
  }
  qm_ci::QMVideoInfo info;
  if (!info.updateFromBMI(format, 0)) {
    QM_THROW(JTextError, "updateVideoInfoFromBMI() failed.");
  }
  const std::uint32_t uScale = readLE32(header.data() + stream_header::kScaleAt);
  const std::uint32_t uRate = readLE32(header.data() + stream_header::kRateAt);
  if (uScale != 0 && uRate != 0) {
    info.setPictureRate(uRate, uScale);
  }
  if (!isCIStream(getStreamCount())) {
    // A coded picture may be larger than a plain one, so that the size in the format is no limit.
    const std::uint32_t uLargest = readLE32(header.data() + stream_header::kSuggestedBufferSizeAt);
    info.setNomMaxBitstreamSize(
        std::max(info.getNomMaxBitstreamSize(), std::clamp(uLargest, kLeastLimit, kMostLimit)));
  }
  stream.setStreamInfo(makeStreamInfo(qm_ci::QMCIVideoInfo(info.getCIInfo())));
}

AVIFileInfo::Timing AVIFileInfo::getAudioTiming(std::uint32_t uStream) const {
  return uStream >= 1 && uStream <= m_audioTimings.size() ? m_audioTimings[uStream - 1] : Timing();
}

void AVIFileInfo::describeAudio(std::span<const std::uint8_t> header, std::span<const std::uint8_t> list) {
  std::span<const std::uint8_t> format;
  const auto chunk = takeChunk(list, format);
  if (!chunk || chunk->uCode != kStreamFormat || chunk->uSize < qm_ci::kPcmHeaderSize) {
    QM_THROW(JTextError, "Missing audio stream format");
  }
  qm_ci::QMAudioInfo info;
  if (takeOwnAudio(format, info)) {
    m_bAudioBlocks = m_bAudioBlocks || m_uFirstAudioStream == getStreamCount();
    m_streams.back()->setStreamInfo(makeStreamInfo(qm_ci::QMCIAudioInfo(info.getCIInfo())));
    return;
  }
  if (!info.updateNotQMCIFromWFX(format)) {
    QM_THROW(JTextError, "updateAudioInfoNotQMCIFromWFX() failed.");
  }
  // Any sound would be told to be PCM.
  info.setMIMEType(qm_ci::waveMIMEType(qm_ci::readPcmHeader(format.data()).wFormatTag));
  if (info.getBitsPerSample() == 0) {
    info.setBitsPerSample(kDecodedBits);
  }
  const Timing timing{.uScale = readLE32(header.data() + stream_header::kScaleAt),
                      .uRate = readLE32(header.data() + stream_header::kRateAt),
                      .uSampleSize = readLE32(header.data() + stream_header::kSampleSizeAt),
                      .uLength = readLE32(header.data() + stream_header::kLengthAt)};
  m_audioTimings[m_streams.size() - 1] = timing;
  info.setSamplingsPerFrame(samplingsOf(timing, info.getSamplingRate(), 1));
  m_streams.back()->setStreamInfo(makeStreamInfo(qm_ci::QMCIAudioInfo(info.getCIInfo())));
}

/// Where a unit is a sampling, the frames of the index share them out.
void AVIFileInfo::setMeanSamplings(std::uint32_t uStream, std::uint32_t uFrames) {
  FileStreamInfo& stream = *getStream(uStream);
  const Timing timing = getAudioTiming(uStream);  // zeros of a stream that tells it itself
  if (timing.uSampleSize == 0 || uFrames == 0) {
    return;
  }
  const auto description = stream.getStreamInfo()->getBytes().subspan(qm_ci::StreamInfo::kDescriptionAt);
  qm_ci::QMAudioInfo info(description);
  info.setSamplingsPerFrame(
      samplingsOf(timing, info.getSamplingRate(), static_cast<double>(timing.uLength) / uFrames));
  stream.setStreamInfo(makeStreamInfo(qm_ci::QMCIAudioInfo(info.getCIInfo())));
}

/// Goes on to the list of frames, and stands at its first chunk then.
void AVIFileInfo::findMovi(FileHeadReader& reader) {
  std::uint8_t head[kChunkHeadSize];
  for (;;) {
    if (!reader.fill(head, sizeof head)) {
      return;  // a file without frames
    }
    const ChunkHead chunk = chunkAt(head);
    std::uint64_t ullLeft = padded(chunk.uSize);
    if (chunk.uCode == kList) {
      std::uint8_t type[sizeof kMovi];
      if (!reader.fill(type, sizeof type)) {
        return;
      }
      if (readLE32(type) == kMovi) {
        m_uDataStart = reader.getPosition();
        // Writers that haven't come to their end have put 0 or all ones there.
        m_uDataSize =
            chunk.uSize < sizeof kMovi || chunk.uSize == kSizeNotKnown ? 0 : chunk.uSize - sizeof kMovi;
        return;
      }
      ullLeft -= std::min<std::uint64_t>(ullLeft, sizeof type);
    }
    if (!reader.skip(ullLeft)) {
      return;
    }
  }
}

// The index.

void AVIFileInfo::readIndex(JFileSocket& socket) {
  if (m_uDataStart == 0) {
    return;
  }
  std::uint64_t ullFileSize = 0;
  JTime creation;
  socket.getInfo(nullptr, &ullFileSize, &creation);
  if (m_uDataSize == 0) {
    // The writer never came to its end.
    m_uDataSize = ullFileSize - std::min(ullFileSize, m_uDataStart);
  }
  std::uint64_t ullAt = m_uDataStart + padded(m_uDataSize);
  bool bTaken = false;
  while (ullAt < ullFileSize) {
    ChunkHead chunk;
    moveTo(socket, ullAt);
    if (!readChunkHead(socket, chunk)) {
      break;
    }
    if (chunk.uCode == kRiff) {
      QM_THROW(JTextError, "Invalid AVI file : it has several parts (OpenDML)");
    }
    if ((chunk.uSize & kSizeTopBit) != 0) {
      break;
    }
    ullAt += kChunkHeadSize;
    if (chunk.uCode == kIndex && !bTaken && ullAt <= ullFileSize && chunk.uSize <= ullFileSize - ullAt) {
      const auto pEntries = qm_platform::tryAllocate(chunk.uSize);
      if (!pEntries || qm_utils::readFully(socket, pEntries.get(), chunk.uSize) != chunk.uSize) {
        break;
      }
      takeIndex(socket, {pEntries.get(), chunk.uSize});
      bTaken = true;
    }
    ullAt += padded(chunk.uSize);
  }
  m_bAudioBlocks = m_bAudioBlocks || findAudioBlocks(socket);
  for (std::uint32_t uStream = 1; uStream <= getStreamCount(); ++uStream) {
    dateStream(socket, uStream, creation);
  }
}

/// Positions of the frames of each stream.
void AVIFileInfo::takeIndex(JFileSocket& socket, std::span<const std::uint8_t> entries) {
  const std::size_t uEntries = entries.size() / index_entry::kSize;
  const auto entryAt = [&](std::size_t i) { return entries.data() + i * index_entry::kSize; };
  const auto streamAt = [&](std::size_t i) {
    return streamOfChunk(readLE32(entryAt(i) + index_entry::kCodeAt));
  };
  std::vector<std::uint32_t> counts(getStreamCount() + 1, 0);
  for (std::size_t i = 0; i < uEntries; ++i) {
    const std::uint32_t uStream = streamAt(i);
    if (uStream < counts.size()) {
      ++counts[uStream];
    }
  }
  const std::uint64_t ullFrom = placesFrom(socket, entries);
  std::vector<std::unique_ptr<std::uint8_t[]>> arrays(counts.size());
  for (std::size_t uStream = 1; uStream < counts.size(); ++uStream) {
    if (counts[uStream] > 0) {
      arrays[uStream] = qm_platform::tryAllocate(counts[uStream] * index_layout::kPositionSize);
    }
  }
  std::vector<std::size_t> filled(counts.size(), 0);
  for (std::size_t i = 0; i < uEntries; ++i) {
    const std::uint32_t uStream = streamAt(i);
    if (uStream == 0 || uStream >= counts.size() || !arrays[uStream]) {
      continue;
    }
    const bool bKeyFrame = (readLE32(entryAt(i) + index_entry::kFlagsAt) & index_entry::kKeyFrame) != 0;
    const std::uint64_t ullPlace = ullFrom + readLE32(entryAt(i) + index_entry::kPlaceAt);
    writeIndexEntry({bKeyFrame ? ullPlace | index_layout::kKeyFrame : ullPlace, 0, 0, 0, 0},
                    FILEINDEX_POSITION,
                    arrays[uStream].get() + filled[uStream]++ * index_layout::kPositionSize);
  }
  for (std::uint32_t uStream = 1; uStream < counts.size(); ++uStream) {
    if (counts[uStream] > 0) {
      getStream(uStream)->setEntries(FILEINDEX_POSITION, std::move(arrays[uStream]), counts[uStream]);
      setMeanSamplings(uStream, counts[uStream]);
    } else {
      getStream(uStream)->setCount(0);
    }
  }
}

/// What the places of entries count from: the type of the list of frames, or, as some writers have it, the
/// start of the file. The first entry tells.
std::uint64_t AVIFileInfo::placesFrom(JFileSocket& socket, std::span<const std::uint8_t> entries) const {
  const std::uint64_t ullList = m_uDataStart - index_entry::kPlaceOfFirst;
  if (entries.size() < index_entry::kSize) {
    return ullList;
  }
  const auto isThere = [&](std::uint64_t ullFrom) {
    ChunkHead chunk;
    moveTo(socket, ullFrom + readLE32(entries.data() + index_entry::kPlaceAt));
    return readChunkHead(socket, chunk) && chunk.uCode == readLE32(entries.data() + index_entry::kCodeAt);
  };
  return !isThere(ullList) && isThere(0) ? 0 : ullList;
}

/// Whether the first audio frame begins with the system's block.
bool AVIFileInfo::findAudioBlocks(JFileSocket& socket) const {
  const FileStreamInfo* const pAudio = getStream(m_uFirstAudioStream);
  const auto first = pAudio != nullptr ? pAudio->getEntry(0) : std::nullopt;
  std::uint8_t bytes[kChunkHeadSize + frame_block::kSize];
  if (!first) {
    return false;
  }
  moveTo(socket, first->ullPosition & ~index_layout::kKeyFrame);
  const std::uint8_t* const pBlock = bytes + kChunkHeadSize;
  return qm_utils::readFully(socket, bytes, sizeof bytes) == sizeof bytes &&
         chunkAt(bytes).uSize >= frame_block::kSize && pBlock[frame_block::kMark1At] == frame_block::kMark1 &&
         readLE16(pBlock + frame_block::kMark2At) == frame_block::kMark2;
}

void AVIFileInfo::dateStream(JFileSocket& socket, std::uint32_t uStream, JTime creation) {
  FileStreamInfo& stream = *getStream(uStream);
  const std::uint32_t uCount = stream.getCount();
  if (uCount == 0 || !stream.getEntry(0)) {
    if (!hasFrameBlocks(uStream)) {
      stream.setFirstDate(creation);  // its frames count from it
    }
    return;
  }
  const JTime first = frameTime(socket, uStream, 0);
  const JTime last = frameTime(socket, uStream, uCount - 1);
  stream.setFirstDate(first != JTime() ? first : creation);
  const FramePeriod period = stream.getPeriod();
  const std::uint64_t ullSince =
      period.uDenominator == 0
          ? 0
          : std::uint64_t{uCount - 1} * kMicrosecondsPerMillisecond * period.uNumerator / period.uDenominator;
  stream.setLastDate(last != JTime()
                         ? last
                         : stream.getFirstDate().add(static_cast<std::int64_t>(
                               std::min<std::uint64_t>(ullSince, std::numeric_limits<std::int64_t>::max()))));
}

/// The time in the block of a frame; 0 where there is none.
JTime AVIFileInfo::frameTime(JFileSocket& socket, std::uint32_t uStream, std::uint32_t uNumber) const {
  const FileStreamInfo& stream = *getStream(uStream);
  std::uint8_t bytes[kChunkHeadSize + frame_block::kSize];
  if (!hasFrameBlocks(uStream)) {
    return {};
  }
  const std::uint64_t ullPlace = stream.getEntry(uNumber)->ullPosition & ~index_layout::kKeyFrame;
  moveTo(socket, ullPlace);
  if (qm_utils::readFully(socket, bytes, sizeof bytes) != sizeof bytes ||
      streamOfChunk(chunkAt(bytes).uCode) != uStream || chunkAt(bytes).uSize < frame_block::kSize) {
    return {};
  }
  return JTime::fromMicroseconds(readLE64(bytes + kChunkHeadSize + frame_block::kTimeStampAt));
}
