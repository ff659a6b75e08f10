#include "coreapi/qmxml/qmxmlparams.h"

#include <clocale>
#include <gmock/gmock.h>

#include "coreapi/qmxml/qmxml.h"
#include "tests/support/logcapture.h"
#include "tests/support/thrownby.h"

namespace {

using qm_test::thrownBy;
using testing::ElementsAre;

class XmlParams : public testing::Test {
 protected:
  XmlParams() {
    EXPECT_EQ(m_params.setConfig("<P><n>12</n><s><n> -5 </n><d>2.5</d><t>true</t><x>yes</x></s>"
                                 "<s><n>99</n></s><e/>text</P>",
                                 false),
              0);
  }

  const QMXmlUse m_use;
  QMXmlParams m_params;
};

TEST_F(XmlParams, ValuesAreFoundByNameAndPath) {
  EXPECT_EQ(m_params.getInt("n"), 12);
  EXPECT_EQ(m_params.getInt("n", "s"), -5);
  EXPECT_EQ(m_params.getLong("n", "s"), -5);
  EXPECT_EQ(m_params.getDouble("d", "s"), 2.5);
  EXPECT_TRUE(m_params.getBool("t", "s"));
  EXPECT_EQ(m_params.getString("x", "s"), "yes");
  EXPECT_EQ(m_params.getString("e"), "");
  EXPECT_EQ(thrownBy([&] { m_params.getInt("none", "s"); }), "XmlParamsError: Param none in SubNode s");
  EXPECT_EQ(thrownBy([&] { m_params.getString("n", "s\\none"); }),
            "XmlParamsError: Param n in SubNode s\\none");
  EXPECT_EQ(thrownBy([] { QMXmlParams().getInt("n"); }), "XmlParamsError: Param n in SubNode ");
  EXPECT_FALSE(m_params.setInt("none", 1));
}

TEST_F(XmlParams, FailedConversionsSayWhy) {
  const qm_test::LogCapture log;
  EXPECT_NE(thrownBy([&] { m_params.getInt("x", "s"); }), "");
  EXPECT_NE(thrownBy([&] { m_params.getLong("x", "s"); }), "");
  EXPECT_NE(thrownBy([&] { m_params.getDouble("x", "s"); }), "");
  EXPECT_NE(thrownBy([&] { m_params.getBool("x", "s"); }), "");
  EXPECT_TRUE(log.has(9, "integerFromNode(): Could not convert content of a Node to integer value (yes)."));
  EXPECT_TRUE(log.has(9, "longFromNode(): Could not convert content of a Node to long value (yes)."));
  EXPECT_TRUE(log.has(9, "doubleFromNode(): Could not convert content of a Node to double value (yes)."));
  EXPECT_TRUE(log.has(9, "boolFromNode(): Could not convert content of a Node to bool value (yes)."));
}

TEST_F(XmlParams, TruthIsAWordOrANumber) {
  const struct {
    const char* text;
    int iValue;  // -1: none
  } kRows[] = {{"true", 1}, {"false", 0}, {"2", 1}, {"-1", 1}, {"0", 0}, {"yes", -1}, {"TRUE", -1}, {"", -1}};
  for (const auto& row : kRows) {
    SCOPED_TRACE(row.text);
    m_params.setString("x", row.text, "s");
    bool bValue = false;
    const bool bRead = thrownBy([&] { bValue = m_params.getBool("x", "s"); }).empty();
    EXPECT_EQ(bRead ? static_cast<int>(bValue) : -1, row.iValue);
  }
}

TEST_F(XmlParams, WrittenValuesReadBackWhateverTheLocale) {
  const char* szLocale = std::setlocale(LC_ALL, "de_DE.UTF-8");
  EXPECT_TRUE(m_params.setDouble("n", 0.1));
  EXPECT_EQ(m_params.getString("n"), "0.1");
  EXPECT_EQ(m_params.getDouble("n"), 0.1);
  EXPECT_TRUE(m_params.setDouble("n", 1e6));
  EXPECT_EQ(m_params.getString("n"), "1e+06");
  std::setlocale(LC_ALL, "C");
  EXPECT_TRUE(m_params.setLong("n", INT64_MIN));
  EXPECT_EQ(m_params.getLong("n"), INT64_MIN);
  EXPECT_TRUE(m_params.setBool("n", false));
  EXPECT_EQ(m_params.getString("n"), "false");
  EXPECT_TRUE(m_params.setString("n", "<a> & \"b\" &lt;"));
  EXPECT_EQ(m_params.getString("n"), "<a> & \"b\" &lt;");
  EXPECT_EQ(m_params.getContent("n"), "&lt;a&gt; &amp; \"b\" &amp;lt;");
  EXPECT_FALSE(m_params.setString("n", "\x01"));
  EXPECT_FALSE(m_params.setString("n", "\xff"));
  EXPECT_FALSE(m_params.setString("n", std::string("a\0b", 3)));
  if (szLocale == nullptr) {
    GTEST_SKIP() << "this machine has no German locale";
  }
}

TEST_F(XmlParams, ChangesAreOnlyWrittenWhenTheyDiffer) {
  EXPECT_FALSE(m_params.changeInt("n", -5, "s"));
  EXPECT_EQ(m_params.getString("n", "s"), " -5 ");
  EXPECT_TRUE(m_params.changeInt("n", -6, "s"));
  EXPECT_FALSE(m_params.changeDouble("d", 2.5, "s"));
  EXPECT_TRUE(m_params.changeDouble("d", 2.75, "s"));
  EXPECT_FALSE(m_params.changeBool("t", true, "s"));
  EXPECT_TRUE(m_params.changeBool("x", true, "s"));
  EXPECT_TRUE(m_params.changeLong("n", 1LL << 40, "s"));
  EXPECT_FALSE(m_params.changeString("x", "true", "s"));
  EXPECT_FALSE(m_params.changeString("none", "true", "s"));
}

TEST_F(XmlParams, NodesAreAddedWithTheirPaths) {
  QMXmlParams params(true, "Root");
  EXPECT_TRUE(params.addTextNode("v", "a\\b", "1 & 2", {{"k", "<"}}));
  EXPECT_TRUE(params.addNode("w", "a\\\\never"));
  EXPECT_EQ(params.getConfig(false),
            "<?xml version=\"1.0\"?>\n<Root><a><b><v k=\"&lt;\">1 &amp; 2</v></b><w/></a></Root>\n");
  for (const char* szName : {"", "a b", "<", "1", "a:b", "\xff"}) {
    EXPECT_FALSE(params.addNode(szName)) << szName;
    EXPECT_FALSE(params.addTextNode("v", std::string("a\\") + szName + "\\b", "\x02")) << szName;
  }
  EXPECT_THAT(params.getChildNames("a"), ElementsAre("b", "w"));
  EXPECT_THAT(m_params.getChildNames(""), ElementsAre("n", "s", "s", "e"));
  EXPECT_THAT(m_params.getChildNames("", QMXmlParams::kTextNode), ElementsAre("text"));
  EXPECT_TRUE(m_params.isLeaf("e"));
  EXPECT_TRUE(m_params.isLeaf("n"));
  EXPECT_FALSE(m_params.isLeaf("s"));
  EXPECT_FALSE(m_params.isLeaf("none"));
}

TEST_F(XmlParams, DynamicIsAnAttribute) {
  EXPECT_FALSE(m_params.isDynamic("n", "s"));
  EXPECT_TRUE(m_params.setDynamic("n", "s", true));
  EXPECT_TRUE(m_params.setDynamic("n", "s", true));
  EXPECT_TRUE(m_params.isDynamic("n", "s"));
  EXPECT_TRUE(m_params.setDynamic("n", "s", false));
  EXPECT_FALSE(m_params.isDynamic("n", "s"));
  EXPECT_FALSE(m_params.setDynamic("none", "s", true));
}

TEST_F(XmlParams, PartsOfTheDocumentAreTexts) {
  const qm_test::LogCapture log;
  EXPECT_EQ(m_params.getConfig(std::string("n")), "<n>12</n>");
  EXPECT_EQ(m_params.getContent("s"), "<n> -5 </n><d>2.5</d><t>true</t><x>yes</x>");
  EXPECT_EQ(m_params.getContent("none"), "");
  EXPECT_TRUE(log.has(9, "getContent(): No content node"));
  QMXmlParams empty;
  EXPECT_EQ(empty.getConfig(true), "");
  EXPECT_TRUE(log.has(9, "getConfig(): No XML Doc currently created"));
  EXPECT_EQ(thrownBy([&] { empty.getConfig(std::string("n")); }),
            "XmlParamsError: Param PARAMETERS in SubNode n");
  EXPECT_EQ(m_params.getRootName(), "P");
  EXPECT_EQ(empty.getRootName(), "");
}

TEST_F(XmlParams, CopiesAreTheirOwn) {
  QMXmlParams copy(m_params);
  copy.setInt("n", 7);
  EXPECT_EQ(m_params.getInt("n"), 12);
  m_params = copy;
  copy.setInt("n", 8);
  EXPECT_EQ(m_params.getInt("n"), 7);
}

TEST_F(XmlParams, ABadTextLeavesTheConfigurationAndSaysWhy) {
  const qm_test::LogCapture log;
  EXPECT_EQ(m_params.setConfig("<a>", false), -1);
  EXPECT_EQ(m_params.getInt("n"), 12);
  ASSERT_FALSE(log.messages().empty());
  EXPECT_EQ(log.messages()[0].level, 9);
  EXPECT_THAT(log.messages()[0].text,
              testing::StartsWith("read(): Error parsing XML content (Premature end"));
}

}  // namespace
