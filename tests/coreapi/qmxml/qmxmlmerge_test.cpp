#include <gmock/gmock.h>

#include "coreapi/qmxml/qmxml.h"
#include "coreapi/qmxml/qmxmlparams.h"
#include "tests/support/logcapture.h"
#include "tests/support/tempdir.h"

namespace {

constexpr const char* kConfig =
    "<P><a>1</a><d dynamic=\"true\">1</d><s><x>1</x><y dynamic=\"true\">1</y></s>"
    "<f dynamic=\"true\"><x>1</x></f><l>1</l><l>2</l><t><u><v>1</v></u></t></P>";

struct MergeCase {
  const char* name;
  const char* document;
  bool bAllLevels;
  int iResult;
  const char* changed;  ///< a piece of the configuration afterwards
};

TEST(XmlMerge, TakesValuesOver) {
  const MergeCase rows[] = {
      {"Nothing", "<P/>", false, 1, "<a>1</a>"},
      {"SameValue", "<P><a>1</a></P>", false, 1, "<a>1</a>"},
      {"PlainValue", "<P><a>2</a></P>", false, 0, "<a>2</a>"},
      {"DynamicValueStaysDynamic", "<P><d>2</d></P>", false, 1, "<d dynamic=\"true\">2</d>"},
      {"PlainAfterDynamic", "<P><a>2</a><d>2</d></P>", false, 0, "<a>2</a><d dynamic=\"true\">2"},
      {"SubNodePlain", "<P><s><x>2</x></s></P>", false, 0, "<s><x>2</x>"},
      {"SubNodeDynamic", "<P><s><y>2</y></s></P>", false, 1, "<y dynamic=\"true\">2</y>"},
      {"UnderADynamicNode", "<P><f><x>2</x></f></P>", false, 1, "<x>2</x></f>"},
      {"ListInOrder", "<P><l>3</l><l>4</l></P>", false, 0, "<l>3</l><l>4</l>"},
      {"ListTooLong", "<P><l>3</l><l>4</l><l>5</l></P>", false, -3, ""},
      {"OutOfOrder", "<P><d>2</d><a>2</a></P>", false, -3, ""},
      {"Missing", "<P><a>2</a><none>1</none></P>", false, -3, ""},
      {"MissingInSubNode", "<P><a>2</a><s><none/></s></P>", false, -3, ""},
      {"BelowTwoLevelsWhole", "<P><t><u><w>1</w></u></t></P>", false, 1, "<u><w>1</w></u>"},
      {"AllLevels", "<P><t><u><v>2</v></u></t></P>", true, 0, "<v>2</v>"},
      {"AllLevelsMissing", "<P><t><u><w>1</w></u></t></P>", true, -3, ""},
      {"NoXml", "<P>", false, -1, ""}};
  for (const MergeCase& row : rows) {
    SCOPED_TRACE(row.name);
    const QMXmlUse use;
    QMXmlParams params;
    ASSERT_EQ(params.setConfig(kConfig, false), 0);
    const std::string sBefore = params.getConfig(false);
    EXPECT_EQ(params.mergeFromXMLContent(row.document, row.bAllLevels), row.iResult);
    EXPECT_THAT(params.getConfig(false), testing::HasSubstr(row.changed));
    if (row.iResult < 0) {
      EXPECT_EQ(params.getConfig(false), sBefore);
    }
  }
}

TEST(XmlMerge, FirstDocumentBecomesTheConfiguration) {
  const QMXmlUse use;
  const qm_test::TempDir dir;
  const qm_test::LogCapture log;
  QMXmlParams params;
  params.declareInt("a", "", QMXmlParams::kLowerBound, 1);
  EXPECT_EQ(params.mergeFromXMLContent("<PARAMETERS><a>0</a></PARAMETERS>"), -2);
  EXPECT_EQ(params.mergeFromXMLFile(dir.path("none").c_str()), -1);
  EXPECT_EQ(params.mergeFromXMLFile(dir.write("p.xml", "<PARAMETERS><a>3</a></PARAMETERS>").c_str()), 0);
  EXPECT_EQ(params.getInt("a"), 3);
  params.declareInt("b");
  EXPECT_EQ(params.mergeFromXMLFile(dir.write("q.xml", "<PARAMETERS><b>3</b></PARAMETERS>").c_str()), -3);
  EXPECT_TRUE(log.has(9, "mergeNodes(): Source document has no element Node named b under Node PARAMETERS."));
  EXPECT_TRUE(log.has(9, "mergeFromXMLFile(): Merge failed!"));
}

}  // namespace
