#include "qmmanager/archive.h"

#include <algorithm>
#include <atomic>
#include <exception>
#include <list>
#include <thread>
#include <utility>
#include <vector>

#include "coreapi/platform/fileaccess.h"
#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/socket/fileoperations.h"
#include "coreapi/qmutils/socket/jdirectoryiterator.h"
#include "coreapi/qmutils/thread/jthread.h"
#include "qmmanager/archivenames.h"
#include "storage/FileInfo.h"

namespace qm_manager {

namespace {

/// Hands on what stands in a directory; what isn't taken is reported. Throws as JDirectoryIterator.
template <typename Take>
void forEachEntry(const std::string& sPath, Take take) {
  JDirectoryIterator entries(sPath, "*");
  std::uint32_t uType = 0;
  while (const char* const szName = entries.next(&uType)) {
    const std::string sName = szName;
    if (sName != "." && sName != ".." && !take(sName, uType == qm_utils::kDirectory)) {
      qm_err::log(qm_err::kLogWarning, "%s/%s is no part of the archive and is passed over\n", sPath.c_str(),
                  sName.c_str());
    }
  }
}

bool isArchivesOwn(const std::string& sName) {
  return sName == kMarkerName || sName == kQuarantineName;
}

void requireDirectory(const std::string& sPath) {
  std::uint32_t uType = 0;
  qm_utils::createDirectories(sPath);
  qm_utils::getFileInfo(sPath, &uType);
  if (uType != qm_utils::kDirectory) {
    QM_THROW(JTextError, "\"" + sPath + "\" is in the way of a directory");
  }
  const int iError = qm_platform::syncDirectoryOf(sPath);
  if (iError != 0) {
    QM_THROW(JSysError, static_cast<std::uint32_t>(iError), "FlushFileBuffers");
  }
}

}  // namespace

/// A unit's directory.
struct Archive::Found {
  std::string sSource;
  std::int32_t iFps;
  std::string sDirectory;
};

/// Opens the units of a new archive on several threads: each takes the next one from the list.
class Archive::Opening {
 public:
  explicit Opening(Archive& archive) : m_archive(archive) { findSources(); }

  void run() {
    const std::size_t uThreads =
        std::min<std::size_t>(std::max(1U, std::thread::hardware_concurrency()), m_found.size());
    std::list<Worker> workers;
    for (std::size_t i = 1; i < uThreads; ++i) {
      startWorker(workers);
    }
    openAll();
    for (Worker& worker : workers) {
      worker.stop();
    }
  }

 private:
  class Worker final : public JThread {
   public:
    explicit Worker(Opening& opening) : JThread("ArchiveOpening"), m_opening(opening) {}
    void run() override { m_opening.openAll(); }

   private:
    Opening& m_opening;
  };

  /// Without it the others do the work.
  void startWorker(std::list<Worker>& workers) {
    workers.emplace_back(*this);
    try {
      workers.back().start();
    } catch (JError* pError) {
      const qm_err::CaughtError error(pError);
      JCATCH_LOG(error.get());
      workers.pop_back();
    }
  }

  void findSources() {
    const std::string& sRoot = m_archive.m_root.getPath();
    forEachEntry(sRoot, [&](const std::string& sName, bool bDirectory) {
      std::string sSource;
      if (isArchivesOwn(sName)) {
        return true;
      }
      if (!bDirectory || !decodeSourceName(sName, sSource)) {
        return false;
      }
      findUnits(sSource, sRoot + "/" + sName);
      return true;
    });
  }

  void findUnits(const std::string& sSource, const std::string& sDirectory) {
    try {
      forEachEntry(sDirectory, [&](const std::string& sName, bool bDirectory) {
        std::int32_t iFps = 0;
        if (!bDirectory || !decodeFps(sName, iFps)) {
          return false;
        }
        m_found.push_back({sSource, iFps, sDirectory + "/" + sName});
        return true;
      });
    } catch (JError* pError) {
      const qm_err::CaughtError error(pError);
      qm_err::log(qm_err::kLogError, "Could not list %s: %s\n", sDirectory.c_str(),
                  error->getMessage().c_str());
    }
  }

  void openAll() {
    for (std::size_t i = m_uNext++; i < m_found.size(); i = m_uNext++) {
      const Found& found = m_found[i];
      try {
        m_archive.m_table.add(found.sSource, found.iFps, m_archive.open(found.sDirectory, found.iFps));
      } catch (JError* pError) {
        const qm_err::CaughtError error(pError);
        reportUnopened(found, error->getMessage());
      } catch (const std::exception& exception) {
        reportUnopened(found, exception.what());
      }
    }
  }

  static void reportUnopened(const Found& found, const std::string& sReason) {
    qm_err::log(qm_err::kLogError, "Could not open the archive unit %s: %s\n", found.sDirectory.c_str(),
                sReason.c_str());
  }

  Archive& m_archive;
  std::vector<Found> m_found;
  std::atomic<std::size_t> m_uNext{0};
};

Archive::Archive(const std::string& sPath, ArchiveRoot::Creation creation, Settings settings)
    : m_settings(settings), m_root(sPath, creation) {
  FileInfo::isCached({});  // throws without the cache, before each unit would
  Opening(*this).run();
}

std::shared_ptr<ArchiveUnit> Archive::open(const std::string& sDirectory, std::int32_t iFps) const {
  ArchiveUnit::Settings settings;
  settings.iFps = iFps;
  settings.bJoinGaps = m_settings.bJoinGaps;
  settings.sQuarantine = m_root.getQuarantine();
  auto pUnit = std::make_shared<ArchiveUnit>(sDirectory, settings);
  pUnit->open();
  return pUnit;
}

std::shared_ptr<ArchiveUnit> Archive::requireUnit(const std::string& sSource, std::int32_t iFps) const {
  if (auto pUnit = m_table.find(sSource, iFps)) {
    return pUnit;
  }
  QM_THROW(JTextError,
           "there is no recording of \"" + sSource + "\" at the frame rate " + std::to_string(iFps));
}

std::shared_ptr<ArchiveUnit> Archive::makeUnit(const std::string& sSource, std::int32_t iFps) {
  const std::string sDirectory = unitDirectory(m_root.getPath(), sSource, iFps);
  const JAutoLock lock(m_makeMutex);
  if (auto pUnit = m_table.find(sSource, iFps)) {
    return pUnit;
  }
  requireDirectory(sDirectory.substr(0, sDirectory.rfind('/')));
  requireDirectory(sDirectory);
  auto pUnit = open(sDirectory, iFps);
  m_table.add(sSource, iFps, pUnit);
  return pUnit;
}

}  // namespace qm_manager
