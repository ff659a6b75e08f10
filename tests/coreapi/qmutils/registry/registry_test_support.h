#pragma once

#include <gtest/gtest.h>
#include <string>

#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/registry/jlightreg.h"

namespace qm_test {

/// The text of the error that `work` throws; "no error" when it throws none.
template <typename Work>
std::string errorOf(Work work) {
  try {
    work();
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    return error->getMessage();
  }
  return "no error";
}

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
