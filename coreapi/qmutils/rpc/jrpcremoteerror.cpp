#include "coreapi/qmutils/rpc/jrpcremoteerror.h"

#include "coreapi/qmutils/params/jparams.h"
#include "coreapi/qmutils/text/jtext.h"

namespace {

std::string entryName(std::size_t uNumber) {
  return "_err_" + std::to_string(uNumber);
}

}  // namespace

void JRPCRemoteErrorDescription::getMessage(char* szBuf, std::size_t iBufLen) const {
  qm_err::copyText(szBuf, iBufLen,
                   "id(" + std::to_string(m_iId) + "), name(" + m_sName + "), message(" + m_sMessage + ")\n");
}

JRPCRemoteError::JRPCRemoteError(const JParams* pParams) {
  if (pParams == nullptr) {
    qm_err::log(qm_err::kLogError, "JRPCRemoteError: JParams pointer is NULL!!!\n");
    return;
  }
  try {
    for (std::size_t uNumber = 0;; ++uNumber) {
      const std::string sEntry = entryName(uNumber);
      std::int32_t iId = 0;
      std::string sName;
      std::string sMessage;
      if (!pParams->get(sEntry + "_id", iId) || !pParams->get(sEntry + "_name", sName) ||
          !pParams->get(sEntry + "_msg", sMessage)) {
        return;
      }
      m_errors.emplace_back(iId, std::move(sName), std::move(sMessage));
    }
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    JCATCH_LOG(error.get());
  }
}

bool JRPCRemoteError::addError(JParams& params, std::int32_t iId, const std::string& sName,
                               const std::string& sMessage) {
  qm_err::log(qm_err::kLogInfo, "addError: Adding remote error id(%d),name(%s),message(%s)\n", iId,
              sName.c_str(), sMessage.c_str());
  std::size_t uNumber = 0;
  while (params.find(entryName(uNumber) + "_id") != nullptr) {
    ++uNumber;
  }
  const std::string sEntry = entryName(uNumber);
  try {
    params.add(sEntry + "_id", iId);
    params.add(sEntry + "_name", sName);
    params.add(sEntry + "_msg", sMessage);
    return true;
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    JCATCH_LOG(error.get());
  } catch (const std::bad_alloc&) {
    // Told by the line below.
  }
  const char* const szEntry = sEntry.c_str();
  qm_err::log(qm_err::kLogError,
              "addError: Couldn't add JVariants named %s_id, %s_name, %s_msg to JParams!\n", szEntry, szEntry,
              szEntry);
  return false;
}
