#pragma once

#include <cerrno>

#include "coreapi/platform/faultseam.h"

namespace qm_platform {

/// Makes a call of the system on a file until no signal interrupts it. `call` gets whether it is to move one
/// byte only, and gives a negative number, with `errno`, on failure. `error` becomes 0, or the `errno` value
/// of a result that is negative. Any thread.
template <typename Call>
auto uninterrupted(int& error, Call call) noexcept -> decltype(call(false)) {
  for (;;) {
    const Fault fault = takeFault(Seam::kFile);
    if (fault.kind == FaultKind::kError) {
      error = fault.error;
      return -1;
    }
    if (fault.kind == FaultKind::kInterrupt) {
      continue;
    }
    const auto result = call(fault.kind == FaultKind::kShort);
    if (result >= 0 || errno != EINTR) {
      error = result < 0 ? errno : 0;
      return result;
    }
  }
}

/// The same for a call whose result is of no interest: 0 or an `errno` value.
template <typename Call>
int errorOfCall(Call call) noexcept {
  int error = 0;
  uninterrupted(error, [&](bool) { return call(); });
  return error;
}

}  // namespace qm_platform
