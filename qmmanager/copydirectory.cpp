#include "qmmanager/copydirectory.h"

#include <cerrno>
#include <iterator>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

#include "coreapi/platform/fileaccess.h"
#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/socket/fileoperations.h"
#include "coreapi/qmutils/socket/jfilesocket.h"
#include "qmmanager/copies.h"
#include "qmmanager/plainfiles.h"
#include "qmmanager/recordedframes.h"
#include "storage/FileOutput.h"

namespace qm_manager {

namespace {

constexpr std::uint32_t kStream = 1;

bool isThere(const std::string& sPath) {
  try {
    qm_utils::getFileInfo(sPath, nullptr);
    return true;
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    return false;
  }
}

/// A new file, in the place of what an interrupted copy has left under its name. What stands there isn't
/// opened, so that nothing is written through a link and nobody waits on a pipe.
std::unique_ptr<JFileSocket> createWork(const std::string& sPath) {
  qm_platform::FileOpening how;
  how.access = qm_platform::FileAccess::kWrite;
  how.creation = qm_platform::FileCreation::kNew;
  how.exclusive = true;
  qm_platform::OpenedFile file;
  int iError = qm_platform::removeUnused(sPath);
  if (iError == 0 || iError == ENOENT) {
    iError = qm_platform::openFile(sPath, how, file);
  }
  if (iError != 0) {
    QM_THROW(JSysError, static_cast<std::uint32_t>(iError), ("create \"" + sPath + "\"").c_str());
  }
  return std::make_unique<JFileSocket>(file.descriptor);
}

}  // namespace

/// One copy: its files under their work names, gone with this unless `commit` has been reached.
class CopyDirectory::Writing {
 public:
  Writing(CopyDirectory& directory, const std::string& sName, const JParams& properties,
          const std::string& sAuthoringApp)
      : m_directory(directory),
        m_sBase(sName.substr(0, sName.rfind('.'))),
        m_sExtension(sName.substr(sName.rfind('.'))),
        m_properties(properties),
        m_sAuthoringApp(sAuthoringApp) {}

  ~Writing() {
    m_pOutput.reset();
    for (const Part& part : m_parts) {
      if (part.bMade) {
        discardFile(part.bMoved ? pathOf(part.sName) : workOf(part.sName));
      }
      const JAutoLock lock(m_directory.m_mutex);
      m_directory.m_inUse.erase(part.sName);
    }
  }
  Writing(const Writing&) = delete;
  Writing& operator=(const Writing&) = delete;

  /// Ends the file before, and begins one of a stream.
  void begin(qm_ci::StreamInfo info) {
    finishPart();
    const std::string sNumber = m_parts.empty() ? std::string() : std::to_string(m_parts.size());
    const std::string& sName = enter(m_sBase + sNumber + m_sExtension);
    auto pFile = createWork(workOf(sName));
    m_parts.back().bMade = true;
    m_pOutput = FileOutput::create(std::move(pFile), m_sExtension, sName);
    if (m_pOutput == nullptr) {
      QM_THROW(JTextError, "there is no writer for files \"*" + m_sExtension + "\"");
    }
    m_pOutput->tellUnfinished(&m_bUnfinished);
    m_pOutput->getParams().add("authoringApp", std::string_view(m_sAuthoringApp));
    info.setNomMaxBitstreamSize(info.getMaxFrameSize());
    m_pOutput->open(&info, &m_properties, nullptr);
  }

  void writeFrame(const qm_ci::ConstBitstream& frame) { m_pOutput->writeBitstream(kStream, frame, 0, 0); }

  /// Gives the files their names, when all of them are on the disk.
  void commit() {
    finishPart();
    for (Part& part : m_parts) {
      qm_utils::moveFile(workOf(part.sName), pathOf(part.sName), false);
      part.bMoved = true;
    }
    for (Part& part : m_parts) {
      part.bMade = false;
    }
  }

 private:
  struct Part {
    std::string sName;
    bool bMade = false;   ///< there is a file of this copy's
    bool bMoved = false;  ///< under its own name
  };

  std::string pathOf(const std::string& sName) const { return m_directory.m_sPath + "/" + sName; }
  std::string workOf(const std::string& sName) const { return pathOf(sName) + ".copying"; }

  /// Takes a name for this copy.
  const std::string& enter(const std::string& sName) {
    if (isThere(pathOf(sName))) {
      QM_THROW(JTextError, "there is a copy \"" + sName + "\" already");
    }
    const JAutoLock lock(m_directory.m_mutex);
    if (!m_directory.m_inUse.insert(sName).second) {
      QM_THROW(JTextError, "a copy \"" + sName + "\" is just being written");
    }
    return m_parts.emplace_back(Part{sName}).sName;
  }

  /// Ends the file that is being written, and makes sure of it.
  void finishPart() {
    if (m_pOutput == nullptr) {
      return;
    }
    m_pOutput.reset();
    if (m_bUnfinished) {
      QM_THROW(JTextError, "the copy \"" + m_parts.back().sName + "\" couldn't be finished");
    }
    JFileSocket(workOf(m_parts.back().sName), JFileSocket::kReadWrite, true).flush();
  }

  CopyDirectory& m_directory;
  const std::string m_sBase;
  const std::string m_sExtension;
  const JParams& m_properties;
  const std::string& m_sAuthoringApp;
  std::vector<Part> m_parts;
  bool m_bUnfinished = false;
  std::unique_ptr<FileOutput> m_pOutput;  ///< the last part's
};

void CopyDirectory::check(const std::string& sName) const {
  if (m_sPath.empty()) {
    QM_THROW(JTextError, "this Manager writes no copies: it was given no directory for them");
  }
  if (!isPlainName(sName) || sName.empty() || sName.front() == '.' || sName.size() > kMaxName) {
    QM_THROW(JTextError,
             "the path of a copy must be the plain name of a file, which goes to the Manager's "
             "directory of copies");
  }
  const std::size_t uDot = sName.rfind('.');
  if (uDot == std::string::npos || uDot + 1 == sName.size()) {
    QM_THROW(JTextError, "the name of a copy needs an extension, such as .asf, which tells the kind of file");
  }
}

void CopyDirectory::write(const std::string& sName, RecordedFrames& frames, const JParams& properties,
                          const std::string& sAuthoringApp, const Copies& copies) {
  check(sName);
  Writing writing(*this, sName, properties, sAuthoringApp);
  writing.begin(frames.getDescription());
  for (;;) {
    switch (frames.next()) {
      case RecordedFrames::Next::kDescription:
        writing.begin(frames.getDescription());
        break;
      case RecordedFrames::Next::kFrame:
        writing.writeFrame(frames.getFrame());
        break;
      case RecordedFrames::Next::kEnd:
        if (frames.isCut()) {
          QM_THROW(JTextError, "the recording can't be read to its end");
        }
        writing.commit();
        return;
    }
    if (copies.isStopped()) {
      QM_THROW(JTextError, "the Manager stops");
    }
  }
}

}  // namespace qm_manager
