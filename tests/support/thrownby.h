#pragma once

#include <cstdint>
#include <string>
#include <utility>

#include "coreapi/qmutils/error/jerror.h"

namespace qm_test {

/// The text of what a piece of work throws; empty when it throws nothing.
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

/// Number, without the bit of socket errors, and function of a system error.
using Failure = std::pair<std::uint32_t, std::string>;

/// The system error that a piece of work throws; 0 and the text of another error; 0 and no text when it
/// throws nothing.
template <typename Work>
Failure failureOf(Work work) {
  try {
    work();
  } catch (JSysError* pError) {
    const qm_err::CaughtError error(pError);
    return {pError->getCode() & ~JSysError::kSocketClass, pError->getFunction()};
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    return {0, error->getMessage()};
  }
  return {};
}

}  // namespace qm_test
