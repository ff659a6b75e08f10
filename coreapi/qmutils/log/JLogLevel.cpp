#include <array>

#include "coreapi/qmutils/log/JLog.h"

namespace {

struct LevelNames {
  const char* szName;
  const char* szShortName;
};

/// Indexed by the level.
constexpr std::array<LevelNames, 23> kLevels{{
    {"NOLOG", "NOLOG"},
    {"FULLDEBUG", "DEBUG"},
    {"ACTIVEX", "ACTIVEX"},
    {"DEBUG", "DEBUG"},
    {"TRACE", "TRACE"},
    {"TRACE_ACTION", "TRACE"},
    {"TRACE_RUNNING", "TRACE"},
    {"TRACE_STEP_BY_STEP", "TRACE"},
    {"INFO", "INFO"},
    {"WARNING", "WARNING"},
    {"EXCEPTION", "EXCEPTION"},
    {"ERROR", "ERROR"},
    {"CRITICAL", "CRITICAL"},
    {"TRACE_DEBUG", "TRACE_DEBUG"},
    {"TRACE_EXCEPTION", "TRACE_EXCEPTION"},
    {"TRACE_INFO", "TRACE_INFO"},
    {"TRACE_COMPORT", "TRACE_COMPORT"},
    {"TRACE_FILE", "TRACE_FILE"},
    {"TRACE_NETWORK", "TRACE_NETWORK"},
    {"TRACE_STATS", "TRACE_STATS"},
    {"TRACE_REGISTRY", "TRACE_REGISTRY"},
    {"TRACE_RPC", "TRACE_RPC"},
    {"TRACE_DRIVER", "TRACE_DRIVER"},
}};

constexpr LevelNames kUnknownLevel{"UNKNOWW", "UNKNOWW"};

const LevelNames& namesOf(std::uint32_t uLevel) noexcept {
  return uLevel < kLevels.size() ? kLevels[uLevel] : kUnknownLevel;
}

}  // namespace

const char* JLog::getLevelName(std::uint32_t uLevel) noexcept {
  return namesOf(uLevel).szName;
}

const char* JLog::getShortLevelName(std::uint32_t uLevel) noexcept {
  return namesOf(uLevel).szShortName;
}
