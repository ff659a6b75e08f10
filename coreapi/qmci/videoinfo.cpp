#include "coreapi/qmci/videoinfo.h"

#include <limits>
#include <utility>

#include "coreapi/platform/byteorder.h"
#include "coreapi/qmci/asserted.h"
#include "coreapi/qmci/descriptionreader.h"
#include "coreapi/qmci/qmcicodes.h"
#include "coreapi/qmci/vfwtypes.h"
#include "coreapi/qmutils/error/jerror.h"

namespace qm_ci {

namespace {

/// A number of the XML form and the field that it goes to; a group itself has no field. An element of the
/// optional group leaves its field as it was when it is missing.
struct Element {
  const char* szGroup;
  const char* szName;
  std::size_t at;
  const char* szMissing;
};

constexpr Element kElements[] = {
    {"", "FrameSize", 0, "No Size given !"},
    {"FrameSize", "Width", QMCIVideoInfo::kWidthAt, "Size: no Width given !"},
    {"FrameSize", "Height", QMCIVideoInfo::kHeightAt, "Size: no Height given !"},
    {"", "PictureRate", 0, "No PictureRate given !"},
    {"PictureRate", "Num", QMCIVideoInfo::kPictureRateNumAt, "PictureRate: no Num given !"},
    {"PictureRate", "Den", QMCIVideoInfo::kPictureRateDenAt, "PictureRate: no Den given !"},
    {"", "StreamIndexStep", QMCIVideoInfo::kStreamIndexStepAt, nullptr},
    {"", "NomMaxBitstreamSize", QMCIVideoInfo::kNomMaxBitstreamSizeAt, "no NomMaxBitstreamSize given !"},
    {"", "Interlace", 0, "no Interlace given !"},
    {"", "PixelAspectRatio", 0, "No PixelAspectRatio given !"},
    {"PixelAspectRatio", "Num", QMCIVideoInfo::kPixelAspectRatioNumAt, "PixelAspectRatio: no Num given !"},
    {"PixelAspectRatio", "Den", QMCIVideoInfo::kPixelAspectRatioDenAt, "PixelAspectRatio: no Den given !"},
    {"", "VisibleRegion", 0, "No VisibleRegion given !"},
    {"VisibleRegion", "Left", QMCIVideoInfo::kVisibleLeftAt, "VisibleRegion: no Left given !"},
    {"VisibleRegion", "Top", QMCIVideoInfo::kVisibleTopAt, "VisibleRegion: no Top given !"},
    {"VisibleRegion", "Width", QMCIVideoInfo::kVisibleWidthAt, "VisibleRegion: no Width given !"},
    {"VisibleRegion", "Height", QMCIVideoInfo::kVisibleHeightAt, "VisibleRegion: no Height given !"},
    {"AccessInfo", "MaxNonDisposableAccLvl", QMCIVideoInfo::kMaxNonDisposableAccLvlAt, nullptr},
    {"AccessInfo", "GDRPeriod", QMCIVideoInfo::kGDRPeriodAt, nullptr},
    {"AccessInfo", "DecoderPipe", QMCIVideoInfo::kDecoderPipeAt, nullptr},
    {"AccessInfo", "TimeReversed", QMCIVideoInfo::kTimeReversedAt, nullptr},
};

/// The system's own codings, which a bitmap header may name.
struct OwnCoding {
  std::uint32_t uCompression;
  const char* szMIMEType;
  const char* szMessage;
};

constexpr OwnCoding kOwnCodings[] = {
    {fourcc("QMV1"), "video/x-qmv1", "updateVideoInfoFromBMI(): file compression is QMV1"},
    {fourcc("QMV2"), "video/x-qmv2", "updateVideoInfoFromBMI(): file compression is QMV2"},
};
constexpr std::uint32_t kOwnCodingMaxSize = 0x20044;

constexpr const char* kLinear = "linear";

/// Nominal size of a header's pictures; none when 32 bits can't hold it.
std::optional<std::uint32_t> nominalSize(const BitmapInfoHeader& header, std::uint64_t ullPixels) noexcept {
  constexpr std::uint64_t kLargest = std::numeric_limits<std::uint32_t>::max() - kSizeMargin;
  std::uint64_t ullSize = header.biSizeImage;
  if (ullSize == 0 && header.biBitCount != 0) {
    if (ullPixels > (kLargest * 8 + 7) / header.biBitCount) {
      return std::nullopt;
    }
    ullSize = ullPixels * header.biBitCount / 8;
  }
  return ullSize <= kLargest ? std::optional(static_cast<std::uint32_t>(ullSize + kSizeMargin))
                             : std::nullopt;
}

/// MIME type of a header that is none of the codings with a type of their own.
std::string vfwType(const BitmapInfoHeader& header) {
  if (header.biCompression == 0) {
    return std::string(header.biHeight > 0 ? kVfwTopDownRgbType : kVfwRgbType) +
           std::to_string(header.biBitCount);
  }
  char code[4];
  qm_platform::writeLE32(code, header.biCompression);
  return std::string(kVfwType).append(code, sizeof code);
}

}  // namespace

QMVideoInfo::QMVideoInfo(std::span<const std::uint8_t> record, const char* szMIMEType,
                         const char* szPacketizedFormat) {
  XmlMediaInfo::init(record, szMIMEType, szPacketizedFormat);
}

const std::string& QMVideoInfo::getSchema() {
  static const std::string s_sSchema = [] {
    DescriptionSchema schema(QMCIVideoInfo::kLayout);
    schema.beginGroup("FrameSize");
    schema.add("Width", QMXmlParams::kPositiveInteger);
    schema.add("Height", QMXmlParams::kPositiveInteger);
    schema.endGroup();
    schema.beginGroup("PictureRate");
    schema.add("Num", QMXmlParams::kPositiveInteger);
    schema.add("Den", QMXmlParams::kPositiveInteger);
    schema.endGroup();
    schema.add("StreamIndexStep", QMXmlParams::kPositiveInteger, true);
    schema.add("NomMaxBitstreamSize", QMXmlParams::kNonNegativeInteger);
    schema.add("Interlace", QMXmlParams::kString);
    schema.beginGroup("PixelAspectRatio");
    schema.add("Num", QMXmlParams::kPositiveInteger);
    schema.add("Den", QMXmlParams::kPositiveInteger);
    schema.endGroup();
    schema.beginGroup("VisibleRegion");
    schema.add("Left", QMXmlParams::kNonNegativeInteger);
    schema.add("Top", QMXmlParams::kNonNegativeInteger);
    schema.add("Width", QMXmlParams::kPositiveInteger);
    schema.add("Height", QMXmlParams::kPositiveInteger);
    schema.endGroup();
    schema.beginGroup("AccessInfo", true);
    schema.add("MaxNonDisposableAccLvl", QMXmlParams::kNonNegativeInteger, true);
    schema.add("GDRPeriod", QMXmlParams::kInteger, true);
    schema.add("DecoderPipe", QMXmlParams::kNonNegativeInteger, true);
    schema.add("TimeReversed", QMXmlParams::kNonNegativeInteger, true, "0", "1");
    schema.endGroup();
    schema.add("MIMEType", QMXmlParams::kString);
    schema.add("PacketizedFormat", QMXmlParams::kString, true);
    return schema.finish();
  }();
  return s_sSchema;
}

bool QMVideoInfo::updateVideoInfoFromXMLDesc(const char* pText, std::size_t size) {
  DescriptionReader reader(getLayout(), m_pSchema, getSchema());
  if (!reader.open({pText, size}) || !reader.readTexts()) {
    return false;
  }
  std::vector<std::pair<std::size_t, std::uint32_t>> words;
  for (const Element& element : kElements) {
    if (element.at == 0) {
      if (!reader.has(element.szName, element.szMissing)) {
        return false;
      }
      continue;
    }
    const bool bSigned = element.at == QMCIVideoInfo::kGDRPeriodAt;
    const std::optional<std::int64_t> value =
        reader.number(element.szGroup, element.szName, element.szMissing,
                      bSigned ? std::numeric_limits<std::int32_t>::min() : 0,
                      bSigned ? std::numeric_limits<std::int32_t>::max()
                              : std::int64_t{std::numeric_limits<std::uint32_t>::max()});
    if (value) {
      words.emplace_back(element.at, static_cast<std::uint32_t>(*value));
    } else if (element.szMissing != nullptr) {
      return false;
    }
  }
  const std::optional<std::string> interlace = reader.text("Interlace", "no Interlace given !");
  if (!setTexts(reader.getMIMEType(), reader.getPacketizedFormat(), reader.getStreamParams())) {
    return reader.refuse("error while getting StreamParams !");
  }
  for (const auto& [at, uValue] : words) {
    setWord(at, uValue);
  }
  setInterlace(interlaceFromString(interlace.value_or("")));
  return true;
}

bool QMVideoInfo::updateFromBMI(std::span<const std::uint8_t> header, std::uint32_t uInterlace) {
  if (!JASSERTED(header.size() >= kBitmapHeaderSize)) {
    return false;
  }
  const BitmapInfoHeader bitmap = readBitmapHeader(header.data());
  if (!JASSERTED(bitmap.biSize >= kBitmapHeaderSize && bitmap.biSize <= header.size())) {
    return false;
  }
  const std::span<const std::uint8_t> extra =
      header.subspan(kBitmapHeaderSize, bitmap.biSize - kBitmapHeaderSize);
  if (bitmap.biCompression == fourcc("QMCI") || bitmap.biCompression == fourcc("qmci")) {
    return updateVideoInfoFromXMLDesc(reinterpret_cast<const char*>(extra.data()), extra.size());
  }
  qm_err::logText(qm_err::kLogWarning, "updateVideoInfoFromBMI(): file is not compressed with QMCI");
  return updateFromHeader(bitmap, extra, uInterlace);
}

bool QMVideoInfo::updateFromHeader(const BitmapInfoHeader& header, std::span<const std::uint8_t> extra,
                                   std::uint32_t uInterlace) {
  if (!JASSERTED(header.biWidth >= 0) ||
      !JASSERTED(header.biHeight != std::numeric_limits<std::int32_t>::min())) {
    return false;
  }
  const auto uWidth = static_cast<std::uint32_t>(header.biWidth);
  const auto uHeight = static_cast<std::uint32_t>(header.biHeight < 0 ? -header.biHeight : header.biHeight);
  const std::optional<std::uint32_t> size = nominalSize(header, std::uint64_t{uWidth} * uHeight);
  if (!JASSERTED(size.has_value())) {
    return false;
  }
  reset();
  setWidth(uWidth);
  setHeight(uHeight);
  setVisibleRegion({0, 0, uWidth, uHeight});
  setNomMaxBitstreamSize(*size);
  setPictureRate(1.0, 5e-05);
  setInterlace(QMCI_PROGRESSIVE);
  const OwnCoding* pOwn = nullptr;
  for (const OwnCoding& coding : kOwnCodings) {
    pOwn = coding.uCompression == header.biCompression ? &coding : pOwn;
  }
  if (pOwn != nullptr) {
    qm_err::logText(qm_err::kLogDebug, pOwn->szMessage);
    asserted(uInterlace != QMCI_NOT_INITIALIZED_INTERLACE, "eInterlace!=QMCI_NOT_INITIALIZED_INTERLACE");
    setMIMEType(pOwn->szMIMEType);
    setPacketizedFormat(kLinear);
    setNomMaxBitstreamSize(kOwnCodingMaxSize);
    setGDRPeriod(3);
    setDecoderPipe(2);
    setInterlace(uInterlace);
  } else if (header.biCompression == fourcc("H264")) {
    setMIMEType("video/H264");
    setPacketizedFormat(kLinear);
  } else {
    setMIMEType(vfwType(header));
  }
  if (!extra.empty()) {
    setCodingParams(extra);
  }
  return true;
}

}  // namespace qm_ci
