#include "tests/storage/writersupport.h"

#include <cstdio>

namespace qm_test {

void write(FileOutput& output, std::uint32_t uStream, const Frame& frame, std::uint32_t uTime) {
  qm_ci::Bitstream bitstream;
  bitstream.setMaxSize(0, qm_ci::QMCI_FMT_PACKET, 1);
  bitstream.addExternalPacket(frame.sPayload.data(), static_cast<std::uint32_t>(frame.sPayload.size()), 0);
  bitstream.setTimestamp(frame.ullTimeStamp);
  bitstream.setFrameNumber(frame.ullFrameNumber);
  bitstream.setPictureType(frame.wPictureType);
  bitstream.setAccessFlags(frame.wAccessFlags);
  bitstream.setDecoderPipe(5);
  bitstream.setFrameExtra(0x1234);
  output.writeBitstream(uStream, bitstream, uTime, 0);
}

std::unique_ptr<FileOutput> writerOf(const std::string& sType, const std::string& sPath) {
  return FileOutput::create(std::make_unique<JFileSocket>(sPath, JFileSocket::kWrite, true), sType, sPath);
}

std::string hex(const std::string& sDigits) {
  std::string sBytes;
  for (std::size_t i = 0; i < sDigits.size(); ++i) {
    if (sDigits[i] != ' ') {
      sBytes += static_cast<char>(std::stoi(sDigits.substr(i++, 2), nullptr, 16));
    }
  }
  return sBytes;
}

std::string le(std::uint64_t uValue, int iWidth) {
  std::string sBytes;
  for (; iWidth > 0; --iWidth, uValue >>= 8) {
    sBytes += static_cast<char>(uValue & 0xFF);
  }
  return sBytes;
}

std::uint64_t at(const std::string& sBytes, std::size_t place, int iWidth) {
  std::uint64_t uValue = 0;
  for (int i = iWidth - 1; i >= 0; --i) {
    uValue = uValue << 8 | static_cast<std::uint8_t>(sBytes.at(place + static_cast<std::size_t>(i)));
  }
  return uValue;
}

std::string runTool(const std::string& sCommand) {
  std::string sOutput;
  std::FILE* const pPipe = popen((sCommand + " 2>/dev/null").c_str(), "r");
  if (pPipe == nullptr) {
    return sOutput;
  }
  char buffer[4096];
  while (const std::size_t count = std::fread(buffer, 1, sizeof buffer, pPipe)) {
    sOutput.append(buffer, count);
  }
  pclose(pPipe);
  return sOutput;
}

}  // namespace qm_test
