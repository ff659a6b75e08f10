#include "coreapi/qmutils/error/jgenericerror.h"

JGenericErrorBase::JGenericErrorBase(std::string sMessage, std::string sFunction, std::string sDetail,
                                     const char* szFile, int iLine)
    : m_sMessage(std::move(sMessage)), m_sFunction(std::move(sFunction)), m_sDetail(std::move(sDetail)) {
  setSite(szFile, iLine);
}

std::string JGenericErrorBase::getFullText() const {
  std::string sText =
      std::string(getFile()) + "(" + std::to_string(getLine()) + ") : function " + m_sFunction;
  if (!m_sDetail.empty()) {
    sText += "(" + m_sDetail + ")";
  }
  return sText + " : " + m_sMessage;
}

void JGenericErrorBase::getMessage(char* szBuf, std::size_t iBufLen) const {
  const std::string sText = getFullText();
  qm_err::copyText(szBuf, iBufLen, sText.size() < iBufLen ? sText : std::string_view());
}
