#include "coreapi/qmci/audioinfonoxml.h"

#include <algorithm>
#include <limits>

#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/text/jtext.h"

namespace qm_ci {

namespace {

template <typename Field>
Field fitting(std::uint64_t ullValue, const char* szField) {
  if (ullValue > std::numeric_limits<Field>::max()) {
    QM_THROW(JTextError, "a wave header can't hold this %s", szField);
  }
  return static_cast<Field>(ullValue);
}

}  // namespace

QMAudioInfoNoXml::QMAudioInfoNoXml() : MediaInfo(QMCIAudioInfo::kLayout) {}

QMAudioInfoNoXml::QMAudioInfoNoXml(std::span<const std::uint8_t> record, const char* szMIMEType,
                                   const char* szPacketizedFormat)
    : QMAudioInfoNoXml() {
  MediaInfo::init(record, szMIMEType, szPacketizedFormat);
}

bool QMAudioInfoNoXml::isSameStream(const QMAudioInfoNoXml& other, bool bCompareSize) const {
  return isSameBase(other, bCompareSize) && getSamplingRate() == other.getSamplingRate() &&
         getSamplingsPerFrame() == other.getSamplingsPerFrame() &&
         getNumberOfChannels() == other.getNumberOfChannels() &&
         getBitsPerSample() == other.getBitsPerSample();
}

std::string QMAudioInfoNoXml::getXML() const {
  return qm_utils::format(
             "<AudioInfo version=\"1.0\">\n<SamplingRate>%u</SamplingRate>\n"
             "<SamplingsPerFrame>%u</SamplingsPerFrame>\n<NumberOfChannels>%u</NumberOfChannels>\n"
             "<BitsPerSample>%u</BitsPerSample>\n<NomMaxBitstreamSize>%u</NomMaxBitstreamSize>\n",
             getSamplingRate(), getSamplingsPerFrame(), unsigned{getNumberOfChannels()},
             unsigned{getBitsPerSample()}, getNomMaxBitstreamSize()) +
         getXMLTail();
}

std::vector<std::uint8_t> QMAudioInfoNoXml::createWFX() const {
  const std::string sXML = getXML();
  return createWFX({reinterpret_cast<const std::uint8_t*>(sXML.data()), sXML.size()});
}

std::vector<std::uint8_t> QMAudioInfoNoXml::createWFXWithCodingParams() const {
  return createWFX(getCodingParams());
}

std::vector<std::uint8_t> QMAudioInfoNoXml::createWFX(std::span<const std::uint8_t> extra) const {
  WaveFormatEx header;
  header.nChannels = getNumberOfChannels();
  header.nSamplesPerSec = getSamplingRate();
  header.wBitsPerSample = getBitsPerSample();
  header.nBlockAlign =
      fitting<std::uint16_t>(std::uint64_t{getBitsPerSample()} / 8 * getNumberOfChannels(), "block");
  header.nAvgBytesPerSec = fitting<std::uint32_t>(std::uint64_t{header.nBlockAlign} * getSamplingRate(),
                                                  "number of bytes a second");
  header.cbSize = fitting<std::uint16_t>(extra.size(), "description");
  const std::size_t size = kWaveHeaderSize + extra.size();
  std::vector<std::uint8_t> block(size + size % 2);
  writeWaveHeader(header, block.data());
  std::copy(extra.begin(), extra.end(), block.begin() + kWaveHeaderSize);
  return block;
}

}  // namespace qm_ci
