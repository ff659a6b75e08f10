#include <gmock/gmock.h>

#include "coreapi/qmxml/qmxml.h"
#include "coreapi/qmxml/qmxmlparams.h"
#include "tests/support/logcapture.h"
#include "tests/support/xmllint.h"

namespace {

using testing::HasSubstr;
using testing::StartsWith;

constexpr const char* kHead =
    "<?xml version=\"1.0\"?>\n<grammar xmlns=\"http://relaxng.org/ns/structure/1.0\" "
    "datatypeLibrary=\"http://www.w3.org/2001/XMLSchema-datatypes\"><start>";

class XmlSchema : public testing::Test {
 protected:
  const QMXmlUse m_use;
};

TEST_F(XmlSchema, OpensWithItsRoot) {
  QMXmlParams element;
  EXPECT_TRUE(element.createSchema());
  EXPECT_EQ(element.getSchema(), std::string(kHead) +
                                     "<element name=\"PARAMETERS\"><zeroOrMore><ref name=\"Sub1\"/>"
                                     "</zeroOrMore></element></start></grammar>\n");
  QMXmlParams reference(false, "VideoInfoParam");
  EXPECT_TRUE(reference.startSchemaCreation());
  EXPECT_TRUE(reference.appendToSchema("<define name=\"VideoInfoParam\"><text/></define>"));
  EXPECT_FALSE(reference.isSchemaComplete());
  EXPECT_TRUE(reference.endSchemaCreation());
  EXPECT_TRUE(reference.isSchemaComplete());
  EXPECT_EQ(reference.getSchema(),
            std::string(kHead) +
                "<ref name=\"VideoInfoParam\"/></start><define name=\"VideoInfoParam\"><text/></define>"
                "</grammar>\n");
}

TEST_F(XmlSchema, BuildingItWrongFails) {
  const qm_test::LogCapture log;
  QMXmlParams params;
  EXPECT_FALSE(params.appendToSchema("<a/>"));
  EXPECT_FALSE(params.endSchemaCreation());
  EXPECT_EQ(params.getSchema(), "");
  EXPECT_TRUE(log.has(9, "getSchema(): No XML Schema Doc currently created"));
  EXPECT_TRUE(params.startSchemaCreation());
  EXPECT_TRUE(params.appendToSchema("<open>"));
  EXPECT_FALSE(params.endSchemaCreation());
  EXPECT_THAT(log.messages().back().text,
              StartsWith("endSchemaCreation(): Error parsing the given XML Schema ("));
  EXPECT_FALSE(params.isSchemaComplete());
  EXPECT_FALSE(params.declareInt("a b"));
}

TEST_F(XmlSchema, IntegerTypesFollowTheirBounds) {
  const struct {
    const char* name;
    QMXmlParams::Bounds bounds;
    int low, high;
    const char* data;
  } kRows[] = {
      {"None", QMXmlParams::kNoBounds, 5, 6, "<data type=\"integer\"/>"},
      {"LowerNegative", QMXmlParams::kLowerBound, -5, 6,
       "<data type=\"integer\"><param name=\"minInclusive\">-5</param></data>"},
      {"LowerZero", QMXmlParams::kLowerBound, 0, 6, "<data type=\"nonNegativeInteger\"/>"},
      {"LowerOne", QMXmlParams::kLowerBound, 1, 6, "<data type=\"positiveInteger\"/>"},
      {"LowerFive", QMXmlParams::kLowerBound, 5, 6,
       "<data type=\"positiveInteger\"><param name=\"minInclusive\">5</param></data>"},
      {"Upper", QMXmlParams::kUpperBound, 5, 6,
       "<data type=\"integer\"><param name=\"maxInclusive\">6</param></data>"},
      {"Both", QMXmlParams::kBothBounds, 2, 6,
       "<data type=\"positiveInteger\"><param name=\"minInclusive\">2</param><param "
       "name=\"maxInclusive\">6</param></data>"},
  };
  for (const auto& row : kRows) {
    SCOPED_TRACE(row.name);
    QMXmlParams params;
    EXPECT_TRUE(params.declareInt("p", "", row.bounds, row.low, row.high));
    EXPECT_THAT(params.getSchema(),
                HasSubstr("<define name=\"Sub1\" combine=\"interleave\"><optional><optional><element "
                          "name=\"p\"><optional><attribute name=\"dynamic\"/></optional>" +
                          std::string(row.data) + "</element></optional></optional></define>"));
  }
}

TEST_F(XmlSchema, StringsMayHaveAList) {
  QMXmlParams params;
  EXPECT_TRUE(params.declareString("p", "", "one;two & more", false));
  EXPECT_TRUE(params.declareString("q", "", "", false));
  EXPECT_TRUE(params.declareBool("b", "", false));
  EXPECT_TRUE(params.declareLong("l", "", QMXmlParams::kLowerBound, -(1LL << 40), 0, false));
  EXPECT_TRUE(params.declareDouble("d", "", QMXmlParams::kBothBounds, 0.5, 1.5, false));
  for (const char* szPart :
       {"<element name=\"p\"><choice><value>one</value><value>two &amp; more</value></choice></element>",
        "<element name=\"q\"><data type=\"string\"/></element>", "<data type=\"boolean\"/>",
        "<data type=\"long\"><param name=\"minInclusive\">-1099511627776</param></data>",
        "<data type=\"double\"><param name=\"minInclusive\">0.5</param><param "
        "name=\"maxInclusive\">1.5</param></data>"}) {
    EXPECT_THAT(params.getSchema(), HasSubstr(szPart));
  }
}

TEST_F(XmlSchema, ASubNodeIsDeclaredOnce) {
  QMXmlParams params;
  params.declareInt("one", "Net");
  params.declareInt("two", "Net");
  const std::string sSchema = params.getSchema();
  const std::string sSubNode =
      "<define name=\"Sub1\" combine=\"interleave\"><optional><element name=\"Net\"><oneOrMore><ref "
      "name=\"ParamNet\"/></oneOrMore></element></optional></define>";
  EXPECT_NE(sSchema.find(sSubNode), std::string::npos);
  EXPECT_EQ(sSchema.find(sSubNode), sSchema.rfind(sSubNode));
}

TEST_F(XmlSchema, ValidatesAsTheLibrarysOwnProgramDoes) {
  QMXmlParams params;
  params.declareInt("count", "", QMXmlParams::kBothBounds, 0, 10);
  params.declareString("mode", "", "fast;slow");
  params.declareInt("port", "Net", QMXmlParams::kBothBounds, 1, 65535);
  params.declareBool("on", "Net");
  params.declareDouble("rate");
  const std::string sSchema = params.getSchema();
  ASSERT_TRUE(qm_test::isRelaxNg(sSchema));
  const struct {
    const char* name;
    const char* content;
  } kRows[] = {
      {"empty", ""},
      {"one", "<count>10</count>"},
      {"dynamic", "<count dynamic=\"true\">0</count>"},
      {"other attribute", "<count other=\"true\">0</count>"},
      {"any order", "<rate>1.5</rate><mode>slow</mode><Net><on>true</on><port>80</port></Net>"},
      {"over the bound", "<count>11</count>"},
      {"below the bound", "<Net><port>0</port></Net>"},
      {"not in the list", "<mode>medium</mode>"},
      {"no number", "<rate>fast</rate>"},
      {"unknown", "<none/>"},
      {"in the wrong node", "<port>80</port>"},
      {"empty sub-node", "<Net/>"},
  };
  for (const auto& row : kRows) {
    SCOPED_TRACE(row.name);
    const std::string sDocument = "<PARAMETERS>" + std::string(row.content) + "</PARAMETERS>";
    const bool bValid = qm_test::validUnderRelaxNg(sDocument, sSchema);
    const qm_test::LogCapture log;
    EXPECT_EQ(params.setConfig(sDocument, true), bValid ? 0 : -2);
    EXPECT_EQ(log.messages().empty(), bValid);
    if (!bValid) {
      EXPECT_THAT(log.messages()[0].text, StartsWith("validate(): Validation error #"));
    }
  }
}

TEST_F(XmlSchema, SettingItTellsWhatIsWrong) {
  constexpr const char* kEmpty =
      "<element name=\"a\" xmlns=\"http://relaxng.org/ns/structure/1.0\"><empty/></element>";
  QMXmlParams params;
  EXPECT_EQ(params.setConfig("<anything/>", true), 0) << "without a schema all is valid";
  EXPECT_EQ(params.setSchema("<a"), -1);
  EXPECT_EQ(params.setSchema("<a/>"), -2);
  EXPECT_EQ(params.getSchema(), "");
  EXPECT_EQ(params.setSchema(kEmpty), -3);
  EXPECT_EQ(params.setConfig("<a/>", true), 0);
  EXPECT_EQ(params.setSchema(kEmpty), 0);
  EXPECT_TRUE(params.validateParams());
}

TEST_F(XmlSchema, ValidatingDropsWhatIsNotValid) {
  const qm_test::LogCapture log;
  QMXmlParams params;
  EXPECT_FALSE(params.validateParams());
  EXPECT_TRUE(log.has(9, "validateParams(): No doc to validate!)"));
  params.setConfig("<P/>", false);
  EXPECT_FALSE(params.validateParams());
  EXPECT_TRUE(log.has(9, "validateParams(): No schema to validate against!)"));
  params.declareInt("a");
  EXPECT_FALSE(params.validateParams());
  EXPECT_EQ(params.getRootName(), "");
}

}  // namespace
