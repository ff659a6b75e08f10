// A server's bytes at the receiver of a remote copy stream, cut in several ways.

#include "coreapi/qmstream/qmrcpy30.h"
#include "fuzz/streamreceiver.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t uSize) {
  fuzz::check<qm_stream::IRCPYSocket30>(pData, uSize, qm_stream::RemoteCopyFrameHeader::kSize);
  return 0;
}
