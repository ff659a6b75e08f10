// XML from outside: the three forms of descriptions, the pull reader with the tree, and the parameter
// document, where it is configuration, schema and what is merged.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "coreapi/qmci/audioinfo.h"
#include "coreapi/qmci/datainfo.h"
#include "coreapi/qmci/videoinfo.h"
#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmxml/qmxml.h"
#include "coreapi/qmxml/qmxmlparams.h"
#include "coreapi/qmxml/qmxmlreader.h"
#include "coreapi/qmxml/qmxmltree.h"

namespace {

/// Runs a step; the errors that texts cause are no findings.
template <typename Step>
void attempt(Step step) {
  try {
    step();
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
  }
}

template <class Info, class Update>
void describe(const std::string& sText, Update update) {
  static Info info;  // making the schema for each run would take most of the time
  static Info again;
  again = Info();  // a form may leave a field as it was
  if ((info.*update)(sText.data(), sText.size())) {
    const std::string sXML = info.getXML();
    // Numbers that a form may not have, but a record may, are refused on the way back; the texts are not.
    if ((again.*update)(sXML.data(), sXML.size()) && again.getXML() != sXML) {
      std::abort();
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const QMXmlUse s_use;
  const std::string sText(reinterpret_cast<const char*>(data), size);
  attempt([&] {
    describe<qm_ci::QMVideoInfo>(sText, &qm_ci::QMVideoInfo::updateVideoInfoFromXMLDesc);
    describe<qm_ci::QMAudioInfo>(sText, &qm_ci::QMAudioInfo::updateAudioInfoFromXMLDesc);
    describe<qm_ci::QMDataInfo>(sText, &qm_ci::QMDataInfo::updateDataInfoFromXMLDesc);
  });
  attempt([&] {
    QMXmlReader reader(sText.data(), sText.size());
    while (reader.next()) {
      QMXmlTree tree;
      if (reader.getNodeType() != QMXmlReader::ElementEnd) {
        tree.parse(&reader);
      }
      std::int32_t iValue = 0;
      tree.getInteger("a\\b", iValue);
    }
  });
  attempt([&] {
    QMXmlParams params;
    params.setConfig(sText, false);
    params.mergeFromXMLContent(sText);
    params.mergeFromXMLContent(sText, true);
    params.setSchema(sText);
    params.validateParams();
    params.getConfig(true);
  });
  return 0;
}
