#include "coreapi/qmutils/registry/jregistrytext.h"
#include "coreapi/qmutils/socket/jfilesocket.h"
#include "tests/coreapi/qmutils/registry/registry_test_support.h"
#include "tests/support/tempdir.h"

namespace {

using qm_test::thrownBy;
using qm_utils::lightRegistryTree;

const std::string kTop = "HKEY_LOCAL_MACHINE\\SOFTWARE\\RegistryTest";

/// Texts go through files here; any other stream is read and written in the same way.
class RegistryText : public qm_test::RegistryTest {
 protected:
  void importText(const std::string& sText, const char* szPrefix = nullptr) const {
    JFileSocket file(m_directory.write("in.reg", sText), JFileSocket::kRead, true);
    importRegistry(lightRegistryTree(), file, szPrefix);
  }

  std::string exported(const std::string& sPath = kTop) const {
    JFileSocket file(m_directory.path("out.reg"), JFileSocket::kWrite, true);
    exportRegistry(lightRegistryTree(), file, sPath);
    return qm_test::readFile(m_directory.path("out.reg"));
  }

  const qm_test::TempDir m_directory;
};

struct TextRow {
  const char* name;
  std::string sText;    ///< "@" stands for the path of the test's key
  std::string sError;   ///< as in `thrownBy`
  std::string sValues;  ///< the values in the text that is written afterwards
};

std::string withPath(std::string sText) {
  for (std::size_t i = 0; (i = sText.find('@', i)) != std::string::npos;) {
    sText.replace(i, 1, kTop);
  }
  return sText;
}

class RegistryTextRows : public RegistryText, public testing::WithParamInterface<TextRow> {};

TEST_P(RegistryTextRows, AreReadAsFarAsTheyAreWhole) {
  const TextRow& row = GetParam();
  JLightRegistryKey().create(kRoot, kTestKey);
  EXPECT_EQ(thrownBy([&] { importText(withPath(row.sText)); }), withPath(row.sError));
  EXPECT_EQ(exported(), withPath("REGEDIT4\n\n[@]\n" + row.sValues + "\n"));
}

constexpr const char* kNoError = "";

INSTANTIATE_TEST_SUITE_P(
    Registry, RegistryTextRows,
    testing::Values(
        TextRow{"HttpBody", "HTTP/1.1 200 OK\r\nx=y\r\n[\r\n\r\nREGEDIT4\r\n[@]\r\nx=dword:1\r\n", kNoError,
                "\"x\"=dword:00000001\n"},
        TextRow{"HttpInALaterLine", "\nHTTP/1.1 200 OK\n[@]\nx=dword:1", kNoError, "\"x\"=dword:00000001\n"},
        TextRow{"SkippedLines", "REGEDIT4\nanything\n\n;[\n[@]\n;x=y\n\nREGEDIT4\nx=dword:1\n", kNoError,
                "\"x\"=dword:00000001\n"},
        TextRow{"Names", "[@]\nx=dword:ff\n\"y\" \t=dword:FF\n\"a=b\"=dword:0x1\n=\"\"\n", kNoError,
                "\"\"=\"\"\n\"a=b\"=dword:00000001\n\"x\"=dword:000000ff\n\"y\"=dword:000000ff\n"},
        TextRow{"Texts", "[@]\na=\"q\"r\"\nb=\"open\nc=\"\nd=\"\"\"\ne=\"\\n\\\\ \"\n", kNoError,
                "\"a\"=\"q\"r\"\n\"b\"=\"open\"\n\"c\"=\"\"\n\"d\"=\"\"\"\n\"e\"=\"\\n\\\\ \"\n"},
        TextRow{"Bytes", "[@]\na=hex:7\nb=hex:\nc=hex:00, FF ,0x1f\n", kNoError,
                "\"a\"=hex:07\n\"b\"=hex:\n\"c\"=hex:00,ff,1f\n"},
        TextRow{"Numbers", "[@]\na=dword:ffffffff\nb=dword: 10 of them\n", kNoError,
                "\"a\"=dword:ffffffff\n\"b\"=dword:00000010\n"},
        TextRow{"LaterValueWins", "[@]\na=dword:1\n[@]\na=\"b\"\n", kNoError, "\"a\"=\"b\"\n"},
        TextRow{"NoBracket", "[@]\na=dword:1\n[@\nb=dword:2\n", "missing ] at [@", "\"a\"=dword:00000001\n"},
        TextRow{"UnknownRoot", "[HKEY_LOCAL\\x]\n", "unknown root key in HKEY_LOCAL\\x", ""},
        TextRow{"LongerThanARoot", "[HKEY_LOCAL_MACHINES]\n", "unknown root key in HKEY_LOCAL_MACHINES", ""},
        TextRow{"OtherRoot", "[HKEY_USERS\\x]\n", "Light key only support HKEY_LOCAL_MACHINE", ""},
        TextRow{"NoQuote", "[@]\na=dword:1\n\"b=dword:2\n", "missing quote for \"b=dword:2\n",
                "\"a\"=dword:00000001\n"},
        TextRow{"NoEquals", "[@]\n\"a\" b=dword:1\n", "missing = for \"a\" b=dword:1\n", ""},
        TextRow{"NoEqualsPlain", "[@]\nab\n", "missing = for ab\n", ""},
        TextRow{"UnknownFormat", "[@]\na=1\n", "unknown key format at a=1\n", ""},
        TextRow{"BlankBeforeTheFormat", "[@]\na= dword:1\n", "unknown key format at a= dword:1\n", ""},
        TextRow{"NoNumber", "[@]\na=dword:g\n", "unknown key format at a=dword:g\n", ""},
        TextRow{"BytesForANumber", "[@]\na=dword:hex:07\n", "unknown key format at a=dword:hex:07\n", ""},
        TextRow{"NumberTooLarge", "[@]\na=dword:100000000\n", "unknown key format at a=dword:100000000\n",
                ""},
        TextRow{"NoByte", "[@]\na=hex:1,100\n", "unknown key format at a=hex:1,100\n", ""},
        TextRow{"NoByteBehindAComma", "[@]\na=hex:1,\n", "unknown key format at a=hex:1,\n", ""}),
    [](const auto& row) { return std::string(row.param.name); });

TEST_F(RegistryText, PrefixTakesThePlaceOfTheFirstKeysPath) {
  const std::string sText = "[HKEY_USERS\\a]\nx=dword:1\n[HKEY_USERS\\a\\b]\ny=dword:2\n[HKEY_USERS\\c]\n";
  EXPECT_EQ(thrownBy([&] { importText(sText, kTop.c_str()); }), "bad prefix in HKEY_USERS\\c");
  EXPECT_EQ(exported("\\\\" + kTop), "REGEDIT4\n\n[" + kTop + "]\n\"x\"=dword:00000001\n\n[" + kTop +
                                         "\\b]\n\"y\"=dword:00000002\n\n");
}

TEST_F(RegistryText, DepthHasALimit) {
  std::string sPath = kTop;
  for (std::size_t i = 2; i < qm_utils::kRegistryDepthLimit; ++i) {
    sPath += "\\d";
  }
  EXPECT_EQ(thrownBy([&] { importText("[" + sPath + "]\n"); }), kNoError);
  EXPECT_NE(exported().find("[" + sPath + "]\n"), std::string::npos);
  EXPECT_NE(thrownBy([&] { importText("[" + sPath + "\\e]\n"); }), kNoError);
}

TEST_F(RegistryText, WritesEachTypeThatItHas) {
  JLightRegistryKey key;
  key.create(kRoot, kTestKey);
  key.setValue("e", qm_utils::kRegExpandSz, "%x%", 4);
  key.setValue("m", qm_utils::kRegMultiSz, "one\0two\0\0", 9);
  key.setValue("n", qm_utils::kRegMultiSz, "", 1);
  key.setValue("s", qm_utils::kRegSz, "no end", 6);
  EXPECT_EQ(exported(),
            "REGEDIT4\n\n[" + kTop + "]\n\"e\"=\"%x%\"\n\"m\"=\"one\",\"two\"\n\"n\"=\n\"s\"=\"no end\"\n\n");
  EXPECT_EQ(thrownBy([&] { exported("HKEY_LOCAL\\x"); }), "unknown root key");
  EXPECT_EQ(thrownBy([&] { exported("\\"); }), "unknown root key");
  key.setQword("q", 1);
  EXPECT_EQ(thrownBy([&] { exported(); }), "Unknown REG_TYPE.\n");
}

TEST_F(RegistryText, CopiesBranches) {
  const std::string sKey = kTestKey;
  const auto copy = [&](const char* szTo, const char* szFrom, bool bMerge) {
    return copyKey(lightRegistryTree(), kRoot, sKey + szTo, kRoot, sKey + szFrom, bMerge, true);
  };
  importText(
      withPath("[@\\a\\b]\nx=hex:1\n[@\\c]\ny=\"stays with a merge\"\nx=\"is replaced\"\n[@\\c\\d]\n"));
  EXPECT_TRUE(copy("\\c", "\\a\\b", true));
  EXPECT_FALSE(copy("\\c", "\\none", false));
  const std::string sMerged =
      withPath("REGEDIT4\n\n[@\\c]\n\"x\"=hex:01\n\"y\"=\"stays with a merge\"\n\n[@\\c\\d]\n\n");
  EXPECT_EQ(exported(kTop + "\\c"), sMerged);
  EXPECT_TRUE(copy("\\c", "\\a\\b", false));
  EXPECT_EQ(exported(kTop + "\\c"), withPath("REGEDIT4\n\n[@\\c]\n\"x\"=hex:01\n\n"));
  EXPECT_TRUE(copy("\\a\\b\\a", "\\a", false));     // into itself
  EXPECT_TRUE(copy("\\a", "\\a\\b\\a\\b", false));  // out of itself
  EXPECT_EQ(exported(kTop + "\\a"), withPath("REGEDIT4\n\n[@\\a]\n\"x\"=hex:01\n\n"));
}

}  // namespace
