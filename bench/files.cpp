// What files cost over the bare system calls, in 64 KiB blocks over a file of 8 MiB that the system's cache
// holds. Both sides move through the same file, and processor time is what counts. A ratio of 0.97 means 3%
// on top.
//
//   read             ours against read
//   write, writev    ours against write and writev, 16 buffers a block

#include <array>
#include <ctime>
#include <filesystem>
#include <functional>
#include <sys/uio.h>
#include <unistd.h>
#include <vector>

#include "bench/support/compare.h"
#include "coreapi/qmutils/log/JLog.h"
#include "coreapi/qmutils/socket/jfilesocket.h"

namespace {

constexpr std::size_t kBlock = 65536;
constexpr std::size_t kBlocks = 128;  // of the file
constexpr int kRounds = 8;            // through the file
constexpr int kPairs = 41;
constexpr double kGoal = 0.97;
constexpr std::size_t kBuffers = 16;

/// Processor time of this thread in seconds.
double threadTime() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

/// Moves block by block through the file again and again; the seconds that took.
double run(JFileSocket& file, const std::function<void()>& move) {
  const double start = threadTime();
  for (int i = 0; i < kRounds; ++i) {
    file.rewind();
    for (std::size_t k = 0; k < kBlocks; ++k) {
      move();
    }
  }
  return threadTime() - start;
}

}  // namespace

int main() {
  JLog::init();
  JLog::deleteOutputs();
  const std::string sPath =
      std::filesystem::temp_directory_path() / ("qm_bench_files_" + std::to_string(getpid()));
  JFileSocket file(sPath, JFileSocket::kTemporary, true);
  file.setEndOfFile(kBlock * kBlocks);
  const int iFile = file.getFileHandle();
  std::vector<char> block(kBlock);
  std::array<JIoBuf, kBuffers> ours;
  std::array<iovec, kBuffers> bare;
  for (std::size_t i = 0; i < kBuffers; ++i) {
    constexpr std::size_t kPart = kBlock / kBuffers;
    ours[i] = {block.data() + i * kPart, kPart};
    bare[i] = {block.data() + i * kPart, kPart};
  }
  const auto compare = [&](const char* szCall, const char* szPeer, const std::function<void()>& move,
                           const std::function<void()>& peer) {
    qm_bench::compare(
        {szCall, szPeer, kGoal, kPairs}, [&] { return run(file, move); }, [&] { return run(file, peer); });
  };
  ssize_t iMoved = 0;
  compare(
      "file write 64 KiB", "write", [&] { file.write(block.data(), kBlock); },
      [&] { iMoved += write(iFile, block.data(), kBlock); });
  compare(
      "file writev 64 KiB", "writev", [&] { file.writev(ours.data(), kBuffers); },
      [&] { iMoved += writev(iFile, bare.data(), kBuffers); });
  compare(
      "file read 64 KiB", "read", [&] { file.read(block.data(), kBlock); },
      [&] { iMoved += read(iFile, block.data(), kBlock); });
  return iMoved > 0 ? 0 : 1;
}
