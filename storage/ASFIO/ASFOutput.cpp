#include "storage/ASFIO/ASFOutput.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>
#include <utility>

#include "coreapi/platform/byteorder.h"
#include "coreapi/qmutils/thread/namedassert.h"
#include "storage/saturated.h"

namespace {

using namespace asf_layout;
using UnitHead = std::array<std::uint8_t, data_unit::kHeadSize>;

/// Alignment of the header's buffer where the socket demands none.
constexpr std::uint32_t kAnyAlignment = 16;

qm_utils::AlignedBuffer allocBlock(std::size_t size, std::uint32_t uAlignment) {
  qm_utils::AlignedBuffer pBlock(static_cast<std::uint8_t*>(qm_utils::allocAligned(size, uAlignment)));
  if (!pBlock) {
    QM_THROW(JTextError, "Could not allocate memory to write header");
  }
  return pBlock;
}

/// The block size of the socket's direct I/O; 0 without.
std::uint32_t blockSizeOf(const JSocket& socket) {
  const std::uint32_t uSize = socket.getAlignment();
  if (uSize != 0 && !isBlockSize(uSize)) {
    QM_THROW(JTextError, "Unsupported direct i/o block size");
  }
  return uSize;
}

UnitHead unitHead(std::uint32_t uStreamNumber, const qm_ci::ConstBitstream& frame,
                  std::uint32_t uPayloadSize) noexcept {
  UnitHead head{};
  qm_platform::writeLE32(head.data() + data_unit::kStreamAt, uStreamNumber);
  qm_platform::writeLE32(head.data() + data_unit::kPayloadSizeAt, uPayloadSize);
  qm_platform::writeLE16(head.data() + data_unit::kPictureTypeAt, frame.getPictureType());
  qm_platform::writeLE16(head.data() + data_unit::kAccessFlagsAt, frame.getAccessFlags());
  qm_platform::writeLE64(head.data() + data_unit::kTimeStampAt, frame.getTimestamp());
  qm_platform::writeLE64(head.data() + data_unit::kFrameNumberAt, frame.getFrameNumber());
  qm_platform::writeLE32(head.data() + data_unit::kDecoderPipeAt, frame.getDecoderPipe());
  head[data_unit::kFrameExtraAt] = static_cast<std::uint8_t>(frame.getFrameExtra());
  return head;
}

std::uint64_t indexSize(const FileStreamInfo& stream) {
  return kObjectHeadSize + std::uint64_t{stream.getCount()} * index_layout::kCISize;
}

/// A mean as a field holds it; 0 of nothing.
std::uint32_t mean(std::uint64_t uTotal, std::uint64_t uCount) noexcept {
  return uCount != 0 ? saturated<std::uint32_t>(uTotal / uCount) : 0;
}

}  // namespace

ASFStream::ASFStream(const qm_ci::StreamInfo& info) : streamInfo(info) {
  const double period = info.getFramePeriod();
  framesPerSecond = period > 0.0 ? 1000.0 / period : 0.0;
}

ASFOutput::ASFOutput(std::unique_ptr<JSocket> pSocket, const std::string& sFileName)
    : ASFOutput(std::make_unique<ASFFileInfoOut>(sFileName, blockSizeOf(*pSocket)), std::move(pSocket)) {}

ASFOutput::ASFOutput(std::unique_ptr<ASFFileInfoOut> pFileInfo, std::unique_ptr<JSocket>&& pSocket)
    : FileOutput(std::move(pSocket), std::move(pFileInfo)),
      m_fileInfo(static_cast<ASFFileInfoOut&>(*m_poFileInfo)),
      m_pool(*this) {}

ASFOutput::~ASFOutput() {
  if (m_bStarted) {
    finishing([this] { finish(); });
  }
}

std::uint32_t ASFOutput::addStream(const qm_ci::StreamInfo& streamInfo) {
  checkNotStarted();
  m_streams.emplace_back(streamInfo);
  return static_cast<std::uint32_t>(m_streams.size());
}

JParams* ASFOutput::getStreamParams(std::uint32_t uStreamNumber) {
  return uStreamNumber >= 1 && uStreamNumber <= m_streams.size() ? &m_streams[uStreamNumber - 1].params
                                                                 : nullptr;
}

void ASFOutput::start(const FileAttributes* pAttributes) {
  checkNotStarted();
  m_position = 0;
  makeStreamRecords();
  m_properties.ullCreationDate = m_fileInfo.getCreationDate().getMicroseconds() * file_properties::kDateUnits;
  m_properties.dwFlags =
      file_properties::kUnfinished | file_properties::kAlwaysSet | blockFlags(getIOAlignBlockSize());
  m_properties.wStreamCount = saturated<std::uint16_t>(m_streams.size());
  std::vector<AsfStreamDescription> descriptions;
  for (const ASFStream& stream : m_streams) {
    descriptions.push_back({&stream.streamInfo, &stream.params, stream.framesPerSecond});
  }
  m_header = makeAsfHeader(m_properties, descriptions, getParams());
  const std::uint64_t uSize = m_header.bytes.size() + kObjectHeadSize;
  m_fileInfo.setDataStart(isIOAligned() ? roundedUp(uSize, getIOAlignBlockSize()) : uSize);
  if (isIOAligned()) {
    reserveAlignBuffer(getIOAlignBlockSize());
  }
  writeHeader(false);
  FileOutput::start(pAttributes);
}

void ASFOutput::makeStreamRecords() {
  m_fileInfo.resetStreams(static_cast<std::uint32_t>(m_streams.size()));
  const auto keepFirst = [](std::uint32_t uFirst, std::uint32_t uNumber) {
    return uFirst != 0 ? uFirst : uNumber;
  };
  for (std::uint32_t uNumber = 1; uNumber <= m_streams.size(); ++uNumber) {
    const ASFStream& stream = m_streams[uNumber - 1];
    FileStreamInfo& record = *m_fileInfo.getStream(uNumber);
    record.setStreamInfo(stream.streamInfo);
    record.setIndexType(FILEINDEX_CI);
    record.getParams() = stream.params;
    switch (stream.streamInfo.getType()) {
      case qm_ci::StreamInfo::kVideo:
        m_fileInfo.setFirstVideoStream(keepFirst(m_fileInfo.getFirstVideoStream(), uNumber));
        break;
      case qm_ci::StreamInfo::kAudio:
        m_fileInfo.setFirstAudioStream(keepFirst(m_fileInfo.getFirstAudioStream(), uNumber));
        break;
      case qm_ci::StreamInfo::kData:
        m_fileInfo.setFirstDataStream(keepFirst(m_fileInfo.getFirstDataStream(), uNumber));
        break;
      default:
        break;
    }
  }
}

/// Writes all that stands in front of the data units: the header, the data object's head, and what fills up a
/// block. The final one replaces the first one, and tells the data object's size.
void ASFOutput::writeHeader(bool bFinal) {
  const std::size_t size = m_fileInfo.getDataStart();
  const qm_utils::AlignedBuffer pBlock =
      allocBlock(size, isIOAligned() ? getIOAlignBlockSize() : kAnyAlignment);
  const std::size_t headerSize = m_header.bytes.size();
  std::memcpy(pBlock.get(), m_header.bytes.data(), headerSize);
  std::memset(pBlock.get() + headerSize, 0, size - headerSize);
  const std::uint64_t uDataObjectSize = bFinal ? size + m_fileInfo.getDataSize() - headerSize : 0;
  writeAsfObjectHead(kDataObject, uDataObjectSize, pBlock.get() + headerSize);
  if (bFinal) {
    m_writer.overwriteStart({pBlock.get(), size});
  } else {
    m_writer.append(pBlock.get(), size);
  }
}

void ASFOutput::writeFrame(std::uint32_t uStreamNumber, const qm_ci::ConstBitstream& oCIBitstream,
                           std::uint32_t uTime, std::uint32_t /*uReserved*/) {
  checkStream(uStreamNumber);
  const JIoBuf payload = payloadOf(oCIBitstream);
  UnitHead head = unitHead(uStreamNumber, oCIBitstream, payload.bufLength);
  const std::uint64_t uUnitSize = head.size() + std::uint64_t{payload.bufLength};
  std::array<JIoBuf, 2> bufs = {{{head.data(), head.size()}, payload}};
  std::span<const JIoBuf> unit = bufs;
  if (isIOAligned()) {
    bufs[0] = alignedUnit(head, payload);
    unit = unit.first(1);
  }
  if (uStreamNumber == 1) {
    writeAsync(unit, uUnitSize, uStreamNumber, oCIBitstream, uTime);
  } else {
    m_writer.append(unit);
    accountUnit(uStreamNumber, oCIBitstream, uTime, unitSizeInFile(uUnitSize));
  }
}

/// A socket tells a failure to the notify object or throws it, as files do; a frame that is thrown goes back
/// to the pool here.
void ASFOutput::writeAsync(std::span<const JIoBuf> unit, std::uint64_t uUnitSize, std::uint32_t uStreamNumber,
                           const qm_ci::ConstBitstream& oCIBitstream, std::uint32_t uTime) {
  std::unique_ptr<AsyncIONotifyBitstream> pNotifyObject = m_pool.get();
  JASSERT(pNotifyObject);
  if (!pNotifyObject) {
    return;
  }
  pNotifyObject->set(uStreamNumber, uTime, oCIBitstream, uUnitSize);
  AsyncIONotifyBitstream* const pNotify = pNotifyObject.release();
  try {
    m_writer.appendAsync(unit, *pNotify);
  } catch (...) {
    pNotify->onError();
    throw;
  }
}

void ASFOutput::reserveAlignBuffer(std::size_t size) {
  if (size > m_alignBufferSize) {
    m_alignBufferSize = 0;
    m_alignBuffer = allocBlock(size, getIOAlignBlockSize());
    m_alignBufferSize = size;
  }
}

/// The unit in blocks, filled up with zeros, in the writer's aligned buffer.
JIoBuf ASFOutput::alignedUnit(std::span<const std::uint8_t> head, const JIoBuf& payload) {
  const std::uint64_t uSize = unitSizeInFile(head.size() + std::uint64_t{payload.bufLength});
  if (uSize > std::numeric_limits<std::uint32_t>::max()) {
    QM_THROW(JTextError, "the frame is too large");
  }
  reserveAlignBuffer(uSize);
  std::uint8_t* pTo = std::copy(head.begin(), head.end(), m_alignBuffer.get());
  if (payload.bufLength != 0) {
    std::memcpy(pTo, payload.pBuf, payload.bufLength);
    pTo += payload.bufLength;
  }
  std::fill(pTo, m_alignBuffer.get() + uSize, std::uint8_t{0});
  return {m_alignBuffer.get(), static_cast<std::uint32_t>(uSize)};
}

std::uint64_t ASFOutput::unitSizeInFile(std::uint64_t uUnitSize) const noexcept {
  return isIOAligned() ? roundedUp(uUnitSize, getIOAlignBlockSize()) : uUnitSize;
}

void ASFOutput::unitWritten(std::uint32_t uStreamNumber, const qm_ci::ConstBitstream& header,
                            std::uint32_t uTime, std::uint64_t uSize) {
  m_writer.completed(uSize);
  accountUnit(uStreamNumber, header, uTime, uSize);
}

void ASFOutput::giveBack(AsyncIONotifyBitstream* pNotify) noexcept {
  m_pool.put(std::unique_ptr<AsyncIONotifyBitstream>(pNotify));
}

/// For readers of the growing file the entry and the size come at once: one that finds the frame in the index
/// also finds that the file has it.
void ASFOutput::accountUnit(std::uint32_t uStreamNumber, const qm_ci::ConstBitstream& oCIBitstream,
                            std::uint32_t uTime, std::uint64_t uSize) {
  const JAutoLock lock(m_fileInfo.getMutex());
  account(uStreamNumber, m_fileInfo.getDataSize(), oCIBitstream);
  if (isCounted(oCIBitstream)) {
    ASFStream& stream = m_streams[uStreamNumber - 1];
    stream.totalBytes += uSize;
    m_lastTime = std::max(m_lastTime, uTime);
    stream.largestUnit = std::max(stream.largestUnit, uSize);
  }
  m_position += uSize;
  m_fileInfo.addToDataSize(uSize);
}

void ASFOutput::finish() {
  // No write is under way: the asynchronous forms of sockets have ended when they return.
  if (isIOAligned()) {
    writeAlignedIndexes();
  } else {
    writeIndexes();
  }
  computeStatistics();
  writeHeader(true);
}

/// All indexes must be there before the first is written, so that a file that can't be finished ends with its
/// frames.
void ASFOutput::writeIndexes() {
  for (std::uint32_t uNumber = 1; uNumber <= m_streams.size(); ++uNumber) {
    if (m_fileInfo.getStream(uNumber)->getEntries() == nullptr) {
      QM_THROW(JTextError, "Unable to write CI index");
    }
  }
  for (std::uint32_t uNumber = 1; uNumber <= m_streams.size(); ++uNumber) {
    const FileStreamInfo& stream = *m_fileInfo.getStream(uNumber);
    std::array<std::uint8_t, kObjectHeadSize> head;
    writeAsfObjectHead(kIndexObject, indexSize(stream), head.data());
    m_writer.append(head.data(), head.size());
    m_writer.append(stream.getEntries(), indexSize(stream) - kObjectHeadSize);
  }
}

/// All indexes and the padding object go out in one piece. A stream without an index has no object there.
void ASFOutput::writeAlignedIndexes() {
  std::uint64_t uSize = kObjectHeadSize;
  for (std::uint32_t uNumber = 1; uNumber <= m_streams.size(); ++uNumber) {
    const FileStreamInfo& stream = *m_fileInfo.getStream(uNumber);
    uSize += stream.getEntries() != nullptr ? indexSize(stream) : 0;
  }
  uSize = roundedUp(uSize, getIOAlignBlockSize());
  const qm_utils::AlignedBuffer pBlock = allocBlock(uSize, getIOAlignBlockSize());
  std::uint8_t* pTo = pBlock.get();
  for (std::uint32_t uNumber = 1; uNumber <= m_streams.size(); ++uNumber) {
    const FileStreamInfo& stream = *m_fileInfo.getStream(uNumber);
    if (stream.getEntries() != nullptr) {
      writeAsfObjectHead(kIndexObject, indexSize(stream), pTo);
      std::memcpy(pTo + kObjectHeadSize, stream.getEntries(), indexSize(stream) - kObjectHeadSize);
      pTo += indexSize(stream);
    }
  }
  const auto uLeft = static_cast<std::size_t>(pBlock.get() + uSize - pTo);
  std::memset(pTo, 0, uLeft);
  writeAsfObjectHead(kPaddingObject, uLeft, pTo);
  m_writer.append(pBlock.get(), uSize);
}

/// Puts what is known at the end into the header's bytes.
void ASFOutput::computeStatistics() {
  std::uint64_t uBytes = 0;
  std::uint64_t uFrames = 0;
  m_properties.dwFlags &= ~file_properties::kUnfinished;
  m_properties.ullLastTime = m_lastTime;
  for (std::uint32_t uNumber = 1; uNumber <= m_streams.size(); ++uNumber) {
    const AsfStreamStatistics statistics = statisticsOf(uNumber);
    writeAsfStreamStatistics(statistics, m_header.bytes.data() + m_header.streamsAt[uNumber - 1]);
    m_properties.dwPeakBitRate = std::max(m_properties.dwPeakBitRate, statistics.dwPeakBitRate);
    m_properties.dwLargestUnit = std::max(m_properties.dwLargestUnit, statistics.dwLargestUnit);
    uBytes += m_streams[uNumber - 1].totalBytes;
    uFrames += m_fileInfo.getStream(uNumber)->getCount();
  }
  m_properties.dwAverageUnit = mean(uBytes, uFrames);
  m_properties.dwFrameCount = static_cast<std::uint32_t>(uFrames);
  writeAsfFileProperties(m_properties, m_header.bytes.data() + file_properties::kPlace);
}

AsfStreamStatistics ASFOutput::statisticsOf(std::uint32_t uStreamNumber) const {
  const ASFStream& stream = m_streams[uStreamNumber - 1];
  const FileStreamInfo& record = *m_fileInfo.getStream(uStreamNumber);
  const double seconds = (double{1} + m_lastTime) / 1000.0;
  AsfStreamStatistics statistics;
  statistics.ullFirstDate = record.getFirstDate().getMicroseconds();
  statistics.ullLastDate = record.getLastDate().getMicroseconds();
  statistics.dwAverageBitRate =
      saturated<std::uint32_t>(static_cast<double>(stream.totalBytes) * 8 / seconds);
  statistics.dwPeakBitRate =
      saturated<std::uint32_t>(static_cast<double>(stream.largestUnit) * 8 * stream.framesPerSecond);
  statistics.dwAverageUnit = mean(stream.totalBytes, record.getCount());
  statistics.dwLargestUnit = static_cast<std::uint32_t>(stream.largestUnit);
  return statistics;
}
