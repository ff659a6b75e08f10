#include <memory>
#include <ostream>
#include <string>

#include "coreapi/platform/interrupts.h"
#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmxml/qmxml.h"
#include "qmmanager/archive.h"
#include "qmmanager/recorder.h"
#include "tools/qmctl/commandline.h"
#include "tools/qmctl/dates.h"
#include "tools/qmctl/failure.h"
#include "tools/qmctl/framereader.h"
#include "tools/qmctl/output.h"
#include "tools/qmctl/progress.h"

namespace qmctl {

namespace {

struct Arguments {
  std::string sFile;
  std::string sArchive;
  std::string sSource;
  std::int32_t iFps = -1;  ///< as the file tells
  std::string sStart;      ///< empty: as the file tells
  std::uint32_t uSliceSeconds = qm_manager::Recorder::kDefaultSliceSeconds;
};

constexpr std::uint32_t kMostSliceSeconds = 86400;

/// What this process uses of the storage side, in the order that it needs.
class StorageUse {
 public:
  StorageUse() { FileInfo::initCache(kKeptDescriptions); }
  ~StorageUse() { FileInfo::closeCache(); }
  StorageUse(const StorageUse&) = delete;
  StorageUse& operator=(const StorageUse&) = delete;

 private:
  static constexpr std::uint32_t kKeptDescriptions = 16;

  QMXmlUse m_xml;
};

class Import {
 public:
  Import(Context& context, const Arguments& given) : m_context(context), m_given(given) {}

  void run() {
    record();
    report();
  }

 private:
  void record() {
    const qm_platform::InterruptCatcher interrupts;
    try {
      Progress progress(m_context);
      const qm_manager::MediaProgress show = [&](std::uint64_t uDone, std::uint64_t uAll) {
        progress.showPart(uDone, uAll);
        return interrupts.getCaught() == 0;
      };
      open(qm_manager::surveyMedia(m_given.sFile, show));
      m_pRecorder->run(show);
    } catch (JError* pError) {
      const qm_err::CaughtError error(pError);
      if (const int iSignal = interrupts.getCaught()) {
        failInterrupted(iSignal, standing());
      }
      throw Failure(kFailed, m_given.sFile + ": " + error->getMessage() +
                                 (m_pRecorder ? "\n" + standing() : std::string()));
    }
  }

  /// Everything that is to be refused is refused before the archive is touched, but for what it holds
  /// already.
  void open(qm_manager::MediaSurvey survey) {
    m_iFps = rateOf(survey);
    const JTime start = startOf(survey);
    qm_manager::recordedSpan(survey, start);
    m_pArchive = std::make_unique<qm_manager::Archive>(m_given.sArchive,
                                                       qm_manager::ArchiveRoot::Creation::kWhenEmpty);
    m_pUnit = m_pArchive->makeUnit(m_given.sSource, m_iFps);
    m_pRecorder =
        std::make_unique<qm_manager::Recorder>(*m_pUnit, std::move(survey), start, m_given.uSliceSeconds);
  }

  std::int32_t rateOf(const qm_manager::MediaSurvey& survey) const {
    if (m_given.iFps < 0 && !survey.fps) {
      throw Failure(kWrongUsage, m_given.sFile + ": doesn't tell its frame rate; --fps must");
    }
    return m_given.iFps < 0 ? *survey.fps : m_given.iFps;
  }

  JTime startOf(const qm_manager::MediaSurvey& survey) const {
    if (m_given.sStart.empty() && !survey.bDated) {
      throw Failure(kWrongUsage, m_given.sFile +
                                     ": doesn't tell when it was recorded; --start must, the date of its "
                                     "first frame");
    }
    return m_given.sStart.empty() ? JTime::fromMicroseconds(survey.ullBegin) : toTime(m_given.sStart);
  }

  /// What the archive has of the file when the work has ended early.
  std::string standing() const { return m_pRecorder ? m_pRecorder->getSummary() : "nothing was recorded"; }

  void report() const {
    for (const std::string& sNote : m_pRecorder->getNotes()) {
      tellOf(m_context.error, m_given.sFile, sNote);
    }
    if (!m_context.settings.bJson) {
      m_context.out << standing() << ", " << m_pRecorder->getFrames() << " frames, of source '"
                    << m_given.sSource << "' at rate " << m_iFps << '\n';
      return;
    }
    Json slices = Json::array();
    for (const Slice& slice : m_pRecorder->getSlices()) {
      slices.push_back({{"file", slice.getPath()},
                        {"start", slice.getSpan().startDate.getMicroseconds()},
                        {"end", slice.getSpan().endDate.getMicroseconds()},
                        {"size", slice.getSize()}});
    }
    writeJson(m_context.out, {{"source", m_given.sSource},
                              {"fps", m_iFps},
                              {"start", m_pRecorder->getSpan().startDate.getMicroseconds()},
                              {"end", m_pRecorder->getSpan().endDate.getMicroseconds()},
                              {"frames", m_pRecorder->getFrames()},
                              {"slices", slices}});
  }

  Context& m_context;
  const Arguments& m_given;
  StorageUse m_storage;
  std::int32_t m_iFps = 0;
  std::unique_ptr<qm_manager::Archive> m_pArchive;
  std::shared_ptr<ArchiveUnit> m_pUnit;
  std::unique_ptr<qm_manager::Recorder> m_pRecorder;
};

}  // namespace

void addImportCommand(CLI::App& app, Context& context) {
  CLI::App& command =
      addCommand(app, "import", "Records a media file into an archive directory; needs no Manager",
                 "import clip.avi --archive /srv/recordings --source gate --start 2011-03-03T10:00:00Z");
  const auto pGiven = std::make_shared<Arguments>();
  command.add_option("FILE", pGiven->sFile, "A media file: ASF, AVI, WAVE or MP3")->required();
  command
      .add_option("--archive", pGiven->sArchive,
                  "Directory of the archive; a new or an empty one is made an archive")
      ->required();
  command.add_option("--source", pGiven->sSource, "Source that the recording is of")->required();
  command
      .add_option("--fps", pGiven->iFps,
                  "Frame rate that the recording is kept under, 0 for sound; by default the file's own")
      ->check(isFrameRate());
  command
      .add_option("--start", pGiven->sStart,
                  "Date of the file's first frame; by default the file's own dates, if it has any")
      ->check(isDate());
  command
      .add_option("--slice", pGiven->uSliceSeconds, "Seconds after which a new file of the archive begins")
      ->check(CLI::Range(std::uint32_t{1}, kMostSliceSeconds))
      ->capture_default_str();
  command.callback(
      [&context, pGiven] { context.todo = [&context, pGiven] { Import(context, *pGiven).run(); }; });
}

}  // namespace qmctl
