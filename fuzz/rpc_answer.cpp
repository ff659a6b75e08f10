// A server's bytes at a client: cut into lines in pieces of several sizes, set against what is owed, decoded.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/params/jparams.h"
#include "coreapi/qmutils/rpc/jrpcremoteerror.h"
#include "coreapi/qmutils/rpc/jrpcversion.h"
#include "coreapi/qmutils/rpc/linebuffer.h"
#include "coreapi/qmutils/rpc/owedanswers.h"
#include "coreapi/qmutils/rpc/rpcline.h"

namespace {

constexpr std::size_t kLimit = 4096;

std::vector<std::string> linesOf(std::string_view sBytes, std::size_t uPiece) {
  std::vector<std::string> lines;
  qm_utils::LineBuffer buffer(kLimit);
  try {
    while (!sBytes.empty()) {
      const std::span<char> room = buffer.makeRoom();
      const std::size_t uBytes = sBytes.copy(room.data(), std::min(uPiece, room.size()));
      buffer.addFilled(uBytes);
      sBytes.remove_prefix(uBytes);
      while (const auto line = buffer.takeLine()) {
        lines.emplace_back(*line);
      }
    }
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    lines.emplace_back("(too long)");
  }
  return lines;
}

void decode(const std::string& sLine) {
  try {
    const auto pAnswer = qm_utils::rpc_line::parseAnswer(sLine, "f");
    JRPCRemoteError remote(pAnswer.get());
    std::string sVersion;
    JRPCVersion version;
    if (pAnswer->get("RPCVersion", sVersion) && version.fromText(sVersion)) {
      version.toText();
    }
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    error->getMessage();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t uSize) {
  const std::string_view sBytes(reinterpret_cast<const char*>(pData), uSize);
  const std::vector<std::string> lines = linesOf(sBytes, uSize + 1);
  if (lines != linesOf(sBytes, 1) || lines != linesOf(sBytes, 7)) {
    std::abort();
  }
  qm_utils::OwedAnswers owed;
  for (const std::string& sLine : lines) {
    owed.expect(static_cast<qm_utils::OwedAnswers::Request>(sLine.size() % 3));
    const std::size_t uOwed = owed.count();
    const bool bNewest = owed.settle(sLine);
    if (owed.count() >= uOwed || bNewest != (owed.count() == 0)) {
      std::abort();
    }
    decode(sLine);
  }
  return 0;
}
