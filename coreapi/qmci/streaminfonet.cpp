#include "coreapi/qmci/streaminfonet.h"

#include <algorithm>
#include <initializer_list>
#include <limits>
#include <span>
#include <string>
#include <utility>

#include "coreapi/platform/byteorder.h"
#include "coreapi/qmci/asserted.h"
#include "coreapi/qmci/audioinfo.h"
#include "coreapi/qmci/bitmapheader.h"
#include "coreapi/qmci/fourcc.h"
#include "coreapi/qmci/mimetypes.h"
#include "coreapi/qmci/qmcibitstream.h"
#include "coreapi/qmci/qmcicodes.h"
#include "coreapi/qmci/videoinfo.h"
#include "coreapi/qmci/waveheader.h"
#include "coreapi/qmutils/params/jparams.h"

namespace qm_ci {

namespace {

using qm_platform::readLE32;
using qm_platform::writeLE32;

constexpr const char* kParameter = "StreamInfo";
constexpr const char* kDecimation = "Decimation";

// StreamInfoNet.
constexpr std::size_t kNetTypeAt = 0;
constexpr std::size_t kNetMajorAt = 4;
constexpr std::size_t kNetMinorAt = 8;
constexpr std::size_t kNetInfoSizeAt = 12;
constexpr std::size_t kNetFixedSize = 16;
constexpr std::uint32_t kNetMajor = 3;
constexpr std::uint32_t kNetMinor = 6;

constexpr std::size_t kNetWidthAt = 16;
constexpr std::size_t kNetHeightAt = 20;
constexpr std::size_t kNetStandardAt = 24;
constexpr std::size_t kNetRateNumAt = 28;
constexpr std::size_t kNetRateDenAt = 32;
constexpr std::size_t kNetFrameKindAt = 36;
constexpr std::size_t kNetDecimationAt = 40;
constexpr std::size_t kNetBitmapAt = 44;
constexpr std::size_t kBitmapCompressionAt = 16;

constexpr std::size_t kNetSamplesPerFrameAt = 16;
constexpr std::size_t kNetWaveAt = 20;
constexpr std::size_t kNetAudioSize = 40;

constexpr std::size_t kNetFPSNumAt = 16;
constexpr std::size_t kNetFPSDenAt = 20;
constexpr std::size_t kNetFrameSizeAt = 24;
constexpr std::size_t kNetTextSizeAt = 28;
constexpr std::size_t kNetTextsAt = 32;
constexpr std::uint32_t kNetTextSizeExtra = 16;

constexpr std::uint16_t kWavePcm = 1;
constexpr std::uint16_t kWaveMp3 = 85;

/// Nominal largest frames of audio: of PCM when it isn't known how long a frame is, and of MP3.
constexpr std::uint32_t kPcmFrameSize = 96000;
constexpr std::uint32_t kMp3FrameSize = 1952;
constexpr std::uint16_t kMp3Bits = 16;
constexpr std::uint32_t kMp3SamplesPerFrame = 1152;

/// Bytes of a frame's record before the payload of its only packet.
constexpr auto kOnePacketHeader = static_cast<std::uint32_t>(bitstream_layout::packetData(1));

constexpr std::uint32_t kMaxWord = std::numeric_limits<std::uint32_t>::max();
constexpr std::uint32_t kMaxHalf = std::numeric_limits<std::uint16_t>::max();

[[noreturn]] void throwBadType() {
  QM_THROW(JTextError, "invalid StreamInfo type");
}

/// The bytes of a network form.
InfoBlock parameterOf(const JParams& params) {
  std::unique_ptr<std::uint8_t[]> pBytes;
  std::uint32_t uSize = 0;
  params.get(kParameter, pBytes, uSize, true);
  return {pBytes.get(), pBytes.get() + uSize};
}

/// A block of `uFixedSize` zero bytes with `tail` behind them.
InfoBlock blockBefore(std::size_t uFixedSize, std::span<const std::uint8_t> tail) {
  InfoBlock block(uFixedSize + tail.size());
  std::copy(tail.begin(), tail.end(), block.begin() + static_cast<std::ptrdiff_t>(uFixedSize));
  return block;
}

InfoBlock netVideo(const StreamInfo& info) {
  const QMCIVideoInfo record(info.getBytes().subspan(StreamInfo::kDescriptionAt));
  std::uint32_t uCompression = 0;
  if (record.getMIMEType() == kMimeQmv1) {
    uCompression = fourcc("QMV1");
  } else if (record.getMIMEType() == kMimeQmv2) {
    uCompression = fourcc("QMV2");
  } else {
    QM_THROW(JTextError, "R30 stream info compatibility only for QMV1-2");
  }
  const InfoBlock bitmap = QMVideoInfoNoXml(record.getBytes()).createBMI();
  InfoBlock block = blockBefore(kNetBitmapAt, bitmap);
  writeLE32(block.data() + kNetBitmapAt + kBitmapCompressionAt, uCompression);
  const PictureStandard standard = getPictureStandard(record.getWidth(), record.getHeight());
  writeLE32(block.data() + kNetWidthAt, record.getWidth());
  writeLE32(block.data() + kNetHeightAt, record.getHeight());
  writeLE32(block.data() + kNetStandardAt, standard.uStandard);
  writeLE32(block.data() + kNetRateNumAt, record.getPictureRateNum());
  writeLE32(block.data() + kNetRateDenAt, record.getPictureRateDen());
  writeLE32(block.data() + kNetFrameKindAt, standard.uFrameKind);
  writeLE32(block.data() + kNetDecimationAt, standard.uDecimation);
  return block;
}

InfoBlock netAudio(const StreamInfo& info) {
  const QMCIAudioInfo record(info.getBytes().subspan(StreamInfo::kDescriptionAt));
  WaveFormatEx wave;
  if (record.getMIMEType() == kMimeQmPcmInternal) {
    wave.wFormatTag = kWavePcm;
  } else if (record.getMIMEType() == kMimeQmMp3Internal) {
    wave.wFormatTag = kWaveMp3;
  } else {
    QM_THROW(JTextError, "invalid MIMETYPE type");
  }
  const std::uint32_t uBlockAlign =
      static_cast<std::uint32_t>(record.getBitsPerSample() >> 3) * record.getNumberOfChannels();
  const std::uint64_t ullBytesPerSec = std::uint64_t{uBlockAlign} * record.getSamplingRate();
  if (uBlockAlign > kMaxHalf || ullBytesPerSec > kMaxWord) {
    QM_THROW(JTextError, "audio sizes over those of a wave header");
  }
  wave.nChannels = record.getNumberOfChannels();
  wave.nSamplesPerSec = record.getSamplingRate();
  wave.nAvgBytesPerSec = static_cast<std::uint32_t>(ullBytesPerSec);
  wave.nBlockAlign = static_cast<std::uint16_t>(uBlockAlign);
  wave.wBitsPerSample = record.getBitsPerSample();
  InfoBlock block(kNetAudioSize);
  writeLE32(block.data() + kNetSamplesPerFrameAt, record.getSamplingsPerFrame());
  writeWaveHeader(wave, block.data() + kNetWaveAt);
  return block;
}

InfoBlock netData(const StreamInfo& info) {
  const StreamDataInfo record(info.getBytes().subspan(StreamInfo::kDescriptionAt));
  const auto texts = record.getTexts();
  InfoBlock block = blockBefore(kNetTextsAt, texts);
  writeLE32(block.data() + kNetFPSNumAt, record.getFPSNum());
  writeLE32(block.data() + kNetFPSDenAt, record.getFPSDen());
  writeLE32(block.data() + kNetFrameSizeAt, record.getFrameSize());
  writeLE32(block.data() + kNetTextSizeAt, static_cast<std::uint32_t>(texts.size()) + kNetTextSizeExtra);
  return block;
}

InfoBlock netBlock(const StreamInfo& info) {
  switch (info.getType()) {
    case StreamInfo::kVideo:
      return netVideo(info);
    case StreamInfo::kAudio:
      return netAudio(info);
    case StreamInfo::kData:
      return netData(info);
    default:
      throwBadType();
  }
}

/// What the parameters around or inside a block say.
struct NetParameters {
  JParams kept;
  bool bKept = false;  ///< the block has a parameter text
  std::int32_t iDecimation = 0;
};

[[noreturn]] void throwBadVideo() {
  QM_THROW(JTextError, "couldn't update QMCIVideoInfo from BITMAPINFOHEADER");
}

[[noreturn]] void throwBadAudio() {
  QM_THROW(JTextError, "couldn't update QMCIAudioInfo from WAVEFORMATEX");
}

StreamInfo videoFromNet(std::span<const std::uint8_t> block, const NetParameters& parameters,
                        const StreamProperties& properties) {
  if (!JASSERTED(block.size() >= kNetBitmapAt + kBitmapHeaderSize)) {
    throwBadVideo();
  }
  const bool bFields = readLE32(block.data() + kNetFrameKindAt) != 0;
  QMVideoInfo info;
  if (!info.updateFromBMI(block.subspan(kNetBitmapAt), bFields ? QMCI_TOP_FIELD : QMCI_SEPARATE_FIELDS)) {
    throwBadVideo();
  }
  info.setPictureRate(
      Fraction{readLE32(block.data() + kNetRateNumAt), readLE32(block.data() + kNetRateDenAt)});
  info.setStreamIndexStep(static_cast<std::uint32_t>(parameters.iDecimation));
  return makeStreamInfo(QMCIVideoInfo(info.getCIInfo()), properties);
}

/// Makes of PCM and MP3 what the system has for them.
void setCoding(QMAudioInfo& info, const WaveFormatEx& wave) {
  switch (wave.wFormatTag) {
    case kWavePcm: {
      const std::uint64_t ullSize = std::uint64_t{wave.nBlockAlign} * info.getSamplingsPerFrame();
      if (!JASSERTED(ullSize <= kMaxWord)) {
        throwBadAudio();
      }
      info.setMIMEType(kMimeQmPcm);
      info.setNomMaxBitstreamSize(info.getSamplingsPerFrame() != 0 ? static_cast<std::uint32_t>(ullSize)
                                                                   : kPcmFrameSize);
      break;
    }
    case kWaveMp3:
      info.setMIMEType(kMimeQmMp3);
      info.setNomMaxBitstreamSize(kMp3FrameSize);
      if (info.getBitsPerSample() == 0) {
        info.setBitsPerSample(kMp3Bits);
        info.setSamplingsPerFrame(kMp3SamplesPerFrame);
      }
      break;
    default:
      QM_THROW(JUnimplementedError);
  }
}

StreamInfo audioFromNet(std::span<const std::uint8_t> block, const StreamProperties& properties) {
  if (!JASSERTED(block.size() >= kNetWaveAt + kWaveHeaderSize)) {
    throwBadAudio();
  }
  // The header's `cbSize` is 0 here, which says nothing about XML.
  QMAudioInfo info;
  if (!info.updateNotQMCIFromWFX(block.subspan(kNetWaveAt, kWaveHeaderSize))) {
    throwBadAudio();
  }
  info.setSamplingsPerFrame(readLE32(block.data() + kNetSamplesPerFrameAt));
  setCoding(info, readWaveHeader(block.data() + kNetWaveAt));
  return makeStreamInfo(QMCIAudioInfo(info.getCIInfo()), properties);
}

StreamInfo dataFromNet(std::span<const std::uint8_t> block, const StreamProperties& properties) {
  const std::uint32_t uSize = block.size() >= kNetTextsAt ? readLE32(block.data() + kNetTextSizeAt) : 0;
  if (!JASSERTED(uSize >= kNetTextSizeExtra && uSize - kNetTextSizeExtra <= block.size() - kNetTextsAt)) {
    QM_THROW(JTextError, "invalid StreamInfo size");
  }
  const auto texts = block.subspan(kNetTextsAt, uSize - kNetTextSizeExtra);
  const std::uint32_t uFrameSize = readLE32(block.data() + kNetFrameSizeAt);
  InfoBlock info(StreamDataInfo::kTextsAt);
  writeLE32(info.data() + StreamDataInfo::kFPSNumAt, readLE32(block.data() + kNetFPSNumAt));
  writeLE32(info.data() + StreamDataInfo::kFPSDenAt, readLE32(block.data() + kNetFPSDenAt));
  writeLE32(info.data() + StreamDataInfo::kFrameSizeAt,
            std::min(uFrameSize, kMaxWord - kOnePacketHeader) + kOnePacketHeader);
  writeLE32(info.data() + StreamDataInfo::kSizeAt, uSize);
  info.insert(info.end(), texts.begin(), texts.end());
  return makeStreamInfo(StreamDataInfo(info), properties);
}

/// Splits what a peer sent into the block before the text and the text's parameters. Throws JTextError when
/// they don't fill it exactly.
NetParameters netParameters(const InfoBlock& block, std::uint32_t uInfoSize, const JParams& params) {
  const bool bVideo = readLE32(block.data() + kNetTypeAt) == StreamInfo::kVideo;
  NetParameters result;
  if (block.size() == uInfoSize) {
    if (bVideo) {
      params.get(kDecimation, result.iDecimation, true);
    }
    return result;
  }
  const auto* szParams = reinterpret_cast<const char*>(block.data() + uInfoSize);
  const std::size_t uRoom = block.size() - uInfoSize;
  if (!asserted(std::find(szParams, szParams + uRoom, '\0') == szParams + uRoom - 1,
                "nInfoSize==spsNetInfo->infoSize+strlen(szParams)+1")) {
    QM_THROW(JTextError, "invalid StreamInfo size");
  }
  result.bKept = true;
  result.kept.parse(szParams);
  if (bVideo) {
    result.kept.get(kDecimation, result.iDecimation, true);
  }
  result.kept.remove(kDecimation);
  return result;
}

/// Rows of sizes that are a known frame, or a part of one. Bounds are inclusive.
struct KnownSize {
  std::uint32_t uMinHeight;
  std::uint32_t uMaxHeight;
  std::uint32_t uMinWidth;
  std::uint32_t uMaxWidth;
  std::uint32_t uStandard;
  std::uint32_t uDecimation;
};

constexpr std::uint32_t kStandard720x576 = 4614;
constexpr std::uint32_t kStandard720x486 = 8448;

constexpr KnownSize kKnownSizes[] = {
    {566, 576, 690, 720, kStandard720x576, 0}, {278, 288, 345, 360, kStandard720x576, 1},
    {139, 144, 172, 180, kStandard720x576, 2}, {69, 72, 86, 90, kStandard720x576, 3},
    {34, 36, 43, 45, kStandard720x576, 4},     {480, 486, 704, 720, kStandard720x486, 0},
    {240, 243, 352, 360, kStandard720x486, 1}, {120, 122, 176, 180, kStandard720x486, 2},
    {60, 61, 88, 90, kStandard720x486, 3},     {30, 31, 44, 45, kStandard720x486, 4},
};

/// Frame kind of pictures whose full frame isn't one of the known ones.
constexpr std::uint32_t kOtherFrame = 3;

}  // namespace

PictureStandard getPictureStandard(std::uint32_t uWidth, std::uint32_t uHeight) noexcept {
  for (const KnownSize& row : kKnownSizes) {
    if (uHeight >= row.uMinHeight && uHeight <= row.uMaxHeight && uWidth >= row.uMinWidth &&
        uWidth <= row.uMaxWidth) {
      return {row.uStandard, 0, row.uDecimation};
    }
  }
  // The full frame of any other size is a multiple of it by 16, 8, 4 or 2. None of these multiples is a known
  // frame: the sizes that would give one are among the rows above.
  std::uint32_t uDecimation = 1;
  if (uHeight < 32) {
    uDecimation = 4;
  } else if (uHeight < 64) {
    uDecimation = 3;
  } else if (uHeight < 128) {
    uDecimation = 2;
  }
  return {0, kOtherFrame, uDecimation};
}

void swapStreamInfo(std::span<std::uint8_t> record) noexcept {
  constexpr std::size_t kAt = StreamInfo::kDescriptionAt;
  if (!JASSERTED(record.size() >= kAt)) {
    return;
  }
  const std::uint32_t uType = readLE32(record.data() + StreamInfo::kTypeAt);
  if (uType == StreamInfo::kVideo) {
    if (JASSERTED(record.size() >= kAt + QMCIVideoInfo::kFixedSize)) {
      for (std::size_t at = 0; at < QMCIVideoInfo::kFixedSize; at += 4) {
        qm_platform::swap32InPlace(record.data() + kAt + at);
      }
    }
  } else if (uType == StreamInfo::kAudio) {
    if (JASSERTED(record.size() >= kAt + QMCIAudioInfo::kFixedSize)) {
      for (std::size_t at = 0; at < QMCIAudioInfo::kFixedSize; at += 4) {
        if (at == QMCIAudioInfo::kBitsPerSampleAt) {
          qm_platform::swap16InPlace(record.data() + kAt + QMCIAudioInfo::kBitsPerSampleAt);
          qm_platform::swap16InPlace(record.data() + kAt + QMCIAudioInfo::kNumberOfChannelsAt);
        } else {
          qm_platform::swap32InPlace(record.data() + kAt + at);
        }
      }
    }
  }
}

std::uint32_t writeStreamInfo(const StreamInfo& info, JParams& params) {
  InfoBlock record(info.getBytes().begin(), info.getBytes().end());
  swapStreamInfo(record);
  params.add(kParameter, record.data(), info.getInfoSize(), JVariant::T_BINARY);
  return info.getInfoSize();
}

std::uint32_t readStreamInfo(const JParams& params, std::unique_ptr<StreamInfo>* ppsOut) {
  if (!asserted(ppsOut != nullptr, "ppsOut")) {
    return 0;
  }
  InfoBlock record = parameterOf(params);
  swapStreamInfo(record);
  auto pInfo = std::make_unique<StreamInfo>(record);
  if (pInfo->getProperties() == nullptr) {
    throwBadType();
  }
  *ppsOut = std::move(pInfo);
  return (*ppsOut)->getInfoSize();
}

std::uint32_t writeStreamInfoR30(const StreamInfo& info, JParams& params) {
  JParams properties;
  info.getProperties(&properties);
  if (info.getType() == StreamInfo::kVideo) {
    const QMCIVideoInfo record(info.getBytes().subspan(StreamInfo::kDescriptionAt));
    properties.add(kDecimation, record.getStreamIndexStep());
  }
  std::string sProperties;
  properties.toText(sProperties, ',');
  InfoBlock block = netBlock(info);
  const std::size_t uInfoSize = block.size();
  if (uInfoSize + sProperties.size() + 1 > kMaxWord) {
    QM_THROW(JTextError, "invalid StreamInfo size");
  }
  writeLE32(block.data() + kNetTypeAt, info.getType());
  writeLE32(block.data() + kNetMajorAt, kNetMajor);
  writeLE32(block.data() + kNetMinorAt, kNetMinor);
  writeLE32(block.data() + kNetInfoSizeAt, static_cast<std::uint32_t>(uInfoSize));
  block.insert(block.end(), sProperties.begin(), sProperties.end());
  block.push_back(0);
  params.add(kParameter, block.data(), static_cast<std::uint32_t>(block.size()), JVariant::T_BINARY);
  return static_cast<std::uint32_t>(uInfoSize);
}

std::uint32_t readStreamInfoR30(const JParams& params, std::unique_ptr<StreamInfo>* ppsOut) {
  if (!asserted(ppsOut != nullptr, "ppsOut")) {
    return 0;
  }
  const InfoBlock block = parameterOf(params);
  const std::uint32_t uInfoSize = block.size() >= kNetFixedSize ? readLE32(block.data() + kNetInfoSizeAt) : 0;
  if (!JASSERTED(uInfoSize >= kNetFixedSize && uInfoSize <= block.size())) {
    QM_THROW(JTextError, "invalid StreamInfo size");
  }
  const NetParameters parameters = netParameters(block, uInfoSize, params);
  const StreamProperties properties(parameters.bKept ? &parameters.kept : nullptr);
  const auto fixed = std::span(block).first(uInfoSize);
  const auto build = [&] {
    switch (readLE32(block.data() + kNetTypeAt)) {
      case StreamInfo::kVideo:
        return videoFromNet(fixed, parameters, properties);
      case StreamInfo::kAudio:
        return audioFromNet(fixed, properties);
      case StreamInfo::kData:
        return dataFromNet(fixed, properties);
      default:
        throwBadType();
    }
  };
  *ppsOut = std::make_unique<StreamInfo>(build());
  return (*ppsOut)->getInfoSize();
}

}  // namespace qm_ci
