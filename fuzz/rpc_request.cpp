// A client's line at a server: taken apart, its parameters read, and the answer or the failure written, which
// must be a line again.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/params/jparams.h"
#include "coreapi/qmutils/rpc/rpcline.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t uSize) {
  namespace rpc_line = qm_utils::rpc_line;
  std::string sAnswer;
  try {
    const rpc_line::Request request =
        rpc_line::splitRequest(std::string_view(reinterpret_cast<const char*>(pData), uSize));
    JParams parameters;
    parameters.parse(request.sParameters);
    parameters.toText(sAnswer);
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    rpc_line::writeFailure(sAnswer, *error);
    if (sAnswer.size() > rpc_line::kFailed.size() + rpc_line::kMessageSize) {
      std::abort();
    }
  }
  if (!rpc_line::isOneLine(sAnswer)) {
    std::abort();
  }
  return 0;
}
