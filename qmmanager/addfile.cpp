#include "qmmanager/addfile.h"

#include <cerrno>
#include <exception>
#include <memory>
#include <set>
#include <string_view>
#include <utility>

#include "coreapi/platform/filetree.h"
#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/params/jparams.h"
#include "coreapi/qmutils/thread/jmutex.h"
#include "coreapi/qmutils/time/ntpdate.h"
#include "qmmanager/alarms.h"
#include "qmmanager/archive.h"
#include "qmmanager/plainfiles.h"
#include "qmmanager/recorder.h"
#include "qmmanager/request.h"

namespace qm_manager {

namespace {

std::string resolve(const std::string& sPath, const std::string& sName) {
  std::string sResolved;
  const int iError = qm_platform::resolvePath(sPath, sResolved);
  if (iError == ENOENT) {
    QM_THROW(JTextError, "there is no " + sName);
  }
  if (iError != 0) {
    QM_THROW(JSysError, static_cast<std::uint32_t>(iError), "realpath");
  }
  return sResolved;
}

/// The path of a file of the import directory, free of symbolic links.
std::string findImport(const std::string& sDirectory, const std::string& sName) {
  if (sDirectory.empty()) {
    QM_THROW(JTextError, "no files are added here: the Manager has no import directory");
  }
  if (!isPlainName(sName)) {
    QM_THROW(JTextError, "FileName must be a plain name, without directories");
  }
  if (sName.empty() || sName == "." || sName == "..") {
    QM_THROW(JTextError, "FileName must name a file");
  }
  const std::string sParent = resolve(sDirectory, "import directory any more");
  const std::string sPath =
      resolve(sDirectory + "/" + sName, "file \"" + sName + "\" in the import directory");
  if (sPath.substr(0, sPath.rfind('/')) != (sParent == "/" ? "" : sParent)) {
    QM_THROW(JTextError, "FileName leads out of the import directory");
  }
  return sPath;
}

class AddFile {
 public:
  AddFile(Archive& archive, std::string sDirectory, std::function<bool()> isEnding)
      : m_archive(archive), m_sDirectory(std::move(sDirectory)), m_isEnding(std::move(isEnding)) {}

  void run(const Request& request) {
    const std::string sSource = request.getText("SourceName");
    const std::string sAlarm = request.getText("AlarmName", "");
    const std::string sStart = request.getText("StartDate", "");
    const std::string sPath = findImport(m_sDirectory, request.getText("FileName"));
    const MediaProgress goOn = [this](std::uint64_t, std::uint64_t) { return !m_isEnding(); };
    const MediaSurvey survey = surveyMedia(sPath, goOn);
    if (!survey.fps) {
      QM_THROW(JTextError, "the file doesn't tell its frame rate");
    }
    const JTime start = startOf(survey, sStart);
    recordedSpan(survey, start);
    const auto pUnit = m_archive.makeUnit(sSource, *survey.fps);
    const Turn turn(*this, *pUnit);
    Recorder recorder(*pUnit, survey, start);
    const AlarmLogRecord alarm(sAlarm, recorder.getSpan().startDate, recorder.getSpan());
    if (!sAlarm.empty()) {
      addAlarm(*pUnit, alarm);  // what it refuses is refused before anything is recorded
    }
    record(recorder, *pUnit, sAlarm.empty() ? nullptr : &alarm, goOn);
    for (const std::string& sNote : recorder.getNotes()) {
      qm_err::log(qm_err::kLogWarning, "%s: %s\n", sPath.c_str(), sNote.c_str());
    }
  }

 private:
  /// The right to record into a unit; throws JTextError when another has it.
  class Turn {
   public:
    Turn(AddFile& all, const ArchiveUnit& unit) : m_all(all), m_unit(unit) {
      const JAutoLock lock(m_all.m_mutex);
      if (!m_all.m_busy.insert(&m_unit).second) {
        QM_THROW(JTextError, "another file is being added to this recording; try again later");
      }
    }
    ~Turn() {
      const JAutoLock lock(m_all.m_mutex);
      m_all.m_busy.erase(&m_unit);
    }
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;

   private:
    AddFile& m_all;
    const ArchiveUnit& m_unit;
  };

  static JTime startOf(const MediaSurvey& survey, const std::string& sStart) {
    JTime start = JTime::fromMicroseconds(survey.ullBegin);
    if (sStart.empty() && !survey.bDated) {
      QM_THROW(JTextError, "the file doesn't tell when it was recorded; StartDate must");
    }
    if (!sStart.empty() && !qm_utils::parseExactNtpDate(sStart, start)) {
      QM_THROW(JTextError, "StartDate is no date; one is MM/DD/YYYY HH:MM:SS.uuuuuuUTC");
    }
    return start;
  }

  /// `pAlarm`, which may be null, goes when the recording fails.
  static void record(Recorder& recorder, ArchiveUnit& unit, const AlarmLogRecord* pAlarm,
                     const MediaProgress& goOn) {
    try {
      recorder.run(goOn);
    } catch (JError* pError) {
      const qm_err::CaughtError error(pError);
      if (pAlarm != nullptr) {
        dropAlarm(unit, *pAlarm);
      }
      QM_THROW(JTextError, error->getMessage() + "; " + recorder.getSummary());
    } catch (const std::exception&) {
      if (pAlarm != nullptr) {
        dropAlarm(unit, *pAlarm);
      }
      throw;
    }
  }

  Archive& m_archive;
  const std::string m_sDirectory;
  const std::function<bool()> m_isEnding;
  JMutex m_mutex;
  std::set<const ArchiveUnit*> m_busy;  ///< units that are recorded into
};

}  // namespace

void addAddFileHandlers(Handlers& handlers, Archive& archive, const std::string& sImportDirectory,
                        std::function<bool()> isEnding) {
  const auto pAddFile = std::make_shared<AddFile>(archive, sImportDirectory, std::move(isEnding));
  handlers.emplace("rpc_addFile", [pAddFile](const Request& request, JParams&) { pAddFile->run(request); });
}

}  // namespace qm_manager
