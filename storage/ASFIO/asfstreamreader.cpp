#include "storage/ASFIO/asfstreamreader.h"

#include <bit>
#include <string>
#include <vector>

#include "coreapi/platform/byteorder.h"
#include "coreapi/qmci/audioinfo.h"
#include "coreapi/qmci/bitmapheader.h"
#include "coreapi/qmci/fourcc.h"
#include "coreapi/qmci/mimetypes.h"
#include "coreapi/qmci/qmcicodes.h"
#include "coreapi/qmci/streamdatainfo.h"
#include "coreapi/qmci/videoinfo.h"
#include "coreapi/qmci/waveheader.h"
#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/error/jgenericerror.h"
#include "storage/ASFIO/asfkinds.h"

using namespace asf_layout;
using qm_ci::StreamInfo;
using qm_ci::StreamProperties;
using qm_platform::readLE16;
using qm_platform::readLE32;
using qm_platform::readLE64;

namespace {

/// A rate is the simplest fraction this near to the number that a header holds.
constexpr double kRateTolerance = 0.00005;

/// How the pictures of earlier generations are interlaced, by a byte of the stream's data.
std::uint32_t interlaceOf(std::uint8_t uByte) noexcept {
  switch (uByte) {
    case 0:
      return 19;
    case 1:
      return 11;
    case 2:
    case 3:
      return 10;
    default:
      return 0;
  }
}

constexpr std::uint16_t kWavePcm = 1;
constexpr std::uint16_t kWaveMp3 = 0x55;

/// `cbSize` of a wave header with no XML behind it.
constexpr std::uint16_t kPlainExtra = 12;

/// Bytes of the largest frame where a header doesn't tell.
constexpr std::uint32_t kPcmFrameBytes = 96000;
constexpr std::uint32_t kMp3FrameBytes = 1952;
constexpr std::uint32_t kMp3Samplings = 1152;
constexpr std::uint16_t kMp3Bits = 16;

StreamProperties propertiesOf(const AsfStreamProperties& properties) {
  const AsfExtension* const pExtension = properties.find(kPropertiesExtension);
  return pExtension != nullptr ? StreamProperties(std::string(pExtension->text())) : StreamProperties();
}

/// Adds the parameters of an extension to a list. A text that doesn't parse must not keep the frames of a
/// file from being read.
void addParameters(const AsfStreamProperties& properties, const Guid& id, JParams& params) {
  const AsfExtension* const pExtension = properties.find(id);
  if (pExtension == nullptr) {
    return;
  }
  try {
    JParams added;
    added.parse(std::string(pExtension->text()));
    params.merge(added);
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    JCATCH_LOG(error.get());
  }
}

/// By how much the frame numbers of an early video stream go on; 1 where nothing tells it.
std::uint32_t decimationOf(const JParams& params) {
  std::int32_t iDecimation = 0;
  try {
    params.get("decimation", iDecimation);
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    JCATCH_LOG(error.get());
  }
  return iDecimation > 0 ? static_cast<std::uint32_t>(iDecimation) : 1;
}

/// The bitmap header of a stream of the bare form, which has none.
std::vector<std::uint8_t> bareBitmap(std::span<const std::uint8_t> data) {
  qm_ci::BitmapInfoHeader header;
  header.biWidth = readLE16(data.data() + video_data::kWidthAt);
  header.biHeight = readLE16(data.data() + video_data::kHeightAt);
  header.biBitCount = 16;
  header.biCompression = qm_ci::fourcc("QMV1");
  std::vector<std::uint8_t> block(qm_ci::kBitmapHeaderSize);
  qm_ci::writeBitmapHeader(header, block.data());
  return block;
}

std::vector<std::uint8_t> bitmapOf(std::span<const std::uint8_t> data) {
  const std::size_t uStored = readLE16(data.data() + video_data::kSizeAt);
  if (uStored == video_data::kNoBlock) {
    return bareBitmap(data);
  }
  if (uStored < video_data::kSizeOverBlock || data.size() < video_data::kBitmapAt) {
    return {};
  }
  const auto behind = data.subspan(video_data::kBitmapAt);
  const auto block = behind.first(std::min(behind.size(), uStored - video_data::kSizeOverBlock));
  return {block.begin(), block.end()};
}

bool isVideo(const AsfStreamProperties& properties) noexcept {
  return properties.type == kVideoStream && properties.data.size() >= video_data::kLeastSize &&
         readAsfGuid(properties.data.data() + video_data::kCoding1At) == kVideoCoding1;
}

std::optional<StreamInfo> readVideo(const AsfStreamProperties& properties, JParams& params) {
  const auto data = properties.data;
  const std::vector<std::uint8_t> block = bitmapOf(data);
  if (block.size() < qm_ci::kBitmapHeaderSize) {
    return std::nullopt;
  }
  qm_ci::QMVideoInfo info;
  if (!info.updateFromBMI(block, interlaceOf(data[video_data::kInterlaceAt]))) {
    return std::nullopt;
  }
  if (qm_ci::readBitmapHeader(block.data()).biCompression != qm_ci::fourcc("QMCI")) {
    // What stands in XML otherwise.
    info.setPictureRate(std::bit_cast<double>(readLE64(data.data() + video_data::kRateAt)), kRateTolerance);
    addParameters(properties, kEarlyParameters, params);
    info.setStreamIndexStep(decimationOf(params));
  }
  return makeStreamInfo(qm_ci::QMCIVideoInfo(info.getCIInfo()), propertiesOf(properties));
}

bool isAudio(const AsfStreamProperties& properties) noexcept {
  return properties.type == kAudioStream && properties.data.size() >= audio_data::kLeastSize &&
         readAsfGuid(properties.data.data() + audio_data::kCoding1At) == kAudioCoding1 &&
         readAsfGuid(properties.data.data() + audio_data::kCoding2At) == kAudioCoding2;
}

/// Completes a description that a wave header without XML has begun.
void describePlainAudio(std::span<const std::uint8_t> data, const qm_ci::WaveFormatEx& wave,
                        qm_ci::QMAudioInfo& info) {
  switch (wave.wFormatTag) {
    case kWavePcm: {
      const std::uint32_t uSamplings = readLE32(data.data() + audio_data::kSamplingsAt);
      const std::uint64_t ullBytes = std::uint64_t{uSamplings} * wave.nBlockAlign;
      info.setMIMEType("audio/x-qmpcm");
      info.setSamplingsPerFrame(uSamplings);
      info.setNomMaxBitstreamSize(
          ullBytes == 0 ? kPcmFrameBytes
                        : static_cast<std::uint32_t>(std::min<std::uint64_t>(ullBytes, 0xFFFFFFFF)));
      return;
    }
    case kWaveMp3:
      info.setMIMEType("audio/x-qmmp3");
      info.setSamplingsPerFrame(kMp3Samplings);
      info.setNomMaxBitstreamSize(kMp3FrameBytes);
      info.setBitsPerSample(kMp3Bits);
      return;
    default:
      QM_THROW(JUnimplementedError);
  }
}

StreamInfo readAudio(const AsfStreamProperties& properties) {
  const auto header = properties.data.subspan(audio_data::kWaveAt);
  if (header.size() < qm_ci::kWaveHeaderSize) {
    QM_THROW(JTextError, "updateAudioInfoFromXMLDesc error");
  }
  const qm_ci::WaveFormatEx wave = qm_ci::readWaveHeader(header.data());
  qm_ci::QMAudioInfo info;
  if (wave.cbSize != kPlainExtra) {
    if (!info.updateFromWFX(header)) {
      QM_THROW(JTextError, "updateAudioInfoFromXMLDesc error");
    }
  } else {
    if (!info.updateNotQMCIFromWFX(
            header.first(std::min<std::size_t>(header.size(), qm_ci::kWaveHeaderSize + kPlainExtra)))) {
      QM_THROW(JTextError, "couldn't update QMCIAudioInfo from WAVEFORMATEX");
    }
    describePlainAudio(properties.data, wave, info);
  }
  return makeStreamInfo(qm_ci::QMCIAudioInfo(info.getCIInfo()), propertiesOf(properties));
}

bool isData(const AsfStreamProperties& properties) noexcept {
  return properties.type == kDataStream && properties.data.size() >= data_data::kFieldsSize;
}

StreamInfo readData(const AsfStreamProperties& properties) {
  const auto data = properties.data;
  const auto text = data.subspan(data_data::kTextAt);
  std::string_view sDescription(reinterpret_cast<const char*>(text.data()), text.size());
  sDescription = sDescription.substr(0, sDescription.find('\0'));
  const auto field = [&](std::size_t at) { return readLE32(data.data() + data_data::kFieldsAt + at); };
  const qm_ci::InfoBlock block = qm_ci::StreamDataInfo::make(
      properties.sMIMEType, sDescription, field(qm_ci::StreamDataInfo::kFPSNumAt),
      field(qm_ci::StreamDataInfo::kFPSDenAt), field(qm_ci::StreamDataInfo::kFrameSizeAt));
  return makeStreamInfo(qm_ci::StreamDataInfo(block), propertiesOf(properties));
}

}  // namespace

std::optional<StreamInfo> readAsfStream(const AsfStreamProperties& properties, JParams& params,
                                        AsfStreamKind& eKind) {
  std::optional<StreamInfo> streamInfo;
  eKind = AsfStreamKind::kOther;
  if (isVideo(properties)) {
    eKind = AsfStreamKind::kVideo;
    streamInfo = readVideo(properties, params);
  } else if (isAudio(properties)) {
    eKind = AsfStreamKind::kAudio;
    streamInfo = readAudio(properties);
  } else if (isData(properties)) {
    eKind = AsfStreamKind::kData;
    streamInfo = readData(properties);
  }
  addParameters(properties, kParameters, params);
  return streamInfo;
}
