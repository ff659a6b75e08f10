#include "storage/ASFIO/asfheader.h"

#include <algorithm>
#include <limits>
#include <string_view>

#include "coreapi/platform/byteorder.h"
#include "coreapi/qmci/audioinfonoxml.h"
#include "coreapi/qmci/videoinfonoxml.h"
#include "coreapi/qmutils/error/jerror.h"
#include "storage/saturated.h"

namespace {

using namespace asf_layout;
using qm_platform::writeLE16;
using qm_platform::writeLE32;
using qm_platform::writeLE64;
using Bytes = std::vector<std::uint8_t>;

void writeGuid(const Guid& id, std::uint8_t* pTo) noexcept {
  std::copy(id.begin(), id.end(), pTo);
}

std::uint16_t saturated16(std::uint32_t uValue) noexcept {
  return saturated<std::uint16_t>(uValue);
}

void append(Bytes& to, std::span<const std::uint8_t> bytes) {
  const std::size_t place = to.size();
  to.resize(place + bytes.size());
  std::copy(bytes.begin(), bytes.end(), to.data() + place);
}

void append(Bytes& to, std::string_view sText) {
  append(to, {reinterpret_cast<const std::uint8_t*>(sText.data()), sText.size()});
}

std::string textOf(const JParams& params) {
  std::string sText;
  params.toText(sText, ',');
  return sText;
}

/// A number of bytes as a field of the header holds it. Throws JTextError for one that doesn't fit: a reader
/// finds everything behind it by these.
template <typename Field>
Field fitting(std::size_t size, const char* szWhat) {
  if (size > std::numeric_limits<Field>::max()) {
    QM_THROW(JTextError, "the %s of a stream is too long for an ASF file", szWhat);
  }
  return static_cast<Field>(size);
}

/// The 64 bits of a real number (IEEE 754).
void writeReal(std::uint8_t* pTo, double value) noexcept {
  writeLE64(pTo, std::bit_cast<std::uint64_t>(value));
}

Bytes videoData(const AsfStreamDescription& stream) {
  namespace at = video_data;
  const qm_ci::QMVideoInfoNoXml video(*stream.pStreamInfo->getVideoInfo());
  const Bytes bitmap = video.createBMI();
  Bytes data(at::kBitmapAt);
  writeGuid(kVideoCoding1, data.data() + at::kCoding1At);
  writeGuid(kVideoCoding2, data.data() + at::kCoding2At);
  for (std::size_t i = 0; i < at::kRates; ++i) {
    writeReal(data.data() + at::kRateAt + 8 * i, stream.framesPerSecond);
  }
  writeLE16(data.data() + at::kWidthAt, saturated16(video.getWidth()));
  writeLE16(data.data() + at::kHeightAt, saturated16(video.getHeight()));
  writeLE16(data.data() + at::kWidthAgainAt, saturated16(video.getWidth()));
  writeLE16(data.data() + at::kHeightAgainAt, saturated16(video.getHeight()));
  writeLE16(data.data() + at::kBitCountAt, qm_ci::readBitmapHeader(bitmap.data()).biBitCount);
  writeLE16(data.data() + at::kSizeAt,
            fitting<std::uint16_t>(bitmap.size() + at::kSizeOverBlock, "description"));
  std::fill_n(data.begin() + at::kOnesAt, at::kOnesSize, std::uint8_t{0xFF});
  append(data, bitmap);
  return data;
}

Bytes audioData(const AsfStreamDescription& stream) {
  namespace at = audio_data;
  const qm_ci::QMAudioInfoNoXml audio(*stream.pStreamInfo->getAudioInfo());
  const Bytes wave = audio.createWFX();
  const std::size_t waveSize = qm_ci::kWaveHeaderSize + qm_ci::readWaveHeader(wave.data()).cbSize;
  const std::uint64_t ullFrameBytes = std::uint64_t{audio.getSamplingsPerFrame()} *
                                      audio.getNumberOfChannels() * (audio.getBitsPerSample() / 8);
  Bytes data(at::kWaveAt);
  writeGuid(kAudioCoding1, data.data() + at::kCoding1At);
  writeGuid(kAudioCoding2, data.data() + at::kCoding2At);
  writeLE32(data.data() + at::kBitsAt, audio.getBitsPerSample());
  writeLE32(data.data() + at::kRateAt, audio.getSamplingRate());
  writeLE32(data.data() + at::kFrameBytesAt, saturated<std::uint32_t>(ullFrameBytes));
  writeLE32(data.data() + at::kSamplingsAt, audio.getSamplingsPerFrame());
  writeLE16(data.data() + at::kChannelsAt, audio.getNumberOfChannels());
  writeLE16(data.data() + at::kSizeAt, fitting<std::uint16_t>(waveSize, "description"));
  append(data, std::span(wave).first(waveSize));
  return data;
}

Bytes dataData(const AsfStreamDescription& stream) {
  const qm_ci::InfoBlock block = *stream.pStreamInfo->getStreamDataInfo();
  const qm_ci::StreamDataInfo info(block);
  Bytes data;
  append(data, info.getBytes().first(data_data::kFieldsSize));
  append(data, info.getDescription());
  data.push_back(0);
  return data;
}

/// What the type of a stream decides: its identifier, the data behind the MIME type, and that type.
struct TypeParts {
  const Guid* pType;
  Bytes data;
  std::string sMIMEType;  ///< with its zero; empty unless it is stored
};

TypeParts typeParts(const AsfStreamDescription& stream) {
  switch (stream.pStreamInfo->getType()) {
    case qm_ci::StreamInfo::kVideo:
      return {&kVideoStream, videoData(stream), {}};
    case qm_ci::StreamInfo::kAudio:
      return {&kAudioStream, audioData(stream), {}};
    case qm_ci::StreamInfo::kData:
      return {&kDataStream, dataData(stream), std::string(stream.pStreamInfo->getMIMEType()) + '\0'};
    default:
      return {&kOtherStream, {}, {}};
  }
}

void appendExtension(Bytes& to, const Guid& id, std::string_view sContent) {
  namespace at = stream_extension;
  Bytes object(at::kContentAt);
  writeAsfObjectHead(kStreamExtensionObject, at::kContentAt + sContent.size(), object.data());
  writeGuid(id, object.data() + at::kIdAt);
  writeLE32(object.data() + at::kContentSizeAt,
            fitting<std::uint32_t>(sContent.size(), "list of parameters"));
  append(to, object);
  append(to, sContent);
}

void appendStream(Bytes& to, const AsfStreamDescription& stream, std::uint16_t wNumber) {
  namespace at = stream_properties;
  const TypeParts parts = typeParts(stream);
  Bytes object(at::kMimeAt);
  writeGuid(*parts.pType, object.data() + at::kTypeAt);
  writeLE32(object.data() + at::kFlagsAt, at::kFlags);
  writeLE16(object.data() + at::kNumberAt, wNumber);
  object[at::kMimeLengthAt] = fitting<std::uint8_t>(parts.sMIMEType.size(), "MIME type");
  append(object, parts.sMIMEType);
  object.resize(object.size() + sizeof(std::uint16_t));
  writeLE16(object.data() + object.size() - sizeof(std::uint16_t),
            fitting<std::uint16_t>(parts.data.size(), "description"));
  append(object, parts.data);
  const char* const szProperties = stream.pStreamInfo->getProperties();
  appendExtension(object, kParameters, textOf(*stream.pParams) + '\0');
  appendExtension(object, kPropertiesExtension, std::string(szProperties ? szProperties : "") + '\0');
  appendExtension(object, Guid{}, {});
  writeAsfObjectHead(kStreamPropertiesObject, object.size(), object.data());
  append(to, object);
}

void appendLanguageList(Bytes& to) {
  namespace at = language_list;
  Bytes object(at::kTextAt);
  const std::string_view sText(at::kText);
  writeAsfObjectHead(kLanguageListObject, at::kSize, object.data());
  writeLE16(object.data() + at::kCountAt, 1);
  object[at::kLengthAt] = static_cast<std::uint8_t>(sText.size());
  append(to, object);
  append(to, sText);
}

}  // namespace

void writeAsfObjectHead(const Guid& id, std::uint64_t uSize, std::uint8_t* pTo) noexcept {
  writeGuid(id, pTo + kObjectIdAt);
  writeLE64(pTo + kObjectSizeAt, uSize);
}

void writeAsfFileProperties(const AsfFileProperties& properties, std::uint8_t* pObject) noexcept {
  namespace at = file_properties;
  writeLE64(pObject + at::kCreationDateAt, properties.ullCreationDate);
  writeLE64(pObject + at::kLastTimeAt, properties.ullLastTime);
  writeLE64(pObject + at::kLastTimeAgainAt, properties.ullLastTime);
  writeLE32(pObject + at::kFlagsAt, properties.dwFlags);
  writeLE32(pObject + at::kPeakBitRateAt, properties.dwPeakBitRate);
  writeLE32(pObject + at::kAverageUnitAt, properties.dwAverageUnit);
  writeLE32(pObject + at::kLargestUnitAt, properties.dwLargestUnit);
  writeLE32(pObject + at::kFrameCountAt, properties.dwFrameCount);
  writeLE16(pObject + at::kStreamCountAt, properties.wStreamCount);
}

void writeAsfStreamStatistics(const AsfStreamStatistics& statistics, std::uint8_t* pObject) noexcept {
  namespace at = stream_properties;
  writeLE64(pObject + at::kFirstDateAt, statistics.ullFirstDate);
  writeLE64(pObject + at::kLastDateAt, statistics.ullLastDate);
  writeLE32(pObject + at::kAverageBitRateAt, statistics.dwAverageBitRate);
  writeLE32(pObject + at::kPeakBitRateAt, statistics.dwPeakBitRate);
  writeLE32(pObject + at::kAverageUnitAt, statistics.dwAverageUnit);
  writeLE32(pObject + at::kLargestUnitAt, statistics.dwLargestUnit);
}

AsfHeader makeAsfHeader(const AsfFileProperties& properties, std::span<const AsfStreamDescription> streams,
                        const JParams& fileParams) {
  AsfHeader header;
  Bytes& bytes = header.bytes;
  bytes.resize(file_properties::kPlace + file_properties::kSize);
  std::uint8_t* const pProperties = bytes.data() + file_properties::kPlace;
  writeAsfObjectHead(kFilePropertiesObject, file_properties::kSize, pProperties);
  writeAsfFileProperties(properties, pProperties);
  appendLanguageList(bytes);
  std::uint16_t wNumber = 0;
  for (const AsfStreamDescription& stream : streams) {
    header.streamsAt.push_back(bytes.size());
    appendStream(bytes, stream, ++wNumber);
  }
  if (!fileParams.isEmpty()) {
    const std::string sText = textOf(fileParams);
    const std::size_t place = bytes.size();
    bytes.resize(place + kObjectHeadSize);
    writeAsfObjectHead(kParameters, kObjectHeadSize + sText.size(), bytes.data() + place);
    append(bytes, sText);
  }
  // More streams than their number can count don't fit either.
  if (bytes.size() > kMaxHeaderSize) {
    QM_THROW(JTextError, "ASF header too long");
  }
  writeAsfObjectHead(kHeaderObject, bytes.size(), bytes.data());
  return header;
}
