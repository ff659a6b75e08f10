#include "coreapi/qmci/streaminfo.h"

#include <algorithm>
#include <limits>

#include "coreapi/platform/byteorder.h"
#include "coreapi/qmci/asserted.h"
#include "coreapi/qmci/datainfonoxml.h"
#include "coreapi/qmci/mimetypes.h"
#include "coreapi/qmutils/params/jparams.h"

namespace qm_ci {

namespace {

using qm_platform::readLE32;
using qm_platform::writeLE32;

constexpr std::uint32_t kMaxWord = std::numeric_limits<std::uint32_t>::max();

/// What goes before and behind a frame of authenticated media, in bytes.
constexpr std::uint32_t kAuthFrameOverhead = 68;

/// A time base whose numerator is at most this can be multiplied by 1000 in 32 bits.
constexpr std::uint64_t kMaxTimeBaseNumerator = 4294967;

/// Size of the description at the start of `bytes`, which is checked whole; 0 for an unknown type. Throws
/// JTextError.
std::size_t checkedDescription(std::uint32_t uType, std::span<const std::uint8_t> bytes) {
  switch (uType) {
    case StreamInfo::kVideo:
      return QMCIVideoInfo(bytes).getSize();
    case StreamInfo::kAudio:
      return QMCIAudioInfo(bytes).getSize();
    case StreamInfo::kData:
      return StreamDataInfo(bytes).getSize();
    default:
      return 0;
  }
}

std::string textOf(const JParams& params) {
  std::string sText;
  params.toText(sText, ',');
  return sText;
}

}  // namespace

StreamProperties::StreamProperties(const JParams* pParams) {
  if (pParams != nullptr) {
    m_sText = textOf(*pParams);
  }
}

StreamInfo::StreamInfo(std::span<const std::uint8_t> bytes) {
  const std::uint32_t uInfoSize = bytes.size() >= kDescriptionAt ? readLE32(bytes.data() + kInfoSizeAt) : 0;
  if (!JASSERTED(uInfoSize >= kDescriptionAt && uInfoSize <= bytes.size())) {
    QM_THROW(JTextError, "invalid StreamInfo size");
  }
  bytes = bytes.first(uInfoSize);
  const std::size_t uSize =
      checkedDescription(readLE32(bytes.data() + kTypeAt), bytes.subspan(kDescriptionAt));
  if (uSize != 0) {
    const auto text = bytes.subspan(kDescriptionAt + uSize);
    if (!JASSERTED(std::find(text.begin(), text.end(), std::uint8_t{0}) != text.end())) {
      QM_THROW(JTextError, "invalid StreamInfo properties");
    }
    m_uPropertiesAt = kDescriptionAt + uSize;
  }
  m_bytes.assign(bytes.begin(), bytes.end());
}

StreamInfo StreamInfo::make(std::uint32_t uType, std::span<const std::uint8_t> description,
                            std::string_view sProperties) {
  sProperties = sProperties.substr(0, sProperties.find('\0'));
  const std::uint64_t uSize = kDescriptionAt + std::uint64_t{description.size()} + sProperties.size() + 1;
  if (uSize > kMaxWord) {
    QM_THROW(JTextError, "invalid StreamInfo size");
  }
  InfoBlock block(uSize);
  writeLE32(block.data() + kTypeAt, uType);
  writeLE32(block.data() + kInfoSizeAt, static_cast<std::uint32_t>(uSize));
  const auto at = std::copy(description.begin(), description.end(), block.begin() + kDescriptionAt);
  std::copy(sProperties.begin(), sProperties.end(), at);
  return StreamInfo(block);
}

std::span<const std::uint8_t> StreamInfo::description() const noexcept {
  return getBytes().subspan(kDescriptionAt);
}

std::uint32_t StreamInfo::getType() const noexcept {
  return readLE32(m_bytes.data() + kTypeAt);
}

bool StreamInfo::isVideo() const noexcept {
  return getType() == kVideo || (isData() && isVideoMIMEType(getMIMEType()));
}

bool StreamInfo::isAudio() const noexcept {
  return getType() == kAudio || (isData() && isAudioMIMEType(getMIMEType()));
}

bool StreamInfo::isSynthetic() const noexcept {
  return isData() && getMIMEType() == kMimeSyntheticStream;
}

std::string_view StreamInfo::getMIMEType() const noexcept {
  switch (getType()) {
    case kVideo:
      return QMCIVideoInfo(description()).getMIMEType();
    case kAudio:
      return QMCIAudioInfo(description()).getMIMEType();
    case kData:
      return StreamDataInfo(description()).getMIMEType();
    default:
      return "";
  }
}

const char* StreamInfo::getProperties() const noexcept {
  return m_uPropertiesAt != 0 ? reinterpret_cast<const char*>(m_bytes.data() + m_uPropertiesAt) : nullptr;
}

void StreamInfo::getProperties(JParams* pParams) const {
  if (pParams == nullptr) {
    QM_THROW(JTextError, "NULL pointer");
  }
  if (const char* szProperties = getProperties()) {
    pParams->parse(szProperties);
  }
}

void StreamInfo::getRate(std::uint32_t& uNumerator, std::uint32_t& uDenominator) const noexcept {
  uNumerator = 0;
  uDenominator = 0;
  if (getType() == kVideo) {
    const QMCIVideoInfo info(description());
    uNumerator = info.getPictureRateNum();
    uDenominator = info.getPictureRateDen();
  } else if (getType() == kAudio) {
    const QMCIAudioInfo info(description());
    uNumerator = info.getSamplingRate();
    uDenominator = info.getSamplingsPerFrame();
  } else if (isData()) {
    const StreamDataInfo info(description());
    uNumerator = info.getFPSNum();
    uDenominator = info.getFPSDen();
  }
}

void StreamInfo::getTimeBase(std::uint64_t* pNumerator, std::uint64_t* pDenominator) const noexcept {
  if (!asserted(pNumerator != nullptr && pDenominator != nullptr, "numerator && denominator")) {
    return;
  }
  std::uint32_t uNumerator = 0;
  std::uint32_t uDenominator = 0;
  getRate(uNumerator, uDenominator);
  *pNumerator = uNumerator;
  *pDenominator = std::uint64_t{uDenominator} * 1000;
  while (*pNumerator > kMaxTimeBaseNumerator) {
    *pNumerator /= 2;
    *pDenominator /= 2;
  }
}

double StreamInfo::getFramePeriod() const noexcept {
  std::uint64_t ullNumerator = 0;
  std::uint64_t ullDenominator = 0;
  getTimeBase(&ullNumerator, &ullDenominator);
  return ullNumerator != 0 ? static_cast<double>(ullDenominator) / static_cast<double>(ullNumerator) : 0.0;
}

std::uint32_t StreamInfo::getMaxFrameSize() const {
  std::uint32_t uSize = 0;
  if (getType() == kVideo) {
    uSize = QMCIVideoInfo(description()).getNomMaxBitstreamSize();
  } else if (getType() == kAudio) {
    uSize = QMCIAudioInfo(description()).getNomMaxBitstreamSize();
  } else if (isData()) {
    uSize = StreamDataInfo(description()).getFrameSize();
  }
  const std::uint32_t uAuthSize = getAuthFrameSize();
  return uAuthSize > uSize ? std::min(uAuthSize, kMaxWord - kAuthFrameOverhead) + kAuthFrameOverhead : uSize;
}

std::uint32_t StreamInfo::getAuthFrameSize() const {
  const char* szProperties = getProperties();
  if (szProperties == nullptr || *szProperties == '\0') {
    return 0;
  }
  std::int64_t iSize = 0;
  try {
    JParams params;
    params.parse(szProperties);
    params.get("AuthFrameSize", iSize);
  } catch (JError* pError) {
    const qm_err::CaughtError notANumber(pError);
    return 0;
  }
  return static_cast<std::uint32_t>(std::clamp<std::int64_t>(iSize, 0, kMaxWord));
}

bool StreamInfo::getPlayRate(std::int32_t& iNumerator, std::int32_t& iDenominator) const {
  JParams params;
  getProperties(&params);
  std::int32_t iFoundNumerator = 0;
  std::int32_t iFoundDenominator = 0;
  if (!params.get("PlayRateNumerator", iFoundNumerator) ||
      !params.get("PlayRateDenominator", iFoundDenominator)) {
    return false;
  }
  iNumerator = iFoundNumerator;
  iDenominator = iFoundDenominator;
  return true;
}

StreamInfo StreamInfo::withProperties(const JParams& params) const {
  const char* szProperties = getProperties();
  if (szProperties == nullptr) {
    QM_THROW(JTextError, "invalid StreamInfo type");
  }
  std::string sProperties = szProperties;
  const std::string sAdded = textOf(params);
  if (!sProperties.empty() && !sAdded.empty()) {
    sProperties += ',';
  }
  sProperties += sAdded;
  return make(getType(), description().first(m_uPropertiesAt - kDescriptionAt), sProperties);
}

void StreamInfo::setNomMaxBitstreamSize(std::uint32_t uSize) noexcept {
  if (getType() == kVideo) {
    writeLE32(m_bytes.data() + kDescriptionAt + QMCIVideoInfo::kNomMaxBitstreamSizeAt, uSize);
  } else if (getType() == kAudio) {
    writeLE32(m_bytes.data() + kDescriptionAt + QMCIAudioInfo::kNomMaxBitstreamSizeAt, uSize);
  }
}

StreamInfo makeStreamInfo(const QMCIVideoInfo& videoInfo, const StreamProperties& properties) {
  return StreamInfo::make(StreamInfo::kVideo, videoInfo.getBytes(), properties.getText());
}

StreamInfo makeStreamInfo(const QMCIAudioInfo& audioInfo, const StreamProperties& properties) {
  return StreamInfo::make(StreamInfo::kAudio, audioInfo.getBytes(), properties.getText());
}

StreamInfo makeStreamInfo(const StreamDataInfo& dataInfo, const StreamProperties& properties) {
  return StreamInfo::make(StreamInfo::kData, dataInfo.getBytes(), properties.getText());
}

StreamInfo makeStreamInfoFromData(const QMDataInfoNoXml& dataInfo, const StreamProperties& properties) {
  const InfoBlock block = StreamDataInfo::make(dataInfo.getMIMEType(), dataInfo.getStreamParams(), 1, 1,
                                               dataInfo.getNomMaxBitstreamSize());
  return makeStreamInfo(StreamDataInfo(block), properties);
}

}  // namespace qm_ci
