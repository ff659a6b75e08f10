#include "coreapi/qmutils/log/JLogOutput.h"

#include <algorithm>
#include <utility>

#include "coreapi/qmutils/error/jerror.h"

namespace {

struct LevelSwitch {
  const char* szValue;
  std::uint32_t uLevel;
};

constexpr LevelSwitch kLevelSwitches[] = {
    {"EnableLevelFullDebug", qm_err::kLogFullDebug},
    {"EnableLevelActiveXCalls", qm_err::kLogActiveX},
    {"EnableLevelDebug", qm_err::kLogDebug},
    {"EnableLevelTrace", qm_err::kLogTrace},
    {"EnableLevelTraceAction", qm_err::kLogTraceAction},
    {"EnableLevelTraceRunning", qm_err::kLogTraceRunning},
    {"EnableLevelTraceStepByStep", qm_err::kLogTraceStepByStep},
    {"EnableLevelInfo", qm_err::kLogInfo},
    {"EnableLevelWarning", qm_err::kLogWarning},
    {"EnableLevelException", qm_err::kLogException},
    {"EnableLevelError", qm_err::kLogError},
    {"EnableLevelCritical", qm_err::kLogCritical},
};

std::uint32_t readMask(const qm_utils::IRegistryReadAccess& key) {
  std::uint32_t uMask = JLogFormattedOutput::kDefaultMask;
  key.getDword("WarnLevel", uMask);
  for (const LevelSwitch& levelSwitch : kLevelSwitches) {
    const std::uint32_t uBit = 1U << levelSwitch.uLevel;
    bool bEnabled = false;
    if (key.getBool(levelSwitch.szValue, bEnabled)) {
      uMask = bEnabled ? uMask | uBit : uMask & ~uBit;
    }
  }
  return uMask;
}

std::string readFormat(const qm_utils::IRegistryReadAccess& key) {
  std::string sFormat = JLogFormat::kDefault;
  key.getString("Format", sFormat);
  return sFormat;
}

}  // namespace

JLogFormattedOutput::JLogFormattedOutput(std::string sName, std::string sThreadName, std::uint32_t uMask,
                                         const char* szFormat, bool bOneLine, std::uint32_t uQueueCapacity,
                                         int iPriority)
    : JLogThreadedOutput(std::move(sName), std::move(sThreadName), uQueueCapacity, iPriority),
      m_uMask(uMask != 0 ? uMask : kDefaultMask),
      m_format(szFormat != nullptr ? szFormat : JLogFormat::kDefault),
      m_bOneLine(bOneLine) {}

JLogFormattedOutput::JLogFormattedOutput(std::string sName, std::string sThreadName,
                                         const qm_utils::IRegistryReadAccess& key, bool bOneLine,
                                         std::uint32_t uQueueCapacity, int iPriority)
    : JLogThreadedOutput(std::move(sName), std::move(sThreadName), uQueueCapacity, iPriority),
      m_uMask(readMask(key)),
      m_format(readFormat(key)),
      m_bOneLine(bOneLine) {}

bool JLogFormattedOutput::takes(std::uint32_t uLevel) const noexcept {
  return uLevel >= JLog::kFirstObjectLevel || (m_uMask >> uLevel & 1U) != 0;
}

void JLogFormattedOutput::write(const JLog::Msg& record) {
  if (takes(record.uLevel)) {
    JLogThreadedOutput::write(record);
  }
}

bool JLogFormattedOutput::writeRecord(const JLog::Msg& record) {
  try {
    forgetTime();
    m_sLine.clear();
    appendLine(record, m_sLine);
    writeText(record, m_sLine);
    return true;
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    return false;
  }
}

void JLogFormattedOutput::appendLine(const JLog::Msg& record, std::string& sOut) {
  std::string_view sMessage = record.sMessage;
  if (m_bOneLine && sMessage.find_first_of("\r\n") != std::string_view::npos) {
    m_sMessage = sMessage;
    std::replace_if(
        m_sMessage.begin(), m_sMessage.end(), [](char c) { return c == '\r' || c == '\n'; }, ' ');
    sMessage = m_sMessage;
  }
  const std::size_t uStart = sOut.size();
  m_format.expand(record, sMessage, sOut);
  if (!m_bOneLine && (sOut.size() == uStart || sOut.back() != '\n')) {
    sOut += "\r\n";
  }
}

void qm_utils::endLogLine(std::string& sLine, std::size_t uStart) {
  const std::size_t uEnd = sLine.find_last_not_of("\n\r \t");
  sLine.resize(uEnd == std::string::npos ? uStart : std::max(uEnd + 1, uStart));
  sLine += '\n';
}
