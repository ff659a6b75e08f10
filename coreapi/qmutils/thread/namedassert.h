#pragma once

#include "coreapi/qmutils/error/loghook.h"

/// JASSERT with the text that the log shows given apart, for the conditions whose texts are fixed to the
/// character while the code that tests them is written otherwise. Goes on, as JASSERT does.
#define QM_ASSERT_AS(condition, text)                  \
  (static_cast<bool>(condition) ? static_cast<void>(0) \
                                : ::qm_err::logText(::qm_err::kLogError, "ASSERTION FAILED (" text ")"))
