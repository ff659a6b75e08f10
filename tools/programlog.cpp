#include "tools/programlog.h"

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <memory>
#include <stdexcept>

#include "coreapi/qmutils/log/JLog.h"
#include "coreapi/qmutils/log/JLogFileOutput.h"

namespace {

/// The levels that an output chooses by its mask.
constexpr std::uint32_t kFirstLevel = qm_err::kLogFullDebug;
constexpr std::uint32_t kLastLevel = qm_err::kLogCritical;

constexpr int kFlushTime = 1000;  // milliseconds

/// As users write it: "trace-action" for "TRACE_ACTION".
std::string levelName(std::uint32_t uLevel) {
  std::string sName = JLog::getLevelName(uLevel);
  std::ranges::transform(sName, sName.begin(), [](char c) {
    return c == '_' ? '-' : c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  });
  return sName;
}

/// The records of a level and all that are worse. What objects trace, which no mask keeps out, counts as
/// tracing.
class LevelOutput final : public JLogFileOutput {
 public:
  LevelOutput(const std::string& sProgram, const std::string& sFile, std::uint32_t uLevel)
      : JLogFileOutput(sProgram, sFile, (2U << kLastLevel) - (1U << uLevel)),
        m_bTraces(uLevel <= qm_err::kLogTraceStepByStep) {}

  void write(const JLog::Msg& record) override {
    if (m_bTraces || record.uLevel < JLog::kFirstObjectLevel) {
      JLogFileOutput::write(record);
    }
  }

 private:
  const bool m_bTraces;
};

std::uint32_t levelOf(const std::string& sLevel) {
  for (std::uint32_t uLevel = kFirstLevel; uLevel <= kLastLevel; ++uLevel) {
    if (levelName(uLevel) == sLevel) {
      return uLevel;
    }
  }
  throw std::invalid_argument("no log level '" + sLevel + "'; there are " + qm_programlog::levelNames());
}

}  // namespace

namespace qm_programlog {

void setUp(const std::string& sProgram, const std::string& sLevel, const std::string& sFile) {
  JLog::init(0);
  if (sLevel.empty() && sFile.empty()) {
    return;
  }
  const std::uint32_t uLevel = levelOf(sLevel.empty() ? "info" : sLevel);
  if (!sFile.empty() && !std::ofstream(sFile, std::ios::app).is_open()) {
    throw std::invalid_argument("can't write the log file '" + sFile + "'");
  }
  JLog::addLogOutput(std::make_unique<LevelOutput>(sProgram, sFile, uLevel));
}

void end() {
  JLog::shutdown(kFlushTime);
}

std::string levelNames() {
  std::string sNames;
  for (std::uint32_t uLevel = kFirstLevel; uLevel <= kLastLevel; ++uLevel) {
    sNames += (uLevel == kFirstLevel ? "" : ", ") + levelName(uLevel);
  }
  return sNames;
}

}  // namespace qm_programlog
