// A server's bytes at the receiver of a TPKT stream, cut in several ways.

#include "coreapi/qmstream/qmtpkt.h"
#include "fuzz/streamreceiver.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t uSize) {
  fuzz::check<qm_stream::ITPKTSocket>(pData, uSize, 0);
  return 0;
}
