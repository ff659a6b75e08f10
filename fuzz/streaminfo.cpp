// The description of a stream as a file or a peer gives it. The first byte says in which form the rest is:
// 0 the record itself, 1 the native and 2 the R30 network form, as the binary parameter "StreamInfo" of a
// list.
#include "coreapi/qmci/streaminfo.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <sstream>

#include "coreapi/qmci/streaminfonet.h"
#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/params/jparams.h"
#include "coreapi/qmxml/qmxml.h"

namespace {

void readAll(const qm_ci::StreamInfo& info) {
  std::uint64_t ullNumerator = 0;
  std::uint64_t ullDenominator = 0;
  std::int32_t iNumerator = 0;
  std::int32_t iDenominator = 0;
  info.isVideo();
  info.isAudio();
  info.isSynthetic();
  info.getTimeBase(&ullNumerator, &ullDenominator);
  info.getFramePeriod();
  info.getMaxFrameSize();
  std::ostringstream text;
  info.toText(text, "\n");
  info.toDetailedText(text, "\n");
  info.isCompatible(&info, false);
  info.getVideoInfo();
  info.getAudioInfo();
  info.getDataInfo();
  info.getStreamDataInfo();
  try {
    info.getPlayRate(iNumerator, iDenominator);
    JParams params;
    params.add("PlayRateNumerator", 1);
    info.withProperties(params);
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
  }
}

/// Whatever was read can be written and read again.
void writeAndReadAgain(const qm_ci::StreamInfo& info) {
  std::unique_ptr<qm_ci::StreamInfo> pAgain;
  JParams native;
  qm_ci::writeStreamInfo(info, native);
  qm_ci::readStreamInfo(native, &pAgain);
  if (pAgain->getInfoSize() != info.getInfoSize()) {
    __builtin_trap();
  }
  try {
    JParams r30;
    qm_ci::writeStreamInfoR30(info, r30);
    qm_ci::readStreamInfoR30(r30, &pAgain);
  } catch (JError* pError) {
    const qm_err::CaughtError notForOlderPeers(pError);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const QMXmlUse xml;
  if (size == 0) {
    return 0;
  }
  const std::uint8_t uForm = data[0] % 3;
  const std::span<const std::uint8_t> bytes(data + 1, size - 1);
  std::unique_ptr<qm_ci::StreamInfo> pInfo;
  try {
    if (uForm == 0) {
      pInfo = std::make_unique<qm_ci::StreamInfo>(bytes);
    } else {
      JParams params;
      params.add("StreamInfo", bytes.data(), static_cast<std::uint32_t>(bytes.size()), JVariant::T_BINARY);
      uForm == 1 ? qm_ci::readStreamInfo(params, &pInfo) : qm_ci::readStreamInfoR30(params, &pInfo);
    }
  } catch (JError* pError) {
    const qm_err::CaughtError refused(pError);
    return 0;
  }
  readAll(*pInfo);
  if (pInfo->getProperties() != nullptr) {  // of a known type
    writeAndReadAgain(*pInfo);
  }
  return 0;
}
