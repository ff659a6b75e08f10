#include "coreapi/qmutils/params/jparamextract.h"

#include <exception>

#include "coreapi/qmutils/params/jparams.h"

namespace {

template <class Value>
int extract(const char* szName, const char* szList, Value& value) noexcept {
  if (szName == nullptr || szList == nullptr) {
    return -1;
  }
  try {
    JParams params;
    params.parse(szList);
    return params.get(szName, value) ? 0 : -1;
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    JCATCH_LOG(error.get());
  } catch (const std::exception& error) {
    qm_err::logText(qm_err::kLogException, error.what(), __FILE_NAME__, __LINE__, "Exception CATCH");
  }
  return -1;
}

}  // namespace

int extractBoolean(const char* szName, const char* szList, bool& bValue) noexcept {
  return extract(szName, szList, bValue);
}

int extractInteger(const char* szName, const char* szList, std::int32_t& iValue) noexcept {
  return extract(szName, szList, iValue);
}

int extractNumber(const char* szName, const char* szList, double& dValue) noexcept {
  return extract(szName, szList, dValue);
}

int extractString(const char* szName, const char* szList, std::unique_ptr<char[]>& szValue) noexcept {
  return extract(szName, szList, szValue);
}

int extractString(const char* szName, const char* szList, std::string& sValue) noexcept {
  return extract(szName, szList, sValue);
}
