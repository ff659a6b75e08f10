#pragma once

#include <cstdint>
#include <gmock/gmock.h>
#include <string>

#include "coreapi/platform/faultseam.h"
#include "coreapi/qmutils/error/jerror.h"

namespace qm_test {

/// What a piece of work throws, as "FUNCTION NUMBER" of a system error or as its text; empty when it doesn't.
template <typename Work>
std::string fileFailure(Work work) {
  try {
    work();
  } catch (JSysError* pError) {
    const qm_err::CaughtError error(pError);
    const bool bFull = dynamic_cast<JNoSpaceLeftError*>(pError) != nullptr;
    return pError->getFunction() + std::string(" ") + std::to_string(pError->getCode()) +
           (bFull ? " full" : "");
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    return error->getMessage();
  }
  return {};
}

/// A system error as `fileFailure` tells it.
inline std::string failure(const std::string& sFunction, int iError) {
  return sFunction + " " + std::to_string(iError);
}

/// The statement behind them throws a system error of this function and number.
#define EXPECT_FAILURE(sFunction, iError, ...) \
  EXPECT_EQ(qm_test::fileFailure([&] { __VA_ARGS__; }), qm_test::failure(sFunction, iError))

/// Lets the `nth` call on a file fail.
inline void failFileCall(std::uint64_t uNth, qm_platform::FaultKind kind, int iError = 0,
                         bool bOnwards = false) {
  qm_platform::armFaults(
      {static_cast<std::uint32_t>(qm_platform::Seam::kFile), uNth, kind, iError, bOnwards});
}

/// Runs a piece of work again and again, each time with the next call on a file failing, until no call is
/// left to fail. `check` sees the number of the call and what was thrown.
template <typename Work, typename Check>
void failEachFileCall(qm_platform::FaultKind kind, int iError, Work work, Check check) {
  constexpr std::uint64_t kMostCalls = 200;
  for (std::uint64_t uCall = 1; uCall < kMostCalls; ++uCall) {
    SCOPED_TRACE("call " + std::to_string(uCall));
    failFileCall(uCall, kind, iError);
    const std::string sThrown = fileFailure(work);
    const bool bFired = qm_platform::disarmFaults();
    check(sThrown);
    if (!bFired) {
      EXPECT_EQ(sThrown, "");
      EXPECT_GT(uCall, 1U) << "nothing could fail";
      return;
    }
  }
  FAIL() << "the calls don't end";
}

}  // namespace qm_test
