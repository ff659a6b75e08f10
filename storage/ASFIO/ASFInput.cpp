#include "storage/ASFIO/ASFInput.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "coreapi/platform/byteorder.h"
#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/socket/jfilesocket.h"
#include "storage/ASFIO/asfheaderreader.h"
#include "storage/ASFIO/asfkinds.h"
#include "storage/fileread.h"

using namespace asf_layout;
using qm_platform::readLE16;
using qm_platform::readLE32;
using qm_platform::readLE64;

namespace {

/// Blocks that are read at a time past the system's cache, in bytes.
constexpr std::size_t kBlocksSize = std::size_t{256} << 10;

/// The flags of a frame in files whose units have none.
constexpr std::uint16_t kKeyFrameFlags = qm_ci::kAccessBit0 | qm_ci::kAccessBit1;

/// Video whose every fourth frame can be begun at, where a file doesn't tell.
constexpr std::string_view kGroupedVideo = "video/QMV2";
constexpr std::uint64_t kGroupSize = 4;

std::uint32_t alignmentOf(const JISocket& socket, const ASFFileInfo& info) {
  const std::uint32_t uAlignment = socket.getAlignment();
  if (uAlignment != 0) {
    if (!info.isIOAligned()) {
      QM_THROW(JTextError, "File not aligned for direct i/o");
    }
    if (info.getIOAlignBlockSize() < uAlignment) {
      QM_THROW(JTextError, "File alignment not compatible with direct i/o");
    }
  }
  return uAlignment;
}

}  // namespace

UnitSource::UnitSource(JISocket& socket, std::uint32_t uAlignment)
    : m_socket(socket), m_uAlignment(uAlignment) {
  if (m_uAlignment != 0) {
    m_pBlocks.reset(static_cast<std::uint8_t*>(qm_utils::allocAligned(kBlocksSize, m_uAlignment)));
    if (!m_pBlocks) {
      QM_THROW(JTextError, "out of memory");
    }
  }
}

std::size_t UnitSource::read(void* pBuffer, std::size_t uSize) {
  if (m_uAlignment == 0) {
    return qm_utils::readFully(m_socket, pBuffer, uSize);
  }
  auto* const pBytes = static_cast<std::uint8_t*>(pBuffer);
  std::size_t uDone = 0;
  while (uDone < uSize) {
    if (m_uTaken == m_uFilled) {
      const auto uWanted = static_cast<std::size_t>(
          std::min<std::uint64_t>(roundedUp(uSize - uDone, m_uAlignment), kBlocksSize));
      m_uTaken = 0;
      m_uFilled = m_socket.read(m_pBlocks.get(), uWanted);
      if (m_uFilled == 0) {
        break;
      }
    }
    const std::size_t uPart = std::min(uSize - uDone, m_uFilled - m_uTaken);
    std::memcpy(pBytes + uDone, m_pBlocks.get() + m_uTaken, uPart);
    m_uTaken += uPart;
    uDone += uPart;
  }
  return uDone;
}

bool UnitSource::skip(std::uint64_t uSize) {
  const std::uint64_t uHeld = std::min<std::uint64_t>(uSize, m_uFilled - m_uTaken);
  m_uTaken += static_cast<std::size_t>(uHeld);
  return skipBytes(m_socket, uSize - uHeld);
}

std::unique_ptr<FileInput> ASFFileInfo::makeInput(std::unique_ptr<JISocket> pSocket) {
  return std::make_unique<ASFInput>(std::move(pSocket), *this);
}

ASFInput::ASFInput(std::unique_ptr<JISocket> pSocket, ASFFileInfo& fileInfo)
    : FileInput(std::move(pSocket), fileInfo),
      m_info(fileInfo),
      m_source(*m_pSocket, alignmentOf(*m_pSocket, fileInfo)) {
  if (m_pFile != nullptr) {
    m_pFile->seek(static_cast<std::int64_t>(m_info.getDataStart()), JFileSocket::kStart);
  }
}

// Data units.

/// The stream that a unit of kind 0 names; 0 for none.
std::uint32_t ASFInput::streamOfUnit(std::uint16_t wNumber) const noexcept {
  for (std::uint32_t uStream = 1; uStream <= m_info.getStreamCount(); ++uStream) {
    if (m_info.getUnitNumber(uStream) == wNumber) {
      return uStream;
    }
  }
  return 0;
}

void ASFInput::readHead2(const std::uint8_t* pHead, Unit& unit) const {
  unit.uStream = readLE32(pHead + data_unit::kStreamAt);
  unit.uPayload = readLE32(pHead + data_unit::kPayloadSizeAt);
  unit.wPictureType = readLE16(pHead + data_unit::kPictureTypeAt);
  unit.wAccessFlags = readLE16(pHead + data_unit::kAccessFlagsAt);
  unit.ullTimeStamp = readLE64(pHead + data_unit::kTimeStampAt);
  unit.ullFrameNumber = readLE64(pHead + data_unit::kFrameNumberAt);
  unit.dwDecoderPipe = readLE32(pHead + data_unit::kDecoderPipeAt);
  const std::uint16_t wKind = qm_ci::getFrameKind(unit.wPictureType);
  unit.bKeyFrame = qm_ci::isAccessPoint(unit.wAccessFlags);
  unit.bAuthentication = wKind == qm_ci::kFrameKindAuthentication;
  unit.bSynthetic = qm_ci::isMediaFrame(unit.wPictureType);
}

void ASFInput::readHead1(const std::uint8_t* pHead, Unit& unit) const {
  const std::uint32_t uSizeAndStream = readLE32(pHead + data_unit1::kSizeAndStreamAt);
  const std::uint64_t ullTime = readLE64(pHead + data_unit1::kTimeAt);
  const std::uint32_t uFlags = readLE32(pHead + data_unit1::kFlagsAt);
  unit.uStream = (uSizeAndStream >> data_unit1::kStreamShift) + 1;
  unit.uPayload = uSizeAndStream & data_unit1::kSizeMask;
  unit.ullFrameNumber = readLE32(pHead + data_unit1::kFrameNumberAt);
  unit.ullTimeStamp = ullTime & ~data_unit1::kKeyFrame;
  unit.bKeyFrame = (ullTime & data_unit1::kKeyFrame) != 0;
  unit.bSynthetic = (uFlags & data_unit1::kSynthetic) != 0;
  unit.bAuthentication = (uFlags & data_unit1::kAuthentication) != 0;
}

/// False for a unit that says it is shorter than its head.
bool ASFInput::readHead0(const std::uint8_t* pHead, Unit& unit) {
  const std::uint32_t uUnit = readLE32(pHead + data_unit0::kUnitSizeAt);
  unit.uStream = streamOfUnit(readLE16(pHead + data_unit0::kStreamAt));
  unit.uPayload = uUnit - static_cast<std::uint32_t>(data_unit0::kHeadSize);
  m_uExtra = readLE32(pHead + data_unit0::kExtraAt);
  return uUnit >= data_unit0::kHeadSize;
}

ASFInput::Head ASFInput::readHead(Unit& unit) {
  std::array<std::uint8_t, data_unit::kHeadSize> head{};
  const std::size_t uSize = unitHeadSize(m_info.getKind());
  if (m_source.read(head.data(), uSize) != uSize) {
    return Head::kShort;
  }
  m_uExtra = 0;
  switch (m_info.getKind()) {
    case 2:
      readHead2(head.data(), unit);
      m_uExtra = head[data_unit::kFrameExtraAt];
      return Head::kWhole;
    case 1:
      readHead1(head.data(), unit);
      return Head::kWhole;
    default:
      return readHead0(head.data(), unit) ? Head::kWhole : Head::kDamaged;
  }
}

/// Place of the unit that follows one.
std::uint64_t ASFInput::behind(std::uint64_t uPosition, const Unit& unit) const noexcept {
  const std::uint64_t uSize = unitHeadSize(m_info.getKind()) + std::uint64_t{unit.uPayload};
  return uPosition + (m_info.isIOAligned() ? roundedUp(uSize, m_info.getIOAlignBlockSize()) : uSize);
}

/// Stands behind the head of a unit now.
void ASFInput::enter(std::uint64_t uPosition, std::uint64_t uNext) noexcept {
  m_uFramePosition = uPosition;
  m_uPosition = uNext;
  m_uPending = uNext - uPosition - unitHeadSize(m_info.getKind());
}

// What is told of a frame.

/// Key frame, synthetic and authentication, as far as the file can tell them.
void ASFInput::settleFlags(Unit& unit, std::int64_t iNumber) const {
  unit.bAuthentication = unit.bAuthentication && m_info.hasAuthentication();
  unit.bSynthetic = unit.bSynthetic && m_info.hasSyntheticFlag();
  const FileStreamInfo& stream = *m_info.getStream(unit.uStream);
  const auto uNumber = static_cast<std::uint32_t>(iNumber);
  if (m_info.getKind() == 0) {
    unit.ullFrameNumber = uNumber;
  }
  if (!m_info.hasValidKeyFrameFlag() || (m_info.getKind() == 0 && !stream.getEntry(uNumber))) {
    unit.bKeyFrame = workOutKeyFrame(unit);
  } else if (m_info.getKind() == 0) {
    unit.bKeyFrame = stream.isKeyFrame(uNumber);
  }
}

/// For files whose flags of key frames can't be relied on.
bool ASFInput::workOutKeyFrame(const Unit& unit) const {
  const FileStreamInfo& stream = *m_info.getStream(unit.uStream);
  const qm_ci::StreamInfo* const pStreamInfo = stream.getStreamInfo();
  if (pStreamInfo == nullptr || !pStreamInfo->isVideo()) {
    return true;
  }
  if (stream.getIndexType() == FILEINDEX_CI) {
    if (const auto first = stream.getEntry(0)) {
      const std::uint64_t uPlace = unit.ullFrameNumber - first->ullFrameNumber;
      const auto entry =
          uPlace < stream.getCount() ? stream.getEntry(static_cast<std::uint32_t>(uPlace)) : std::nullopt;
      if (entry) {
        return (entry->dwFlags & kKeyFrameFlags) != 0;
      }
    }
  }
  return pStreamInfo->getMIMEType() != kGroupedVideo || unit.ullFrameNumber % kGroupSize == 0;
}

void ASFInput::settleTime(Unit& unit, std::int64_t iNumber) const {
  if (m_info.getKind() == 0 || m_bTimesFromPeriods) {
    unit.ullTimeStamp =
        timeByPeriod(unit.uStream, static_cast<std::uint64_t>(std::max<std::int64_t>(iNumber, 0)));
  }
  if (!unit.bAuthentication && !m_info.isIndexRebuild()) {
    const FileStreamInfo& stream = *m_info.getStream(unit.uStream);
    const std::uint64_t ullIndexed =
        stream.getTimeByNumber(static_cast<std::uint32_t>(iNumber)).getMicroseconds();
    if (ullIndexed != 0) {
      unit.ullTimeStamp = ullIndexed;
    }
  }
}

/// The header of a record.
void ASFInput::fill(const Unit& unit, qm_ci::Bitstream* pBitstream) const {
  if (pBitstream == nullptr) {
    return;
  }
  const bool bOwnHead = m_info.getKind() == 2;
  std::uint16_t wPictureType = unit.wPictureType;
  if (!bOwnHead) {
    wPictureType = unit.bAuthentication ? qm_ci::kFrameKindAuthentication : std::uint16_t{0};
  }
  pBitstream->setTimestamp(unit.ullTimeStamp);
  pBitstream->setFrameNumber(unit.ullFrameNumber);
  pBitstream->setAccessFlags(bOwnHead         ? unit.wAccessFlags
                             : unit.bKeyFrame ? kKeyFrameFlags
                                              : std::uint16_t{0});
  pBitstream->setPictureType(wPictureType);
  pBitstream->setDecoderPipe(unit.dwDecoderPipe);
  pBitstream->setFrameExtra(m_uExtra);
}

// Reading.

int ASFInput::getNextFrame(std::uint32_t* pStream, std::uint32_t* pSize, qm_ci::Bitstream* pBitstream,
                           bool bKeepAuthentication) {
  bool bWrapped = false;
  for (;;) {
    if (m_uPending > 0) {
      m_source.skip(std::exchange(m_uPending, 0));
    }
    const std::uint64_t uDataSize = m_info.getDataSize();
    if (uDataSize != 0 && m_uPosition >= uDataSize) {
      if (const int iResult = atEnd(bWrapped); iResult != kFrame) {
        return iResult;
      }
      continue;
    }
    Unit unit;
    const Head head = readHead(unit);
    if (head == Head::kShort && uDataSize == 0) {
      m_info.settleDataSize(m_uPosition);
      if (const int iResult = wrap(bWrapped); iResult != kFrame) {
        return iResult;
      }
      continue;
    }
    if (head != Head::kWhole) {
      return kFailed;
    }
    const std::uint64_t uPosition = m_uPosition;
    const std::uint64_t uNext = behind(uPosition, unit);
    const bool bValid = isFrameValid(unit.uStream, unit.uPayload);
    if (uDataSize != 0 && uNext > uDataSize) {
      m_uPosition = uDataSize;
      if (const int iResult = atEnd(bWrapped); iResult != kFrame) {
        return iResult;
      }
      continue;
    }
    enter(uPosition, uNext);
    if (!bValid) {
      continue;
    }
    const std::int64_t iLast = getLastNumber(unit.uStream);
    settleFlags(unit, iLast + 1);
    if (unit.bAuthentication && !bKeepAuthentication) {
      continue;
    }
    const std::int64_t iNumber = unit.bAuthentication ? iLast : iLast + 1;
    settleTime(unit, iNumber);
    if (!unit.bAuthentication) {
      setLastNumber(unit.uStream, iNumber);
      addToIndex(unit, iNumber, uPosition);
    }
    m_bKeyFrame = unit.bKeyFrame;
    m_bSynthetic = unit.bSynthetic;
    m_bAuthentication = unit.bAuthentication;
    fill(unit, pBitstream);
    if (pStream != nullptr) {
      *pStream = unit.uStream;
    }
    if (pSize != nullptr) {
      *pSize = unit.uPayload;
    }
    return bWrapped ? kWrapped : kFrame;
  }
}

/// A frame that is walked by for the first time goes into the index of a file that came without one.
void ASFInput::addToIndex(const Unit& unit, std::int64_t iNumber, std::uint64_t uPosition) {
  const JAutoLock lock(m_info.getMutex());
  if (!m_info.isIndexRebuild() || iNumber < m_info.getStream(unit.uStream)->getCount()) {
    return;
  }
  qm_ci::Bitstream frame;
  std::array<std::uint8_t, qm_ci::Bitstream::m_uMinQMCIBitstreamSize> header{};
  frame.attach(header.data(), header.size());
  fill(unit, &frame);
  // In the short form the position carries the mark of a key frame.
  const bool bMarked = unit.bKeyFrame && m_info.getStream(unit.uStream)->getIndexType() == FILEINDEX_NTP;
  m_info.addCIEntry(unit.uStream, static_cast<std::uint32_t>(iNumber),
                    bMarked ? uPosition | index_layout::kKeyFrame : uPosition, frame);
}

/// The end of a file whose size is known. kFrame to go on from the start.
int ASFInput::atEnd(bool& bWrapped) {
  m_info.setIndexRebuild(false);
  return wrap(bWrapped);
}

int ASFInput::wrap(bool& bWrapped) {
  if (!m_bLoop) {
    return kEnd;
  }
  if (std::exchange(bWrapped, true) || !rewind()) {
    return kFailed;
  }
  return kFrame;
}

bool ASFInput::rewind() {
  m_source.drop();
  m_uPending = 0;
  if (m_pFile != nullptr) {
    m_pFile->seek(static_cast<std::int64_t>(m_info.getDataStart()), JFileSocket::kStart);
  } else if (!rewindInSequence()) {
    return false;
  }
  m_uPosition = 0;
  resetLastNumbers();
  return true;
}

/// A channel that only goes back to its own start: walks to the data from there.
bool ASFInput::rewindInSequence() {
  std::array<std::uint8_t, kObjectHeadSize> head{};
  if (m_pSocket->rewind() != 0 || qm_utils::readFully(*m_pSocket, head.data(), head.size()) != head.size() ||
      readAsfGuid(head.data()) != kHeaderObject) {
    return false;
  }
  const std::uint64_t ullSize = readLE64(head.data() + kObjectSizeAt);
  if (ullSize < kObjectHeadSize || !skipBytes(*m_pSocket, ullSize - kObjectHeadSize) ||
      qm_utils::readFully(*m_pSocket, head.data(), head.size()) != head.size() ||
      !kindOfData(readAsfGuid(head.data()))) {
    return false;
  }
  return skipBytes(*m_pSocket,
                   m_info.getDataStart() - std::min(m_info.getDataStart(), ullSize + head.size()));
}

std::size_t ASFInput::read(void* pBuffer, std::size_t uSize) {
  const std::size_t uRead = m_source.read(pBuffer, uSize);
  m_uPending -= std::min<std::uint64_t>(m_uPending, uRead);
  return uRead;
}

/// What isn't read is passed over on the way to the next frame.
void ASFInput::skip(std::size_t /*uSize*/) {}

// Seeking.

const FileStreamInfo& ASFInput::indexedStream(std::uint32_t uStream) const {
  const FileStreamInfo* const pStream = m_info.getStream(uStream);
  if (pStream == nullptr || !pStream->getEntry(0)) {
    QM_THROW(EndOfFileError);
  }
  return *pStream;
}

int ASFInput::seekFrame(std::uint32_t uStream, std::uint32_t uNumber, std::uint32_t* pSize,
                        qm_ci::Bitstream* pBitstream, bool bToKeyFrame) {
  const std::uint64_t uPosition = indexedStream(uStream).getPosByNumber(uNumber, bToKeyFrame);
  return goTo(uStream, uNumber, uPosition, pSize, pBitstream);
}

int ASFInput::seekTime(std::uint32_t uStream, std::uint32_t* pSize, JTime time, qm_ci::Bitstream* pBitstream,
                       bool bToKeyFrame) {
  const FileStreamInfo& stream = indexedStream(uStream);
  std::uint32_t uNumber = 0;
  std::uint64_t uPosition = 0;
  if (stream.hasTimes()) {
    uPosition = stream.getPosByTime(time, uNumber, bToKeyFrame);
  } else {
    const std::uint64_t ullNumber = numberByPeriod(uStream, time.getMicroseconds());
    uNumber = static_cast<std::uint32_t>(std::min<std::uint64_t>(ullNumber, 0xFFFFFFFF));
    uPosition = stream.getPosByNumber(uNumber, bToKeyFrame);
  }
  return goTo(uStream, uNumber, uPosition, pSize, pBitstream);
}

int ASFInput::goTo(std::uint32_t uStream, std::uint32_t uNumber, std::uint64_t uPosition,
                   std::uint32_t* pSize, qm_ci::Bitstream* pBitstream) {
  if (m_pFile == nullptr) {
    return kFailed;
  }
  m_source.drop();
  m_uPending = 0;
  m_pFile->seek(static_cast<std::int64_t>(m_info.getDataStart() + uPosition), JFileSocket::kStart);
  Unit unit;
  if (readHead(unit) != Head::kWhole) {
    return kFailed;
  }
  const std::uint64_t uNext = behind(uPosition, unit);
  const std::uint64_t uDataSize = m_info.getDataSize();
  enter(uPosition, uNext);
  if (!isFrameValid(unit.uStream, unit.uPayload) || unit.uStream != uStream ||
      (uDataSize != 0 && uNext > uDataSize)) {
    return kFailed;
  }
  settleFlags(unit, uNumber);
  if (!unit.bAuthentication) {
    setLastNumber(uStream, uNumber);
  }
  m_bKeyFrame = unit.bKeyFrame;
  m_bSynthetic = unit.bSynthetic;
  m_bAuthentication = unit.bAuthentication;
  settleTime(unit, uNumber);
  moveOthersTo(uStream, unit.ullTimeStamp, uPosition);
  fill(unit, pBitstream);
  if (pSize != nullptr) {
    *pSize = unit.uPayload;
  }
  return kFrame;
}
