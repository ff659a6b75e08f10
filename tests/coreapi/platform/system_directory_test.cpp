#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <map>
#include <optional>

#include "coreapi/platform/systemdirectory.h"
#include "tests/support/tempdir.h"

namespace {

/// Sets variables of the environment for its lifetime; null takes one away.
class Environment {
 public:
  explicit Environment(const std::map<std::string, const char*>& variables) {
    for (const auto& [name, value] : variables) {
      const char* before = std::getenv(name.c_str());
      m_before[name] = before != nullptr ? std::optional<std::string>(before) : std::nullopt;
      put(name, value);
    }
  }
  ~Environment() {
    for (const auto& [name, value] : m_before) {
      put(name, value ? value->c_str() : nullptr);
    }
  }
  Environment(const Environment&) = delete;
  Environment& operator=(const Environment&) = delete;

 private:
  static void put(const std::string& name, const char* value) {
    value != nullptr ? setenv(name.c_str(), value, 1) : unsetenv(name.c_str());
  }

  std::map<std::string, std::optional<std::string>> m_before;
};

TEST(SystemDirectory, IsTheFirstPlaceThatCountsInOrder) {
  const qm_test::TempDir user;
  const std::string home = user.path("home");
  const std::string config = user.path("config");
  const auto directory = [&](const char* own, const char* xdg, const char* homeDirectory) {
    const Environment environment(
        {{"QM_SYSTEM_DIR", own}, {"XDG_CONFIG_HOME", xdg}, {"HOME", homeDirectory}});
    return qm_platform::systemDirectory("file.reg");
  };
  EXPECT_EQ(directory(nullptr, config.c_str(), home.c_str()), "/etc/quelmarin");
  std::filesystem::create_directories(home + "/.config/quelmarin");
  std::filesystem::create_directories(config + "/quelmarin");
  EXPECT_EQ(directory(nullptr, nullptr, home.c_str()), "/etc/quelmarin");
  user.write("home/.config/quelmarin/file.reg", "");
  EXPECT_EQ(directory(nullptr, nullptr, home.c_str()), home + "/.config/quelmarin");
  EXPECT_EQ(directory("", "", (home + "/").c_str()), home + "/.config/quelmarin");
  EXPECT_EQ(directory(nullptr, config.c_str(), home.c_str()), "/etc/quelmarin");
  user.write("config/quelmarin/file.reg", "");
  EXPECT_EQ(directory(nullptr, config.c_str(), home.c_str()), config + "/quelmarin");
  EXPECT_EQ(directory("/some/where/", config.c_str(), home.c_str()), "/some/where");
  EXPECT_EQ(directory(nullptr, nullptr, nullptr), "/etc/quelmarin");
}

}  // namespace
