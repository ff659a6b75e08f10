#include "coreapi/qmutils/error/jerror.h"

#include <cstdarg>

#include "coreapi/platform/clocale.h"
#include "coreapi/platform/systemerror.h"
#include "coreapi/qmutils/error/socketerrortext.h"

namespace {

constexpr const char* kUnknownError = "unknown error";

/// Bytes of an error's text that a log line takes, its NUL included.
constexpr std::size_t kLoggedTextSize = 1024;

/// Bytes of an error's text that its string form takes, the NUL included.
constexpr std::size_t kStringTextSize = 2048;

}  // namespace

namespace qm_err {

void copyText(char* buffer, std::size_t size, std::string_view text) noexcept {
  if (buffer == nullptr || size == 0) {
    return;
  }
  buffer[text.copy(buffer, size - 1)] = '\0';
}

void logError(const JError& error, const char* szFile, int iLine, const char* szTag) noexcept {
  char szText[kLoggedTextSize];
  error.getMessage(szText, sizeof szText);
  logText(kLogException, szText, szFile, iLine, szTag);
}

}  // namespace qm_err

std::string JError::getMessage() const {
  char szText[kStringTextSize];
  getMessage(szText, sizeof szText);
  return szText;
}

void JError::report() const {
  qm_err::logError(*this, m_szFile, m_iLine, "Exception REPORT");
}

void JError::setSite(const char* szFile, int iLine) noexcept {
  qm_err::copyText(m_szFile, sizeof m_szFile, szFile);
  m_iLine = iLine;
}

void getErrorMessage(const JError* pError, char* szBuf, std::size_t iBufLen) {
  if (pError != nullptr) {
    pError->getMessage(szBuf, iBufLen);
  }
}

JSysError::JSysError(std::uint32_t uCode, const char* szFunction) noexcept : m_uCode(uCode) {
  qm_err::copyText(m_szFunction, sizeof m_szFunction, szFunction);
}

std::string JSysError::systemText() const {
  switch (m_uCode & kClassMask) {
    case kSocketClass:
      return std::string(qm_err::socketErrorText(m_uCode));
    case kAudioInputClass:
    case kAudioOutputClass:
      return kUnknownError;  // this platform has no audio device layer to ask
    default: {
      std::string sText = qm_platform::systemErrorText(m_uCode);
      return sText.empty() ? kUnknownError : sText;
    }
  }
}

void JSysError::getMessage(char* szBuf, std::size_t iBufLen) const {
  std::string sText = systemText();
  std::erase_if(sText, [](char c) { return c == '\r' || c == '\n'; });
  qm_err::copyText(szBuf, iBufLen,
                   "system call error at function '" + std::string(m_szFunction) + "' : " + sText);
}

std::string JNtDllError::systemText() const {
  static constexpr char kHex[] = "0123456789abcdef";
  std::string sDigits;
  for (std::uint32_t uRest = getCode(); uRest != 0 || sDigits.empty(); uRest >>= 4) {
    sDigits.insert(sDigits.begin(), kHex[uRest & 0xF]);
  }
  return "unknown error (NT status = 0x" + sDigits + ")";  // no table of NT status texts exists here
}

JTextError::JTextError(const char* szFormat, ...) {
  va_list arguments;
  va_start(arguments, szFormat);
  if (qm_platform::printC(m_szText, sizeof m_szText, szFormat, arguments) < 0) {
    qm_err::copyText(m_szText, sizeof m_szText, szFormat);
  }
  va_end(arguments);
}

JTextError::JTextError(const std::string& sText) noexcept {
  qm_err::copyText(m_szText, sizeof m_szText, sText);
}

void JTextError::getMessage(char* szBuf, std::size_t iBufLen) const {
  qm_err::copyText(szBuf, iBufLen, m_szText);
}

void JTimeoutError::getMessage(char* szBuf, std::size_t iBufLen) const {
  qm_err::copyText(szBuf, iBufLen, "Time out!");
}

void JNullPointerError::getMessage(char* szBuf, std::size_t iBufLen) const {
  qm_err::copyText(szBuf, iBufLen, "Unexpected null pointer: '" + m_sName + "'");
}

void JUnimplementedError::getMessage(char* szBuf, std::size_t iBufLen) const {
  qm_err::copyText(szBuf, iBufLen, "Unimplemented!");
}

void JBufferSizeError::getMessage(char* szBuf, std::size_t iBufLen) const {
  qm_err::copyText(szBuf, iBufLen, "Buffer size too small!");
}

void EndOfFileError::getMessage(char* szBuf, std::size_t iBufLen) const {
  qm_err::copyText(szBuf, iBufLen, "end of file!");
}

void JXmlParamsError::getMessage(char* szBuf, std::size_t iBufLen) const {
  qm_err::copyText(szBuf, iBufLen, "XmlParamsError: Param " + m_sParam + " in SubNode " + m_sSubNode);
}

void qm_utils::JFuncMapError::getMessage(char* szBuf, std::size_t iBufLen) const {
  qm_err::copyText(szBuf, iBufLen, "couldn't find \"" + m_sFunction + "\" function");
}
