#include <algorithm>
#include <array>
#include <cstring>
#include <string>
#include <vector>

#include "coreapi/platform/byteorder.h"
#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/socket/jfilesocket.h"
#include "coreapi/qmutils/thread/namedassert.h"
#include "storage/ASFIO/ASFFileInfoIn.h"
#include "storage/ASFIO/ASFInput.h"
#include "storage/ASFIO/asfheader.h"
#include "storage/ASFIO/asfkinds.h"

using namespace asf_layout;
using qm_platform::readLE32;
using qm_platform::writeLE32;
using qm_platform::writeLE64;

namespace {

/// Frames between two progress texts, and texts to a star.
constexpr int kFramesPerDot = 51;
constexpr int kDotsPerStar = 51;

/// A run of stars, then a run of dots.
class ProgressText {
 public:
  explicit ProgressText(FileProgress* pReceiver) noexcept : m_pReceiver(pReceiver) {}

  void countFrame() {
    if (m_pReceiver == nullptr || ++m_iFrames < kFramesPerDot) {
      return;
    }
    m_iFrames = 0;
    ++m_iDots;
    tell();
    if (m_iDots == kDotsPerStar) {
      ++m_iStars;
      m_iDots = 0;
      tell();
    }
  }

 private:
  void tell() {
    m_pReceiver->progress(std::string(static_cast<std::size_t>(m_iStars), '*') +
                          std::string(static_cast<std::size_t>(m_iDots), '.'));
  }

  FileProgress* m_pReceiver;
  int m_iFrames = 0;
  int m_iDots = 0;
  int m_iStars = 0;
};

/// Where a walk stood in front of the last frame that it saw.
struct LastFrame {
  std::uint64_t uPosition = 0;
  std::uint32_t uStream = 0;  ///< 0 before the first
  bool bCounted = false;
};

/// Keeps the system reading ahead of a walk. It reads the heads of the frames alone, and each would be waited
/// for: what lies between them is passed sooner when it is read in order.
class ReadAhead {
 public:
  explicit ReadAhead(JFileSocket& file) noexcept : m_file(file) {}

  void passed(std::uint64_t uPosition) noexcept {
    for (m_uAsked = std::max(m_uAsked, uPosition); m_uAsked < uPosition + kWindow; m_uAsked += kStep) {
      m_file.readAhead(m_uAsked, kStep);
    }
  }

 private:
  static constexpr std::uint64_t kWindow = 32U << 20;
  static constexpr std::uint64_t kStep = 2U << 20;  ///< the system takes requests of about this size

  JFileSocket& m_file;
  std::uint64_t m_uAsked = 0;  ///< up to here
};

LastFrame walk(ASFInput& input, JFileSocket& file, FileProgress* pProgress) {
  ProgressText progress(pProgress);
  ReadAhead readAhead(file);
  LastFrame last;
  std::uint32_t uStream = 0;
  while (input.getNextFrame(&uStream, nullptr, nullptr, true) == FileInput::kFrame) {
    last = {input.getFramePosition(), uStream, !input.isAuthentication()};
    readAhead.passed(last.uPosition);
    progress.countFrame();
  }
  return last;
}

/// Lets a file grow to the length that it is going to have, or not at all: the indexes overwrite the frame
/// that is left out, and a disk that is full must say so before, or each try would cost another frame.
void reserve(JFileSocket& socket, std::uint64_t ullEnd) {
  std::uint64_t ullSize = 0;
  socket.getInfo(nullptr, &ullSize);
  const std::vector<std::uint8_t> zeros(std::size_t{64} << 10);
  try {
    socket.seek(static_cast<std::int64_t>(ullSize), JFileSocket::kStart);
    for (std::uint64_t ullAt = ullSize; ullAt < ullEnd; ullAt += zeros.size()) {
      socket.write(zeros.data(),
                   static_cast<std::size_t>(std::min<std::uint64_t>(ullEnd - ullAt, zeros.size())));
    }
  } catch (JError* pError) {
    qm_err::CaughtError error(pError);
    socket.setEndOfFile(ullSize);
    error.rethrow();
  }
}

/// Holds a description for the time of a work on it.
class UseOf {
 public:
  explicit UseOf(FileInfo& fileInfo) : m_fileInfo(fileInfo) { m_fileInfo.beginUse(); }
  ~UseOf() { m_fileInfo.endUse(); }
  UseOf(const UseOf&) = delete;
  UseOf& operator=(const UseOf&) = delete;

 private:
  FileInfo& m_fileInfo;
};

}  // namespace

bool ASFFileInfoIn::lacksIndex() const noexcept {
  return m_iKind != 0 && m_bHasIndex && std::ranges::any_of(m_streams, [](const auto& pStream) {
           return pStream->getIndexType() == FILEINDEX_NONE;
         });
}

/// Starts an index of all streams.
void ASFFileInfoIn::beginRebuild() {
  const JAutoLock lock(m_mutex);
  for (const auto& pStream : m_streams) {
    pStream->setIndexType(indexTypeOf(m_iKind));
    pStream->releaseEntries();
    pStream->setCount(0);
  }
  m_bIndexRebuild = true;
}

/// Starts an index of frames that are dated from `date`.
void ASFFileInfoIn::beginRebuild(JTime date) {
  const JAutoLock lock(m_mutex);
  m_creationDate = date;
  beginRebuild();
  for (const auto& pStream : m_streams) {
    pStream->setFirstDate(date);
  }
}

void ASFFileInfoIn::rebuildIndex(bool bWriteBack, FileProgress* pProgress, JTime date) {
  const bool bDated = date != JTime::lastQueryTime();
  const bool bLacking = lacksIndex();
  if (!bDated && !bLacking && !isIndexRebuild()) {
    return;  // there is nothing to build
  }
  auto pSocket = std::make_unique<JFileSocket>(
      getFileName(), bWriteBack ? JFileSocket::kReadWrite : JFileSocket::kRead, true);
  JFileSocket* const pFile = pSocket.get();
  const UseOf use(*this);
  ASFInput input(std::move(pSocket), *this);
  if (bDated) {
    beginRebuild(date);
  } else if (bLacking) {
    beginRebuild();
  }
  input.setLoop(false);
  input.setTimesFromPeriods(bDated);
  const LastFrame last = walk(input, *pFile, pProgress);

  const JAutoLock lock(m_mutex);
  if (last.bCounted) {
    getStream(last.uStream)->dropFrames(1);
  }
  const std::uint64_t ullBefore = m_uDataSize;
  try {
    fixIndexInfo(last.uPosition, bWriteBack, pFile);
  } catch (...) {
    // The file is as it was: the next try must neither take it for mended nor leave another frame out.
    m_uDataSize = ullBefore;
    m_bIndexRebuild = true;
    throw;
  }
}

void ASFFileInfoIn::fixIndexInfo(std::uint64_t uDataSize, bool bWrite, JFileSocket* pSocket) {
  const JAutoLock lock(m_mutex);
  m_uDataSize = uDataSize;
  m_bIndexRebuild = false;
  for (const auto& pStream : m_streams) {
    const std::uint32_t uCount = pStream->getCount();
    if (m_iKind == 0) {
      QM_ASSERT_AS(false, "fixIndexInfo(): No Timestamp info for files older than 2.2 SP?");
    } else if (uCount > 0 && pStream->hasTimes()) {
      pStream->setFirstDate(pStream->getTimeByNumber(0));
      pStream->setLastDate(pStream->getTimeByNumber(uCount - 1));
    }
  }
  putTotals(uDataSize);
  if (!bWrite) {
    return;
  }
  QM_ASSERT_AS(pSocket != nullptr, "pFileSocket");
  if (pSocket == nullptr) {
    QM_THROW(JTextError, "pFileSocket");
  }
  writeIndexes(*pSocket);
  writeHeader(*pSocket);
  m_bHasIndex = true;
}

/// Puts what is known into the header's bytes, and 0 for what isn't.
void ASFFileInfoIn::putTotals(std::uint64_t uDataSize) {
  std::uint64_t ullFrames = 0;
  const auto& streams = m_header.getStreams();
  for (std::uint32_t uStream = 1; uStream <= getStreamCount(); ++uStream) {
    const FileStreamInfo& stream = *getStream(uStream);
    ullFrames += stream.getCount();
    writeAsfStreamStatistics({.ullFirstDate = stream.getFirstDate().getMicroseconds(),
                              .ullLastDate = stream.getLastDate().getMicroseconds()},
                             m_header.getObject(streams[uStream - 1].at));
  }
  using namespace file_properties;
  std::uint8_t* const pProperties = m_header.getObject(*m_header.getFileProperties());
  writeLE32(pProperties + kFlagsAt, readLE32(pProperties + kFlagsAt) & ~kUnfinished);
  writeLE64(pProperties + kLastTimeAt, 0);
  writeLE64(pProperties + kLastTimeAgainAt, 0);
  writeLE32(pProperties + kPeakBitRateAt, 0);
  writeLE32(pProperties + kAverageUnitAt, ullFrames == 0 ? 0
                                                         : static_cast<std::uint32_t>(std::min<std::uint64_t>(
                                                               uDataSize / ullFrames, 0xFFFFFFFF)));
  writeLE32(pProperties + kLargestUnitAt, 0);
  writeLE32(pProperties + kFrameCountAt, static_cast<std::uint32_t>(ullFrames));
}

/// The index objects behind the data, where the file ends then.
void ASFFileInfoIn::writeIndexes(JFileSocket& socket) const {
  const auto hasEntries = [this](const FileStreamInfo& stream) {
    return m_iKind != 0 && stream.getIndexType() == indexTypeOf(m_iKind);
  };
  const auto sizeOf = [&](const FileStreamInfo& stream) {
    return hasEntries(stream) && stream.getEntries() != nullptr
               ? stream.getCount() * index_layout::entrySize(stream.getIndexType())
               : 0;
  };
  const std::uint64_t ullStart = m_qwDUStart + m_uDataSize;
  std::uint64_t ullEnd = ullStart;
  for (const auto& pStream : m_streams) {
    ullEnd += kObjectHeadSize + sizeOf(*pStream);
  }
  reserve(socket, ullEnd);
  socket.seek(static_cast<std::int64_t>(ullStart), JFileSocket::kStart);
  for (const auto& pStream : m_streams) {
    const bool bEntries = hasEntries(*pStream);
    JASSERT(bEntries);
    const std::size_t uSize = sizeOf(*pStream);
    std::array<std::uint8_t, kObjectHeadSize> head{};
    writeAsfObjectHead(!bEntries      ? kDataObject1
                       : m_iKind == 2 ? kIndexObject
                                      : kIndexObject1,
                       kObjectHeadSize + uSize, head.data());
    socket.write(head.data(), head.size());
    if (uSize > 0) {
      socket.write(pStream->getEntries(), uSize);
    }
  }
  socket.setEndOfFile(socket.tell());
}

/// Header and head of the data object, in as many bytes as before. The indexes are on the disk by then: a
/// header that says the file is whole never comes first.
void ASFFileInfoIn::writeHeader(JFileSocket& socket) const {
  socket.flush();
  const auto header = m_header.getBytes();
  std::vector<std::uint8_t> block(static_cast<std::size_t>(m_qwDUStart));
  std::copy(header.begin(), header.end(), block.begin());
  const std::uint64_t ullPadding = m_qwDUStart - header.size() - kObjectHeadSize;
  writeAsfObjectHead(dataObjectOf(m_iKind), m_uDataSize + kObjectHeadSize + ullPadding,
                     block.data() + header.size());
  socket.seek(std::int64_t{0}, JFileSocket::kStart);
  socket.write(block.data(), block.size());
  socket.flush();
}

void ASFFileInfoIn::truncate(JTime date) {
  const JAutoLock lock(m_mutex);
  QM_ASSERT_AS(m_qwDUStart != 0 && !isOnFlyIndexing(), "m_qwDUStart && isOnFlyIndexing()==false");
  if (m_qwDUStart == 0 || isOnFlyIndexing()) {
    QM_THROW(JTextError, "the file must be valid to allow truncation");
  }
  FileStreamInfo* const pFStrmInfo = getStream(1);
  if (pFStrmInfo != nullptr && pFStrmInfo->isMapped()) {
    QM_THROW(JTextError, "the index must not be mapped!");
  }
  JFileSocket socket(getFileName(), JFileSocket::kReadWrite, true);
  JASSERT(pFStrmInfo);
  if (pFStrmInfo == nullptr) {
    QM_THROW(JTextError, "pFStrmInfo");
  }
  const IndexType eType = pFStrmInfo->getIndexType();
  if (eType != FILEINDEX_NTP && eType != FILEINDEX_CI) {
    QM_THROW(JTextError, "Invalid index type!");
  }
  if (!pFStrmInfo->hasTimes()) {
    QM_THROW(JTextError, "pFStrmInfo->u.pIndex");
  }
  std::uint32_t uNumber = 0;
  std::uint64_t uSize = pFStrmInfo->getPosByTime(date, uNumber, false);
  if (uNumber == 0) {
    return;  // nothing would be left
  }
  if (pFStrmInfo->getTimeByNumber(uNumber) < date) {
    ++uNumber;
    // Behind the last frame there is nothing to cut.
    const auto next = pFStrmInfo->getEntry(uNumber);
    uSize = next ? next->ullPosition & ~index_layout::kKeyFrame : m_uDataSize;
  }
  if (uSize > m_uDataSize) {
    QM_THROW(JTextError, "the index is damaged: it puts a frame behind the data");
  }
  pFStrmInfo->setCount(uNumber);
  if (uSize != 0) {
    fixIndexInfo(uSize, true, &socket);
    releaseIndexes();
    readIndexObjects(socket, true);
  }
}
