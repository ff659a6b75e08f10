// A bitmap or wave header from outside. What is accepted gives a record that reads back, and headers. The
// first byte says which.
#include <cstdint>
#include <cstdlib>
#include <span>

#include "coreapi/qmci/audioinfo.h"
#include "coreapi/qmci/videoinfo.h"
#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmxml/qmxml.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const QMXmlUse s_use;
  if (size == 0) {
    return 0;
  }
  const std::span<const std::uint8_t> header(data + 1, size - 1);
  try {
    if ((data[0] & 1) == 0) {
      qm_ci::QMVideoInfo info;
      if (info.updateFromBMI(header, data[0] >> 1)) {
        const qm_ci::QMVideoInfo again(info.getCIInfo());
        if (again.getXML() != info.getXML()) {
          std::abort();
        }
        info.createBMI();
        info.setSize(64, 48);
      }
    } else {
      qm_ci::QMAudioInfo info;
      if ((data[0] & 2) == 0 ? info.updateFromWFX(header) : info.updateNotQMCIFromWFX(header)) {
        const qm_ci::QMAudioInfo again(info.getCIInfo());
        if (again.getXML() != info.getXML()) {
          std::abort();
        }
        info.createWFXWithCodingParams();
        info.createWFX();
      }
    }
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
  }
  return 0;
}
