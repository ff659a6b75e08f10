#pragma once

#include "coreapi/qmutils/error/jerror.h"

namespace qm_ci {

/// Gives a condition back, and logs it as JASSERT does when it is false: code refuses what it has logged.
/// `szCondition` is the condition's own text, where that isn't how the code spells it.
inline bool asserted(bool bHolds, const char* szCondition) noexcept {
  if (!bHolds) [[unlikely]] {
    qm_err::log(qm_err::kLogError, "ASSERTION FAILED (%s)", szCondition);
  }
  return bHolds;
}

}  // namespace qm_ci

/// The value of a condition, which is logged as JASSERT does when it is false.
#define JASSERTED(condition) ::qm_ci::asserted(static_cast<bool>(condition), #condition)
