#include "coreapi/qmci/audioinfo.h"

#include <limits>

#include "coreapi/qmci/asserted.h"
#include "coreapi/qmci/descriptionreader.h"
#include "coreapi/qmutils/error/jerror.h"

namespace qm_ci {

namespace {

/// Extra bytes of a header that is described by itself, and not by the XML form behind it.
constexpr std::uint16_t kBareExtraSize = 12;

constexpr std::int64_t kLargestWord = std::numeric_limits<std::uint32_t>::max();
constexpr std::int64_t kLargestHalf = std::numeric_limits<std::uint16_t>::max();

/// A number of the XML form and the field that it goes to, whose width its largest value tells.
struct Element {
  const char* szName;
  std::size_t at;
  std::int64_t llLargest;
  const char* szMissing;
};

constexpr Element kElements[] = {
    {"NomMaxBitstreamSize", QMCIAudioInfo::kNomMaxBitstreamSizeAt, kLargestWord,
     "no NomMaxBitstreamSize given !"},
    {"SamplingRate", QMCIAudioInfo::kSamplingRateAt, kLargestWord, "no SamplingRate given !"},
    {"SamplingsPerFrame", QMCIAudioInfo::kSamplingsPerFrameAt, kLargestWord, "no SamplingsPerFrame given !"},
    {"NumberOfChannels", QMCIAudioInfo::kNumberOfChannelsAt, kLargestHalf, "no NumberOfChannels given !"},
    {"BitsPerSample", QMCIAudioInfo::kBitsPerSampleAt, kLargestHalf, "no BitsPerSample given !"},
};

}  // namespace

QMAudioInfo::QMAudioInfo(std::span<const std::uint8_t> record, const char* szMIMEType,
                         const char* szPacketizedFormat) {
  XmlMediaInfo::init(record, szMIMEType, szPacketizedFormat);
}

const std::string& QMAudioInfo::getSchema() {
  static const std::string s_sSchema = [] {
    DescriptionSchema schema(QMCIAudioInfo::kLayout);
    for (const char* szName : {"SamplingRate", "SamplingsPerFrame", "NumberOfChannels", "BitsPerSample"}) {
      schema.add(szName, QMXmlParams::kNonNegativeInteger, false, "1");
    }
    schema.add("NomMaxBitstreamSize", QMXmlParams::kNonNegativeInteger);
    schema.add("MIMEType", QMXmlParams::kString);
    schema.add("PacketizedFormat", QMXmlParams::kString, true);
    return schema.finish();
  }();
  return s_sSchema;
}

bool QMAudioInfo::updateAudioInfoFromXMLDesc(const char* pText, std::size_t size) {
  DescriptionReader reader(getLayout(), m_pSchema, getSchema());
  if (!reader.open({pText, size}) || !reader.readTexts()) {
    return false;
  }
  std::uint32_t values[std::size(kElements)] = {};
  for (std::size_t i = 0; i < std::size(kElements); ++i) {
    const Element& element = kElements[i];
    const auto value = reader.number("", element.szName, element.szMissing, 0, element.llLargest);
    if (!value) {
      return false;
    }
    values[i] = static_cast<std::uint32_t>(*value);
  }
  if (!setTexts(reader.getMIMEType(), reader.getPacketizedFormat(), reader.getStreamParams())) {
    return reader.refuse("error while getting StreamParams !");
  }
  for (std::size_t i = 0; i < std::size(kElements); ++i) {
    if (kElements[i].llLargest == kLargestHalf) {
      setHalf(kElements[i].at, static_cast<std::uint16_t>(values[i]));
    } else {
      setWord(kElements[i].at, values[i]);
    }
  }
  return true;
}

bool QMAudioInfo::updateFromWFX(std::span<const std::uint8_t> header) {
  if (!JASSERTED(header.size() >= kWaveHeaderSize)) {
    return false;
  }
  const std::uint16_t wExtraSize = readWaveHeader(header.data()).cbSize;
  if (!JASSERTED(wExtraSize <= header.size() - kWaveHeaderSize)) {
    return false;
  }
  if (wExtraSize != kBareExtraSize) {
    return updateAudioInfoFromXMLDesc(reinterpret_cast<const char*>(header.data() + kWaveHeaderSize),
                                      wExtraSize);
  }
  qm_err::logText(qm_err::kLogWarning, "updateAudioInfoFromWFX(): file is not compressed with QMCI");
  return updateNotQMCIFromWFX(header.first(kWaveHeaderSize + wExtraSize));
}

bool QMAudioInfo::updateNotQMCIFromWFX(std::span<const std::uint8_t> header) {
  if (!JASSERTED(header.size() >= kPcmHeaderSize)) {
    return false;
  }
  const WaveFormatEx wave = readPcmHeader(header.data());
  reset();
  setSamplingRate(wave.nSamplesPerSec);
  setSamplingsPerFrame(0);
  setNumberOfChannels(wave.nChannels);
  setBitsPerSample(wave.wBitsPerSample);
  setMIMEType("audio/x-AfW-PCM");
  setPacketizedFormat("linear");
  if (header.size() > kWaveHeaderSize) {
    setCodingParams(header.subspan(kWaveHeaderSize));
  }
  return true;
}

}  // namespace qm_ci
