#include "tests/coreapi/qmci/streamsamples.h"

#include "coreapi/platform/byteorder.h"
#include "coreapi/qmci/audioinfonoxml.h"
#include "coreapi/qmci/videoinfonoxml.h"

namespace qm_test {

qm_ci::StreamInfo videoStream(const std::string& sProperties, const char* szMIMEType,
                              std::uint32_t uRateNumerator) {
  qm_ci::QMVideoInfoNoXml info;
  info.setMIMEType(szMIMEType);
  info.setPacketizedFormat("linear");
  info.setStreamParams("<Quality>7</Quality>");
  info.setWidth(352);
  info.setHeight(288);
  info.setPictureRate(uRateNumerator, 1U);
  info.setNomMaxBitstreamSize(1000);
  info.setStreamIndexStep(3);
  return makeStreamInfo(qm_ci::QMCIVideoInfo(info.getCIInfo()), sProperties);
}

qm_ci::StreamInfo audioStream(const std::string& sProperties, const char* szMIMEType) {
  qm_ci::QMAudioInfoNoXml info;
  info.setMIMEType(szMIMEType);
  info.setPacketizedFormat("linear");
  info.setSamplingRate(8000);
  info.setNumberOfChannels(2);
  info.setBitsPerSample(16);
  info.setSamplingsPerFrame(160);
  info.setNomMaxBitstreamSize(640);
  return makeStreamInfo(qm_ci::QMCIAudioInfo(info.getCIInfo()), sProperties);
}

qm_ci::StreamInfo dataStream(const std::string& sProperties, const char* szMIMEType,
                             const std::string& sDescription) {
  const qm_ci::InfoBlock block = qm_ci::StreamDataInfo::make(szMIMEType, sDescription, 25, 2, 500);
  return makeStreamInfo(qm_ci::StreamDataInfo(block), sProperties);
}

qm_ci::StreamInfo damage::video() {
  return videoStream("a=1");
}
qm_ci::StreamInfo damage::audio() {
  return audioStream("a=1");
}
qm_ci::StreamInfo damage::data() {
  return dataStream("a=1");
}

std::function<void(std::vector<std::uint8_t>&)> damage::word(std::size_t at, std::uint32_t uValue) {
  return [=](std::vector<std::uint8_t>& bytes) { qm_platform::writeLE32(&bytes[at], uValue); };
}

}  // namespace qm_test
