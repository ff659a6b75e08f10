#include "coreapi/qmutils/log/JLogDebugOutput.h"

#include <utility>

#include "coreapi/platform/descriptor.h"

namespace {

constexpr int kStandardErrorDescriptor = 2;

std::string threadName(const std::string& sName) {
  return sName + " [Log:Out:Formatted:DgbView]";
}

}  // namespace

JLogDebugOutput::JLogDebugOutput(std::string sName, std::uint32_t uMask, const char* szFormat, bool bOneLine,
                                 std::uint32_t uQueueCapacity, int iPriority, bool bStart)
    : JLogFormattedOutput(sName, threadName(sName), uMask, szFormat, bOneLine, uQueueCapacity, iPriority) {
  if (bStart) {
    JLogDebugOutput::start();
  }
}

JLogDebugOutput::JLogDebugOutput(std::string sName, const qm_utils::IRegistryReadAccess& key, bool bOneLine,
                                 std::uint32_t uQueueCapacity, int iPriority, bool bStart)
    : JLogFormattedOutput(sName, threadName(sName), key, bOneLine, uQueueCapacity, iPriority) {
  if (bStart) {
    JLogDebugOutput::start();
  }
}

JLogDebugOutput::~JLogDebugOutput() {
  JLogDebugOutput::stop(0, true);
}

void JLogDebugOutput::writeText(const JLog::Msg& /*record*/, const std::string& sLine) {
  std::string sText = sLine;
  qm_utils::endLogLine(sText);
  qm_platform::writeAll(kStandardErrorDescriptor, sText.data(), sText.size());
}
