#include <clocale>
#include <cstdlib>
#include <gmock/gmock.h>

/// Every test runs in a locale whose decimal point is a comma: text that follows the host's locale where it
/// must not is found at once.
int main(int argc, char** argv) {
  setenv("LOCPATH", QM_TEST_LOCALE_DIR, 1);
  if (std::setlocale(LC_ALL, "de_DE.UTF-8") == nullptr) {
    std::fputs("the tests' own locale is missing\n", stderr);
    return 1;
  }
  testing::InitGoogleMock(&argc, argv);
  return RUN_ALL_TESTS();
}
