#pragma once

#include <string>

#include "storage/TimeSpan.h"

namespace qm_manager {

/// "START to END", in the calendar form.
inline std::string textOf(const TimeSpan& span) {
  return span.startDate.toUSFormat() + " to " + span.endDate.toUSFormat();
}

}  // namespace qm_manager
