// A description record from outside, in all three kinds: what is accepted is read, changed, written, and read
// again to the same. The first byte says which kind, and whether the texts are replaced.
#include <cstdint>
#include <cstdlib>
#include <span>

#include "coreapi/qmci/audioinfo.h"
#include "coreapi/qmci/datainfo.h"
#include "coreapi/qmci/videoinfo.h"
#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmxml/qmxml.h"

namespace {

template <class Info>
void tryKind(std::span<const std::uint8_t> record, const char* szMIMEType) {
  try {
    Info info(record, szMIMEType);
    const Info again(info.getCIInfo());
    if (!info.isSameStream(again, true) || info.getStreamParams() != again.getStreamParams()) {
      std::abort();
    }
    info.getXML();
    info.setMIMEType(info.getMIMEType() + "/longer");
    info.setStreamParams({});
    info.updateBlock();
    const Info changed(info.getCIInfo());
    if constexpr (requires { info.setInt("n", 1); }) {
      if (!info.setInt("n", 7, "a\\b") || info.getInt("n", "a\\b") != 7) {
        std::abort();
      }
    }
    if constexpr (requires { info.createBMI(); }) {
      info.setSize(info.getHeight(), info.getWidth());
      info.createBMI();
    }
    if constexpr (requires { info.createWFX(); }) {
      info.createWFX();
    }
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const QMXmlUse s_use;
  if (size == 0) {
    return 0;
  }
  const std::span<const std::uint8_t> record(data + 1, size - 1);
  const char* szMIMEType = (data[0] & 8) != 0 ? "video/x-VfW-RGB24" : nullptr;
  switch (data[0] & 7) {
    case 0:
      tryKind<qm_ci::QMVideoInfoNoXml>(record, szMIMEType);
      break;
    case 1:
      tryKind<qm_ci::QMVideoInfo>(record, szMIMEType);
      break;
    case 2:
      tryKind<qm_ci::QMAudioInfoNoXml>(record, szMIMEType);
      break;
    case 3:
      tryKind<qm_ci::QMAudioInfo>(record, szMIMEType);
      break;
    case 4:
      tryKind<qm_ci::QMDataInfoNoXml>(record, szMIMEType);
      break;
    default:
      tryKind<qm_ci::QMDataInfo>(record, szMIMEType);
      break;
  }
  return 0;
}
