#pragma once

#include <cstdint>
#include <string>

#include "coreapi/qmutils/log/JLogOutput.h"

/// The console: writes lines to the standard error stream of the process, as it is at that moment. A line
/// that the stream doesn't take is lost. Each line ends in one line feed, and in no other white space.
class JLogDebugOutput : public JLogFormattedOutput {
 public:
  explicit JLogDebugOutput(std::string sName, std::uint32_t uMask = 0, const char* szFormat = nullptr,
                           bool bOneLine = false, std::uint32_t uQueueCapacity = JLog::kQueueCapacity,
                           int iPriority = 0, bool bStart = true);

  /// From a key of the configuration.
  JLogDebugOutput(std::string sName, const qm_utils::IRegistryReadAccess& key, bool bOneLine = false,
                  std::uint32_t uQueueCapacity = JLog::kQueueCapacity, int iPriority = 0, bool bStart = true);

  /// Gives up what the queue still holds; `stop` comes first for those who want it written.
  ~JLogDebugOutput() override;

  void writeText(const JLog::Msg& record, const std::string& sLine) override;
};
