#include "bench/support/rawcopy.h"

#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <memory>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "bench/support/compare.h"
#include "coreapi/qmstream/rcpyheader.h"
#include "coreapi/qmutils/socket/jtcpsocket.h"

namespace qm_bench {

namespace {

constexpr std::size_t kBlock = std::size_t{1} << 20;
constexpr std::size_t kBuffer = std::size_t{256} << 10;

}  // namespace

void pushFrames(std::uint16_t uPort, std::size_t uFrame, std::size_t uVolume) {
  qm_stream::RemoteCopyFrameHeader header;
  header.setFrameSize(static_cast<std::uint32_t>(uFrame));
  header.setTimeStamp(12943620000000000);
  header.setAccessPoint(true);
  std::string sFrame(reinterpret_cast<const char*>(header.data()), header.kSize);
  sFrame.append(uFrame, 'x');
  std::string sBlock;
  while (sBlock.size() + sFrame.size() <= kBlock) {
    sBlock += sFrame;
  }
  JTCPSocket socket;
  socket.connect(JInetAddr("127.0.0.1", uPort));
  for (std::size_t i = 0; i < uVolume / sBlock.size(); ++i) {
    socket.write(sBlock.data(), sBlock.size());
  }
  const qm_stream::RemoteCopyFrameHeader end;
  socket.write(end.data(), end.kSize);
  socket.shutdownWrite();
  char closed;
  socket.read(&closed, 1);
}

double rawCopy(const std::string& sPath, std::size_t uFrame, std::size_t uVolume) {
  std::filesystem::remove(sPath);
  JTCPSocket listener{std::uint16_t{0}};
  std::thread pushing;
  const double dSeconds = seconds([&] {
    const int iFile = open(sPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    pushing = std::thread(pushFrames, listener.getLocalPort(), uFrame, uVolume);
    const std::unique_ptr<JSocket> pAccepted = listener.accept();
    std::vector<char> buffer(kBuffer);
    for (;;) {
      const ssize_t iRead = recv(pAccepted->getHandle(), buffer.data(), buffer.size(), 0);
      if (iRead <= 0) {
        break;
      }
      if (write(iFile, buffer.data(), static_cast<std::size_t>(iRead)) != iRead) {
        std::abort();
      }
    }
    close(iFile);
  });
  pushing.join();
  return dSeconds;
}

}  // namespace qm_bench
