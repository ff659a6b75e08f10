#include "tests/storage/readersupport.h"

#include <ostream>

#include "coreapi/qmci/qmcicodes.h"
#include "coreapi/qmci/videoinfonoxml.h"

namespace qm_test {

std::ostream& operator<<(std::ostream& stream, const Read& read) {
  return stream << "stream " << read.uStream << " frame " << read.ullFrameNumber << " at "
                << read.ullTimeStamp << (read.bKeyFrame ? " key " : " ") << read.sPayload.substr(0, 20);
}

std::unique_ptr<FileInput> readerOf(const std::string& sPath) {
  return FileInput::create(std::make_unique<JFileSocket>(sPath, JFileSocket::kRead, true), false, sPath);
}

std::string payload(FileInput& input, std::uint32_t uSize) {
  std::string sPayload(uSize, '\0');
  sPayload.resize(input.read(sPayload.data(), sPayload.size()));
  return sPayload;
}

std::vector<Read> readAll(FileInput& input) {
  std::vector<Read> frames;
  qm_ci::Bitstream frame;
  std::uint32_t uStream = 0;
  while (input.readNextFrame(uStream, frame, false) == FileInput::kFrame) {
    const qm_ci::Packet packet = frame.getPacket(0);
    frames.push_back({uStream, std::string(reinterpret_cast<const char*>(packet.pBuf), packet.nLength),
                      frame.getTimestamp(), frame.getFrameNumber(), input.isKeyFrame()});
  }
  return frames;
}

std::vector<Read> framesOf(const std::string& sPath) {
  const auto pInput = readerOf(sPath);
  return readAll(*pInput);
}

std::vector<Read> framesThereAre(const std::string& sPath) {
  std::vector<Read> frames;
  thrownBy([&] {
    if (const auto pInput = readerOf(sPath)) {
      frames = readAll(*pInput);
    }
  });
  return frames;
}

Frame numbered(std::uint32_t uStream, std::uint64_t i, std::size_t size) {
  std::string sPayload = std::to_string(uStream) + "/" + std::to_string(i) + " ";
  sPayload.resize(std::max(size, sPayload.size()), static_cast<char>('a' + i % 26));
  return {sPayload, kBegin + i * kPeriod, 100 + i, 1, static_cast<std::uint16_t>(i % 4 == 0 ? 3 : 0)};
}

Read asRead(std::uint32_t uStream, const Frame& frame) {
  return {uStream, frame.sPayload, frame.ullTimeStamp, frame.ullFrameNumber, (frame.wAccessFlags & 3) == 3};
}

qm_ci::StreamInfo wholeVideoStream(const std::string& sProperties) {
  qm_ci::QMVideoInfoNoXml info;
  info.setMIMEType("video/x-qmv1");
  info.setPacketizedFormat("linear");
  info.setWidth(352);
  info.setHeight(288);
  info.setVisibleRegion({0, 0, 352, 288});
  info.setPixelAspectRatio({1, 1});
  info.setPictureRate(25U, 1U);
  info.setInterlace(10);
  info.setNomMaxBitstreamSize(1000);
  return makeStreamInfo(qm_ci::QMCIVideoInfo(info.getCIInfo()), sProperties);
}

void writeAsf(const std::string& sPath, std::uint64_t uFrames, std::size_t size) {
  const auto pOutput = writerOf("asf", sPath);
  const auto stream = dataStream();
  pOutput->open(&stream, nullptr, nullptr);
  for (std::uint64_t i = 0; i < uFrames; ++i) {
    write(*pOutput, 1, numbered(1, i, size));
  }
}

}  // namespace qm_test
