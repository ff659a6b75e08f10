#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "coreapi/qmci/additionalparams.h"
#include "coreapi/qmci/mediainfo.h"
#include "coreapi/qmxml/qmxmlparams.h"

namespace qm_ci {

/// Name of the coding parameters among the additional parameters.
inline constexpr const char* kCodingParams = "CodingParams";

/// Adds to a description typed access to the additional parameters of its stream, and what reading an XML
/// form needs. Additional parameters and the record's text of them are one: who changes either changes both.
///
/// The accessors take a name and an optional path of element names, joined with backslashes. The getters
/// throw JXmlParamsError when there is no such value. The setters add a value that doesn't exist, and return
/// false for names and texts that XML can't hold.
template <class NoXml>
class XmlMediaInfo : public NoXml {
 public:
  XmlMediaInfo() = default;
  XmlMediaInfo(const XmlMediaInfo& other);
  XmlMediaInfo& operator=(const XmlMediaInfo& other);

  /// As the base; throws JTextError also when the stream parameters aren't XML.
  void init(std::span<const std::uint8_t> record, const char* szMIMEType = nullptr,
            const char* szPacketizedFormat = nullptr, std::size_t minSize = 0) override;

  /// As the base; the additional parameters are an empty "CodingParams" then.
  void reset() override;

  /// Sets the additional parameter "CodingParams" too.
  void setCodingParams(std::span<const std::uint8_t> params) override;

  /// As the base; false, and there are no stream parameters then, when the text isn't XML.
  bool setStreamParams(std::string_view sStreamParams);

  bool hasParam(const std::string& sName, const std::string& sPath = {}) const {
    return m_additional.has(sName, sPath);
  }
  std::int32_t getInt(const std::string& sName, const std::string& sPath = {}) const {
    return m_additional.getInt(sName, sPath);
  }
  std::int64_t getLong(const std::string& sName, const std::string& sPath = {}) const {
    return m_additional.getLong(sName, sPath);
  }
  double getDouble(const std::string& sName, const std::string& sPath = {}) const {
    return m_additional.getDouble(sName, sPath);
  }
  bool getBool(const std::string& sName, const std::string& sPath = {}) const {
    return m_additional.getBool(sName, sPath);
  }
  std::string getString(const std::string& sName, const std::string& sPath = {}) const {
    return m_additional.getString(sName, sPath);
  }
  std::vector<std::uint8_t> getBinary(const std::string& sName, const std::string& sPath = {}) const {
    return m_additional.getBinary(sName, sPath);
  }

  bool setInt(const std::string& sName, std::int32_t iValue, const std::string& sPath = {}) {
    return store(m_additional.setInt(sName, iValue, sPath));
  }
  bool setLong(const std::string& sName, std::int64_t llValue, const std::string& sPath = {}) {
    return store(m_additional.setLong(sName, llValue, sPath));
  }
  bool setDouble(const std::string& sName, double dValue, const std::string& sPath = {}) {
    return store(m_additional.setDouble(sName, dValue, sPath));
  }
  bool setBool(const std::string& sName, bool bValue, const std::string& sPath = {}) {
    return store(m_additional.setBool(sName, bValue, sPath));
  }
  bool setString(const std::string& sName, const std::string& sValue, const std::string& sPath = {}) {
    return store(m_additional.setString(sName, sValue, sPath));
  }
  bool setBinary(const std::string& sName, std::span<const std::uint8_t> value,
                 const std::string& sPath = {}) {
    return store(m_additional.setBinary(sName, value, sPath));
  }

 protected:
  /// As the base; false, and nothing changes, when the stream parameters aren't XML.
  bool setTexts(const std::string& sMIMEType, const std::string& sPacketizedFormat,
                const std::string& sStreamParams);

  /// Schema of this kind's XML form, made when the first form is read; it isn't copied with the object.
  std::unique_ptr<QMXmlParams> m_pSchema;

 private:
  bool readAdditional();

  /// Holds beside the text what it has as coding parameters.
  void keepCodingParams();

  /// Takes a set parameter over into the record.
  bool store(bool bSet);

  AdditionalParams m_additional;
};

}  // namespace qm_ci
