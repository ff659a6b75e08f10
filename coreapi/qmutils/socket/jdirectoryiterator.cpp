#include "coreapi/qmutils/socket/jdirectoryiterator.h"

#include <cerrno>

#include "coreapi/platform/filestatus.h"
#include "coreapi/qmutils/socket/filemessages.h"
#include "coreapi/qmutils/text/jglob.h"

namespace {

/// Where the listing is opened: the root loses its separator too, and nothing at all is the current
/// directory.
std::string listedDirectory(const std::string& sDirectory) {
  if (sDirectory.empty()) {
    return ".";
  }
  const std::string sTrimmed = qm_utils::withoutLastSeparators(sDirectory, 1);
  return sTrimmed.empty() ? "/" : sTrimmed;
}

/// A pattern of file names, in which only "*" and "?" are special, as the matcher takes it.
std::string globOf(const std::string& sPattern) {
  if (sPattern == "*.*") {
    return "*";
  }
  std::string sGlob;
  for (const char c : sPattern) {
    if (c == '[' || c == '\\') {
      sGlob += '\\';
    }
    sGlob += c;
  }
  return sGlob;
}

}  // namespace

JDirectoryIterator::JDirectoryIterator(const std::string& sDirectory, const std::string& sPattern)
    : m_sDirectory(listedDirectory(sDirectory)), m_sPattern(globOf(sPattern)) {}

JDirectoryIterator::~JDirectoryIterator() = default;

const char* JDirectoryIterator::next(std::uint32_t* pType, std::uint64_t* pSize, JTime* pCreation,
                                     JTime* pLastWrite, JTime* pLastAccess) {
  if (m_pListing == nullptr) {
    auto pListing = std::make_unique<qm_platform::DirectoryListing>();
    qm_utils::checkFile(pListing->open(m_sDirectory), "FindFirstFile");
    m_pListing = std::move(pListing);
  }
  for (;;) {
    qm_utils::checkFile(m_pListing->next(m_sName), "FindNextFile");
    if (m_sName.empty()) {
      return nullptr;
    }
    if (!qm_utils::matchesGlob(m_sPattern, m_sName)) {
      continue;
    }
    if (pType == nullptr && pSize == nullptr && pCreation == nullptr && pLastWrite == nullptr &&
        pLastAccess == nullptr) {
      m_bLink = false;
      return m_sName.c_str();
    }
    qm_platform::FileStatus status;
    const int iError = m_pListing->statusOf(m_sName, status, m_bLink);
    if (iError == ENOENT) {
      continue;  // deleted since it was listed
    }
    qm_utils::checkFile(iError, "FindNextFile");
    qm_utils::giveFileInfo(status, pType, pSize, pCreation, pLastWrite, pLastAccess);
    return m_sName.c_str();
  }
}

bool JDirectoryIterator::isLink() const {
  return m_bLink;
}

void JDirectoryIterator::rewind() {
  m_pListing.reset();
}
