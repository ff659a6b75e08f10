#include "coreapi/qmutils/rpc/rpcline.h"

#include <algorithm>
#include <cstring>

#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/error/jrpcerror.h"
#include "coreapi/qmutils/params/jparams.h"
#include "coreapi/qmutils/params/jvariant.h"

namespace qm_utils::rpc_line {

namespace {

constexpr std::string_view kBlanks = " \t";
constexpr int kSyntaxError = -2;
constexpr int kMissingName = -3;

constexpr bool isNameByte(char cByte) noexcept {
  const auto uByte = static_cast<unsigned char>(cByte);
  return (uByte >= '0' && uByte <= '9') || (uByte >= 'A' && uByte <= 'Z') || (uByte >= 'a' && uByte <= 'z') ||
         uByte == '_' || uByte >= 0x80;
}

[[noreturn]] void throwMalformed(const char* szMessage, std::string_view sLine, int iCode) {
  QM_THROW(JRPCProtocolError, szMessage, std::string(sLine).c_str(), iCode);
}

std::string_view behindBlanks(std::string_view sText) {
  sText.remove_prefix(std::min(sText.find_first_not_of(kBlanks), sText.size()));
  return sText;
}

void appendChain(std::string& sLine, const JVariant* pChain) {
  if (pChain == nullptr) {
    return;
  }
  const std::size_t uBefore = sLine.size();
  sLine.resize(uBefore + pChain->getMaxLength());
  sLine.resize(uBefore + pChain->toText(sLine.data() + uBefore));
}

}  // namespace

Request splitRequest(std::string_view sLine) {
  std::string_view sRest = behindBlanks(sLine);
  if (sRest.empty() || sRest.find('\0') != std::string_view::npos) {
    throwMalformed("function name syntax error", sLine, kSyntaxError);
  }
  Request request;
  const auto nameEnd = std::find_if_not(sRest.begin(), sRest.end(), isNameByte);
  request.sFunction = sRest.substr(0, static_cast<std::size_t>(nameEnd - sRest.begin()));
  sRest = behindBlanks(sRest.substr(request.sFunction.size()));
  if (!sRest.starts_with('(')) {
    throwMalformed("missing function name", sLine, kMissingName);
  }
  const std::size_t uClosing = sRest.find_last_not_of(kBlanks);
  if (sRest[uClosing] != ')') {
    throwMalformed("function name syntax error", sLine, kSyntaxError);
  }
  request.sParameters = sRest.substr(1, uClosing - 1);
  return request;
}

void appendCall(std::string& sLine, std::string_view sFunction, const JVariant* pChain) {
  sLine.append(sFunction).push_back('(');
  appendChain(sLine, pChain);
  sLine.push_back(')');
}

void appendCall(std::string& sLine, std::string_view sFunction, std::string_view sParameters) {
  sLine.append(sFunction).append("(").append(sParameters).append(")");
}

void appendCall(std::string& sLine, std::string_view sFunction, const std::vector<const JVariant*>& chains) {
  sLine.append(sFunction).push_back('(');
  for (std::size_t index = 0; index < chains.size(); ++index) {
    if (index != 0) {
      sLine.push_back(',');
    }
    appendChain(sLine, chains[index]);
  }
  sLine.push_back(')');
}

std::string_view answerText(std::string_view sLine, const char* szFunction) {
  const bool bWhole = sLine.find('\0') == std::string_view::npos;
  if (bWhole && sLine.starts_with(kOk)) {
    return sLine.substr(kOk.size());
  }
  if (bWhole && sLine.starts_with(kFailed)) {
    QM_THROW(JRPCCallFailedError, std::string(sLine).c_str());
  }
  QM_THROW(JRPCProtocolError, szFunction);
}

std::unique_ptr<JParams> parseAnswer(std::string_view sLine, const char* szFunction) {
  const std::string_view sText = answerText(sLine, szFunction);
  auto pAnswer = std::make_unique<JParams>();
  try {
    pAnswer->parse(sText);
  } catch (JError* pError) {
    qm_err::CaughtError error(pError);
    JCATCH_LOG(error.get());
    error.rethrow();
  }
  return pAnswer;
}

void writeFailure(std::string& sLine, const JError& error) {
  char szMessage[kMessageSize];
  error.getMessage(szMessage, sizeof szMessage);
  std::replace_if(
      szMessage, szMessage + std::strlen(szMessage),
      [](char cByte) { return cByte == '\r' || cByte == '\n'; }, ' ');
  sLine.assign(kFailed).append(szMessage);
}

bool isOneLine(std::string_view sText) noexcept {
  return sText.find('\n') == std::string_view::npos && sText.find('\r') == std::string_view::npos &&
         sText.find('\0') == std::string_view::npos;
}

}  // namespace qm_utils::rpc_line
