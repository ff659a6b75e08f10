#include <cerrno>

#include "coreapi/qmutils/registry/jsystemregistry.h"
#include "tests/coreapi/qmutils/registry/registry_test_support.h"

namespace {

using qm_test::Failure;
using qm_test::failureOf;

class SystemKey : public qm_test::RegistryTest {
 protected:
  SystemKey() { m_key.create(kRoot, kTestKey); }

  JSystemRegistryKey m_key;
};

TEST_F(SystemKey, NamesWhatDoesNotExist) {
  std::uint32_t uValue = 0;
  char szText[8];
  EXPECT_EQ(qm_test::thrownBy([&] { m_key.open(kRoot, "SOFTWARE\\none"); }),
            "system call error at function 'Function=RegOpenKeyEx, key=HKEY_LOCAL_MACHINE\\SOFTWARE\\none' : "
            "No such file or directory");
  EXPECT_FALSE(m_key.open(kRoot, "SOFTWARE\\none", qm_utils::kRegistryRead, true));
  const Failure absent{ENOENT, "Function=RegQueryValueEx, key=HKEY_LOCAL_MACHINE\\x"};
  EXPECT_EQ(failureOf([&] { m_key.getDword("x"); }), absent);
  EXPECT_EQ(failureOf([&] { m_key.getString("x"); }), absent);
  EXPECT_EQ(failureOf([&] { m_key.getString("x", szText, sizeof szText); }), absent);
  EXPECT_EQ(failureOf([&] { m_key.getBinary("x", szText, sizeof szText); }), absent);
  EXPECT_EQ(failureOf([&] { m_key.deleteValue("x"); }),
            (Failure{ENOENT, "Function=RegDeleteValue, key=HKEY_LOCAL_MACHINE\\x"}));
  EXPECT_FALSE(m_key.getDword("x", uValue));
  m_key.deleteKey("none");
}

TEST_F(SystemKey, ChangesOnlyWhatIsOpenForIt) {
  m_key.setDword("n", 5);
  JSystemRegistryKey reader;
  reader.open(kRoot, kTestKey);
  EXPECT_EQ(reader.getDword("n"), 5U);
  EXPECT_EQ(failureOf([&] { reader.setDword("d", 1); }),
            (Failure{EACCES, "Function=RegSetValueEx, key=HKEY_LOCAL_MACHINE\\d"}));
  EXPECT_EQ(failureOf([&] { JSystemRegistryKey().create(reader, "sub"); }).first,
            static_cast<std::uint32_t>(EACCES));
  EXPECT_EQ(failureOf([&] { JSystemRegistryKey().getDword("d"); }),
            (Failure{EBADF, "Function=RegQueryValueEx, key=UNKNOWN HKEY\\d"}));
  EXPECT_EQ(failureOf([&] { JSystemRegistryKey().flush(); }),
            (Failure{EBADF, "Function=RegFlushKey, key=UNKNOWN HKEY\\none"}));
  EXPECT_EQ(failureOf([&] { reader.connect("host", kRoot); }),
            (Failure{EOPNOTSUPP, "Function=RegConnectRegistry, key=HKEY_LOCAL_MACHINE\\host"}));
}

TEST_F(SystemKey, OpensReadKeysThroughTheInterface) {
  JSystemRegistryKey sub;
  EXPECT_TRUE(sub.create(m_key, "a\\b"));
  sub.setString("s", "text");
  const qm_utils::IRegistryReadAccess& reading = m_key;
  std::unique_ptr<qm_utils::IRegistryReadAccess> pKey;
  EXPECT_FALSE(reading.openSubKey("x", pKey, true));
  EXPECT_EQ(pKey, nullptr);
  ASSERT_TRUE(reading.openSubKey("a\\b", pKey, false));
  EXPECT_EQ(pKey->getString("s"), "text");
  EXPECT_EQ(failureOf([&] { reading.openSubKey("x", pKey, false); }),
            (Failure{ENOENT, "Function=RegOpenKeyEx, key=HKEY_LOCAL_MACHINE\\x"}));
}

}  // namespace
