#include <cstdlib>
#include <vector>

#include "coreapi/platform/byteorder.h"
#include "coreapi/qmutils/log/JLogFormat.h"
#include "coreapi/qmutils/log/JLogMsg.h"

// The binary form of log records. The first two bytes are a limit for the writer, the rest is a record as it
// comes from another process. What was read must be written and read back as the same record when there is
// room, and never be written past the limit.

namespace {

void require(bool bCondition) {
  if (!bCondition) {
    std::abort();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t uSize) {
  if (uSize < 2) {
    return 0;
  }
  const std::size_t uLimit = qm_platform::readBE16(pData);
  JLog::Msg record;
  require(JLog::Msg::deserialise(pData + 2, uSize - 2, record) == (uSize - 2 >= 2));

  std::vector<std::uint8_t> whole(uSize + 256);
  const std::size_t uWhole = record.serialise(whole.data(), whole.size());
  JLog::Msg again;
  require(JLog::Msg::deserialise(whole.data(), uWhole, again));
  require(again == record);

  // Exactly as large as the limit, so that the sanitizer sees a write past it.
  std::vector<std::uint8_t> cut(uLimit);
  const std::size_t uCut = record.serialise(cut.data(), uLimit);
  require(uCut <= uLimit);
  JLog::Msg::deserialise(cut.data(), uCut, again);

  std::string sLine;
  JLogFormat(record.sHost).expand(record, record.sMessage, sLine);
  return 0;
}
