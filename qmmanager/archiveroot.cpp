#include "qmmanager/archiveroot.h"

#include <cerrno>

#include "coreapi/platform/descriptor.h"
#include "coreapi/platform/fileaccess.h"
#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/socket/fileoperations.h"
#include "coreapi/qmutils/socket/jdirectoryiterator.h"
#include "qmmanager/archivenames.h"

namespace qm_manager {

namespace {

std::string withoutSeparators(std::string sPath) {
  while (sPath.size() > 1 && sPath.back() == '/') {
    sPath.pop_back();
  }
  return sPath;
}

bool isEmptyDirectory(const std::string& sPath) {
  JDirectoryIterator entries(sPath, "*");
  while (const char* const szName = entries.next()) {
    const std::string sName = szName;
    if (sName != "." && sName != "..") {
      return false;
    }
  }
  return true;
}

int openMarker(const std::string& sPath, qm_platform::FileCreation creation, int& iMarker) {
  qm_platform::FileOpening how;
  how.access = qm_platform::FileAccess::kReadWrite;
  how.creation = creation;
  how.exclusive = true;
  qm_platform::OpenedFile file;
  const int iError = qm_platform::openFile(sPath, how, file);
  iMarker = file.descriptor;
  return iError;
}

int makeMarker(const std::string& sRoot, const std::string& sMarker, int& iMarker) {
  qm_utils::createDirectories(sRoot);
  if (!isEmptyDirectory(sRoot)) {
    QM_THROW(JTextError, "\"" + sRoot + "\" is neither an archive nor empty");
  }
  // Somebody else may be making it just now: who comes second finds it there, or taken.
  const int iError = openMarker(sMarker, qm_platform::FileCreation::kAlways, iMarker);
  return iError != 0 ? iError : qm_platform::syncDirectoryOf(sMarker);
}

}  // namespace

ArchiveRoot::ArchiveRoot(std::string sPath, Creation creation)
    : m_sPath(withoutSeparators(std::move(sPath))), m_iMarker(qm_platform::kNoDescriptor) {
  const std::string sMarker = m_sPath + "/" + std::string(kMarkerName);
  int iError = openMarker(sMarker, qm_platform::FileCreation::kExisting, m_iMarker);
  if (iError == ENOENT && creation == Creation::kWhenEmpty) {
    iError = makeMarker(m_sPath, sMarker, m_iMarker);
  }
  if (iError == 0) {
    return;
  }
  if (m_iMarker != qm_platform::kNoDescriptor) {
    qm_platform::closeDescriptor(m_iMarker);
  }
  if (iError == EAGAIN) {
    QM_THROW(JTextError, "the archive \"" + m_sPath + "\" is in use by another process");
  }
  if (iError == ENOENT || iError == ENOTDIR) {
    QM_THROW(JTextError,
             "\"" + m_sPath + "\" is not an archive: it has no file \"" + std::string(kMarkerName) + "\"");
  }
  QM_THROW(JSysError, static_cast<std::uint32_t>(iError), ("open \"" + sMarker + "\"").c_str());
}

ArchiveRoot::~ArchiveRoot() {
  qm_platform::closeDescriptor(m_iMarker);
}

std::string ArchiveRoot::getQuarantine() const {
  return m_sPath + "/" + std::string(kQuarantineName);
}

}  // namespace qm_manager
