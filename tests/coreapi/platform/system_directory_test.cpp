#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>

#include "coreapi/platform/systemdirectory.h"
#include "tests/support/tempdir.h"

namespace {

void put(const char* name, const char* value) {
  value != nullptr ? setenv(name, value, 1) : unsetenv(name);
}

TEST(SystemDirectory, IsTheFirstPlaceThatCountsInOrder) {
  const qm_test::TempDir user;
  const std::string own = std::getenv("QM_SYSTEM_DIR");
  const std::string home = user.path("home");
  const auto directory = [&](const char* system, const char* config) {
    put("QM_SYSTEM_DIR", system);
    put("XDG_CONFIG_HOME", config);
    put("HOME", home.c_str());
    return qm_platform::systemDirectory("file.reg");
  };
  std::filesystem::create_directories(home + "/.config/quelmarin");
  EXPECT_EQ(directory(nullptr, nullptr), "/etc/quelmarin");
  user.write("home/.config/quelmarin/file.reg", "");
  EXPECT_EQ(directory("", ""), home + "/.config/quelmarin");
  EXPECT_EQ(directory(nullptr, user.path("other").c_str()), "/etc/quelmarin");
  EXPECT_EQ(directory(nullptr, (home + "/.config/").c_str()), home + "/.config/quelmarin");
  EXPECT_EQ(directory("/some/where/", nullptr), "/some/where");
  put("QM_SYSTEM_DIR", own.c_str());
}

}  // namespace
