#include <algorithm>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/socket/fileoperations.h"
#include "coreapi/qmutils/socket/jdirectoryiterator.h"
#include "storage/ArchiveUnit.h"
#include "storage/SliceRecovery.h"

namespace {

constexpr std::string_view kLogNames[] = {"alarm.log", "protection.log", "metadata.log"};

bool isLog(std::string_view sName) noexcept {
  return std::any_of(std::begin(kLogNames), std::end(kLogNames),
                     [&](std::string_view sLog) { return sName.ends_with(sLog); });
}

/// What an interrupted update of a log has left: the log's name goes on behind a point.
bool isLeftOfLog(std::string_view sName) noexcept {
  const std::size_t end = sName.rfind('.');
  return end != std::string_view::npos && isLog(sName.substr(0, end));
}

/// A name in a directory that nothing has yet: the wanted one, or with a number behind it.
std::string freePath(const std::string& sDirectory, const std::string& sName) {
  std::string sPath = sDirectory + "/" + sName;
  for (int i = 1;; ++i) {
    try {
      qm_utils::getFileInfo(sPath, nullptr);
    } catch (JError* pError) {
      const qm_err::CaughtError error(pError);
      return sPath;
    }
    sPath = sDirectory + "/" + sName + "." + std::to_string(i);
  }
}

void quarantine(const std::string& sPath, const std::string& sName, const std::string& sQuarantine) {
  try {
    qm_utils::createDirectories(sQuarantine);
    const std::string sTarget = freePath(sQuarantine, sName);
    qm_utils::moveFile(sPath, sTarget, false);
    qm_err::log(qm_err::kLogWarning, "%s was moved to %s\n", sPath.c_str(), sTarget.c_str());
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    qm_err::log(qm_err::kLogError, "Could not move %s to %s: %s\n", sPath.c_str(), sQuarantine.c_str(),
                error->getMessage().c_str());
  }
}

}  // namespace

/// What stands in the directory.
struct ArchiveUnit::Listing {
  std::vector<std::unique_ptr<Slice>> slices;
  std::vector<std::string> others;  ///< names of files to recover
  bool bHiddenLog = false;
  bool bLeftOfLogs = false;
};

ArchiveUnit::Listing ArchiveUnit::list(ArchiveUnitProgress* pProgress) const {
  Listing listing;
  try {
    JDirectoryIterator entries(m_sDirectory, "*");
    while (const char* const szName = entries.next()) {
      const std::string sName = szName;
      listing.bHiddenLog = listing.bHiddenLog || sName == kHiddenLogName;
      if (sName == "." || sName == ".." || isLog(sName)) {
        continue;
      }
      if (isLeftOfLog(sName)) {
        listing.bLeftOfLogs = true;  // the logs clear it away
        continue;
      }
      if (pProgress != nullptr) {
        pProgress->entry(sName);
      }
      if (const auto name = Slice::parseFileName(sName)) {
        listing.slices.push_back(std::make_unique<Slice>(name->span, pathOf(sName), name->uSize));
      } else {
        listing.others.push_back(sName);
      }
    }
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    qm_err::log(qm_err::kLogError, "Could not list all the files in %s: %s\n", m_sDirectory.c_str(),
                error->getMessage().c_str());
  }
  return listing;
}

void ArchiveUnit::open(ArchiveUnitProgress* pProgress) {
  FileInfo::isCached({});  // throws without the cache, for lack of which no file may count as broken
  Listing listing = list(pProgress);
  // What overlaps is settled the same way each time, whatever order the file system lists in.
  std::sort(listing.slices.begin(), listing.slices.end(), [](const auto& pLeft, const auto& pRight) {
    const bool bSame = pLeft->getSpan() == pRight->getSpan();
    return bSame ? pLeft->getPath() < pRight->getPath()
                 : SliceMap::ByTime()(pLeft->getSpan(), pRight->getSpan());
  });
  for (auto& pSlice : listing.slices) {
    addLogged(std::move(pSlice));
  }
  std::sort(listing.others.begin(), listing.others.end());
  for (const std::string& sName : listing.others) {
    recover(sName);
  }
  openLogs(listing);
}

void ArchiveUnit::addLogged(std::unique_ptr<Slice> pSlice) {
  const Slice slice = *pSlice;
  try {
    addSlice(std::move(pSlice));
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    qm_err::log(qm_err::kLogError, "Could not add slice (%s, %llu, %llu) to the slice index: %s\n",
                slice.getPath().c_str(),
                static_cast<unsigned long long>(slice.getSpan().startDate.getMicroseconds()),
                static_cast<unsigned long long>(slice.getSpan().endDate.getMicroseconds()),
                error->getMessage().c_str());
  }
}

void ArchiveUnit::recover(const std::string& sFileName) {
  std::optional<Slice> slice;
  switch (SliceRecovery::recover(m_sDirectory, sFileName, slice)) {
    case SliceRecovery::Outcome::kRecovered:
      addLogged(std::make_unique<Slice>(*slice));
      break;
    case SliceRecovery::Outcome::kBroken:
      dispose(sFileName);
      break;
    case SliceRecovery::Outcome::kLeft:
      break;
  }
}

void ArchiveUnit::dispose(const std::string& sFileName) const {
  if (SliceRecovery::isReadOnly()) {
    return;
  }
  const std::string sPath = pathOf(sFileName);
  if (!m_settings.sQuarantine.empty()) {
    quarantine(sPath, sFileName, m_settings.sQuarantine);
    return;
  }
  try {
    qm_utils::deleteFile(sPath);
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    qm_err::log(qm_err::kLogError, "Could not remove %s: %s\n", sPath.c_str(), error->getMessage().c_str());
  }
}

/// The log of hidden spans gets its file when there is something to hide.
void ArchiveUnit::openLogs(const Listing& listing) {
  const JAutoLock lock(m_mutex);
  const auto check = [this](bool bRead, const char* szLog) {
    if (!bRead) {
      qm_err::log(qm_err::kLogError, "Could not initialize the %s log in %s\n", szLog, m_sDirectory.c_str());
    }
  };
  const auto leftovers = listing.bLeftOfLogs ? LogFile::Leftovers::kRemove : LogFile::Leftovers::kNone;
  check(m_alarmLog.init(pathOf(kAlarmLogName), leftovers), "alarm");
  check(m_protectedLog.init(pathOf(kProtectedLogName), JTime(), JTime(), leftovers), "protection");
  check(m_metaDataLog.init(pathOf(kMetaDataLogName), leftovers), "metadata");
  if (listing.bHiddenLog) {
    m_bHiddenLog = m_hiddenLog.init(pathOf(kHiddenLogName), leftovers);
    check(m_bHiddenLog, "hidden metadata");
  }
}
