// Any bytes as a media file: described, walked to its end, sought in, its index built anew.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <sys/mman.h>
#include <unistd.h>

#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/socket/jfilesocket.h"
#include "storage/FileInput.h"

namespace {

/// A file in memory, which can be opened by its path.
std::string makeFile(const std::uint8_t* pData, std::size_t size, int& iFile) {
  iFile = memfd_create("media", 0);
  if (iFile < 0 || write(iFile, pData, size) != static_cast<ssize_t>(size)) {
    std::abort();
  }
  return "/proc/self/fd/" + std::to_string(iFile);
}

void walk(FileInput& input, std::size_t size) {
  qm_ci::Bitstream frame;
  std::uint32_t uStream = 0;
  std::size_t uFrames = 0;
  while (input.readNextFrame(uStream, frame, true) == FileInput::kFrame) {
    // A frame takes bytes of the file, or stands in its index.
    if (++uFrames > size + 2) {
      std::abort();
    }
  }
}

template <typename Work>
void tolerating(Work work) {
  try {
    work();
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t size) {
  qm_err::setLogHook(nullptr);
  int iFile = -1;
  const std::string sPath = makeFile(pData, size, iFile);
  tolerating([&] {
    const auto pInput =
        FileInput::create(std::make_unique<JFileSocket>(sPath, JFileSocket::kRead, true), false, sPath);
    if (!pInput) {
      return;
    }
    walk(*pInput, size);
    for (std::uint32_t uStream = 0; uStream <= 3; ++uStream) {
      tolerating([&] { pInput->seekFrame(uStream, 2, nullptr, nullptr, true); });
      tolerating([&] { pInput->seekTime(uStream, nullptr, JTime::fromMicroseconds(1000), nullptr, false); });
    }
    pInput->getFileInfo().rebuildIndex(true, nullptr, JTime::lastQueryTime());
  });
  close(iFile);
  return 0;
}
