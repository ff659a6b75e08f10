#include <atomic>
#include <cstring>
#include <functional>
#include <thread>

#include "coreapi/qmutils/thread/jwaitable.h"
#include "tests/coreapi/qmutils/registry/registry_test_support.h"

namespace {

using qm_test::thrownBy;

class LightKey : public qm_test::RegistryTest {
 protected:
  LightKey() { m_key.create(kRoot, kTestKey); }

  JLightRegistryKey m_key;
};

TEST_F(LightKey, FailsWhileNoKeyIsOpen) {
  JLightRegistryKey none;
  std::vector<std::string> names;
  EXPECT_TRUE(none.isNull());
  EXPECT_EQ(thrownBy([&] { none.getSubKeys(names); }), "Invalid light key");
  EXPECT_EQ(thrownBy([&] { none.setDword("x", 1); }), "Invalid light key");
  EXPECT_EQ(thrownBy([&] { none.flush(); }), "Invalid light key");
  EXPECT_EQ(thrownBy([&] { none.deleteKey("x", true); }), "Invalid light key");
  EXPECT_EQ(thrownBy([&] { JLightRegistryKey().open(none, "x", true); }), "Invalid light key");
}

TEST_F(LightKey, FindsKeysByTheirPath) {
  JLightRegistryKey key;
  EXPECT_TRUE(key.create(m_key, "a\\b"));
  EXPECT_FALSE(key.create(m_key, "a\\b"));
  key.setDword("mark", 7);
  struct {
    const char* name;
    const char* path;
    const char* error;
  } const rows[] = {
      {"plain", "a\\b", ""},
      {"empty parts are skipped", "\\a\\\\b\\", ""},
      {"the missing part is named", "a\\c\\d", "Light subkey 'c' of 'a' not found"},
      {"names are compared byte by byte", "A", "Light subkey 'A' of 'RegistryTest' not found"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    JLightRegistryKey found;
    EXPECT_EQ(thrownBy([&] { found.open(m_key, row.path); }), row.error);
    EXPECT_EQ(found.open(m_key, row.path, true), std::string(row.error) == "");
    if (!found.isNull()) {
      EXPECT_EQ(found.getDword("mark"), 7U);
    }
  }
  EXPECT_EQ(thrownBy([&] { key.open(qm_utils::RegistryRoot::kUsers, "a", true); }),
            "Light key only support HKEY_LOCAL_MACHINE");
  EXPECT_FALSE(key.open(m_key, "none", true));
  EXPECT_EQ(key.getDword("mark"), 7U) << "an object keeps its key when another can't be opened";
}

TEST_F(LightKey, GivesEveryTypeBackAsItWasSet) {
  m_key.setDword("dword", 0x01020304);
  m_key.setQword("qword", 0x0102030405060708);
  m_key.setString("text", "h\xC3\xA9llo");
  m_key.setBinary("bytes", "\0\1", 2);
  m_key.setValue("list", qm_utils::kRegMultiSz, "a\0b\0", 5);
  m_key.setValue("nothing", qm_utils::kRegNone, nullptr, 0);
  m_key.setValue("unended", qm_utils::kRegSz, "abc", 3);

  EXPECT_EQ(m_key.getDword("dword"), 0x01020304U);
  EXPECT_EQ(m_key.getQword("qword"), 0x0102030405060708U);
  EXPECT_TRUE(m_key.getBool("dword"));
  EXPECT_EQ(m_key.getString("text"), "h\xC3\xA9llo");
  EXPECT_EQ(m_key.getString("unended"), "abc");
  EXPECT_EQ(m_key.getBinary("bytes"), (std::vector<std::uint8_t>{0, 1}));

  std::vector<qm_utils::RegistryValue> values;
  m_key.getValues(values);
  ASSERT_EQ(values.size(), 7U);
  EXPECT_EQ(values[1].data, (std::vector<std::uint8_t>{4, 3, 2, 1}));
  EXPECT_EQ(values[2].data.size(), 5U);
  EXPECT_EQ(values[4].data, (std::vector<std::uint8_t>{8, 7, 6, 5, 4, 3, 2, 1}));

  std::unique_ptr<qm_utils::RegistryValueRecord[]> pRecords;
  std::size_t uCount = 0;
  m_key.getValues(pRecords, uCount);
  ASSERT_EQ(uCount, values.size());
  for (std::size_t i = 0; i < uCount; ++i) {
    EXPECT_EQ(pRecords[i].szName, values[i].sName);
    EXPECT_EQ(pRecords[i].uType, values[i].uType);
    ASSERT_EQ(pRecords[i].uSize, values[i].data.size());
    EXPECT_TRUE(pRecords[i].uSize == 0 ||
                std::memcmp(pRecords[i].pData.get(), values[i].data.data(), pRecords[i].uSize) == 0);
  }

  m_key.setString("dword", "now a text");
  EXPECT_EQ(m_key.getString("dword"), "now a text");
}

TEST_F(LightKey, RefusesWhatTheTypeDoesNotAllow) {
  m_key.setDword("d", 1);
  m_key.setQword("q", 1);
  m_key.setString("s", "x");
  m_key.setValue("odd", 99, "x", 1);
  std::uint32_t uDword = 5;
  std::vector<std::uint8_t> block;
  const std::string start = "Type mismatch for light value '";
  EXPECT_EQ(thrownBy([&] { m_key.getDword("s", uDword); }),
            start + "s' of key 'RegistryTest' : expected REG_DWORD, really is REG_SZ");
  EXPECT_EQ(thrownBy([&] { m_key.getQword("d"); }),
            start + "d' of key 'RegistryTest' : expected REG_QWORD, really is REG_DWORD");
  EXPECT_EQ(thrownBy([&] { m_key.getString("q"); }),
            start + "q' of key 'RegistryTest' : expected REG_SZ, really is REG_QWORD");
  EXPECT_EQ(thrownBy([&] { m_key.getBinary("odd", block); }),
            start + "odd' of key 'RegistryTest' : expected REG_BINARY, really is UNKNOWN");
  EXPECT_EQ(uDword, 5U);
  EXPECT_NE(thrownBy([&] { m_key.setValue("d", qm_utils::kRegDword, "abc", 3); }), "");
  EXPECT_NE(thrownBy([&] { m_key.setValue("d", qm_utils::kRegBinary, nullptr, 3); }), "");
  EXPECT_EQ(m_key.getDword("d"), 1U);
}

TEST_F(LightKey, TellsAbsentValuesApart) {
  std::uint32_t uValue = 5;
  std::uint32_t uType = 6;
  std::size_t uSize = 7;
  bool bValue = true;
  EXPECT_FALSE(m_key.getDword("x", uValue));
  EXPECT_FALSE(m_key.getBool("x", bValue));
  EXPECT_FALSE(m_key.queryValue("x", uType, nullptr, uSize, true));
  EXPECT_FALSE(m_key.deleteValue("x", true));
  EXPECT_EQ(uValue, 5U);
  EXPECT_TRUE(bValue);
  const std::string text = "Light value 'x' of key 'RegistryTest' not found";
  EXPECT_EQ(thrownBy([&] { m_key.getDword("x"); }), text);
  EXPECT_EQ(thrownBy([&] { m_key.getBinary("x"); }), text);
  EXPECT_EQ(thrownBy([&] { m_key.queryValue("x", uType, nullptr, uSize, false); }), text);
  EXPECT_EQ(thrownBy([&] { m_key.deleteValue("x"); }), text);
}

TEST_F(LightKey, NeverWritesBehindABuffer) {
  m_key.setDword("d", 1);
  m_key.setQword("q", 1);
  m_key.setBinary("b", "12345", 5);
  m_key.setString("s", "1234");
  struct {
    const char* name;
    std::size_t needed;
  } const rows[] = {{"d", 4}, {"q", 8}, {"b", 5}, {"s", 5}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    std::uint32_t uType = 0;
    std::size_t uSize = 0;
    EXPECT_TRUE(m_key.queryValue(row.name, uType, nullptr, uSize, false));
    EXPECT_EQ(uSize, row.needed);
    char buffer[16] = {};
    uSize = row.needed - 1;
    EXPECT_EQ(thrownBy([&] { m_key.queryValue(row.name, uType, buffer, uSize, true); }),
              std::string("Light value '") + row.name +
                  "' of key 'RegistryTest' too big for output buffer : values size " +
                  std::to_string(row.needed) + ", available " + std::to_string(row.needed - 1));
    EXPECT_EQ(uSize, row.needed);
    EXPECT_EQ(buffer[0], 0);
    EXPECT_TRUE(m_key.queryValue(row.name, uType, buffer, uSize, false));
    EXPECT_NE(buffer[0], 0);
    EXPECT_EQ(buffer[row.needed], 0);
  }
  char text[5];
  m_key.getString("s", text, sizeof text);
  EXPECT_STREQ(text, "1234");
  EXPECT_EQ(thrownBy([&] { m_key.getString("s", text, 4); }),
            "Light value 's' of key 'RegistryTest' too big for output buffer : values size 5, available 4");
  EXPECT_EQ(m_key.getBinary("b", text, 5), 5U);
  EXPECT_NE(thrownBy([&] { m_key.getBinary("b", text, 4); }), "");
}

TEST_F(LightKey, OutlivesItsDeletionForThoseWhoHoldIt) {
  JLightRegistryKey held;
  held.create(m_key, "a\\b");
  held.setDword("old", 1);
  JLightRegistryKey below;
  below.create(held, "c");
  const JLightRegistryKey copy(held);

  m_key.deleteKey("a");
  std::vector<std::string> names{"stale"};
  m_key.getSubKeys(names);
  EXPECT_TRUE(names.empty());
  EXPECT_EQ(copy.getDword("old"), 1U);
  held.setDword("old", 2);
  EXPECT_EQ(copy.getDword("old"), 2U);
  EXPECT_EQ(thrownBy([&] { held.setDword("new", 1); }), "Cannot create new value 'new' for deleted key 'b'");
  EXPECT_EQ(thrownBy([&] { JLightRegistryKey().create(below, "d"); }),
            "Cannot create subkey 'd' of deleted key 'c'");
  EXPECT_EQ(thrownBy([&] { below.open(held, "c"); }), "Light subkey 'c' of 'b' not found");

  JLightRegistryKey again;
  EXPECT_TRUE(again.create(m_key, "a\\b"));
  EXPECT_EQ(thrownBy([&] { again.getDword("old"); }), "Light value 'old' of key 'b' not found");
}

TEST_F(LightKey, DeletesOnlyWhatIsNamed) {
  JLightRegistryKey key;
  key.create(m_key, "a\\b");
  key.create(m_key, "c");
  EXPECT_EQ(thrownBy([&] { m_key.deleteKey("x"); }), "Light subkey 'x' of 'RegistryTest' not found");
  EXPECT_EQ(thrownBy([&] { m_key.deleteKey("\\"); }), "Light subkey '\\' of 'RegistryTest' not found");
  EXPECT_FALSE(m_key.deleteKey("x", true));
  EXPECT_TRUE(m_key.deleteKey("a\\b", true));
  std::vector<std::string> names;
  m_key.getSubKeys(names);
  EXPECT_EQ(names, (std::vector<std::string>{"a", "c"}));
}

TEST_F(LightKey, TellsTheNextChange) {
  JLightRegistryKey below;
  below.create(m_key, "a\\b");
  struct {
    const char* name;
    std::function<void()> change;
    bool ofKey;
    bool ofSubTree;
  } const rows[] = {
      {"a value is set", [&] { m_key.setDword("x", 1); }, true, true},
      {"a value is set anew", [&] { m_key.setDword("x", 1); }, true, true},
      {"a value is deleted", [&] { m_key.deleteValue("x"); }, true, true},
      {"a key is made", [&] { JLightRegistryKey().create(m_key, "c\\d"); }, true, true},
      {"a key is opened", [&] { JLightRegistryKey().create(m_key, "c\\d"); }, false, false},
      {"a value below is set", [&] { below.setDword("x", 1); }, false, true},
      {"a key below is made", [&] { JLightRegistryKey().create(below, "e"); }, false, true},
      {"a key below is deleted", [&] { m_key.deleteKey("a\\b"); }, false, true},
      {"a value of a deleted key is set", [&] { below.setDword("x", 2); }, false, false},
      {"a key is deleted", [&] { m_key.deleteKey("c"); }, true, true},
      {"the key is deleted",
       [&] {
         JLightRegistryKey root;
         root.open(kRoot, "");
         root.deleteKey(kTestKey);
       },
       true, true},
  };
  const auto pKey = std::make_shared<JFlag>(false);
  const auto pSubTree = std::make_shared<JFlag>(false);
  m_key.notifyChange(pKey, false);
  m_key.notifyChange(pSubTree, true);
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    row.change();
    EXPECT_EQ(pKey->wait(0), row.ofKey);
    EXPECT_EQ(pSubTree->wait(0), row.ofSubTree);
    if (row.ofKey) {
      m_key.notifyChange(pKey, false);
    }
    if (row.ofSubTree) {
      m_key.notifyChange(pSubTree, true);
    }
  }
  EXPECT_NE(thrownBy([&] { m_key.notifyChange(nullptr, true); }), "");
}

TEST_F(LightKey, KeepsAFlagOnceHoweverOftenItIsAskedToSetIt) {
  const auto pFlag = std::make_shared<JFlag>(false);
  for (const bool bSubTree : {false, true, false}) {
    m_key.notifyChange(pFlag, bSubTree);
    EXPECT_EQ(pFlag.use_count(), 2);
  }
  JLightRegistryKey sub;
  sub.create(m_key, "Sub");
  sub.setDword("Value", 1);
  EXPECT_TRUE(pFlag->wait(0));
  EXPECT_EQ(pFlag.use_count(), 1);
}

TEST_F(LightKey, StandsDeepTreesAndLongNames) {
  std::string path;
  for (int i = 0; i < 200'000; ++i) {
    path += "x\\";
  }
  JLightRegistryKey deep;
  EXPECT_TRUE(deep.create(m_key, path));
  m_key.deleteKey("x");
  EXPECT_FALSE(deep.open(m_key, "x", true));

  const std::string longName(100'000, 'n');
  deep.create(m_key, longName);
  deep.setDword(longName, 3);
  EXPECT_EQ(deep.getDword(longName), 3U);
  std::unique_ptr<qm_utils::RegistryKeyRecord[]> pKeys;
  std::size_t uCount = 0;
  m_key.getSubKeys(pKeys, uCount);
  ASSERT_EQ(uCount, 1U);
  EXPECT_EQ(pKeys[0].szName, std::string(255, 'n'));
  EXPECT_EQ(thrownBy([&] { deep.open(m_key, longName + "\\x"); }).size(), 255U);
}

TEST_F(LightKey, IsOpenToManyThreads) {
  JLightRegistryKey shared(m_key);
  std::atomic<int> failures{0};
  const auto work = [&](int iThread) {
    const std::string sOwn = "t" + std::to_string(iThread);
    for (int i = 0; i < 500; ++i) {
      JLightRegistryKey own;
      own.create(shared, sOwn + "\\below");
      own.setDword("n", static_cast<std::uint32_t>(i));
      failures += own.getDword("n") != static_cast<std::uint32_t>(i);
      shared.setString("common", sOwn);
      failures += shared.getString("common").size() != 2;
      JLightRegistryKey other;
      if (other.open(shared, "t" + std::to_string((iThread + 1) % 4) + "\\below", true)) {
        std::uint32_t uValue = 0;
        other.getDword("n", uValue);
      }
      shared.deleteKey(sOwn, true);
    }
  };
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back(work, i);
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(failures, 0);
}

}  // namespace
