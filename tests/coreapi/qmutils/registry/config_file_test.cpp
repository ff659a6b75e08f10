#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include "coreapi/platform/faultseam.h"
#include "coreapi/qmutils/registry/jregistrytext.h"
#include "coreapi/qmutils/registry/jsystemregistry.h"
#include "coreapi/qmutils/socket/jfilesocket.h"
#include "tests/coreapi/qmutils/registry/registry_test_support.h"
#include "tests/support/logcapture.h"
#include "tests/support/tempdir.h"
#include "tests/support/withoutlog.h"

namespace {

using qm_platform::FaultKind;
using qm_test::thrownBy;
using testing::HasSubstr;

const auto* const g_withoutLog = testing::AddGlobalTestEnvironment(new qm_test::WithoutLog);

constexpr const char* kKey = "SOFTWARE\\RegistryTest";

std::string fileWith(const std::string& sValues) {
  return "REGEDIT4\n\n[HKEY_LOCAL_MACHINE\\SOFTWARE]\n\n[HKEY_LOCAL_MACHINE\\SOFTWARE\\RegistryTest]\n" +
         sValues + "\n";
}

/// A system directory of the test's own.
class ConfigFile : public qm_test::RegistryTest {
 protected:
  ConfigFile() : m_sPrevious(std::getenv("QM_SYSTEM_DIR")) {
    forgetFile();
    setenv("QM_SYSTEM_DIR", m_directory.path("a/b").c_str(), 1);
    std::filesystem::create_directories(m_directory.path("a/b"));
  }
  ~ConfigFile() override {
    qm_platform::disarmFaults();
    forgetFile();
    setenv("QM_SYSTEM_DIR", m_sPrevious.c_str(), 1);
  }

  /// As if no key had been opened yet.
  void forgetFile() const {
    std::filesystem::remove_all(m_directory.path("a"));
    try {
      JSystemRegistryKey::reload();
    } catch (JError* pError) {
      const qm_err::CaughtError error(pError);
    }
  }

  std::string path() const { return m_directory.path("a/b/software.reg"); }
  std::string contents() const { return qm_test::readFile(path()); }
  void write(const std::string& sText) const { m_directory.write("a/b/software.reg", sText); }

  std::vector<std::string> files() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(m_directory.path("a/b"))) {
      names.push_back(entry.path().filename());
    }
    return names;
  }

  static void setNumber(std::uint32_t uValue) {
    JSystemRegistryKey key;
    key.create(kRoot, kKey);
    key.setDword("n", uValue);
    key.flush();
  }

  const qm_test::TempDir m_directory;
  const std::string m_sPrevious;
};

TEST_F(ConfigFile, IsMadeByTheFirstChange) {
  std::filesystem::remove_all(m_directory.path("a"));
  JSystemRegistryKey key;
  EXPECT_FALSE(key.open(kRoot, kKey, qm_utils::kRegistryRead, true));
  EXPECT_TRUE(key.create(kRoot, kKey));
  EXPECT_EQ(contents(), "REGEDIT4\n\n");
  key.setDword("n", 1);
  EXPECT_EQ(contents(), "REGEDIT4\n\n");
  key.flush();
  EXPECT_EQ(contents(), fileWith("\"n\"=dword:00000001\n"));
  {
    JSystemRegistryKey other;
    EXPECT_FALSE(other.create(kRoot, kKey));
    other.setString("s", "x");
    other.deleteValue("n");
  }
  EXPECT_EQ(contents(), fileWith("\"s\"=\"x\"\n"));
}

TEST_F(ConfigFile, IsReadByTheFirstOpenAndByReload) {
  write(fileWith("n=dword:5\n"));
  JSystemRegistryKey key;
  ASSERT_TRUE(key.open(kRoot, kKey));
  EXPECT_EQ(key.getDword("n"), 5U);
  write(fileWith("n=dword:6\n"));
  ASSERT_TRUE(key.open(kRoot, kKey));
  EXPECT_EQ(key.getDword("n"), 5U);
  JSystemRegistryKey::reload();
  EXPECT_EQ(key.getDword("n"), 5U);
  ASSERT_TRUE(key.open(kRoot, kKey));
  EXPECT_EQ(key.getDword("n"), 6U);
  std::filesystem::remove(path());
  JSystemRegistryKey::reload();
  EXPECT_FALSE(key.open(kRoot, kKey, qm_utils::kRegistryRead, true));
}

TEST_F(ConfigFile, DamageLeavesWhatIsBeforeItToReadersAndKeepsWritersAway) {
  const std::string sBroken = fileWith("n=dword:5\nn\n");
  write(sBroken);
  const qm_test::LogCapture log;
  JSystemRegistryKey key;
  ASSERT_TRUE(key.open(kRoot, kKey, qm_utils::kRegistryAllAccess));
  ASSERT_TRUE(key.open(kRoot, kKey, qm_utils::kRegistryAllAccess));
  EXPECT_EQ(key.getDword("n"), 5U);
  EXPECT_TRUE(log.has(qm_err::kLogError, "The configuration file can't be read: missing = for n\n"));
  EXPECT_EQ(log.messages().size(), 1U);
  EXPECT_EQ(thrownBy([] { setNumber(7); }), "missing = for n\n");
  EXPECT_EQ(contents(), sBroken);
  write(fileWith("m=dword:6\n"));
  setNumber(7);
  EXPECT_EQ(contents(), fileWith("\"m\"=dword:00000006\n\"n\"=dword:00000007\n"));
}

TEST_F(ConfigFile, RefusesWhatItsTextCannotCarry) {
  JSystemRegistryKey key;
  key.create(kRoot, kKey);
  const auto refused = [&](const char* szName, std::uint32_t uType, const std::string& sData) {
    return thrownBy([&] { key.setValue(szName, uType, sData.data(), sData.size()); }) != std::string("");
  };
  EXPECT_TRUE(refused("v", qm_utils::kRegQword, std::string(8, '\0')));
  EXPECT_TRUE(refused("v", qm_utils::kRegNone, ""));
  EXPECT_TRUE(refused("v", qm_utils::kRegSz, "a\nb"));
  EXPECT_TRUE(refused("v", qm_utils::kRegMultiSz, std::string("a\0b\n\0", 5)));
  EXPECT_TRUE(refused("a\"b", qm_utils::kRegDword, std::string(4, '\0')));
  EXPECT_TRUE(refused("a\nb", qm_utils::kRegDword, std::string(4, '\0')));
  EXPECT_TRUE(refused("v", qm_utils::kRegBinary, std::string(6 << 20, 'x')));
  EXPECT_FALSE(refused("v", qm_utils::kRegBinary, "\n\n\n\n"));
  EXPECT_FALSE(refused("w", qm_utils::kRegSz, "\"\\;[\r="));
  EXPECT_NE(thrownBy([&] { JSystemRegistryKey().create(key, "a\nb"); }), "");
  key.flush();
  JSystemRegistryKey::reload();
  key.open(kRoot, kKey);
  EXPECT_EQ(key.getString("w"), "\"\\;[\r=");
  EXPECT_THAT(key.getBinary("v"), testing::ElementsAre('\n', '\n', '\n', '\n'));

  JSystemRegistryKey elsewhere;  // not kept in the file
  elsewhere.create(kRoot, "RegistryTest");
  elsewhere.setQword("q", 5);
  EXPECT_EQ(elsewhere.getQword("q"), 5U);
  elsewhere.open(kRoot, "", qm_utils::kRegistryAllAccess);
  elsewhere.deleteKey("RegistryTest");
}

TEST_F(ConfigFile, SaveThatFailsOrIsCutOffLeavesTheOldOrTheNewFile) {
  setNumber(1);
  const std::string sOld = contents();
  const std::string sNew = fileWith("\"n\"=dword:00000002\n");
  JSystemRegistryKey key;
  key.open(kRoot, kKey, qm_utils::kRegistryAllAccess);
  const auto save = [&](FaultKind kind, std::uint64_t uCall) {
    key.setDword("n", 2);
    qm_platform::armFaults({.seams = static_cast<std::uint32_t>(qm_platform::Seam::kFile),
                            .nth = uCall,
                            .kind = kind,
                            .error = ENOSPC});
    const std::string sError = thrownBy([&] { key.flush(); });
    return qm_platform::disarmFaults() ? sError : "";
  };
  int iStatus = -1;
  for (std::uint64_t uCall = 1; iStatus != 0; ++uCall) {
    const pid_t child = fork();
    if (child == 0) {
      save(FaultKind::kStop, uCall);
      _exit(0);
    }
    ASSERT_EQ(waitpid(child, &iStatus, 0), child);
    ASSERT_TRUE(WIFEXITED(iStatus));
    EXPECT_THAT(contents(), testing::AnyOf(sOld, sNew)) << uCall;
    JSystemRegistryKey::reload();
    EXPECT_THAT(files(), testing::ElementsAre("software.reg"));
  }
  EXPECT_EQ(contents(), sNew);
  std::string sError = "first";
  for (std::uint64_t uCall = 1; !sError.empty(); ++uCall) {
    setNumber(1);
    sError = save(FaultKind::kError, uCall);
    EXPECT_THAT(sError,
                testing::AnyOf("", "", HasSubstr("Function=RegFlushKey, key=HKEY_LOCAL_MACHINE\\none")));
    EXPECT_THAT(contents(), testing::AnyOf(sOld, sNew)) << uCall;
    key.flush();
    EXPECT_EQ(contents(), sNew);
  }
}

TEST_F(ConfigFile, LightKeysReadItFirstAndWriteItThen) {
  write(fileWith("n=dword:5\n"));
  JLightRegistryKey key;
  EXPECT_EQ(thrownBy([&] { key.flush(); }), "Invalid light key");
  key.create(kRoot, kKey);
  key.setDword("lost", 1);
  key.flush();
  ASSERT_TRUE(key.open(kRoot, kKey));
  EXPECT_EQ(key.getDword("n"), 5U);
  key.setString("s", "x");
  key.flush();
  const std::string sBoth = fileWith("\"n\"=dword:00000005\n\"s\"=\"x\"\n");
  EXPECT_EQ(contents(), sBoth);
  const std::string sOther = m_directory.path("other.reg");
  JLightRegistryKey::flush(false, sOther.c_str());
  EXPECT_EQ(qm_test::readFile(sOther), sBoth);
  EXPECT_THAT(thrownBy([&] { JLightRegistryKey::flush(true, m_directory.path("none").c_str()); }),
              HasSubstr("CreateFile"));
  EXPECT_EQ(key.getDword("n"), 5U);
  JLightRegistryKey::flush(false, sOther.c_str());  // reads: the mark is clear
  EXPECT_EQ(thrownBy([&] { key.setDword("new", 1); }),
            "Cannot create new value 'new' for deleted key 'RegistryTest'");
}

TEST_F(ConfigFile, IsNeverReplacedByWhatCannotBeReadAgain) {
  const std::string sByHand = fileWith("a\"b=dword:1\n");
  write(sByHand);
  EXPECT_THAT(thrownBy([] { setNumber(7); }), HasSubstr("can't hold the value 'a\"b'"));
  EXPECT_EQ(contents(), sByHand);
  write(fileWith("a=dword:1\n"));
  JSystemRegistryKey::reload();
  setNumber(7);
  JLightRegistryKey key;
  key.open(kRoot, kKey);
  key.setString("s", "line\nbreak");
  EXPECT_THAT(thrownBy([&] { key.flush(); }), HasSubstr("can't hold the value 's'"));
  EXPECT_EQ(contents(), fileWith("\"a\"=dword:00000001\n\"n\"=dword:00000007\n"));
}

TEST_F(ConfigFile, RoutinesThatChangeManyKeysLeaveThemInIt) {
  const std::string sText =
      m_directory.write("in.reg", "[HKEY_USERS]\nn=dword:1\n[HKEY_USERS\\a]\n[HKEY_USERS\\b]\n");
  JFileSocket file(sText, JFileSocket::kRead, true);
  qm_utils::importRegistry(file, "HKEY_LOCAL_MACHINE\\SOFTWARE\\RegistryTest");
  EXPECT_TRUE(qm_utils::copyKey(kRoot, std::string(kKey) + "\\a", kRoot, kKey, false, false));
  EXPECT_THAT(contents(),
              HasSubstr("RegistryTest\\a\\b]\n\n[HKEY_LOCAL_MACHINE\\SOFTWARE\\RegistryTest\\b]\n"));
  JSystemRegistryKey key;
  key.open(kRoot, kKey, qm_utils::kRegistryAllAccess);
  const std::string sSaved = m_directory.path("saved.reg");
  key.save(sSaved);
  JSystemRegistryKey copy;
  copy.create(key, "b");
  copy.setDword("goes", 1);
  copy.restore(sSaved);
  std::vector<std::string> names;
  copy.getSubKeys(names);
  EXPECT_THAT(names, testing::ElementsAre("a", "b"));
  EXPECT_EQ(copy.getDword("n"), 1U);
  EXPECT_THAT(thrownBy([&] { copy.getDword("goes"); }), HasSubstr("RegQueryValueEx"));
  EXPECT_THAT(thrownBy([&] { copy.restore(m_directory.path("none")); }),
              HasSubstr("Function=RegRestoreKey, key=HKEY_LOCAL_MACHINE\\"));
  EXPECT_THAT(contents(), HasSubstr("RegistryTest\\b\\a\\b]\n"));
}

}  // namespace
