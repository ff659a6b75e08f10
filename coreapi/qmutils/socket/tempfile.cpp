#include "coreapi/qmutils/socket/tempfile.h"

#include <cerrno>
#include <cstdint>
#include <string>

#include "coreapi/platform/tempstream.h"
#include "coreapi/qmutils/thread/jmutex.h"

namespace qm_utils {

namespace {

/// Names that may be taken in a row before the directory is given up.
constexpr int kMostTries = 10'000;

std::uint32_t nextNumber() {
  static JMutex& mutex = *new JMutex;
  static std::uint32_t uNext = 0;
  const JAutoLock lock(mutex);
  return uNext++;
}

}  // namespace

void makeTempName(char* szBuffer, std::size_t uSize) noexcept {
  std::snprintf(szBuffer, uSize, "%08X.tmp", static_cast<unsigned>(nextNumber()));
}

StreamPointer openTempFile() {
  for (int i = 0; i < kMostTries; ++i) {
    char szName[16];
    makeTempName(szName, sizeof szName);
    std::FILE* pStream = nullptr;
    const int iError = qm_platform::openUnnamedStream(szName, pStream);
    if (iError != EEXIST) {
      return StreamPointer(pStream);
    }
  }
  return nullptr;
}

}  // namespace qm_utils
