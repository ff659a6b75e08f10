#include "coreapi/qmutils/error/jrpcerror.h"

namespace {

std::string textOr(const char* szText, const char* szDefault) {
  return szText != nullptr ? szText : szDefault;
}

}  // namespace

JRPCMissingParameterError::JRPCMissingParameterError(const char* szParameter)
    : JRPCError(kMissingParameter), m_sParameter(textOr(szParameter, "")) {}

void JRPCMissingParameterError::getMessage(char* szBuf, std::size_t iBufLen) const {
  qm_err::copyText(szBuf, iBufLen, "RPCMissingParameter: '" + m_sParameter + "'");
}

JRPCTypeMismatchError::JRPCTypeMismatchError(const char* szParameter, int iWanted, int iActual)
    : JRPCError(kTypeMismatch),
      m_sParameter(textOr(szParameter, "")),
      m_iWanted(iWanted),
      m_iActual(iActual) {}

void JRPCTypeMismatchError::getMessage(char* szBuf, std::size_t iBufLen) const {
  qm_err::copyText(szBuf, iBufLen,
                   "TypeMismatch for parameter '" + m_sParameter + "' : wanted '" +
                       std::to_string(m_iWanted) + "', actual '" + std::to_string(m_iActual) + "'");
}

JRPCProtocolError::JRPCProtocolError(const char* szMessage, const char* szDetail, int iCode)
    : JRPCError(kProtocol),
      m_sMessage(textOr(szMessage, "Unknown error")),
      m_sDetail(textOr(szDetail, "???")),
      m_iCode(iCode) {}

void JRPCProtocolError::getMessage(char* szBuf, std::size_t iBufLen) const {
  qm_err::copyText(szBuf, iBufLen, "ProtocolError: " + m_sMessage + " '" + m_sDetail + "'");
}

void JRPCConnectionLostError::getMessage(char* szBuf, std::size_t iBufLen) const {
  qm_err::copyText(szBuf, iBufLen, "Connection Lost");
}

JRPCCallFailedError::JRPCCallFailedError(const char* szAnswer)
    : JRPCError(kCallFailed), m_sAnswer(textOr(szAnswer, "")) {}

void JRPCCallFailedError::getMessage(char* szBuf, std::size_t iBufLen) const {
  JASSERT(szBuf && iBufLen);
  qm_err::copyText(szBuf, iBufLen, m_sAnswer);
}
