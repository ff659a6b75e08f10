#include "storage/ASFIO/ASFFileInfoIn.h"

#include <algorithm>
#include <array>
#include <limits>
#include <vector>

#include "coreapi/platform/byteorder.h"
#include "coreapi/platform/largeblock.h"
#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/socket/jfilesocket.h"
#include "storage/ASFIO/asfkinds.h"
#include "storage/ASFIO/asfstreamreader.h"
#include "storage/filekinds.h"
#include "storage/fileread.h"

using namespace asf_layout;
using qm_platform::readLE32;
using qm_platform::readLE64;

namespace {

constexpr std::uint64_t kMicrosecondsPerMillisecond = 1000;

using ObjectHead = std::array<std::uint8_t, kObjectHeadSize>;

std::uint64_t sizeOf(const ObjectHead& head) noexcept {
  return readLE64(head.data() + kObjectSizeAt);
}

/// Whether a stream's dates are still to be found: a header without dates holds 0 or the start of 1970.
bool isUnset(JTime date) noexcept {
  return date == JTime::zero() || date == JTime::firstQueryTime();
}

/// The form of the index in an object; nothing for other objects.
IndexType indexTypeOfObject(const Guid& id) noexcept {
  if (id == kIndexObject) {
    return FILEINDEX_CI;
  }
  if (id == kIndexObject1) {
    return FILEINDEX_NTP;
  }
  return id == kVideoIndexObject0 || id == kAudioIndexObject0 ? FILEINDEX_POSITION : FILEINDEX_NONE;
}

}  // namespace

ASFFileInfoIn::ASFFileInfoIn(JFileSocket& socket, const std::string& sName, bool bMapIndex)
    : ASFFileInfo(sName) {
  FileHeadReader reader(socket);
  readHeader(reader);
  readIndexObjects(socket, bMapIndex);
}

ASFFileInfoIn::ASFFileInfoIn(FileHeadReader& reader, const std::string& sName) : ASFFileInfo(sName) {
  readHeader(reader);
  if (m_bIOAligned) {
    reader.skip(m_qwDUStart - reader.getPosition());
  }
}

ASFFileInfoIn::~ASFFileInfoIn() = default;

/// Header object and head of the data object. The reader then stands behind that head.
void ASFFileInfoIn::readHeader(FileHeadReader& reader) {
  m_uTypeMagic = file_kinds::kAsfMagic;
  ObjectHead head{};
  if (!reader.fill(head.data(), head.size()) || sizeOf(head) < kObjectHeadSize) {
    QM_THROW(JTextError, "not an ASF file");
  }
  const std::uint64_t ullSize = sizeOf(head);
  if (ullSize > kMaxHeaderSize) {
    QM_THROW(JTextError, "ASF header too long");
  }
  std::vector<std::uint8_t> bytes = makeHeadBytes(static_cast<std::size_t>(ullSize));
  std::copy(head.begin(), head.end(), bytes.begin());
  if (!reader.fill(bytes.data() + head.size(), bytes.size() - head.size())) {
    QM_THROW(JTextError, "not an ASF file");
  }
  const int iResult = m_header.parse(std::move(bytes));
  if (iResult < 0) {
    QM_THROW(JTextError, "ASF header error #%d", -iResult);
  }
  const auto propertiesAt = m_header.getFileProperties();
  if (!propertiesAt || readLE64(m_header.getObject(*propertiesAt) + file_properties::kReservedAt) != 0) {
    QM_THROW(JTextError, "bad header object");
  }
  if (!reader.fill(head.data(), head.size())) {
    QM_THROW(JTextError, "bad data object");
  }
  const auto kind = kindOfData(readAsfGuid(head.data()));
  if (!kind) {
    QM_THROW(JTextError, "bad data object");
  }
  m_iKind = *kind;

  const std::uint8_t* const pProperties = m_header.getObject(*propertiesAt);
  const std::uint64_t ullBehindHead = ullSize + kObjectHeadSize;
  m_qwDUStart = ullBehindHead;
  m_uIOAlignBlockSize = blockSize(readLE32(pProperties + file_properties::kFlagsAt));
  m_bIOAligned = m_uIOAlignBlockSize != 0;
  if (m_bIOAligned) {
    m_qwDUStart = roundedUp(ullBehindHead, m_uIOAlignBlockSize);
  }
  const std::uint64_t ullData = sizeOf(head) > kObjectHeadSize ? sizeOf(head) - kObjectHeadSize : 0;
  m_uDataSize = ullData - std::min(ullData, m_qwDUStart - ullBehindHead);
  m_creationDate = JTime::fromMicroseconds(readLE64(pProperties + file_properties::kCreationDateAt) /
                                           file_properties::kDateUnits);

  resetStreams(static_cast<std::uint32_t>(m_header.getStreams().size()));
  for (std::uint32_t uStream = 1; uStream <= getStreamCount(); ++uStream) {
    describeStream(uStream);
  }
  readFileParameters();
}

/// A text that doesn't parse must not keep the frames of a file from being read.
void ASFFileInfoIn::readFileParameters() {
  const auto sParameters = m_header.getFileParameters();
  if (!sParameters) {
    return;
  }
  try {
    m_params.parse(std::string(*sParameters));
    m_params.get("validKeyFrameFlag", m_bValidKeyFrameFlag);
    m_params.get("syntheticFlag", m_bSyntheticFlag);
    m_params.get("supportAuthentication", m_bSupportAuthentication);
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    JCATCH_LOG(error.get());
  }
}

void ASFFileInfoIn::describeStream(std::uint32_t uStream) {
  const AsfStreamProperties& properties = m_header.getStreams()[uStream - 1];
  FileStreamInfo& stream = *getStream(uStream);
  m_unitNumbers.push_back(properties.wNumber);
  stream.setFirstDate(JTime::fromMicroseconds(properties.ullFirstDate));
  stream.setLastDate(JTime::fromMicroseconds(properties.ullLastDate));
  AsfStreamKind eKind = AsfStreamKind::kOther;
  if (const auto streamInfo = readAsfStream(properties, stream.getParams(), eKind)) {
    stream.setStreamInfo(*streamInfo);
  }
  std::uint32_t* const pFirst = eKind == AsfStreamKind::kVideo   ? &m_uFirstVideoStream
                                : eKind == AsfStreamKind::kAudio ? &m_uFirstAudioStream
                                : eKind == AsfStreamKind::kData  ? &m_uFirstDataStream
                                                                 : nullptr;
  if (pFirst != nullptr && *pFirst == 0) {
    *pFirst = uStream;
  }
}

std::uint16_t ASFFileInfo::getUnitNumber(std::uint32_t uStream) const {
  return uStream >= 1 && uStream <= m_unitNumbers.size() ? m_unitNumbers[uStream - 1]
                                                         : static_cast<std::uint16_t>(uStream);
}

void ASFFileInfoIn::readIndexObjects(JFileSocket& socket, bool bMapIndex) {
  std::uint64_t ullFileSize = 0;
  socket.getInfo(nullptr, &ullFileSize);
  m_uNextIndexed = 1;
  m_bIndexRebuild = true;
  if (m_uDataSize == 0) {
    // The writer never came to its end.
    m_uDataSize = ullFileSize - std::min(ullFileSize, m_qwDUStart);
  } else if (m_uDataSize <= ullFileSize && m_qwDUStart <= ullFileSize - m_uDataSize) {
    std::uint64_t ullAt = m_qwDUStart + m_uDataSize;
    while (ullFileSize - ullAt >= kObjectHeadSize) {
      ObjectHead head{};
      socket.seek(static_cast<std::int64_t>(ullAt), JFileSocket::kStart);
      if (qm_utils::readFully(socket, head.data(), head.size()) != head.size() ||
          sizeOf(head) < kObjectHeadSize || sizeOf(head) > ullFileSize - ullAt) {
        break;
      }
      if (m_bIOAligned && readAsfGuid(head.data()) == kIndexObject && sizeOf(head) > head.size()) {
        passOverUnindexed(socket, ullAt);
      }
      readIndexObject(socket, readAsfGuid(head.data()), ullAt, sizeOf(head), bMapIndex);
      ullAt += sizeOf(head);
    }
  }
  m_bHasIndex = !m_bIndexRebuild;
  if (m_bHasIndex && m_bIOAligned) {
    settleStreamsWithoutFrames();
  }
  if (m_bIndexRebuild && m_iKind != 0) {
    for (const auto& pStream : m_streams) {
      pStream->setIndexType(indexTypeOf(m_iKind));
      pStream->setCount(0);
    }
  }
}

/// An object that stands whole behind the data, at a place in the file.
void ASFFileInfoIn::readIndexObject(JFileSocket& socket, const Guid& id, std::uint64_t ullAt,
                                    std::uint64_t ullSize, bool bMapIndex) {
  const IndexType eType = indexTypeOfObject(id);
  const std::uint32_t uStream = id == kVideoIndexObject0   ? m_uFirstVideoStream
                                : id == kAudioIndexObject0 ? m_uFirstAudioStream
                                : eType != FILEINDEX_NONE  ? m_uNextIndexed++
                                                           : 0;
  if (uStream != 0) {
    m_bIndexRebuild = false;
    if (getStream(uStream) != nullptr) {
      readEntries(socket, uStream, eType, ullAt + kObjectHeadSize, ullSize - kObjectHeadSize, bMapIndex);
      dateByIndex(uStream);
    }
  } else if (id != kPaddingObject) {
    qm_err::log(
        qm_err::kLogWarning,
        "Unknown section ignored in ASF file : type={%08X-%08X-%08X-%08X}, size=%llu, at offset %llu in "
        "file %s.\n",
        readLE32(id.data()), readLE32(id.data() + 4), readLE32(id.data() + 8), readLE32(id.data() + 12),
        static_cast<unsigned long long>(ullSize), static_cast<unsigned long long>(ullAt),
        getFileName().c_str());
  }
}

/// The entries of an index object, which stand whole in the file.
void ASFFileInfoIn::readEntries(JFileSocket& socket, std::uint32_t uStream, IndexType eType,
                                std::uint64_t ullAt, std::uint64_t ullSize, bool bMapIndex) {
  FileStreamInfo& stream = *getStream(uStream);
  const std::uint64_t ullCount = ullSize / index_layout::entrySize(eType);
  if (ullCount > std::numeric_limits<std::uint32_t>::max()) {
    stream.setIndexType(FILEINDEX_NONE);
    return;
  }
  const auto uCount = static_cast<std::uint32_t>(ullCount);
  const std::uint64_t ullBytes = ullCount * index_layout::entrySize(eType);
  if (bMapIndex && uCount > 0) {
    try {
      stream.setMappedEntries(eType, static_cast<const std::uint8_t*>(socket.mmap(ullAt, ullBytes, false)),
                              uCount);
      return;
    } catch (JError* pError) {
      const qm_err::CaughtError error(pError);
      JCATCH_LOG(error.get());  // then it is read
    }
  }
  auto pEntries = qm_platform::tryAllocate(static_cast<std::size_t>(ullBytes));
  socket.seek(static_cast<std::int64_t>(ullAt), JFileSocket::kStart);
  if (pEntries &&
      qm_utils::readFully(socket, pEntries.get(), static_cast<std::size_t>(ullBytes)) == ullBytes) {
    stream.setEntries(eType, std::move(pEntries), uCount);
  } else {
    stream.setIndexType(FILEINDEX_NONE);
    stream.setCount(uCount);
  }
}

/// Dates a stream whose header has no dates.
void ASFFileInfoIn::dateByIndex(std::uint32_t uStream) {
  FileStreamInfo& stream = *getStream(uStream);
  if (!isUnset(stream.getFirstDate())) {
    return;
  }
  const std::uint32_t uCount = stream.getCount();
  if (stream.hasTimes()) {
    stream.setFirstDate(stream.getTimeByNumber(0));
    stream.setLastDate(stream.getTimeByNumber(uCount - 1));
  } else if (stream.getIndexType() == FILEINDEX_POSITION) {
    const bool bVideo = uStream == m_uFirstVideoStream;
    const std::uint64_t ullPeriods = uCount == 0 ? 0 : bVideo ? uCount - 1 : uCount;
    const FramePeriod period = stream.getPeriod();
    const std::uint64_t ullSince =
        period.uDenominator == 0
            ? 0
            : ullPeriods * period.uNumerator * kMicrosecondsPerMillisecond / period.uDenominator;
    stream.setFirstDate(m_creationDate);
    stream.setLastDate(JTime(m_creationDate).add(static_cast<std::int64_t>(ullSince)));
  }
}

/// A writer in blocks leaves out the index objects of streams without frames. Whose the object at a place is,
/// the unit tells that its first entry leads to.
void ASFFileInfoIn::passOverUnindexed(JFileSocket& socket, std::uint64_t ullObjectAt) {
  const auto wordAt = [&](std::uint64_t ullPlace) {
    std::array<std::uint8_t, sizeof(std::uint64_t)> word{};
    socket.seek(static_cast<std::int64_t>(ullPlace), JFileSocket::kStart);
    qm_utils::readFully(socket, word.data(), word.size());
    return readLE64(word.data());
  };
  const std::uint64_t ullPosition = wordAt(ullObjectAt + kObjectHeadSize + index_layout::kPositionAt);
  if (ullPosition >= m_uDataSize) {
    return;
  }
  const auto uStream = static_cast<std::uint32_t>(wordAt(m_qwDUStart + ullPosition + data_unit::kStreamAt));
  if (uStream > m_uNextIndexed && uStream <= getStreamCount()) {
    m_uNextIndexed = uStream;
  }
}

/// A stream that has neither an index object nor dates got no frame: its index is whole, and empty.
void ASFFileInfoIn::settleStreamsWithoutFrames() {
  for (const auto& pStream : m_streams) {
    if (pStream->getIndexType() == FILEINDEX_NONE && isUnset(pStream->getFirstDate())) {
      pStream->setIndexType(indexTypeOf(m_iKind));
    }
  }
}

void ASFFileInfoIn::releaseIndexes() {
  for (const auto& pStream : m_streams) {
    pStream->releaseEntries();
  }
}
