#include "coreapi/qmci/descriptionreader.h"

#include <charconv>

#include "coreapi/qmutils/error/jerror.h"

namespace qm_ci {

namespace {

constexpr int kMajorVersion = 1;
constexpr int kMinorVersion = 0;

/// Name of a form's root in the schema.
std::string definitionOf(const InfoLayout& layout) {
  return std::string(layout.szElement) + "Param";
}

int toInt(std::string_view text) noexcept {
  int iValue = 0;
  std::from_chars(text.data(), text.data() + text.size(), iValue);
  return iValue;
}

void warn(const std::string& sText) noexcept {
  qm_err::logText(qm_err::kLogWarning, sText.c_str());
}

}  // namespace

DescriptionSchema::DescriptionSchema(const InfoLayout& layout)
    : m_params(false, definitionOf(layout).c_str()) {
  m_params.startSchemaCreation();
  m_params.appendToSchema(
      "<define name=\"anyElement\"><element><anyName/><zeroOrMore><choice><attribute><anyName/></attribute>"
      "<text/><ref name=\"anyElement\"/></choice></zeroOrMore></element></define>");
  m_params.endSchemaCreation();
  _xmlNode* pDefinition = m_params.addSchemaDefinition(definitionOf(layout));
  m_pElement = QMXmlParams::addSchemaGroup(layout.szElement, pDefinition, false);
  QMXmlParams::addSchemaAttribute("version", m_pElement);
  m_pParent = m_pElement;
}

void DescriptionSchema::add(const char* szName, QMXmlParams::Type eType, bool bOptional, const char* szLow,
                            const char* szHigh) {
  QMXmlParams::addSchemaElement(szName, m_pParent, eType, bOptional, false, szLow, szHigh);
}

void DescriptionSchema::beginGroup(const char* szName, bool bOptional) {
  m_pParent = QMXmlParams::addSchemaGroup(szName, m_pElement, bOptional);
}

std::string DescriptionSchema::finish() {
  QMXmlParams::addSchemaReferences("anyElement",
                                   QMXmlParams::addSchemaGroup("StreamParams", m_pElement, true));
  return m_params.getSchema();
}

DescriptionReader::DescriptionReader(const InfoLayout& layout, std::unique_ptr<QMXmlParams>& pSchema,
                                     const std::string& sSchema)
    : m_layout(layout) {
  if (!pSchema) {
    pSchema = std::make_unique<QMXmlParams>(false, definitionOf(layout).c_str());
    pSchema->setSchema(sSchema);
  }
  m_pParams = pSchema.get();
}

DescriptionReader::~DescriptionReader() {
  m_pParams->clearConfig();
}

std::string DescriptionReader::operation() const {
  return "update" + std::string(m_layout.szElement) + "FromXMLDesc(): ";
}

bool DescriptionReader::refuse(const char* szWhy) const {
  warn(operation() + "FALSE: " + szWhy);
  return false;
}

bool DescriptionReader::open(std::string_view text) {
  if (m_pParams->setConfig(std::string(text), true) != 0) {
    warn(operation() + "xml setConfig failed");
    return false;
  }
  const std::string sRoot = m_pParams->getRootName();
  if (sRoot.empty()) {
    return refuse("Invalid configuration !");
  }
  if (sRoot != m_layout.szElement) {
    return refuse(("Root node is not '" + std::string(m_layout.szElement) + "'!").c_str());
  }
  return hasVersion();
}

bool DescriptionReader::hasVersion() const {
  std::string sVersion;
  if (!m_pParams->getRootAttribute("version", sVersion)) {
    return true;
  }
  const std::size_t dot = sVersion.find('.');
  const int iMajor = toInt(std::string_view(sVersion).substr(0, dot));
  const int iMinor = dot != std::string::npos ? toInt(std::string_view(sVersion).substr(dot + 1)) : 0;
  if (iMajor != kMajorVersion) {
    qm_err::log(qm_err::kLogWarning, "%s: (%d.%d major version incompatible with %d.%d)", m_layout.szClass,
                iMajor, iMinor, kMajorVersion, kMinorVersion);
    return false;
  }
  return true;
}

bool DescriptionReader::readTexts() {
  const std::optional<std::string> mimeType = text("MIMEType", "error while getting MIMEType !");
  if (!mimeType) {
    return false;
  }
  m_sMIMEType = *mimeType;
  if (m_layout.packetizedFormatOffAt != 0) {
    if (m_pParams->has("PacketizedFormat")) {
      m_sPacketizedFormat = m_pParams->getString("PacketizedFormat");
    } else {
      warn(operation() + "No packetized format given !");
    }
  }
  if (m_pParams->has("StreamParams")) {
    m_sStreamParams = m_pParams->getContent("StreamParams");
  }
  return true;
}

bool DescriptionReader::has(const char* szName, const char* szMissing) const {
  return m_pParams->has(szName) || refuse(szMissing);
}

std::optional<std::int64_t> DescriptionReader::number(const char* szGroup, const char* szName,
                                                      const char* szMissing, std::int64_t llLow,
                                                      std::int64_t llHigh) const {
  if (m_pParams->has(szName, szGroup)) {
    try {
      const std::int64_t llValue = m_pParams->getLong(szName, szGroup);
      if (llValue >= llLow && llValue <= llHigh) {
        return llValue;
      }
    } catch (JXmlParamsError* pError) {
      const qm_err::CaughtError error(pError);
      JCATCH_LOG(error.get());
    }
  }
  if (szMissing != nullptr) {
    refuse(szMissing);
  }
  return std::nullopt;
}

std::optional<std::string> DescriptionReader::text(const char* szName, const char* szMissing) const {
  return has(szName, szMissing) ? std::optional(m_pParams->getString(szName)) : std::nullopt;
}

}  // namespace qm_ci
