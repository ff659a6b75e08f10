#include <clocale>
#include <cstdlib>
#include <gmock/gmock.h>

#include "tests/support/tempdir.h"

/// Every test runs in a locale whose decimal point is a comma: text that follows the host's locale where it
/// must not is found at once. And with a configuration of its own, which is empty at first: the machine's is
/// neither read nor written.
int main(int argc, char** argv) {
  const qm_test::TempDir systemDirectory;
  setenv("QM_SYSTEM_DIR", systemDirectory.path("system").c_str(), 1);
  setenv("LOCPATH", QM_TEST_LOCALE_DIR, 1);
  if (std::setlocale(LC_ALL, "de_DE.UTF-8") == nullptr) {
    std::fputs("the tests' own locale is missing\n", stderr);
    return 1;
  }
  testing::InitGoogleMock(&argc, argv);
  return RUN_ALL_TESTS();
}
