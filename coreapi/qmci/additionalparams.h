#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "coreapi/qmxml/qmxmlparams.h"

namespace qm_ci {

/// The additional parameters of a stream as a document: the stream parameter text of a record, in the element
/// "StreamParams" of "AdditionalParams". Every value has a name and an optional path under "StreamParams".
class AdditionalParams {
 public:
  AdditionalParams();

  /// Replaces the parameters by a stream parameter text. One of less than 2 characters means none. False when
  /// it isn't XML; there are none then.
  bool read(const std::string& sStreamParams);

  /// The parameters as a stream parameter text.
  std::string getText() const;

  /// Throw JXmlParamsError when there is no such value.
  std::int32_t getInt(const std::string& sName, const std::string& sPath) const;
  std::int64_t getLong(const std::string& sName, const std::string& sPath) const;
  double getDouble(const std::string& sName, const std::string& sPath) const;
  bool getBool(const std::string& sName, const std::string& sPath) const;
  std::string getString(const std::string& sName, const std::string& sPath) const;
  std::vector<std::uint8_t> getBinary(const std::string& sName, const std::string& sPath) const;
  bool has(const std::string& sName, const std::string& sPath) const;

  /// Set a value, or add it. False when the name or the text is one that XML can't hold.
  bool setInt(const std::string& sName, std::int32_t iValue, const std::string& sPath);
  bool setLong(const std::string& sName, std::int64_t llValue, const std::string& sPath);
  bool setDouble(const std::string& sName, double dValue, const std::string& sPath);
  bool setBool(const std::string& sName, bool bValue, const std::string& sPath);
  bool setString(const std::string& sName, const std::string& sValue, const std::string& sPath);
  bool setBinary(const std::string& sName, std::span<const std::uint8_t> value, const std::string& sPath);

 private:
  bool make(const std::string& sName, const std::string& sPath);

  QMXmlParams m_params;
};

}  // namespace qm_ci
