#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "coreapi/qmci/inforecord.h"
#include "coreapi/qmxml/qmxmlparams.h"

namespace qm_ci {

/// Makes the schema of an XML form: its root element, to which the caller adds what it holds, in order.
class DescriptionSchema {
 public:
  explicit DescriptionSchema(const InfoLayout& layout);

  void add(const char* szName, QMXmlParams::Type eType, bool bOptional = false, const char* szLow = "",
           const char* szHigh = "");

  /// Begins an element that holds all that is added until `endGroup`.
  void beginGroup(const char* szName, bool bOptional = false);
  void endGroup() { m_pParent = m_pElement; }

  /// Adds the optional element of any content with which all forms end, and gives the schema's text.
  std::string finish();

 private:
  QMXmlParams m_params;
  _xmlNode* m_pElement;
  _xmlNode* m_pParent;
};

/// Reads an XML form of a stream's description. What is wrong with it is logged at level WARNING.
class DescriptionReader {
 public:
  /// `pSchema` is made of `sSchema` when it is null.
  DescriptionReader(const InfoLayout& layout, std::unique_ptr<QMXmlParams>& pSchema,
                    const std::string& sSchema);

  /// Lets go of the document.
  ~DescriptionReader();
  DescriptionReader(const DescriptionReader&) = delete;
  DescriptionReader& operator=(const DescriptionReader&) = delete;

  /// Parses and validates the text, and looks at its root and version.
  bool open(std::string_view text);

  /// Texts of the form. The MIME type must be there.
  bool readTexts();
  const std::string& getMIMEType() const noexcept { return m_sMIMEType; }
  const std::string& getPacketizedFormat() const noexcept { return m_sPacketizedFormat; }
  const std::string& getStreamParams() const noexcept { return m_sStreamParams; }

  /// Whether there is an element; `szMissing` is logged when there is none.
  bool has(const char* szName, const char* szMissing) const;

  /// A number from `llLow` to `llHigh`, of an element in the root or in a group. `szMissing`, unless it is
  /// null, is logged when there is none.
  std::optional<std::int64_t> number(const char* szGroup, const char* szName, const char* szMissing,
                                     std::int64_t llLow, std::int64_t llHigh) const;

  /// Text of an element of the root; `szMissing` is logged when there is none.
  std::optional<std::string> text(const char* szName, const char* szMissing) const;

  /// Logs why a form is refused. False.
  bool refuse(const char* szWhy) const;

 private:
  bool hasVersion() const;
  std::string operation() const;

  const InfoLayout& m_layout;
  QMXmlParams* m_pParams;
  std::string m_sMIMEType;
  std::string m_sPacketizedFormat;
  std::string m_sStreamParams;
};

}  // namespace qm_ci
