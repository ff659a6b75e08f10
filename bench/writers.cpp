// Writing of media files:
//
//   asf, frames of 64 KB     the ASF writer, against a loop of the same gathered writes to a file of its own:
//   one of a
//                            head of 36 bytes and a payload for each frame. Both files are new, and neither
//                            is waited for to reach the disk. What is measured starts behind the opening of
//                            the file and ends with its closing, the index included.
//   asf, frames of 4 KB      the same for the record
//   asf, 64 KB, direct I/O   the same against whole blocks written from an aligned buffer, for the record
#include <array>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "bench/support/compare.h"
#include "coreapi/platform/process.h"
#include "coreapi/qmci/bitstream.h"
#include "coreapi/qmci/streaminfo.h"
#include "coreapi/qmutils/socket/jdirectiosocket.h"
#include "storage/ASFIO/asfformat.h"
#include "storage/FileOutput.h"

namespace {

constexpr std::size_t kBytes = 256U << 20;

qm_ci::StreamInfo stream() {
  const qm_ci::InfoBlock block = qm_ci::StreamDataInfo::make("application/x-test", "<d/>", 25, 1, 65536);
  return makeStreamInfo(qm_ci::StreamDataInfo(block));
}

/// The file goes where the program was started, so that the disk can be chosen.
std::string path() {
  return "writers_" + std::to_string(qm_platform::processId()) + ".asf";
}

std::unique_ptr<JSocket> newFile(bool bDirect) {
  std::filesystem::remove(path());
  if (bDirect) {
    return std::make_unique<JDirectIOSocket>(path(), JFileSocket::kWrite, true);
  }
  return std::make_unique<JFileSocket>(path(), JFileSocket::kWrite, true);
}

double ours(std::size_t frameSize, bool bDirect) {
  const std::vector<std::uint8_t> payload(frameSize, 'p');
  qm_ci::Bitstream frame;
  frame.setMaxSize(0, qm_ci::QMCI_FMT_PACKET, 1);
  frame.addExternalPacket(payload.data(), static_cast<std::uint32_t>(frameSize), 0);
  frame.setPictureType(1);
  auto pOutput = FileOutput::create(newFile(bDirect), "asf", path());
  const qm_ci::StreamInfo info = stream();
  return qm_bench::seconds([&] {
    pOutput->open(&info, nullptr, nullptr);
    for (std::uint64_t i = 0; i < kBytes / frameSize; ++i) {
      frame.setTimestamp(1 + i * 40000);
      frame.setFrameNumber(i);
      pOutput->writeBitstream(1, frame, 0, 0);
    }
    pOutput.reset();
  });
}

double sameWrites(std::size_t frameSize) {
  std::vector<std::uint8_t> payload(frameSize, 'p');
  std::array<std::uint8_t, asf_layout::data_unit::kHeadSize> head{};
  const std::array<JIoBuf, 2> bufs = {
      {{head.data(), head.size()}, {payload.data(), static_cast<std::uint32_t>(frameSize)}}};
  auto pFile = newFile(false);
  return qm_bench::seconds([&] {
    for (std::size_t i = 0; i < kBytes / frameSize; ++i) {
      pFile->writev(bufs.data(), bufs.size());
    }
    pFile.reset();
  });
}

double sameBlocks(std::size_t frameSize) {
  auto pFile = newFile(true);
  const std::size_t size =
      asf_layout::roundedUp(frameSize + asf_layout::data_unit::kHeadSize, pFile->getAlignment());
  const qm_utils::AlignedBuffer pBlock(
      static_cast<std::uint8_t*>(qm_utils::allocPages(size, JDirectIOSocket::kDefaultAlignment)));
  return qm_bench::seconds([&] {
    for (std::size_t i = 0; i < kBytes / frameSize; ++i) {
      pFile->write(pBlock.get(), size);
    }
    pFile.reset();
  });
}

}  // namespace

int main() {
  qm_bench::compare(
      {"asf, frames of 64 KB", "the same writev calls", 0.9}, [] { return ours(65536, false); },
      [] { return sameWrites(65536); });
  qm_bench::compare(
      {"asf, frames of 4 KB", "the same writev calls"}, [] { return ours(4096, false); },
      [] { return sameWrites(4096); });
  qm_bench::compare(
      {"asf, 64 KB, direct I/O", "the same blocks"}, [] { return ours(65536, true); },
      [] { return sameBlocks(65536); });
  std::filesystem::remove(path());
}
