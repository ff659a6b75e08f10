#include <algorithm>
#include <limits>
#include <utility>

#include "coreapi/qmci/streaminfo.h"
#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/registry/jsystemregistry.h"
#include "storage/ArchiveUnit.h"
#include "storage/FileInput.h"

namespace {

constexpr const char* kConfigurationKey = "SOFTWARE\\Quelmarin";
constexpr const char* kMaxFrameSizeValue = "MaxFrameSizeSVCFileReplay";

/// Files that are tried for what they say of the unit, the first one first.
constexpr std::size_t kTriedFiles = 8;

bool touches(const TimeSpan& left, const TimeSpan& right) noexcept {
  return left.startDate <= right.endDate && right.startDate <= left.endDate;
}

/// Whether the file being written is what is asked for rather than a slice, which may be null.
bool prefersCurrent(const TimeSpan& current, const Slice* pSlice, const TimeSpan& span, int iMode) {
  if (pSlice != nullptr && touches(pSlice->getSpan(), span)) {
    return false;
  }
  if (touches(current, span)) {
    return true;
  }
  if (iMode == SliceMap::kNext) {
    return span.endDate < current.startDate &&
           (pSlice == nullptr || current.startDate < pSlice->getSpan().startDate);
  }
  return iMode == SliceMap::kPrevious && current.endDate < span.startDate &&
         (pSlice == nullptr || pSlice->getSpan().endDate < current.endDate);
}

void give(const TimeSpan& span, JTime* pStart, JTime* pEnd) noexcept {
  if (pStart != nullptr) {
    *pStart = span.startDate;
  }
  if (pEnd != nullptr) {
    *pEnd = span.endDate;
  }
}

/// The description of a slice's file; null, and told in the log, when there is none.
FileInfo::Ptr tryDescribe(const std::string& sPath) {
  try {
    FileInfo::Ptr pInfo = FileInfo::getCached(sPath);
    if (pInfo) {
      return pInfo;
    }
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    JCATCH_LOG(error.get());
  }
  qm_err::log(qm_err::kLogError, "Could not retrieve FileInfo from path: %s.", sPath.c_str());
  return nullptr;
}

/// The size that the configuration sets; 0 when it sets none.
std::uint32_t configuredFrameSize() {
  std::uint32_t uSize = 0;
  try {
    JSystemRegistryKey key;
    if (key.open(qm_utils::RegistryRoot::kLocalMachine, kConfigurationKey, qm_utils::kRegistryRead, true)) {
      key.getDword(kMaxFrameSizeValue, uSize);
    }
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    JCATCH_LOG(error.get());
  }
  return uSize;
}

}  // namespace

// Opening by time.

/// Null when no file fits.
std::unique_ptr<FileInput> ArchiveUnit::tryOpen(const TimeSpan& span, JTime* pStart, JTime* pEnd, int iMode) {
  std::string sPath;
  {
    const JAutoLock lock(m_mutex);
    const SliceMap::Position position = m_slices.find(span, iMode);
    const Slice* const pSlice = position == m_slices.end() ? nullptr : position->second.get();
    const auto current = currentSpan();
    if (current && prefersCurrent(*current, pSlice, span, iMode)) {
      give(*current, pStart, pEnd);
      return m_pCurrentFile->createInput();
    }
    if (pSlice == nullptr) {
      return nullptr;
    }
    give(pSlice->getSpan(), pStart, pEnd);
    sPath = pSlice->getPath();
  }
  const FileInfo::Ptr pInfo = FileInfo::getCached(sPath);
  if (!pInfo) {
    QM_THROW(JTextError, "Could not create file information for %s", sPath.c_str());
  }
  return pInfo->createInput();
}

std::unique_ptr<FileInput> ArchiveUnit::openFile(const TimeSpan& span, JTime* pStart, JTime* pEnd,
                                                 int iMode) {
  auto pInput = tryOpen(span, pStart, pEnd, iMode);
  if (!pInput) {
    QM_THROW(JTextError, "There is no file for %s - %s in %s", span.startDate.toUSFormat().c_str(),
             span.endDate.toUSFormat().c_str(), m_sDirectory.c_str());
  }
  return pInput;
}

std::unique_ptr<FileInput> ArchiveUnit::openNextFile(JTime after, JTime* pStart, JTime* pEnd) {
  if (after == JTime::max()) {
    return nullptr;
  }
  const JTime next = after.add(1);
  return tryOpen(TimeSpan(next, next), pStart, pEnd, SliceMap::kNext);
}

// What the files say.

UnitMedia ArchiveUnit::getMedia() const {
  std::vector<std::string> paths;
  {
    const JAutoLock lock(m_mutex);
    for (auto it = m_slices.begin(); it != m_slices.end() && paths.size() < kTriedFiles; ++it) {
      paths.push_back(it->second->getPath());
    }
    if (paths.empty()) {
      return m_pCurrentFile ? UnitMedia(*m_pCurrentFile) : UnitMedia();
    }
    if (m_sMediaOf == paths.front()) {
      return m_media;
    }
  }
  UnitMedia media;
  for (const std::string& sPath : paths) {
    if (const FileInfo::Ptr pInfo = tryDescribe(sPath)) {
      media = UnitMedia(*pInfo);
      break;
    }
  }
  const JAutoLock lock(m_mutex);
  m_media = media;
  m_sMediaOf = paths.front();
  return media;
}

/// Of the newest slice; null when there is none that can be read.
FileInfo::Ptr ArchiveUnit::describeNewest(std::string& sPath) const {
  {
    const JAutoLock lock(m_mutex);
    if (m_slices.isEmpty()) {
      return nullptr;
    }
    sPath = std::prev(m_slices.end())->second->getPath();
  }
  return tryDescribe(sPath);
}

// Sizes for replay.

std::uint32_t ArchiveUnit::updateMaxBufferSize() {
  if (*getTypeText() == '\0') {
    QM_THROW(JTextError, "Bad archive unit type");
  }
  const std::uint32_t uSize = estimateMaxFrameSize();
  const JAutoLock lock(m_mutex);
  if (uSize == 0) {
    qm_err::log(qm_err::kLogWarning,
                "ArchiveUnit::updateMaxBufferSize: could not get current MaxBufSize QOS contract may be "
                "inadequate using: %ld.",
                static_cast<long>(m_uMaxBufferSize));
  }
  m_uMaxBufferSize = std::max(m_uMaxBufferSize, uSize);
  return m_uMaxBufferSize;
}

std::uint32_t ArchiveUnit::estimateMaxFrameSize() const {
  if (const std::uint32_t uConfigured = configuredFrameSize()) {
    return uConfigured;
  }
  std::string sPath;
  const FileInfo::Ptr pInfo = describeNewest(sPath);
  if (!pInfo) {
    return 0;
  }
  const FileStreamInfo* const pStream = std::as_const(*pInfo).getStream(1);
  if (pStream == nullptr || pStream->getStreamInfo() == nullptr) {
    qm_err::log(qm_err::kLogError, "Could not retrieve FileStreamInfo from path: %s.", sPath.c_str());
    return 0;
  }
  const std::uint64_t ullDescribed = pStream->getStreamInfo()->getMaxFrameSize();
  std::uint64_t ullMean = 0;
  if (pStream->getLastDate() <= pStream->getFirstDate()) {
    qm_err::log(qm_err::kLogWarning,
                "ArchiveUnit::estimateMaxFrameSize encountered a file with null duration: %s.",
                sPath.c_str());
  } else if (const std::uint32_t uCount = pStream->getCount()) {
    ullMean = pInfo->getDataSize() / uCount;
  }
  return static_cast<std::uint32_t>(
      std::min<std::uint64_t>(std::max(ullDescribed, ullMean), std::numeric_limits<std::uint32_t>::max()));
}

std::uint64_t ArchiveUnit::getMaxFrameDuration() const {
  std::string sPath;
  const FileInfo::Ptr pInfo = describeNewest(sPath);
  std::uint64_t ullLongest = 0;
  for (std::uint32_t uStream = 1; pInfo && uStream <= pInfo->getStreamCount(); ++uStream) {
    const FileStreamInfo& stream = *pInfo->getStream(uStream);
    const FramePeriod period = stream.getPeriod();
    if (period.uDenominator == 0) {
      const auto* const pStreamInfo = stream.getStreamInfo();
      qm_err::log(qm_err::kLogWarning,
                  "ArchiveUnit::getMaxFrameDuration encountered a stream with null duration denominator: %s "
                  "@ %d (%s).",
                  sPath.empty() ? "<unknown file path>" : sPath.c_str(), static_cast<int>(uStream),
                  pStreamInfo != nullptr ? std::string(pStreamInfo->getMIMEType()).c_str() : "");
      continue;
    }
    constexpr std::uint64_t kMicrosecondsPerMillisecond = 1000;
    ullLongest = std::max(ullLongest, period.uNumerator * kMicrosecondsPerMillisecond / period.uDenominator);
  }
  return ullLongest;
}
