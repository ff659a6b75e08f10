#include "coreapi/qmutils/log/JLogRotatingFile.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include "coreapi/platform/process.h"
#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/log/logdirectory.h"
#include "coreapi/qmutils/socket/fileoperations.h"
#include "coreapi/qmutils/socket/jfilesocket.h"

namespace {

constexpr std::uint64_t kDirSizeUnit = 0x100000;
constexpr std::uint64_t kFileSizeUnit = 1024;
constexpr const char* kNoSpaceLeft = "No space left";

std::string threadName(const std::string& sName, const std::string& sDirectory) {
  return sName + " [Log:Out:Formatted:RotatingFiles dir=" + sDirectory + "]";
}

std::string readDirectory(const qm_utils::IRegistryReadAccess& key) {
  std::string sDirectory;
  key.getString("LogDirectory", sDirectory);
  return sDirectory;
}

std::uint64_t readSize(const qm_utils::IRegistryReadAccess& key, const char* szName, std::uint64_t uUnit,
                       std::uint64_t uDefault) {
  std::uint32_t uSize = 0;
  return key.getDword(szName, uSize) ? uSize * uUnit : uDefault;
}

std::string baseName(const std::string& sPrefix) {
  return (sPrefix.empty() ? "QM_Log" : sPrefix) + "_";
}

std::uint64_t fileSizeLimit(std::uint64_t uSize) {
  return uSize == 0 ? 0 : std::max(uSize, JLogRotatingFile::kLowestMaxFileSize);
}

}  // namespace

JLogRotatingFile::JLogRotatingFile(std::string sName, std::string sDirectory, const std::string& sPrefix,
                                   std::uint64_t uMaxDirSize, std::uint64_t uMaxFileSize, std::uint32_t uMask,
                                   const char* szFormat, std::uint32_t uQueueCapacity, int iPriority,
                                   bool bStart)
    : JLogFormattedOutput(sName, threadName(sName, sDirectory), uMask, szFormat, false, uQueueCapacity,
                          iPriority),
      m_sDirectory(std::move(sDirectory)),
      m_sBaseName(baseName(sPrefix)),
      m_uMaxDirSize(uMaxDirSize),
      m_uMaxFileSize(fileSizeLimit(uMaxFileSize)) {
  if (bStart) {
    JLogRotatingFile::start();
  }
}

JLogRotatingFile::JLogRotatingFile(std::string sName, const qm_utils::IRegistryReadAccess& key,
                                   std::uint32_t uQueueCapacity, int iPriority, bool bStart)
    : JLogFormattedOutput(sName, threadName(sName, readDirectory(key)), key, false, uQueueCapacity,
                          iPriority),
      m_sDirectory(readDirectory(key)),
      m_sBaseName(baseName(qm_platform::runningModuleName())),
      m_uMaxDirSize(readSize(key, "MaxLogDirSize", kDirSizeUnit, kDefaultMaxDirSize)),
      m_uMaxFileSize(fileSizeLimit(readSize(key, "MaxLogFileSize", kFileSizeUnit, kDefaultMaxFileSize))) {
  if (bStart) {
    JLogRotatingFile::start();
  }
}

JLogRotatingFile::~JLogRotatingFile() {
  JLogRotatingFile::stop(0, true);
}

void JLogRotatingFile::writeText(const JLog::Msg& /*record*/, const std::string& sLine) {
  if (m_pFile ? isFull() : isRetryDue()) {
    rotate();
  }
  if (!m_pFile) {
    return;
  }
  try {
    if (m_bLoss) {
      append(lossText());
      m_bLoss = false;
    }
    append(sLine);
  } catch (JNoSpaceLeftError* pError) {
    const qm_err::CaughtError error(pError);
    recordFailure(kNoSpaceLeft);
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    recordFailure(error->getMessage());
    m_pFile.reset();
  }
}

bool JLogRotatingFile::isFull() const noexcept {
  return m_uMaxFileSize != 0 && m_uSize >= m_uMaxFileSize;
}

/// Whether the delay behind the last failure is over; a clock that was set back doesn't make it longer.
bool JLogRotatingFile::isRetryDue() const {
  static constexpr JTime kDelay(std::chrono::milliseconds{kRetryDelay});
  const JTime now = m_clock();
  return m_lastFailure == JTime() || now < m_lastFailure ||
         now.getMicroseconds() - m_lastFailure.getMicroseconds() >= kDelay.getMicroseconds();
}

/// Leaves the file for a new one. Without one afterwards the reason is on record, but where nothing can ever
/// be written.
void JLogRotatingFile::rotate() {
  if (m_sDirectory.empty() || m_uMaxDirSize == 0 || !ensureDirectory()) {
    return;
  }
  m_pFile.reset();
  m_uSize = 0;
  qm_utils::LogDirectory directory(m_sDirectory, m_sBaseName);
  try {
    directory.list();
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    qm_err::log(qm_err::kLogException, "Error when checking log directory size: %s",
                error->getMessage().c_str());
  }
  directory.shrinkTo(m_uMaxDirSize - std::min(m_uMaxDirSize, m_uMaxFileSize));
  const std::string sSuffix = qm_utils::LogFileClock::ofProcess().nextSuffix(m_clock(), directory);
  try {
    m_pFile = std::make_unique<JFileSocket>(directory.getPath(sSuffix), JFileSocket::kWrite, true);
  } catch (JNoSpaceLeftError* pError) {
    const qm_err::CaughtError error(pError);
    recordFailure(kNoSpaceLeft);
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    recordFailure("File not created");
  }
}

bool JLogRotatingFile::ensureDirectory() {
  try {
    std::uint32_t uType = 0;
    try {
      qm_utils::getFileInfo(m_sDirectory, &uType);
    } catch (JSysError* pError) {
      qm_err::CaughtError error(pError);
      if (pError->getCode() != ENOENT) {
        error.rethrow();
      }
      qm_utils::createDirectories(m_sDirectory);
      uType = qm_utils::kDirectory;
    }
    return uType == qm_utils::kDirectory;
  } catch (JNoSpaceLeftError* pError) {
    const qm_err::CaughtError error(pError);
    recordFailure(kNoSpaceLeft);
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    recordFailure("Directory not created");
  }
  return false;
}

void JLogRotatingFile::append(const std::string& sText) {
  m_uSize += m_pFile->write(sText.data(), sText.size());
}

std::string JLogRotatingFile::lossText() const {
  const JTime now = m_clock();
  const std::uint64_t uLost =
      now < m_firstFailure ? 0 : now.getMicroseconds() - m_firstFailure.getMicroseconds();
  return "\n### Log data lost for " + std::to_string(uLost / JTime::kMicrosecondsPerSecond) +
         "s, due to Disk write error='" + m_sFailure + "' ###\n";
}

/// Notes a failure for the time of the next try and, when it is the first one since a line was written, for
/// the line that will tell it.
void JLogRotatingFile::recordFailure(const std::string& sText) {
  constexpr std::size_t kMaxText = 1023;
  m_lastFailure = m_clock();
  if (!m_bLoss) {
    m_bLoss = true;
    m_firstFailure = m_lastFailure;
    m_sFailure = sText.substr(0, kMaxText);
  }
}
