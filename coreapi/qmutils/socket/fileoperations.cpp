#include "coreapi/qmutils/socket/fileoperations.h"

#include <cstring>
#include <vector>

#include "coreapi/platform/filepath.h"
#include "coreapi/platform/filestatus.h"
#include "coreapi/platform/filetree.h"
#include "coreapi/qmutils/socket/filemessages.h"
#include "coreapi/qmutils/socket/jdirectoryiterator.h"

namespace qm_utils {

namespace {

/// Length from which a path loses the separators at its end when it is asked about.
constexpr std::size_t kShortestTrimmed = 4;

}  // namespace

void getFileInfo(const std::string& sPath, std::uint32_t* pType, std::uint64_t* pSize, JTime* pCreation,
                 JTime* pLastWrite, JTime* pLastAccess) {
  qm_platform::FileStatus status;
  checkFile(qm_platform::statusOfPath(withoutLastSeparators(sPath, kShortestTrimmed), status),
            "FindFirstFile");
  giveFileInfo(status, pType, pSize, pCreation, pLastWrite, pLastAccess);
}

void getDiskFreeSpace(const std::string& sPath, std::uint64_t* pFreeToCaller, std::uint64_t* pTotal,
                      std::uint64_t* pTotalFree) {
  qm_platform::DiskSpace space;
  checkFile(qm_platform::diskSpaceOf(sPath, space), "GetDiskFreeSpaceEx");
  const std::pair<std::uint64_t*, std::uint64_t> counts[] = {
      {pFreeToCaller, space.freeToCaller}, {pTotal, space.total}, {pTotalFree, space.totalFree}};
  for (const auto& [pCount, uCount] : counts) {
    if (pCount != nullptr) {
      *pCount = uCount;
    }
  }
}

void createDirectory(const std::string& sPath) {
  const int iError = qm_platform::makeDirectory(sPath);
  if (iError != 0) {
    failFile(iError, "CreateDirectory(\"" + sPath + "\")");
  }
}

void createDirectories(const std::string& sPath) {
  const std::string sWhole = withoutLastSeparators(sPath, 2);
  for (std::size_t uEnd = 0; uEnd != std::string::npos;) {
    uEnd = sWhole.find('/', uEnd + 1);
    // A level that is there already fails too; whether all came to stand is asked at the end.
    qm_platform::makeDirectory(sWhole.substr(0, uEnd));
  }
  getFileInfo(sWhole, nullptr);
}

void removeDirectory(const std::string& sPath, bool bRecursive) {
  if (bRecursive) {
    checkFile(qm_platform::removeTree(sPath), "SHFileOperation");
  } else {
    checkFile(qm_platform::removeEmptyDirectory(sPath), "RemoveDirectory");
  }
}

std::uint64_t getDirectorySize(const std::string& sPath, std::uint64_t* pTotal) {
  std::uint64_t uSum = 0;
  std::vector<std::string> waiting{sPath};
  while (!waiting.empty()) {
    const std::string sDirectory = std::move(waiting.back());
    waiting.pop_back();
    JDirectoryIterator entries(sDirectory, "*");
    std::uint32_t uType = 0;
    std::uint64_t uSize = 0;
    while (const char* szName = entries.next(&uType, &uSize)) {
      if (std::strcmp(szName, ".") == 0 || std::strcmp(szName, "..") == 0) {
        continue;
      }
      if (uType == kDirectory && !entries.isLink()) {
        waiting.push_back(sDirectory + "/" + szName);
      } else if (uType == kPlainFile) {
        uSum += uSize;
        if (pTotal != nullptr) {
          *pTotal += uSize;
        }
      }
    }
  }
  return uSum;
}

std::string getCurrentDirectory() {
  std::string sPath;
  checkFile(qm_platform::currentDirectory(sPath), "GetCurrentDirectory");
  return sPath;
}

void setCurrentDirectory(const std::string& sPath) {
  checkFile(qm_platform::changeDirectory(sPath), "SetCurrentDirectory");
}

std::string getTempPath() {
  return qm_platform::temporaryDirectory();
}

void moveFile(const std::string& sFrom, const std::string& sTo, bool bReplace) {
  checkFile(qm_platform::moveFile(sFrom, sTo, bReplace), "MoveFileEx");
}

void copyFile(const std::string& sFrom, const std::string& sTo, bool bReplace) {
  checkFile(qm_platform::copyFile(sFrom, sTo, bReplace), "CopyFile");
}

void deleteFile(const std::string& sPath) {
  checkFile(qm_platform::deleteFile(sPath), "DeleteFile");
}

}  // namespace qm_utils
