#include "coreapi/qmutils/log/JLogFileOutput.h"

#include <algorithm>
#include <charconv>
#include <utility>
#include <vector>

#include "coreapi/platform/descriptor.h"

namespace {

/// Bytes that one call writes at least when there are records enough.
constexpr std::size_t kBlockSize = 64 * 1024;

/// Descriptors up to this one are the process's standard streams and are never closed.
constexpr int kLastStandardStream = 2;

constexpr const char* kStandardError = "&2";

std::string nameOrStandardError(std::string sFilename) {
  return sFilename.empty() ? kStandardError : std::move(sFilename);
}

std::string readFilename(const qm_utils::IRegistryReadAccess& key) {
  std::string sFilename;
  key.getString("Filename", sFilename);
  return nameOrStandardError(std::move(sFilename));
}

std::string threadName(const std::string& sName, const std::string& sFilename) {
  return sName + " [Log:Out:Formatted:File to " + sFilename + "]";
}

/// The descriptor that a name "&N" stands for; a negative number when it stands for none.
int namedDescriptor(const std::string& sFilename) {
  int iDescriptor = qm_platform::kNoDescriptor;
  std::from_chars(sFilename.data() + 1, sFilename.data() + sFilename.size(), iDescriptor);
  return iDescriptor;
}

}  // namespace

JLogFileOutput::JLogFileOutput(std::string sName, std::string sFilename, std::uint32_t uMask,
                               const char* szFormat, bool bOneLine, std::uint32_t uQueueCapacity,
                               int iPriority, bool bStart)
    : JLogFormattedOutput(sName, threadName(sName, nameOrStandardError(sFilename)), uMask, szFormat, bOneLine,
                          uQueueCapacity, iPriority),
      m_sFilename(nameOrStandardError(std::move(sFilename))),
      m_iDescriptor(qm_platform::kNoDescriptor) {
  if (bStart) {
    JLogFileOutput::start();
  }
}

JLogFileOutput::JLogFileOutput(std::string sName, const qm_utils::IRegistryReadAccess& key, bool bOneLine,
                               std::uint32_t uQueueCapacity, int iPriority, bool bStart)
    : JLogFormattedOutput(sName, threadName(sName, readFilename(key)), key, bOneLine, uQueueCapacity,
                          iPriority),
      m_sFilename(readFilename(key)),
      m_iDescriptor(qm_platform::kNoDescriptor) {
  if (bStart) {
    JLogFileOutput::start();
  }
}

JLogFileOutput::~JLogFileOutput() {
  JLogFileOutput::stop(0, true);
  close();
}

void JLogFileOutput::writeText(const JLog::Msg& /*record*/, const std::string& sLine) {
  if (ensureOpen()) {
    m_sBlock = sLine;
    qm_utils::endLogLine(m_sBlock);
    writeBlock();
  }
}

std::size_t JLogFileOutput::writeRecords(std::span<const JLog::Msg> records) {
  if (!ensureOpen()) {
    return 1;
  }
  forgetTime();
  m_sBlock.clear();
  m_ends.clear();
  for (const JLog::Msg& record : records) {
    const std::size_t uStart = m_sBlock.size();
    appendLine(record, m_sBlock);
    qm_utils::endLogLine(m_sBlock, uStart);
    m_ends.push_back(m_sBlock.size());
    if (m_sBlock.size() >= kBlockSize) {
      break;
    }
  }
  const std::size_t uWritten = writeBlock();
  // The line that a failure has cut is lost; those behind it come again, to a file that is opened anew.
  const auto cut = std::upper_bound(m_ends.begin(), m_ends.end(), uWritten);
  return static_cast<std::size_t>(cut - m_ends.begin()) + (cut != m_ends.end() ? 1 : 0);
}

int JLogFileOutput::open() {
  int iDescriptor = qm_platform::kNoDescriptor;
  if (m_sFilename.front() != '&') {
    qm_platform::openAppend(m_sFilename, iDescriptor);
  } else if (const int iOriginal = namedDescriptor(m_sFilename); iOriginal >= 0) {
    qm_platform::duplicateDescriptor(iOriginal, iDescriptor);
  }
  return iDescriptor;
}

bool JLogFileOutput::ensureOpen() {
  if (m_iDescriptor < 0) {
    m_iDescriptor = open();
  }
  return m_iDescriptor >= 0;
}

/// Writes the block and returns how many bytes of it went out.
std::size_t JLogFileOutput::writeBlock() {
  std::size_t uWritten = 0;
  if (qm_platform::writeAll(m_iDescriptor, m_sBlock.data(), m_sBlock.size(), &uWritten) != 0) {
    close();
  }
  return uWritten;
}

void JLogFileOutput::close() {
  if (m_iDescriptor > kLastStandardStream) {
    qm_platform::closeDescriptor(m_iDescriptor);
  }
  m_iDescriptor = qm_platform::kNoDescriptor;
}
