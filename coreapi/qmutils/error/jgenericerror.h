#pragma once

#include <string>
#include <utility>

#include "coreapi/qmutils/error/jerror.h"

/// What the generic errors of all codes share: message, function, detail and the text made of them,
/// "FILE(LINE) : function FUNCTION(DETAIL) : MESSAGE". The detail stands with its brackets only when there is
/// one.
///
/// Unlike all other errors it isn't cut to a small buffer: `getMessage` then gives the empty text.
class JGenericErrorBase : public JError {
 public:
  JGenericErrorBase(std::string sMessage, std::string sFunction, std::string sDetail, const char* szFile,
                    int iLine);

  using JError::getMessage;
  void getMessage(char* szBuf, std::size_t iBufLen) const override;

  const std::string& getPlainMessage() const noexcept { return m_sMessage; }
  std::string getFullText() const;

 private:
  std::string m_sMessage;
  std::string m_sFunction;
  std::string m_sDetail;
};

/// A failure told by a message, the function that failed and a detail, under a code of its class.
template <typename Code, Code kCode>
class JGenericError : public JGenericErrorBase {
 public:
  JGenericError(std::string sMessage, std::string sFunction, std::string sDetail = {},
                const char* szFile = "", int iLine = 0)
      : JGenericErrorBase(std::move(sMessage), std::move(sFunction), std::move(sDetail), szFile, iLine) {}

  Code getCode() const noexcept { return kCode; }
};

/// An object couldn't be written as a parameter list.
class JSerialisationError : public JGenericError<unsigned, 0> {
 public:
  JSerialisationError(std::string sMessage, std::string sFunction, const char* szFile = "", int iLine = 0)
      : JGenericError(std::move(sMessage), std::move(sFunction), {}, szFile, iLine) {}
};

/// An object couldn't be read from a parameter list.
class JDeserialisationError : public JGenericError<unsigned, 0> {
 public:
  JDeserialisationError(std::string sMessage, std::string sFunction, const char* szFile = "", int iLine = 0)
      : JGenericError(std::move(sMessage), std::move(sFunction), {}, szFile, iLine) {}
};
