#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/socket/jfilesocket.h"
#include "storage/FileStreamInfo.h"

namespace {

constexpr std::uint64_t kMicrosecondsPerMillisecond = 1000;

/// What a form is called in messages about numbers.
const char* formName(IndexType eType) noexcept {
  switch (eType) {
    case FILEINDEX_POSITION:
      return "FILEINDEX_POSITION";
    case FILEINDEX_NTP:
      return "FILEINDEX_NTP";
    default:
      return "FILEINDEX_CI";
  }
}

}  // namespace

void FileStreamInfo::Unmap::operator()(const std::uint8_t* pView) const noexcept {
  try {
    JFileSocket::munmap(pView);
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    JCATCH_LOG(error.get());
  }
}

void FileStreamInfo::setEntries(IndexType eType, std::unique_ptr<std::uint8_t[]> pEntries,
                                std::uint32_t uCount) {
  const JAutoLock lock(m_mutex);
  m_pMapped.reset();
  m_pEntries = std::move(pEntries);
  m_eIndexType = eType;
  m_uCount = uCount;
}

void FileStreamInfo::setMappedEntries(IndexType eType, const std::uint8_t* pEntries, std::uint32_t uCount) {
  const JAutoLock lock(m_mutex);
  m_pEntries.reset();
  m_pMapped.reset(pEntries);
  m_eIndexType = eType;
  m_uCount = uCount;
}

bool FileStreamInfo::isMapped() const {
  const JAutoLock lock(m_mutex);
  return m_pMapped != nullptr;
}

void FileStreamInfo::releaseEntries() {
  const JAutoLock lock(m_mutex);
  m_pMapped.reset();
  m_pEntries.reset();
}

void FileStreamInfo::dropFrames(std::uint32_t uCount) {
  const JAutoLock lock(m_mutex);
  m_uCount -= uCount;
}

std::uint64_t FileStreamInfo::getPosByNumber(std::uint32_t& uNumber, bool bToKeyFrame) const {
  const JAutoLock lock(m_mutex);
  if (uNumber >= m_uCount) {
    QM_THROW(JTextError, "getPosByNumber(): seek past end");
  }
  const IndexView entries = view();
  if (entries.count() == 0) {
    QM_THROW(JTextError, "getPosByNumber(): time index not available");
  }
  while (bToKeyFrame && !entries.isStart(uNumber)) {
    if (uNumber-- == 0) {
      QM_THROW(JTextError, "getPosByNumber(): seek before start (%s)", formName(m_eIndexType));
    }
  }
  return entries.position(uNumber);
}

std::uint64_t FileStreamInfo::getPosByTime(JTime time, std::uint32_t& uNumber, bool bToKeyFrame) const {
  const JAutoLock lock(m_mutex);
  if (!index_layout::isTimed(m_eIndexType)) {
    QM_THROW(JTextError, "time index not available");
  }
  const IndexView entries = view();
  if (entries.count() == 0) {
    QM_THROW(JTextError, m_eIndexType == FILEINDEX_NTP ? "time index (NtpIndex) not available"
                                                       : "time index (CIIndex) not available");
  }
  const std::uint64_t ullTime = time.getMicroseconds();
  if (ullTime < entries.time(0)) {
    QM_THROW(JTextError, "seek before start");
  }
  const std::uint64_t ullLast = entries.time(entries.count() - 1);
  const std::uint64_t ullPeriod =
      m_period.uDenominator == 0
          ? 0
          : std::uint64_t{m_period.uNumerator} * kMicrosecondsPerMillisecond / m_period.uDenominator;
  if (ullTime > ullLast && ullTime - ullLast >= ullPeriod) {
    QM_THROW(JTextError, "seek past end");
  }
  std::uint32_t uFound = entries.lastAtOrBefore(ullTime);
  while (bToKeyFrame && uFound != 0 && !entries.isStart(uFound)) {
    --uFound;
  }
  uNumber = uFound;
  return entries.position(uFound);
}

JTime FileStreamInfo::getTimeByNumber(std::uint32_t uNumber) const {
  const JAutoLock lock(m_mutex);
  const IndexView entries = view();
  return index_layout::isTimed(m_eIndexType) && uNumber < entries.count()
             ? JTime::fromMicroseconds(entries.time(uNumber))
             : JTime();
}

bool FileStreamInfo::isKeyFrame(std::uint32_t uNumber) const {
  const JAutoLock lock(m_mutex);
  if (uNumber >= m_uCount) {
    QM_THROW(JTextError, "seek past end");
  }
  const IndexView entries = view();
  if (entries.count() == 0) {
    QM_THROW(JTextError, "time index not available");
  }
  return entries.isKeyFrame(uNumber);
}

std::optional<IndexEntry> FileStreamInfo::getEntry(std::uint32_t uNumber) const {
  const JAutoLock lock(m_mutex);
  const IndexView entries = view();
  return uNumber < entries.count() ? std::optional(entries.entry(uNumber)) : std::nullopt;
}

bool FileStreamInfo::hasTimes() const {
  const JAutoLock lock(m_mutex);
  return index_layout::isTimed(m_eIndexType) && view().count() != 0;
}

std::int64_t FileStreamInfo::getNumberAtOrBefore(JTime time) const {
  const JAutoLock lock(m_mutex);
  const IndexView entries = view();
  if (!index_layout::isTimed(m_eIndexType) || entries.count() == 0 ||
      time.getMicroseconds() < entries.time(0)) {
    return -1;
  }
  return entries.lastAtOrBefore(time.getMicroseconds());
}
