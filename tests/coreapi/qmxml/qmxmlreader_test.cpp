#include "coreapi/qmxml/qmxmlreader.h"

#include <gmock/gmock.h>

#include "coreapi/qmxml/qmxml.h"
#include "coreapi/qmxml/qmxmltree.h"
#include "tests/support/logcapture.h"
#include "tests/support/thrownby.h"

namespace {

using qm_test::thrownBy;
using testing::ElementsAre;
using testing::Pair;
using testing::StartsWith;

/// The steps over a document: "<a" an element's start, ">a" its end, all else a text.
std::vector<std::string> stepsOf(const std::string& sText) {
  std::vector<std::string> steps;
  QMXmlReader reader(sText.data(), sText.size());
  while (reader.next()) {
    switch (reader.getNodeType()) {
      case QMXmlReader::ElementBegin:
        steps.push_back("<" + reader.getElementName());
        break;
      case QMXmlReader::ElementEnd:
        steps.push_back(">" + reader.getElementName());
        break;
      case QMXmlReader::Text:
        steps.push_back(reader.getText());
        break;
    }
  }
  return steps;
}

class XmlReader : public testing::Test {
 protected:
  QMXmlTree treeOf(const std::string& sText) {
    QMXmlReader reader(sText.data(), sText.size());
    EXPECT_TRUE(reader.next());
    QMXmlTree tree;
    tree.parse(&reader);
    return tree;
  }

  const QMXmlUse m_use;
};

TEST_F(XmlReader, GivesStartsEndsAndTexts) {
  EXPECT_THAT(stepsOf("<a/>"), ElementsAre("<a", ">a"));
  EXPECT_THAT(stepsOf("<?xml version='1.0'?><!-- c --><a>\n <b x='1'/> <c>1 &lt; 2</c>\n</a>"),
              ElementsAre("<a", "<b", ">b", "<c", "1 < 2", ">c", ">a"));
  EXPECT_THAT(stepsOf("<a><![CDATA[<raw>]]></a>"), ElementsAre("<a", "<raw>", ">a"));
  EXPECT_THAT(stepsOf("<!DOCTYPE a [<!ENTITY e 'in'>]><a>&e;</a>"), ElementsAre("<a", "in", ">a"));
}

TEST_F(XmlReader, FindsElementsForwardsAndGivesTheirAttributes) {
  const std::string sText = "<a><b/><c x='1' y='&amp;'/><b z='2'/></a>";
  QMXmlReader reader(sText.data(), sText.size());
  std::map<std::string, std::string> attributes = {{"old", ""}};
  ASSERT_TRUE(reader.findElement("c"));
  reader.getAttributes(attributes);
  EXPECT_THAT(attributes, ElementsAre(Pair("x", "1"), Pair("y", "&")));
  EXPECT_EQ(reader.getElementName(), "c");
  ASSERT_TRUE(reader.findElement("b"));
  reader.getAttributes(attributes);
  EXPECT_THAT(attributes, ElementsAre(Pair("z", "2")));
  EXPECT_FALSE(reader.findElement("b"));
  reader.close();
  EXPECT_FALSE(reader.next());
}

TEST_F(XmlReader, DamageIsAnErrorOrAnEarlyEnd) {
  EXPECT_THAT(thrownBy([] { stepsOf(""); }), StartsWith("xmlTextReaderRead() failed ("));
  EXPECT_THAT(thrownBy([] { QMXmlReader reader("/no/such/file.xml"); }),
              StartsWith("xmlReaderForFile(/no/such/file.xml) failed ("));
  EXPECT_THAT(thrownBy([this] { treeOf("<a><b>text</b>"); }), StartsWith("xmlTextReaderRead() failed ("));
}

TEST_F(XmlReader, ExpandingEntitiesAndDeepNestingAreBounded) {
  std::string sLaughs = "<!DOCTYPE a [<!ENTITY e0 'ha'>";
  for (int i = 1; i < 30; ++i) {
    const std::string sBefore = "&e" + std::to_string(i - 1) + ";";
    sLaughs += "<!ENTITY e" + std::to_string(i) + " '" + sBefore + sBefore + sBefore + "'>";
  }
  EXPECT_NE(thrownBy([&] { treeOf(sLaughs + "]><a>&e29;</a>"); }), "");
  std::string sDeep;
  for (int i = 0; i < 60000; ++i) {
    sDeep += "<a>";
  }
  EXPECT_NE(thrownBy([&] { treeOf(sDeep); }), "");
}

TEST_F(XmlReader, MisuseIsLoggedAndHarmless) {
  const qm_test::LogCapture log;
  QMXmlReader reader("<a>t</a>", 8);
  EXPECT_EQ(reader.getNodeType(), QMXmlReader::ElementEnd);
  ASSERT_TRUE(reader.next());
  EXPECT_EQ(reader.getText(), "");
  ASSERT_TRUE(reader.next());
  EXPECT_EQ(reader.getElementName(), "");
  ASSERT_TRUE(reader.next());
  QMXmlTree tree;
  tree.parse(&reader);
  tree.parse(nullptr);
  EXPECT_EQ(tree.getKind(), QMXmlTree::kNoKind);
  const char* kTexts[] = {
      "Unknown node type in QMXmlReader::getNodeType()",
      "QMXmlReader::getText() can only be called on a node of type Text",
      "QMXmlReader::getElementName() can only be called on an node of type ElementBegin or ElementEnd",
      "QMXmlTree::parse(NULL) has been called on a closing element tag",
      "QMXmlTree::parse(NULL) has been called\""};
  const auto messages = log.messages();
  ASSERT_EQ(messages.size(), std::size(kTexts));
  for (std::size_t i = 0; i < messages.size(); ++i) {
    EXPECT_EQ(messages[i].level, 12);
    EXPECT_THAT(messages[i].text, testing::HasSubstr(kTexts[i]));
  }
}

TEST_F(XmlReader, TreeFindsNodesByPath) {
  const QMXmlTree tree = treeOf("<r k='v'>own<a><b>1</b><b>2</b></a><e/></r>");
  EXPECT_EQ(tree.get("").getValue(), "r");
  EXPECT_EQ(tree.getRawString(), "own");
  EXPECT_EQ(tree.getRawString("a\\b"), "1");
  EXPECT_EQ(tree.get("r\\a\\b", true).getRawString(), "1");
  EXPECT_EQ(tree.get("a").getChildren().size(), 2U);
  EXPECT_TRUE(tree.has("e"));
  EXPECT_FALSE(tree.has("a\\c"));
  EXPECT_TRUE(tree.hasAttribute("k"));
  EXPECT_EQ(tree.getAttribute("k"), "v");
  EXPECT_EQ(tree.getAttribute("none"), "");
  EXPECT_EQ(thrownBy([&] { tree.get("a\\c\\d"); }), "Cannot find the element named c");
  EXPECT_EQ(thrownBy([&] { tree.get("a", true); }), "Cannot find the element named a");
  EXPECT_EQ(thrownBy([] { QMXmlTree().get(""); }), "Cannot find the element named ");
  EXPECT_EQ(thrownBy([&] { tree.getRawString("e"); }),
            "QMXmlTree::getRawString() failed: element e has no text content\n");
  QMXmlTree emptied = treeOf("<r/>");
  emptied.clear();
  EXPECT_FALSE(emptied.has(""));
}

TEST_F(XmlReader, TreeConvertsTexts) {
  const struct {
    const char* name;
    const char* text;
    std::int64_t integer, qword, number;  // -99: none
  } kRows[] = {
      {"Plain", "12", 12, 12, 12},
      {"Blanks", " \n-7\t", -7, -7, -99},
      {"Plus", "+8", 8, 8, 8},
      {"Hexadecimal", "0x1F", 31, -99, -99},
      {"Octal", "017", 15, 17, 17},
      {"Zero", "0", 0, 0, 0},
      {"Largest", "2147483647", 2147483647, 2147483647, 2147483647},
      {"Smallest", "-2147483648", -2147483648LL, -2147483648LL, -99},
      {"Unsigned", "4294967295", -99, 4294967295LL, 4294967295LL},
      {"Qword", "-9223372036854775807", -99, -9223372036854775807LL, -99},
      {"TooLarge", "18446744073709551616", -99, -99, -99},
      {"Junk", "12a", -99, -99, -99},
      {"Signs", "+-1", -99, -99, -99},
      {"Empty", " ", -99, -99, -99},
  };
  for (const auto& row : kRows) {
    SCOPED_TRACE(row.name);
    const QMXmlTree tree = treeOf("<r><v>" + std::string(row.text) + "</v>.</r>");
    std::int32_t iValue = -99;
    std::int64_t llValue = -99;
    std::uint32_t uValue = 0;
    tree.getInteger("v", iValue);
    tree.getSignedQword("v", llValue);
    EXPECT_EQ(iValue, row.integer);
    EXPECT_EQ(llValue, row.qword);
    EXPECT_EQ(tree.getUnsigned("v", uValue) ? std::int64_t{uValue} : -99, row.number);
  }
  const QMXmlTree tree = treeOf("<r><d> 2.5e1 </d><t>true</t><y>yes</y></r>");
  EXPECT_EQ(tree.getDouble("d"), 25.0);
  EXPECT_TRUE(tree.getBool("t"));
  EXPECT_EQ(thrownBy([&] { tree.getInteger("y"); }), "Cannot convert the string yes to an integer");
  EXPECT_EQ(thrownBy([&] { tree.getSignedQword("y"); }), "Cannot convert the string yes to a signed qword");
  EXPECT_EQ(thrownBy([&] { tree.getUnsigned("y"); }), "Cannot convert the string yes to an unsigned integer");
  EXPECT_EQ(thrownBy([&] { tree.getDouble("y"); }), "Cannot convert the string yes to a double");
  EXPECT_EQ(thrownBy([&] { tree.getBool("y"); }), "Cannot convert the string yes to a boolean");
}

}  // namespace
