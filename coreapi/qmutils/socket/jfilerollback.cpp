#include <cerrno>
#include <chrono>
#include <thread>

#include "coreapi/platform/fileaccess.h"
#include "coreapi/platform/filepath.h"
#include "coreapi/platform/filetree.h"
#include "coreapi/platform/process.h"
#include "coreapi/platform/systemerror.h"
#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/socket/fileoperations.h"
#include "coreapi/qmutils/socket/jdirectoryiterator.h"
#include "coreapi/qmutils/socket/jfilesocket.h"

namespace {

/// How often, and how many milliseconds apart, a file is asked for that somebody else has locked.
constexpr int kMostTries = 1000;
constexpr std::chrono::milliseconds kTryAgain{1};

/// Opens a stored file. Who looks for leftovers may have taken it for one before it got its name, and then
/// holds the lock on it for a moment.
std::unique_ptr<JFileSocket> openStored(const std::string& sPath) {
  for (int i = 1;; ++i) {
    try {
      return std::make_unique<JFileSocket>(sPath, JFileSocket::kRead, true);
    } catch (JSysError* pError) {
      qm_err::CaughtError error(pError);
      if (pError->getCode() != EAGAIN || i == kMostTries) {
        error.rethrow();
      }
    }
    std::this_thread::sleep_for(kTryAgain);
  }
}

std::string workFileOf(const std::string& sPath) {
  return sPath + "." + std::to_string(qm_platform::threadId());
}

void removeLeftover(const std::string& sPath) {
  const int iError = qm_platform::removeUnused(sPath);
  // In use, gone meanwhile, or no file at all: nothing to tell.
  if (iError != 0 && iError != EAGAIN && iError != ENOENT && iError != EISDIR) {
    qm_err::log(qm_err::kLogWarning, "Leftover \"%s\" can't be deleted: %s", sPath.c_str(),
                qm_platform::systemErrorText(static_cast<unsigned>(iError)).c_str());
  }
}

/// Deletes what interrupted updates of a path have left.
void removeLeftovers(const std::string& sPath) {
  const std::string sDirectory = qm_platform::directoryOf(sPath);
  const std::string sPrefix = sPath.substr(sPath.find_last_of('/') + 1) + ".";
  JDirectoryIterator entries(sDirectory, "*");
  while (const char* szName = entries.next()) {
    const std::string sName = szName;
    if (sName.starts_with(sPrefix)) {
      removeLeftover(sDirectory + "/" + sName);
    }
  }
}

}  // namespace

std::unique_ptr<JFileSocket> JFileSocket::OpenUpdateWithRollBack(const std::string& sPath) {
  // Who looks for leftovers holds the lock on the new file for a moment.
  std::unique_ptr<JFileSocket> pSocket(new JFileSocket(workFileOf(sPath), kReadWrite, {.waiting = true}));
  pSocket->setEndOfFile(0);                               // what an earlier thread of this number has left
  qm_platform::takePermissions(pSocket->m_iFile, sPath);  // as far as the file system has them
  return pSocket;
}

std::unique_ptr<JFileSocket> JFileSocket::OpenReadWithRollBack(const std::string& sPath) {
  std::unique_ptr<JFileSocket> pSocket = openStored(sPath);
  try {
    removeLeftovers(sPath);
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    JCATCH_LOG(error.get());  // what stands at the path can be read all the same
  }
  return pSocket;
}

// While the work file is open nobody takes it for a leftover, so it is closed behind the move only.

void JFileSocket::CloseUpdateWithRollBack(std::unique_ptr<JFileSocket> pSocket, const std::string& sPath) {
  try {
    pSocket->flush();
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    JCATCH_LOG(error.get());
    qm_err::log(qm_err::kLogError, "JFileSocket::CloseUpdateWithRollBack - error %s",
                error->getMessage().c_str());
  }
  try {
    qm_utils::moveFile(workFileOf(sPath), sPath, true);
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    JCATCH_LOG(error.get());
  }
}

void JFileSocket::CommitUpdateWithRollBack(std::unique_ptr<JFileSocket> pSocket, const std::string& sPath) {
  const std::string sWork = workFileOf(sPath);
  try {
    pSocket->flush();
    qm_utils::moveFile(sWork, sPath, true);
  } catch (JError* pError) {
    qm_err::CaughtError error(pError);
    qm_platform::deleteFile(sWork);  // it isn't there where only the directory couldn't be synced
    error.rethrow();
  }
}

void JFileSocket::ReplaceWithRollBack(const std::string& sPath,
                                      const std::function<void(JFileSocket&)>& write) {
  std::unique_ptr<JFileSocket> pSocket = OpenUpdateWithRollBack(sPath);
  try {
    write(*pSocket);
  } catch (...) {
    qm_platform::deleteFile(workFileOf(sPath));
    throw;
  }
  CommitUpdateWithRollBack(std::move(pSocket), sPath);
}
