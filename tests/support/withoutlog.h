#pragma once

#include <gtest/gtest.h>

#include "coreapi/qmutils/error/loghook.h"

namespace qm_test {

/// Keeps the log away from a test program of a room below it: the log starts threads and prints, and both are
/// what such tests look at. Register it once a program, with `testing::AddGlobalTestEnvironment`.
class WithoutLog : public testing::Environment {
 public:
  void SetUp() override { qm_err::setLogHook(nullptr); }
};

}  // namespace qm_test
