#include "bench/support/benchunit.h"

#include <filesystem>
#include <memory>

#include "coreapi/qmci/bitstream.h"
#include "coreapi/qmci/streamdatainfo.h"
#include "coreapi/qmci/streaminfo.h"
#include "coreapi/qmutils/socket/jfilesocket.h"
#include "storage/FileOutput.h"
#include "storage/Slice.h"

namespace qm_bench {

namespace {

constexpr std::uint64_t kKeyFrames = 100;

void writeSlice(const std::string& sPath, const UnitContent& content, std::uint64_t uFirst) {
  const auto pOutput =
      FileOutput::create(std::make_unique<JFileSocket>(sPath, JFileSocket::kWrite, true), "asf", sPath);
  const auto block = qm_ci::StreamDataInfo::make("application/x-bench", "<d/>", 25, 1,
                                                 static_cast<std::uint32_t>(content.uFrame) + 128);
  const auto stream = makeStreamInfo(qm_ci::StreamDataInfo(block));
  pOutput->open(&stream, nullptr, nullptr);
  const std::string sPayload(content.uFrame, 'x');
  qm_ci::Bitstream frame;
  frame.setMaxSize(static_cast<std::uint32_t>(content.uFrame), qm_ci::QMCI_FMT_PACKET, 1);
  frame.addExternalPacket(sPayload.data(), static_cast<std::uint32_t>(sPayload.size()), 0);
  for (std::uint64_t i = uFirst; i < uFirst + content.uFrames; ++i) {
    frame.setTimestamp(kUnitBegin + i * content.uPeriod);
    frame.setFrameNumber(i);
    frame.setAccessFlags(i % kKeyFrames == 0 ? 3 : 0);
    pOutput->writeBitstream(1, frame, 0, 0);
  }
}

}  // namespace

void recordUnit(const std::string& sRoot, const std::string& sSource, std::int32_t iFps,
                const UnitContent& content) {
  const std::string sUnit = sRoot + "/" + sSource + "/" + std::to_string(iFps);
  std::filesystem::create_directories(sUnit);
  for (std::uint64_t uSlice = 0; uSlice < content.uSlices; ++uSlice) {
    const std::uint64_t uFirst = uSlice * content.uFrames;
    const std::string sWork = sUnit + "/current.asf";
    writeSlice(sWork, content, uFirst);
    const TimeSpan span(
        JTime::fromMicroseconds(kUnitBegin + uFirst * content.uPeriod),
        JTime::fromMicroseconds(kUnitBegin + (uFirst + content.uFrames - 1) * content.uPeriod));
    std::filesystem::rename(
        sWork, sUnit + "/" + Slice::computeFileName(span, std::filesystem::file_size(sWork), ".asf"));
  }
}

}  // namespace qm_bench
