#pragma once

#include "coreapi/qmutils/error/loghook.h"

/// JFATAL_ASSERT with a text: logs the condition and the text when the condition is false, and goes on. Such
/// misuse is a programming error, which no document can cause. Private to this folder.
#define QM_XML_FATAL_ASSERT(condition, szText)     \
  (static_cast<bool>(condition)                    \
       ? static_cast<void>(0)                      \
       : ::qm_err::logText(::qm_err::kLogCritical, \
                           "FATAL ASSERTION FAILED !! (" #condition " && \"" szText "\")"))
