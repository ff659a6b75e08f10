#include "coreapi/qmutils/log/recordbuffer.h"

#include <cstddef>

#include "coreapi/platform/largeblock.h"
#include "coreapi/qmutils/error/jgenericerror.h"
#include "coreapi/qmutils/text/jtext.h"

std::unique_ptr<std::uint8_t[]> qm_utils::makeRecordBuffer(const char* szClass, const std::string& sName,
                                                           int iBufferSize) {
  std::unique_ptr<std::uint8_t[]> pBuffer;
  if (iBufferSize >= 0) {
    pBuffer = qm_platform::tryAllocate(static_cast<std::size_t>(iBufferSize) + 1);
  }
  if (!pBuffer) {
    using OutOfMemory = JGenericError<unsigned, 0>;
    throw new OutOfMemory(
        format("new %s(%s, %d) couldn't malloc the buffer", szClass, sName.c_str(), iBufferSize), szClass, {},
        __FILE_NAME__, __LINE__);
  }
  return pBuffer;
}
