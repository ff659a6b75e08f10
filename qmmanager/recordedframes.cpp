#include "qmmanager/recordedframes.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include "coreapi/qmstream/iframesocket.h"
#include "coreapi/qmutils/thread/jmutex.h"

namespace qm_manager {

namespace {

constexpr std::uint32_t kStream = 1;

static_assert(RecordedFrames::kMaxPayload + qm_ci::Bitstream::m_uMinQMCIBitstreamSize ==
              qm_stream::kMaxFrameSize);

JTime after(JTime time) noexcept {
  return time.add(1);
}

JTime before(JTime time) noexcept {
  return time == JTime::zero() ? time : time.subtract(1);
}

/// Number of the last frame at or before a time, -1 for none, by the index or else by the frame period.
std::int64_t numberAtOrBefore(const FileStreamInfo& stream, JTime time) {
  if (stream.hasTimes()) {
    return stream.getNumberAtOrBefore(time);
  }
  const JTime first = stream.getFirstDate();
  if (time < first || stream.getCount() == 0) {
    return -1;
  }
  constexpr std::uint64_t kMicrosecondsPerMillisecond = 1000;
  const FramePeriod period = stream.getPeriod();
  const std::uint64_t uPeriod =
      std::uint64_t{period.uNumerator} * kMicrosecondsPerMillisecond / std::max(period.uDenominator, 1U);
  const std::uint64_t uNumber =
      (time.getMicroseconds() - first.getMicroseconds()) / std::max<std::uint64_t>(uPeriod, 1);
  return static_cast<std::int64_t>(std::min<std::uint64_t>(uNumber, stream.getCount() - 1));
}

/// Number of the key frame at or before a frame; none when there is none, or no telling.
std::optional<std::int64_t> keyFrameAtOrBefore(const FileStreamInfo& stream, std::int64_t iNumber) {
  if (!stream.getEntry(0)) {
    return std::nullopt;
  }
  while (iNumber >= 0 && !stream.isKeyFrame(static_cast<std::uint32_t>(iNumber))) {
    --iNumber;
  }
  return iNumber >= 0 ? std::optional(iNumber) : std::nullopt;
}

/// The stream without its properties, and without what its largest frame is.
qm_ci::StreamInfo comparable(qm_ci::StreamInfo info) {
  info.setNomMaxBitstreamSize(0);
  const auto bytes = info.getBytes().subspan(qm_ci::StreamInfo::kDescriptionAt);
  const char* const szProperties = info.getProperties();
  const std::size_t uProperties =
      szProperties != nullptr ? std::char_traits<char>::length(szProperties) + 1 : 0;
  return qm_ci::StreamInfo::make(info.getType(), bytes.first(bytes.size() - uProperties), {});
}

}  // namespace

qm_ci::StreamInfo describeForCopy(const qm_ci::StreamInfo& info) {
  if (info.getMaxFrameSize() != 0) {
    return info;
  }
  if (const auto block =
          info.getType() == qm_ci::StreamInfo::kData ? info.getStreamDataInfo() : std::nullopt) {
    const qm_ci::StreamDataInfo data(*block);
    const qm_ci::InfoBlock sized =
        qm_ci::StreamDataInfo::make(data.getMIMEType(), data.getDescription(), data.getFPSNum(),
                                    data.getFPSDen(), qm_stream::kMaxFrameSize);
    return makeStreamInfo(qm_ci::StreamDataInfo(sized), info.getProperties());
  }
  qm_ci::StreamInfo sized = info;
  sized.setNomMaxBitstreamSize(qm_stream::kMaxFrameSize);
  return sized;
}

bool isSameStream(const qm_ci::StreamInfo& described, const qm_ci::StreamInfo& other) {
  const qm_ci::StreamInfo comparableOther = comparable(other);
  return other.getMaxFrameSize() <= described.getMaxFrameSize() &&
         comparable(described).isCompatible(&comparableOther, false);
}

namespace {

/// Whether the system or the memory was short of something: the file isn't at fault, and what it holds isn't
/// lost, so that nothing of it may be passed over.
bool isShortage(const JError& error) {
  if (const auto* const pSystem = dynamic_cast<const JSysError*>(&error)) {
    return pSystem->getCode() == EMFILE || pSystem->getCode() == ENFILE || pSystem->getCode() == ENOMEM;
  }
  return error.getMessage() == "out of memory";
}

}  // namespace

RecordedFrames::RecordedFrames(std::shared_ptr<ArchiveUnit> pUnit, const TimeSpan& span, bool bAuthentication)
    : m_pUnit(std::move(pUnit)),
      m_span(span),
      m_bAuthentication(bAuthentication),
      m_passed(before(span.startDate)) {
  m_frame.setMaxSize(0, qm_ci::QMCI_FMT_PACKET, 1);
}

RecordedFrames::Next RecordedFrames::next() {
  for (;;) {
    try {
      if (!m_bStanding && !advance()) {
        return Next::kEnd;
      }
      m_bStanding = true;
      if (std::exchange(m_bNewFile, false) && isNewDescription()) {
        m_description = describeForCopy(*stream().getStreamInfo());
        return Next::kDescription;
      }
      m_bStanding = false;
      if (m_pInput->readPayload(m_uPayload, m_frame)) {
        m_bCut = false;
        return Next::kFrame;
      }
      leaveDamaged(getFrameDate(), "a frame isn't whole");
    } catch (JError* pError) {
      qm_err::CaughtError error(pError);
      if (isShortage(*error)) {
        error.rethrow();
      }
      m_bStanding = false;
      leaveDamaged(getFrameDate(), error->getMessage().c_str());
    }
  }
}

FileStreamInfo& RecordedFrames::stream() const {
  FileStreamInfo* const pStream = m_pInput->getFileInfo().getStream(kStream);
  if (pStream == nullptr || pStream->getStreamInfo() == nullptr) {
    QM_THROW(JTextError, "the file has no stream");
  }
  return *pStream;
}

bool RecordedFrames::isNewDescription() const {
  return !m_description || !isSameStream(*m_description, describeForCopy(*stream().getStreamInfo()));
}

JParams RecordedFrames::getStreamParams() const {
  const JAutoLock lock(m_pInput->getFileInfo().getMutex());
  return stream().getParams();
}

std::string RecordedFrames::getAuthoringApp() const {
  FileInfo& fileInfo = m_pInput->getFileInfo();
  const JAutoLock lock(fileInfo.getMutex());
  const JParams params = fileInfo.getParams();
  std::string sAuthoringApp;
  params.get("authoringApp", sAuthoringApp);
  return sAuthoringApp;
}

// From frame to frame.

/// Stands at the next frame that is wanted. False at the end of all.
bool RecordedFrames::advance() {
  for (;;) {
    int iResult = FileInput::kFrame;
    if (m_pInput == nullptr) {
      if (!openNext()) {
        return false;
      }
      if (!goToStart()) {
        continue;
      }
    } else {
      std::uint32_t uStream = 0;
      iResult = m_pInput->getNextFrame(&uStream, &m_uPayload, &m_frame, m_bAuthentication);
      if (iResult == FileInput::kFrame && uStream != kStream) {
        continue;
      }
    }
    if (iResult != FileInput::kFrame) {
      const JTime last = getFrameDate();
      const bool bWhole =
          iResult == FileInput::kEnd && m_pInput->getLastNumber(kStream) + 1 >= stream().getCount();
      if (bWhole || (iResult == FileInput::kEnd && last >= m_fileSpan.endDate)) {
        leaveFile();
      } else {
        leaveDamaged(after(last), "its frames break off");
      }
      continue;
    }
    if (isWanted()) {
      return true;
    }
  }
}

/// Whether the frame that the reader stands at is to be given. May move on or leave the file.
bool RecordedFrames::isWanted() {
  if (m_pInput->isAuthentication()) {
    return m_bGiven && hasSizeOfFrame();
  }
  m_bGiven = false;
  while (hiddenAt(getFrameDate()) != nullptr) {
    if (!skipHidden()) {
      return false;
    }
  }
  if (m_fileSpan.endDate < getFrameDate()) {
    leaveFile();
    return false;
  }
  if (getFrameDate() < m_lower) {
    return false;
  }
  if (qm_ci::getFrameKind(m_frame.getPictureType()) == qm_ci::kFrameKindStreamInfo) {
    return false;  // would be taken for the description of what follows
  }
  m_bGiven = hasSizeOfFrame();
  return m_bGiven;
}

/// Whether a copy can take the frame that the reader stands at; else it is told in the log.
bool RecordedFrames::hasSizeOfFrame() const {
  if (m_uPayload > kMaxPayload) {
    qm_err::log(qm_err::kLogError,
                "A frame of %u bytes in %s is larger than any copy takes; it is left out\n", m_uPayload,
                m_pInput->getFileInfo().getFileName().c_str());
    return false;
  }
  return true;
}

/// Goes on behind the hidden span that the reader stands in. False when there is nothing of the file behind
/// it, or no telling where: then it is walked to.
bool RecordedFrames::skipHidden() {
  m_lower = after(hiddenAt(getFrameDate())->endDate);
  if (m_fileSpan.endDate < m_lower) {
    leaveFile();
    return false;
  }
  return stream().hasTimes() && goToNumber(numberAtOrBefore(stream(), before(m_lower)) + 1);
}

const TimeSpan* RecordedFrames::hiddenAt(JTime when) const {
  const auto span = std::partition_point(m_hidden.begin(), m_hidden.end(),
                                         [&](const TimeSpan& each) { return each.endDate < when; });
  return span != m_hidden.end() && span->startDate <= when ? &*span : nullptr;
}

bool RecordedFrames::isVisible(JTime from, JTime to) const {
  return from <= to && !TimeSpanList::subtract({TimeSpan(from, to)}, m_hidden).empty();
}

// From file to file.

/// Opens the next file that has a part of the span which isn't hidden. False when there is none.
bool RecordedFrames::openNext() {
  for (;;) {
    m_hidden = m_pUnit->getHiddenSpans();
    m_hidden.mergeGap(0);
    while (const TimeSpan* const pHidden = hiddenAt(after(m_passed))) {
      m_passed = pHidden->endDate;
    }
    if (m_span.endDate <= m_passed) {
      return false;
    }
    const JTime passed = m_passed;
    TimeSpan file(m_passed, m_passed);
    try {
      m_pInput = m_pUnit->openNextFile(m_passed, &file.startDate, &file.endDate);
      if (m_pInput == nullptr || m_span.endDate < file.startDate) {
        m_pInput.reset();
        return false;
      }
      m_fileSpan = TimeSpan(file.startDate, std::min(file.endDate, m_span.endDate));
      m_lower = after(m_passed);
      m_bNewFile = true;
      m_pInput->setLoop(false);
      return true;
    } catch (JError* pError) {
      qm_err::CaughtError error(pError);
      if (isShortage(*error)) {
        error.rethrow();
      }
      if (m_span.endDate < file.startDate) {
        return false;
      }
      m_fileSpan = TimeSpan(file.startDate, std::min(file.endDate, m_span.endDate));
      leaveDamaged(file.startDate, error->getMessage().c_str());
      if (m_passed == passed) {
        return false;  // it can't be told where to go on
      }
    }
  }
}

/// Number of the frame that the file is to be begun with: none for its first one.
std::optional<std::int64_t> RecordedFrames::startNumber() const {
  const FileStreamInfo& info = stream();
  if (m_bFirstFile && info.getStreamInfo()->isVideo()) {
    if (const auto key = keyFrameAtOrBefore(info, numberAtOrBefore(info, m_lower))) {
      return key;
    }
  }
  if (m_lower <= m_fileSpan.startDate) {
    return std::nullopt;
  }
  return numberAtOrBefore(info, before(m_lower)) + (info.hasTimes() ? 1 : 0);
}

/// Stands at the frame that the file is begun with. False when it has none: it is left then, or walked
/// through from its start.
bool RecordedFrames::goToStart() {
  const std::optional<std::int64_t> number = startNumber();
  const bool bFirst = std::exchange(m_bFirstFile, false);
  if (!number || *number < 0) {
    return false;
  }
  if (!goToNumber(*number)) {
    return false;
  }
  if (bFirst && getFrameDate() < m_lower && stream().getStreamInfo()->isVideo()) {
    m_lower = getFrameDate();  // the key frame that the span's first frame needs
  }
  return true;
}

/// Stands at a frame. False, with the file left, when it doesn't have that many.
bool RecordedFrames::goToNumber(std::int64_t iNumber) {
  if (iNumber >= stream().getCount()) {
    leaveFile();
    return false;
  }
  if (m_pInput->seekFrame(kStream, static_cast<std::uint32_t>(iNumber), &m_uPayload, &m_frame, false) !=
      FileInput::kFrame) {
    leaveDamaged(std::max(m_lower, m_fileSpan.startDate), "its frames break off");
    return false;
  }
  return true;
}

void RecordedFrames::leaveFile() {
  m_pInput.reset();
  m_passed = std::max(m_passed, m_fileSpan.endDate);
}

/// Leaves a file of which everything from a date on is lost.
void RecordedFrames::leaveDamaged(JTime from, const char* szReason) {
  from = std::max(from, m_fileSpan.startDate);
  if (isVisible(from, m_fileSpan.endDate)) {
    m_bCut = true;
    qm_err::log(
        qm_err::kLogError, "A copy leaves out what %s holds from %s to %s: %s\n",
        m_pInput != nullptr ? m_pInput->getFileInfo().getFileName().c_str() : m_pUnit->getDirectory().c_str(),
        from.toUSFormat().c_str(), m_fileSpan.endDate.toUSFormat().c_str(), szReason);
  }
  leaveFile();
}

}  // namespace qm_manager
