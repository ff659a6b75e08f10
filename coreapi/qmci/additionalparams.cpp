#include "coreapi/qmci/additionalparams.h"

#include "coreapi/qmci/base64.h"
#include "coreapi/qmutils/error/jerror.h"

namespace qm_ci {

namespace {

constexpr const char* kRoot = "AdditionalParams";
constexpr const char* kStreamParams = "StreamParams";

/// A text of fewer characters can't be an element.
constexpr std::size_t kShortestText = 2;

/// Where a value stands in the document.
std::string pathOf(const std::string& sPath) {
  return sPath.empty() ? kStreamParams : std::string(kStreamParams) + "\\" + sPath;
}

}  // namespace

AdditionalParams::AdditionalParams() : m_params(true, kRoot) {}

bool AdditionalParams::read(const std::string& sStreamParams) {
  m_params.clearConfig();
  if (sStreamParams.size() < kShortestText) {
    return true;
  }
  return m_params.setConfig(
             "<AdditionalParams><StreamParams>" + sStreamParams + "</StreamParams></AdditionalParams>",
             false) == 0;
}

std::string AdditionalParams::getText() const {
  return m_params.has(kStreamParams) ? m_params.getContent(kStreamParams) : std::string();
}

std::int32_t AdditionalParams::getInt(const std::string& sName, const std::string& sPath) const {
  return m_params.getInt(sName, pathOf(sPath));
}

std::int64_t AdditionalParams::getLong(const std::string& sName, const std::string& sPath) const {
  return m_params.getLong(sName, pathOf(sPath));
}

double AdditionalParams::getDouble(const std::string& sName, const std::string& sPath) const {
  return m_params.getDouble(sName, pathOf(sPath));
}

bool AdditionalParams::getBool(const std::string& sName, const std::string& sPath) const {
  return m_params.getBool(sName, pathOf(sPath));
}

std::string AdditionalParams::getString(const std::string& sName, const std::string& sPath) const {
  return m_params.getString(sName, pathOf(sPath));
}

std::vector<std::uint8_t> AdditionalParams::getBinary(const std::string& sName,
                                                      const std::string& sPath) const {
  std::optional<std::vector<std::uint8_t>> value = decodeBase64(getString(sName, sPath));
  if (!value) {
    QM_THROW(JXmlParamsError, sName.c_str(), pathOf(sPath).c_str());
  }
  return std::move(*value);
}

bool AdditionalParams::has(const std::string& sName, const std::string& sPath) const {
  return m_params.has(sName, pathOf(sPath));
}

bool AdditionalParams::make(const std::string& sName, const std::string& sPath) {
  return has(sName, sPath) || m_params.addTextNode(sName, pathOf(sPath), {});
}

bool AdditionalParams::setInt(const std::string& sName, std::int32_t iValue, const std::string& sPath) {
  return make(sName, sPath) && m_params.setInt(sName, iValue, pathOf(sPath));
}

bool AdditionalParams::setLong(const std::string& sName, std::int64_t llValue, const std::string& sPath) {
  return make(sName, sPath) && m_params.setLong(sName, llValue, pathOf(sPath));
}

bool AdditionalParams::setDouble(const std::string& sName, double dValue, const std::string& sPath) {
  return make(sName, sPath) && m_params.setDouble(sName, dValue, pathOf(sPath));
}

bool AdditionalParams::setBool(const std::string& sName, bool bValue, const std::string& sPath) {
  return make(sName, sPath) && m_params.setBool(sName, bValue, pathOf(sPath));
}

bool AdditionalParams::setString(const std::string& sName, const std::string& sValue,
                                 const std::string& sPath) {
  return has(sName, sPath) ? m_params.setString(sName, sValue, pathOf(sPath))
                           : m_params.addTextNode(sName, pathOf(sPath), sValue);
}

bool AdditionalParams::setBinary(const std::string& sName, std::span<const std::uint8_t> value,
                                 const std::string& sPath) {
  return setString(sName, encodeBase64(value), sPath);
}

}  // namespace qm_ci
