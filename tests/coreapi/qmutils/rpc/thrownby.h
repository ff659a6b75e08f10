#pragma once

#include <string>

#include "coreapi/qmutils/error/jerror.h"

namespace qm_test {

/// The text of what a piece of work throws; empty when it doesn't.
template <typename Work>
std::string thrownBy(Work work) {
  try {
    work();
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    return error->getMessage();
  }
  return {};
}

}  // namespace qm_test
