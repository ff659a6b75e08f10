#include "coreapi/qmci/streamdatainfo.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <string>

#include "coreapi/platform/byteorder.h"
#include "coreapi/qmci/asserted.h"
#include "coreapi/qmci/mimetypes.h"
#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmxml/qmxml.h"

namespace qm_ci {

namespace {

using qm_platform::readLE32;
using qm_platform::writeLE32;

/// Both texts' zeros.
constexpr std::size_t kLeastTexts = 2;

/// How many characters of a MIME type become small letters.
constexpr std::size_t kLoweredCharacters = 255;

/// The text at `uAt` up to its zero; null data when there is no zero.
std::string_view textAt(std::span<const std::uint8_t> bytes, std::size_t uAt) noexcept {
  const auto rest = bytes.subspan(std::min(uAt, bytes.size()));
  const auto end = std::find(rest.begin(), rest.end(), std::uint8_t{0});
  if (end == rest.end()) {
    return {};
  }
  return {reinterpret_cast<const char*>(rest.data()), static_cast<std::size_t>(end - rest.begin())};
}

bool isValidDescription(std::string_view sMIMEType, std::string_view sXMLDescription) {
  const bool bVideo = isVideoMIMEType(sMIMEType);
  if (!bVideo && !isAudioMIMEType(sMIMEType)) {
    return true;
  }
  const std::string_view sSchema = bVideo ? kBitmapInfoHeaderSchema : kWaveFormatExSchema;
  try {
    std::string sError;
    if (QMXml::validate(sXMLDescription.data(), sXMLDescription.size(), sSchema.data(), sSchema.size(),
                        sError)) {
      return true;
    }
    qm_err::log(qm_err::kLogError, "Validation failed: %s", sError.c_str());
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    qm_err::log(qm_err::kLogError, "An error occured during the validation: %s", error->getMessage().c_str());
  }
  return false;
}

}  // namespace

StreamDataInfo::StreamDataInfo(std::span<const std::uint8_t> bytes) {
  const std::uint32_t ledwSize = bytes.size() >= kTextsAt ? readLE32(bytes.data() + kSizeAt) : 0;
  if (!JASSERTED(ledwSize >= kTextsAt + kLeastTexts && ledwSize <= bytes.size())) {
    QM_THROW(JTextError, "invalid StreamDataInfo size");
  }
  m_bytes = bytes.first(ledwSize);
  m_sMIMEType = textAt(m_bytes, kTextsAt);
  m_sDescription = textAt(m_bytes, kTextsAt + m_sMIMEType.size() + 1);
  if (!JASSERTED(m_sMIMEType.data() != nullptr && m_sDescription.data() != nullptr)) {
    QM_THROW(JTextError, "invalid StreamDataInfo text");
  }
}

InfoBlock StreamDataInfo::make(std::string_view sMIMEType, std::string_view sDescription,
                               std::uint32_t uFPSNum, std::uint32_t uFPSDen, std::uint32_t uFrameSize) {
  sMIMEType = sMIMEType.substr(0, sMIMEType.find('\0'));
  sDescription = sDescription.substr(0, sDescription.find('\0'));
  if (sMIMEType.size() > std::numeric_limits<std::uint32_t>::max() - kTextsAt - kLeastTexts ||
      sDescription.size() >
          std::numeric_limits<std::uint32_t>::max() - kTextsAt - kLeastTexts - sMIMEType.size()) {
    QM_THROW(JTextError, "invalid StreamDataInfo size");
  }
  InfoBlock block(kTextsAt + sMIMEType.size() + sDescription.size() + kLeastTexts);
  writeLE32(block.data() + kFPSNumAt, uFPSNum);
  writeLE32(block.data() + kFPSDenAt, uFPSDen);
  writeLE32(block.data() + kFrameSizeAt, uFrameSize);
  writeLE32(block.data() + kSizeAt, static_cast<std::uint32_t>(block.size()));
  std::copy(sMIMEType.begin(), sMIMEType.end(), block.begin() + kTextsAt);
  std::copy(sDescription.begin(), sDescription.end(),
            block.end() - 1 - static_cast<std::ptrdiff_t>(sDescription.size()));
  return block;
}

std::uint32_t StreamDataInfo::getFPSNum() const noexcept {
  return readLE32(m_bytes.data() + kFPSNumAt);
}

std::uint32_t StreamDataInfo::getFPSDen() const noexcept {
  return readLE32(m_bytes.data() + kFPSDenAt);
}

std::uint32_t StreamDataInfo::getFrameSize() const noexcept {
  return readLE32(m_bytes.data() + kFrameSizeAt);
}

std::optional<InfoBlock> makeDataInfo(std::string_view sMIMEType, std::string_view sXMLDescription,
                                      std::uint32_t uFPSNum, std::uint32_t uFPSDen,
                                      std::uint32_t uFrameSize) {
  std::string sLowered(sMIMEType);
  for (char& c : std::span(sLowered).first(std::min(sLowered.size(), kLoweredCharacters))) {
    c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  }
  if (!isValidDescription(sLowered, sXMLDescription)) {
    qm_err::logText(qm_err::kLogError, "Invalid data description");
    return std::nullopt;
  }
  return StreamDataInfo::make(sLowered, sXMLDescription, uFPSNum, uFPSDen, uFrameSize);
}

}  // namespace qm_ci
