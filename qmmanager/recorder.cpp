#include "qmmanager/recorder.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/socket/fileoperations.h"
#include "coreapi/qmutils/socket/jfilesocket.h"
#include "qmmanager/plainfiles.h"
#include "qmmanager/spantext.h"
#include "storage/FileOutput.h"

namespace qm_manager {

namespace {

constexpr std::uint16_t kKeyFrameFlags = qm_ci::kAccessBit0 | qm_ci::kAccessBit1;
constexpr std::uint64_t kMicrosecondsPerMillisecond = 1000;

/// What a file's parameters say of its own making, and what the writer says of the slice.
constexpr const char* kOwnParams[] = {"validKeyFrameFlag", "syntheticFlag",  "supportAuthentication",
                                      "sourceName",        "startTimeStamp", "endTimeStamp"};

/// A name that no slice has, nor what another recording may have left here.
std::string workName() {
  return "import-" + JTime::now().toText() + ".work";
}

}  // namespace

/// A slice while it is written. One that isn't finished is gone with its object.
class Recorder::SliceFile {
 public:
  SliceFile(const std::string& sDirectory, const FileInfo& source, std::uint32_t uStream)
      : m_sDirectory(sDirectory), m_sPath(sDirectory + "/" + workName()) {
    try {
      // Opening can fail when the file is there already.
      start(std::make_unique<JFileSocket>(m_sPath, JFileSocket::kWrite, false), source,
            *source.getStream(uStream));
    } catch (...) {
      removeWork();
      throw;
    }
  }

  ~SliceFile() { removeWork(); }
  SliceFile(const SliceFile&) = delete;
  SliceFile& operator=(const SliceFile&) = delete;

  void write(const qm_ci::Bitstream& frame, bool bCounted) {
    const JTime date = JTime::fromMicroseconds(frame.getTimestamp());
    if (bCounted) {
      m_span = TimeSpan(m_uFrames == 0 ? date : m_span.startDate, date);
      ++m_uFrames;
    }
    const std::uint64_t uTime =
        (date.getMicroseconds() - std::min(date, m_span.startDate).getMicroseconds()) /
        kMicrosecondsPerMillisecond;
    m_pOutput->writeBitstream(
        1, frame,
        static_cast<std::uint32_t>(std::min<std::uint64_t>(uTime, std::numeric_limits<std::uint32_t>::max())),
        0);
  }

  const TimeSpan& getSpan() const noexcept { return m_span; }
  std::uint64_t getFrames() const noexcept { return m_uFrames; }

  /// Gives the slice its name.
  Slice finish() {
    m_pOutput.reset();
    const std::uint64_t uSize = sync();
    const std::string sPath = m_sDirectory + "/" + Slice::computeFileName(m_span, uSize, ".asf");
    qm_utils::moveFile(m_sPath, sPath, false);
    m_bWorkFile = false;
    return Slice(m_span, sPath, uSize);
  }

 private:
  void start(std::unique_ptr<JFileSocket> pSocket, const FileInfo& source, const FileStreamInfo& stream) {
    m_pOutput = FileOutput::create(std::move(pSocket), "asf", m_sPath);
    JParams params = source.getParams();
    for (const char* const szName : kOwnParams) {
      params.remove(szName);
    }
    m_pOutput->getParams().merge(params);
    m_pOutput->open(stream.getStreamInfo(), &stream.getParams(), nullptr);
  }

  /// A writer finishes its file in its destructor, and only the log learns of a failure there: the file
  /// itself must tell. Returns its size when it is on the disk.
  std::uint64_t sync() const {
    JFileSocket socket(m_sPath, JFileSocket::kReadWrite, true);
    const FileInfo::Ptr pFileInfo = FileInfo::create(socket, m_sPath, false);
    const FileStreamInfo* const pStream = pFileInfo ? pFileInfo->getStream(1) : nullptr;
    if (pStream == nullptr || !FrameWalk::isFinished(*pFileInfo) || pStream->getCount() != m_uFrames ||
        pStream->getFirstDate() != m_span.startDate || pStream->getLastDate() != m_span.endDate) {
      QM_THROW(JTextError, "a slice couldn't be finished; the log says why");
    }
    socket.flush();
    std::uint64_t uSize = 0;
    socket.getInfo(nullptr, &uSize);
    return uSize;
  }

  void removeWork() noexcept {
    if (!std::exchange(m_bWorkFile, false)) {
      return;
    }
    m_pOutput.reset();
    discardFile(m_sPath);
  }

  const std::string m_sDirectory;
  const std::string m_sPath;
  bool m_bWorkFile = true;  ///< may be there
  std::unique_ptr<FileOutput> m_pOutput;
  TimeSpan m_span;
  std::uint64_t m_uFrames = 0;
};

TimeSpan recordedSpan(const MediaSurvey& survey, JTime start) {
  // What is cut off here lies outside the range as well.
  const auto dateOf = [&](std::uint64_t ullTime) {
    const std::uint64_t ullSince = std::min(ullTime - survey.ullBegin, JTime::kHighestConvertible);
    return JTime(start).add(static_cast<std::int64_t>(ullSince));
  };
  const TimeSpan span(dateOf(survey.ullFirst), dateOf(survey.ullLast));
  if (start.getMicroseconds() < JTime::kValidLow || span.endDate.getMicroseconds() > JTime::kValidHigh) {
    QM_THROW(JTextError, "its frames would be dated " + textOf(span) +
                             ", and dates must lie between 1970 and January 2038");
  }
  return span;
}

Recorder::Recorder(ArchiveUnit& unit, MediaSurvey survey, JTime start, std::uint32_t uSliceSeconds)
    : m_unit(unit),
      m_survey(std::move(survey)),
      m_start(start),
      m_uSliceLength(JTime(uSliceSeconds, 0).getMicroseconds()),
      m_span(recordedSpan(m_survey, start)) {
  checkFree();
  noteHidden();
}

Recorder::~Recorder() = default;

void Recorder::checkFree() const {
  for (const Slice& slice : m_unit.getSlices(m_span)) {
    if (SliceMap::overlap(slice.getSpan(), m_span)) {
      QM_THROW(JTextError,
               "there is a recording already from " + textOf(slice.getSpan()) + "; nothing was recorded");
    }
  }
}

/// What is hidden stays so, whenever it was recorded.
void Recorder::noteHidden() {
  if (!TimeSpanList::intersect(m_unit.getHiddenSpans(), {m_span}).empty()) {
    m_survey.notes.emplace_back(
        "something of this span was hidden or erased: no search shows that before it is unhidden");
  }
}

std::string Recorder::getSummary() const {
  if (m_slices.empty()) {
    return "nothing was recorded";
  }
  return "recorded " + std::to_string(m_slices.size()) + (m_slices.size() == 1 ? " slice" : " slices") +
         ", from " + textOf({m_slices.front().getSpan().startDate, m_slices.back().getSpan().endDate});
}

void Recorder::run(const MediaProgress& progress) {
  FrameWalk walk(m_survey.sFile, [this](const std::string& sText) { m_survey.notes.push_back(sText); });
  try {
    while (walk.next()) {
      goOn(progress, walk.getBytes(), m_survey.uBytes);
      if (walk.getStream() == m_survey.uStream) {
        take(walk);
      }
    }
    if (m_pFile) {
      endSlice();
    }
  } catch (...) {
    m_pFile.reset();
    throw;
  }
}

void Recorder::take(FrameWalk& walk) {
  const bool bCounted = !walk.getInput().isAuthentication();
  if (bCounted && m_uSeen++ == 0) {
    m_ullBegin = walk.getFrame().getTimestamp();
  }
  if (m_uSeen <= m_survey.uLeading) {
    return;
  }
  takeDate(walk, bCounted);
  qm_ci::Bitstream& frame = walk.getFrame();
  if (bCounted) {
    const bool bKeyFrame = m_survey.bStartsAnywhere || walk.getInput().isKeyFrame();
    const std::uint16_t wFlags = frame.getAccessFlags();
    if (bKeyFrame != qm_ci::isAccessPoint(wFlags)) {
      // Some files tell it otherwise than by the flags.
      frame.setAccessFlags(static_cast<std::uint16_t>(bKeyFrame ? wFlags | kKeyFrameFlags
                                                                : wFlags & ~unsigned{kKeyFrameFlags}));
    }
    const bool bStart = bKeyFrame && (walk.getSize() > 0 || m_survey.bStartsAnywhere);
    if (m_pFile && bStart &&
        frame.getTimestamp() - m_pFile->getSpan().startDate.getMicroseconds() >= m_uSliceLength) {
      endSlice();
    }
  }
  if (!m_pFile) {
    m_pFile = std::make_unique<SliceFile>(m_unit.getDirectory(), walk.getFileInfo(), m_survey.uStream);
  }
  m_pFile->write(frame, bCounted);
}

/// Moves a frame to the date that it is recorded under.
void Recorder::takeDate(FrameWalk& walk, bool bCounted) {
  qm_ci::Bitstream& frame = walk.getFrame();
  const std::uint64_t ullSince = frame.getTimestamp() - std::min(frame.getTimestamp(), m_ullBegin);
  const std::uint64_t ullDate = m_start.getMicroseconds() + std::min(ullSince, JTime::kHighestConvertible);
  const std::uint64_t ullFrom = (m_pFile ? m_pFile->getSpan().endDate : m_span.startDate).getMicroseconds();
  const std::uint64_t ullTo = m_span.endDate.getMicroseconds();
  if (bCounted && (ullDate < ullFrom || ullDate > ullTo)) {
    QM_THROW(JTextError, "the file changes while it is recorded");
  }
  frame.setTimestamp(std::clamp(ullDate, ullFrom, ullTo));
}

void Recorder::endSlice() {
  const Slice slice = m_pFile->finish();
  m_uFrames += m_pFile->getFrames();
  m_pFile.reset();
  m_unit.addSlice(std::make_unique<Slice>(slice));
  m_slices.push_back(slice);
}

}  // namespace qm_manager
