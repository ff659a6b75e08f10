#pragma once

#include <gtest/gtest.h>
#include <string>

#include "coreapi/qmutils/registry/jlightreg.h"
#include "tests/support/thrownby.h"

namespace qm_test {

/// The tree lives as long as the process: each test works below a key of its own, and takes it away.
class RegistryTest : public testing::Test {
 protected:
  static constexpr auto kRoot = qm_utils::RegistryRoot::kLocalMachine;
  static constexpr char kTestKey[] = "SOFTWARE\\RegistryTest";

  ~RegistryTest() override {
    JLightRegistryKey root;
    root.open(kRoot, "");
    root.deleteKey(kTestKey, true);
  }
};

}  // namespace qm_test
