#include "storage/ArchiveUnit.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/socket/fileoperations.h"
#include "coreapi/qmutils/thread/namedassert.h"
#include "storage/SliceRecovery.h"

namespace {

constexpr const char* kHiddenPair = "hidden=1";

/// Calls `visit(part)` for every span of a list that shares an instant with a span. The list is sorted, and
/// its spans are apart.
template <class Visit>
void forEachTouching(const TimeSpanList& list, const TimeSpan& span, Visit visit) {
  auto part = std::partition_point(list.begin(), list.end(),
                                   [&](const TimeSpan& each) { return each.endDate < span.startDate; });
  for (; part != list.end() && part->startDate <= span.endDate; ++part) {
    visit(*part);
  }
}

bool touchesAny(const TimeSpanList& list, const TimeSpan& span) {
  bool bTouches = false;
  forEachTouching(list, span, [&](const TimeSpan&) { bTouches = true; });
  return bTouches;
}

bool isInForce(const TimeSpan& validity, JTime when) noexcept {
  return (validity.startDate == JTime::zero() || validity.startDate <= when) &&
         (validity.endDate == JTime::zero() || when <= validity.endDate);
}

/// A file that isn't there is gone already.
void deleteSliceFile(const std::string& sPath) {
  FileInfo::removeCached(sPath, true);
  try {
    qm_utils::deleteFile(sPath);
  } catch (JSysError* pError) {
    qm_err::CaughtError error(pError);
    if (pError->getCode() != ENOENT) {
      error.rethrow();
    }
  }
}

}  // namespace

const char* ArchiveUnit::getTypeText(std::int32_t iType) noexcept {
  switch (iType) {
    case kPermanent:
      return "PERMANENT";
    case kOnEvent:
      return "ONEVENT";
    case kPrePost:
      return "PREPOST";
    default:
      return "";
  }
}

void ArchiveUnit::setRecoveryReadOnly(bool bOn) noexcept {
  SliceRecovery::setReadOnly(bOn);
}

ArchiveUnit::ArchiveUnit(std::string sDirectory, Settings settings)
    : m_sDirectory(std::move(sDirectory)), m_settings(std::move(settings)) {}

ArchiveUnit::~ArchiveUnit() {
  QM_ASSERT_AS(m_listeners.empty(), "true==m_listeners.empty()");
}

std::string ArchiveUnit::getSessionName() const {
  const JAutoLock lock(m_mutex);
  return m_sSessionName;
}

void ArchiveUnit::setSessionName(const std::string& sSessionName) {
  const JAutoLock lock(m_mutex);
  m_sSessionName = sSessionName;
}

void ArchiveUnit::addListener(ArchiveUnitListener* pListener) {
  const JAutoLock lock(m_mutex);
  m_listeners.push_back(pListener);
}

void ArchiveUnit::removeListener(ArchiveUnitListener* pListener) {
  const JAutoLock lock(m_mutex);
  m_listeners.remove(pListener);
}

// Slices.

void ArchiveUnit::addSlice(std::unique_ptr<Slice> pSlice) {
  const JAutoLock lock(m_mutex);
  if (!pSlice) {
    m_pCurrentFile.reset();
    return;
  }
  const Slice slice = *pSlice;
  if (m_slices.add(std::move(pSlice))) {
    for (ArchiveUnitListener* const pListener : m_listeners) {
      pListener->sliceAdded(*this, slice);
    }
  }
}

bool ArchiveUnit::removeSlice(const TimeSpan& span) {
  const JAutoLock lock(m_mutex);
  const SliceMap::Position position = m_slices.at(span);
  if (position == m_slices.end()) {
    return false;
  }
  const Slice slice = *position->second;
  deleteSliceFile(slice.getPath());
  m_slices.remove(span);
  for (ArchiveUnitListener* const pListener : m_listeners) {
    pListener->sliceRemoved(*this, slice);
  }
  return true;
}

void ArchiveUnit::setCurrentFile(FileInfo::Ptr pFileInfo) {
  const JAutoLock lock(m_mutex);
  m_pCurrentFile = std::move(pFileInfo);
}

/// Of the file being written, as far as it has got. The unit's mutex is held.
std::optional<TimeSpan> ArchiveUnit::currentSpan() const {
  if (!m_pCurrentFile) {
    return std::nullopt;
  }
  const JAutoLock lock(m_pCurrentFile->getMutex());
  const FileStreamInfo* const pStream = std::as_const(*m_pCurrentFile).getStream(1);
  if (pStream == nullptr || pStream->getCount() == 0) {
    return std::nullopt;
  }
  return TimeSpan(pStream->getFirstDate(), pStream->getLastDate());
}

std::vector<Slice> ArchiveUnit::getSlices(const TimeSpan& range) const {
  const JAutoLock lock(m_mutex);
  std::vector<Slice> slices;
  for (auto it = m_slices.firstFrom(range.startDate);
       it != m_slices.end() && it->first.startDate <= range.endDate; ++it) {
    slices.push_back(*it->second);
  }
  return slices;
}

std::size_t ArchiveUnit::getSliceCount() const {
  const JAutoLock lock(m_mutex);
  return m_slices.size();
}

std::uint64_t ArchiveUnit::getUsedSpace() const {
  const JAutoLock lock(m_mutex);
  return m_slices.getUsedSpace();
}

std::uint64_t ArchiveUnit::getSizeWithin(const TimeSpan& range) const {
  const JAutoLock lock(m_mutex);
  std::uint64_t uSize = 0;
  for (auto it = m_slices.firstFrom(range.startDate);
       it != m_slices.end() && it->first.startDate <= range.endDate; ++it) {
    uSize += it->second->getSizeWithin(range);
  }
  return uSize;
}

void ArchiveUnit::getExpiredSlicesbySpace(std::vector<Slice>& list) const {
  const JAutoLock lock(m_mutex);
  if (m_settings.uMaxSpace == 0) {
    return;
  }
  if (!m_protectedLog.isWhole()) {
    qm_err::log(qm_err::kLogError, "The protections in %s couldn't be read, so nothing expires\n",
                m_sDirectory.c_str());
    return;
  }
  const TimeSpanList protections = getProtectedSpans(JTime::now());
  std::uint64_t uUsed = m_slices.getUsedSpace();
  for (const auto& entry : m_slices) {
    const Slice& slice = *entry.second;
    std::uint64_t uHeld = 0;
    forEachTouching(protections, entry.first,
                    [&](const TimeSpan& part) { uHeld += slice.getSizeWithin(part); });
    uUsed -= std::min(uHeld, slice.getSize());
  }
  for (auto it = m_slices.begin(); it != m_slices.end() && uUsed > m_settings.uMaxSpace; ++it) {
    if (!touchesAny(protections, it->first)) {
      list.push_back(*it->second);
      uUsed -= it->second->getSize();
    }
  }
  if (uUsed > m_settings.uMaxSpace) {
    qm_err::log(qm_err::kLogWarning,
                "getExpiredSlicesbySpace() -\tCould not remove %lld of space in unprotected slices to assure "
                "MaxSpace %lld\n",
                static_cast<long long>(uUsed - m_settings.uMaxSpace),
                static_cast<long long>(m_settings.uMaxSpace));
  }
}

// Spans.

/// What gaps count as none: two frame periods of the key, rounded up, or of what has none, of the media; or
/// nothing.
std::uint64_t ArchiveUnit::joinedGap() const {
  if (!m_settings.bJoinGaps) {
    return 0;
  }
  constexpr std::uint64_t kTwoSeconds = 2 * JTime::kMicrosecondsPerSecond;
  if (m_settings.iFps > 0) {
    const auto uFps = static_cast<std::uint64_t>(m_settings.iFps);
    return (kTwoSeconds + uFps - 1) / uFps;
  }
  return 2 * getMedia().uFramePeriod;
}

/// What the slices and the file being written hold of a range and what joins on to it. The mutex is held.
TimeSpanList ArchiveUnit::recordedSpans(const TimeSpan& range, std::uint64_t uGap) const {
  const JTime from = JTime(range.startDate).subtract(static_cast<std::int64_t>(uGap));
  const JTime to = JTime(range.endDate).add(static_cast<std::int64_t>(uGap));
  TimeSpanList spans;
  for (auto it = m_slices.firstFrom(from); it != m_slices.end() && it->first.startDate <= to; ++it) {
    if (uGap > 0 && !spans.empty() &&
        it->first.startDate <= JTime(spans.back().endDate).add(static_cast<std::int64_t>(uGap))) {
      spans.back().endDate = it->first.endDate;
    } else {
      spans.push_back(it->first);
    }
  }
  const auto current = currentSpan();
  if (current && current->startDate <= to && from <= current->endDate) {
    spans = TimeSpanList::unite(spans, {*current});
    if (uGap > 0) {
      spans.mergeGap(uGap);
    }
  }
  return spans;
}

TimeSpanList ArchiveUnit::getStoredSpans(const TimeSpan& range) const {
  const std::uint64_t uGap = joinedGap();
  TimeSpanList spans;
  TimeSpanList hidden;
  {
    const JAutoLock lock(m_mutex);
    spans = recordedSpans(range, uGap);
    hidden = getHiddenSpans();
  }
  if (m_settings.bJoinGaps && spans.size() > 1) {
    // The frames may come slower than the unit's key says: asked last, for asking may open a file.
    const std::uint64_t uMediaGap = 2 * getMedia().uFramePeriod;
    if (uMediaGap > uGap) {
      spans.mergeGap(uMediaGap);
    }
  }
  return hidden.empty() ? spans : TimeSpanList::subtract(spans, hidden);
}

TimeSpanList ArchiveUnit::getProtectedSpans() const {
  const JAutoLock lock(m_mutex);
  TimeSpanList spans;
  m_protectedLog.getSpans(spans);
  return spans;
}

TimeSpanList ArchiveUnit::getProtectedSpans(JTime when) const {
  const JAutoLock lock(m_mutex);
  TimeSpanList spans;
  for (const auto& pRecord : m_protectedLog.getRecords()) {
    if (isInForce(pRecord->validitySpan, when)) {
      spans.push_back(pRecord->protectedSpan);
    }
  }
  spans.mergeGap(0);
  return spans;
}

TimeSpanList ArchiveUnit::getAlarmSpans(const std::string& sNameGlob) const {
  const JAutoLock lock(m_mutex);
  TimeSpanList spans;
  m_alarmLog.getSpans(spans, sNameGlob);
  return spans;
}

TimeSpanList ArchiveUnit::getMetaDataSpans() const {
  const JAutoLock lock(m_mutex);
  TimeSpanList spans;
  m_metaDataLog.getSpans(spans);
  return spans;
}

TimeSpanList ArchiveUnit::getMetaDataSpans(const std::vector<std::string>& names) const {
  const JAutoLock lock(m_mutex);
  TimeSpanList spans;
  m_metaDataLog.getSpans(spans, names);
  return spans;
}

TimeSpanList ArchiveUnit::getMetaDataSpans(const JParams& pairs) const {
  const JAutoLock lock(m_mutex);
  TimeSpanList spans;
  m_metaDataLog.getSpans(spans, pairs);
  return spans;
}

TimeSpanList ArchiveUnit::getHiddenSpans() const {
  const JAutoLock lock(m_mutex);
  TimeSpanList spans;
  m_hiddenLog.getSpans(spans);
  return spans;
}

// Changes of the logs.

namespace {

/// Whether a log could be read again. The system, or its memory, may be short of what that takes as well.
template <class ReadAgain>
bool couldReadAgain(ReadAgain readAgain) noexcept {
  try {
    return readAgain();
  } catch (...) {
    return false;
  }
}

}  // namespace

template <class Log, class Change, class ReadAgain>
void ArchiveUnit::changeLog(Log& log, Change change, ReadAgain readAgain) {
  const JAutoLock lock(m_mutex);
  Log before(log);
  try {
    change(log);
  } catch (...) {
    if (!couldReadAgain(readAgain)) {
      log.swap(before);
    }
    throw;
  }
}

void ArchiveUnit::changeAlarmLog(const std::function<void(AlarmLog& log)>& change) {
  changeLog(m_alarmLog, change, [this] { return m_alarmLog.init(pathOf(kAlarmLogName)); });
}

void ArchiveUnit::changeProtectedLog(const std::function<void(ProtectedLog& log)>& change) {
  changeLog(m_protectedLog, change,
            [this] { return m_protectedLog.init(pathOf(kProtectedLogName), JTime()); });
}

void ArchiveUnit::changeMetaDataLog(const std::function<void(MetaDataLog& log)>& change) {
  changeLog(m_metaDataLog, change, [this] { return m_metaDataLog.init(pathOf(kMetaDataLogName)); });
}

// Hiding and erasing.

/// Stores other hidden spans, in order and apart, in the place of all there are. The mutex is held.
void ArchiveUnit::storeHidden(const TimeSpanList& spans) {
  changeLog(
      m_hiddenLog, [&](MetaDataLog& log) { log.replaceAll(kHiddenPair, spans); },
      [this] { return m_hiddenLog.init(pathOf(kHiddenLogName)); });
}

void ArchiveUnit::requireHiddenLog() {
  if (m_bHiddenLog) {
    return;
  }
  if (!m_hiddenLog.init(pathOf(kHiddenLogName))) {
    QM_THROW(JTextError, "Could not initialize the hidden spans in %s", m_sDirectory.c_str());
  }
  m_bHiddenLog = true;
}

void ArchiveUnit::hide(const TimeSpanList& spans) {
  if (spans.empty()) {
    return;
  }
  const JAutoLock lock(m_mutex);
  requireHiddenLog();
  TimeSpanList all = getHiddenSpans();
  all.insert(all.end(), spans.begin(), spans.end());
  all.mergeGap(1);
  storeHidden(all);
}

void ArchiveUnit::unhide(const TimeSpanList& spans) {
  if (spans.empty()) {
    return;
  }
  const JAutoLock lock(m_mutex);
  requireHiddenLog();
  TimeSpanList shown = spans;
  shown.mergeGap(0);
  storeHidden(TimeSpanList::subtract(getHiddenSpans(), shown));
}

/// First out of sight and on disk, then deleted: what is interrupted in between shows nothing of the span.
void ArchiveUnit::erase(const TimeSpan& span) {
  const JAutoLock lock(m_mutex);
  if (!m_protectedLog.isWhole()) {
    QM_THROW(JTextError, "The protections in %s couldn't be read, so nothing is erased",
             m_sDirectory.c_str());
  }
  const TimeSpanList protections = getProtectedSpans(JTime::now());
  hide(TimeSpanList::subtract({span}, protections));
  TimeSpanList deleted;
  JError* pFirstError = nullptr;
  for (const Slice& slice : getSlices(span)) {
    const TimeSpan& whole = slice.getSpan();
    if (whole.startDate < span.startDate || span.endDate < whole.endDate || touchesAny(protections, whole)) {
      continue;
    }
    try {
      removeSlice(whole);
      deleted.push_back(whole);
    } catch (JError* pError) {
      qm_err::CaughtError error(pError);
      JCATCH_LOG(error.get());
      if (pFirstError == nullptr) {
        pFirstError = error.release();
      }
    }
  }
  if (pFirstError != nullptr) {
    throw pFirstError;
  }
  unhide(deleted);  // there is nothing left to hide, and what is added there later must show
}
