#pragma once

#include <string>

#include "coreapi/qmutils/error/jerror.h"

/// Failures of a remote call. `kind` tells the classes apart without a type test.
class JRPCError : public JError {
 public:
  /// Never renumber: callers switch over these numbers.
  enum Kind : int {
    kMissingParameter = 0,
    kTypeMismatch = 1,
    kProtocol = 2,
    kConnectionLost = 3,
    kCallFailed = 4,
  };

  Kind getKind() const noexcept { return kind; }

 protected:
  explicit JRPCError(Kind eKind) noexcept : kind(eKind) {}

 private:
  Kind kind;
};

/// The answer or the request lacks a parameter that it must have.
class JRPCMissingParameterError : public JRPCError {
 public:
  explicit JRPCMissingParameterError(const char* szParameter);

  using JError::getMessage;
  void getMessage(char* szBuf, std::size_t iBufLen) const override;

 private:
  std::string m_sParameter;
};

/// A parameter can't be read as the type that is asked for; both types by their codes.
class JRPCTypeMismatchError : public JRPCError {
 public:
  JRPCTypeMismatchError(const char* szParameter, int iWanted, int iActual);

  using JError::getMessage;
  void getMessage(char* szBuf, std::size_t iBufLen) const override;

 private:
  std::string m_sParameter;
  int m_iWanted;
  int m_iActual;
};

/// The peer doesn't keep to the line protocol. Both texts may be null.
class JRPCProtocolError : public JRPCError {
 public:
  explicit JRPCProtocolError(const char* szMessage, const char* szDetail = nullptr, int iCode = -1);

  using JError::getMessage;
  void getMessage(char* szBuf, std::size_t iBufLen) const override;

  /// A number that goes with the failure, -1 when there is none.
  int getCode() const noexcept { return m_iCode; }

 private:
  std::string m_sMessage;
  std::string m_sDetail;
  int m_iCode;
};

/// The connection ended under a call.
class JRPCConnectionLostError : public JRPCError {
 public:
  JRPCConnectionLostError() noexcept : JRPCError(kConnectionLost) {}

  using JError::getMessage;
  void getMessage(char* szBuf, std::size_t iBufLen) const override;
};

/// The server answered that the call failed; the text is its answer line, whole.
class JRPCCallFailedError : public JRPCError {
 public:
  explicit JRPCCallFailedError(const char* szAnswer);

  using JError::getMessage;

  /// A null buffer or a size of 0 fails an assertion and writes nothing.
  void getMessage(char* szBuf, std::size_t iBufLen) const override;

  const std::string& getAnswer() const noexcept { return m_sAnswer; }

 private:
  std::string m_sAnswer;
};
