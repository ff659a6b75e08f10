#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "coreapi/qmutils/error/jerror.h"

class JParams;

/// One error that a service describes. Its text is "id(ID), name(NAME), message(MESSAGE)" and a line feed.
class JRPCRemoteErrorDescription : public JError {
 public:
  JRPCRemoteErrorDescription(std::int32_t iId, std::string sName, std::string sMessage)
      : m_iId(iId), m_sName(std::move(sName)), m_sMessage(std::move(sMessage)) {}

  using JError::getMessage;
  void getMessage(char* szBuf, std::size_t iBufLen) const override;

  std::int32_t getId() const noexcept { return m_iId; }
  const std::string& getName() const noexcept { return m_sName; }
  const std::string& getErrorMessage() const noexcept { return m_sMessage; }

 private:
  std::int32_t m_iId;
  std::string m_sName;
  std::string m_sMessage;
};

/// The errors that a service describes in one parameter list. Error N, counted from 0, is the entries
///
///     _err_<N>_id    integer
///     _err_<N>_name  string
///     _err_<N>_msg   string
class JRPCRemoteError {
 public:
  /// Reads one error after the other, until an entry is missing or has the wrong type. A null list is logged
  /// as an error and gives none.
  explicit JRPCRemoteError(const JParams* pParams);

  const std::vector<JRPCRemoteErrorDescription>& getErrors() const noexcept { return m_errors; }

  /// Writes an error into a list, under the lowest number that is free. False, and logged, when that fails.
  static bool addError(JParams& params, std::int32_t iId, const std::string& sName,
                       const std::string& sMessage);

 private:
  std::vector<JRPCRemoteErrorDescription> m_errors;
};
