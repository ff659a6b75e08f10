#include "coreapi/qmci/videoinfonoxml.h"

#include <algorithm>
#include <charconv>
#include <limits>

#include "coreapi/platform/byteorder.h"
#include "coreapi/qmci/qmcicodes.h"
#include "coreapi/qmci/vfwtypes.h"
#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/text/jtext.h"

namespace qm_ci {

namespace {

/// Widths of one and the same line of standard video, by how much of it was cut off.
constexpr std::uint32_t kNarrowestLine = 690;
constexpr std::uint32_t kWidestLine = 720;

std::uint64_t lineWidth(std::uint32_t uWidth) noexcept {
  return uWidth >= kNarrowestLine && uWidth <= kWidestLine ? kWidestLine : uWidth;
}

/// Coordinate `uAt` of an old length in a new one. A result can't lie behind the new length.
std::uint32_t scaled(std::uint32_t uAt, std::uint32_t uOld, std::uint32_t uNew, bool bUp) noexcept {
  const std::uint64_t ullProduct = std::uint64_t{uAt} * uNew;
  const std::uint64_t ullScaled = ullProduct / uOld + (bUp && ullProduct % uOld != 0 ? 1 : 0);
  return static_cast<std::uint32_t>(std::min<std::uint64_t>(ullScaled, uNew));
}

/// Bits a pixel that a compressed picture's nominal size may tell.
bool isBitCount(std::uint64_t ullBits) noexcept {
  return ullBits == 32 || ullBits == 24 || ullBits == 16 || ullBits == 12 || ullBits == 9 || ullBits == 8;
}

/// The number behind a prefix of a MIME type, as a header can hold it; 0 when there is none.
std::uint16_t bitsBehind(const std::string& sMIMEType, std::size_t prefix) noexcept {
  std::uint16_t wBits = 0;
  std::from_chars(sMIMEType.data() + prefix, sMIMEType.data() + sMIMEType.size(), wBits);
  return wBits;
}

/// Bytes of an uncompressed picture; 0, which headers allow for it, when 32 bits can't hold them.
std::uint32_t imageSize(std::uint64_t ullPixels, std::uint16_t wBits) noexcept {
  constexpr std::uint64_t kLargest = std::numeric_limits<std::uint32_t>::max();
  return ullPixels <= kLargest * 8 / wBits ? static_cast<std::uint32_t>(ullPixels * wBits / 8) : 0;
}

}  // namespace

QMVideoInfoNoXml::QMVideoInfoNoXml() : MediaInfo(QMCIVideoInfo::kLayout) {
  setGDRPeriod(-1);
  setStreamIndexStep(1);
  setPixelAspectRatio({99, 99});
}

QMVideoInfoNoXml::QMVideoInfoNoXml(std::span<const std::uint8_t> record, const char* szMIMEType,
                                   const char* szPacketizedFormat)
    : QMVideoInfoNoXml() {
  MediaInfo::init(record, szMIMEType, szPacketizedFormat);
}

void QMVideoInfoNoXml::reset() {
  MediaInfo::reset();
  setGDRPeriod(0);
  setDecoderPipe(0);
  setStreamIndexStep(1);
}

void QMVideoInfoNoXml::setSize(std::uint32_t uWidth, std::uint32_t uHeight) {
  const auto [uLeft, uTop, dwOrigVisWidth, dwOrigVisHeight] = getVisibleRegion();
  const auto [dwOrigPARNum, dwOrigPARDen] = getPixelAspectRatio();
  JASSERT(dwOrigVisWidth > 0);
  JASSERT(dwOrigVisHeight > 0);
  JASSERT(dwOrigPARNum > 0);
  JASSERT(dwOrigPARDen > 0);
  setWidth(uWidth);
  setHeight(uHeight);
  if (dwOrigVisWidth == 0 || dwOrigVisHeight == 0) {
    setVisibleRegion({0, 0, uWidth, uHeight});
    return;
  }
  VisibleRegion region;
  region.uLeft = scaled(uLeft, dwOrigVisWidth, uWidth, false);
  region.uTop = scaled(uTop, dwOrigVisHeight, uHeight, true);
  region.uWidth = uWidth - region.uLeft;
  region.uHeight = uHeight - region.uTop;
  setVisibleRegion(region);

  // A pixel becomes wider by as much as the line has fewer of them, and higher likewise.
  const std::uint64_t ullAcross = lineWidth(dwOrigVisWidth) * region.uHeight;
  const std::uint64_t ullDown = lineWidth(region.uWidth) * dwOrigVisHeight;
  if (ullAcross != ullDown && ullAcross != 0 && ullDown != 0 && dwOrigPARNum != 0 && dwOrigPARDen != 0) {
    const Fraction change = nearestFraction(ullAcross, ullDown);
    setPixelAspectRatio(nearestFraction(std::uint64_t{change.uNumerator} * dwOrigPARNum,
                                        std::uint64_t{change.uDenominator} * dwOrigPARDen));
  }
}

Fraction QMVideoInfoNoXml::getPictureRate() const noexcept {
  return {word(QMCIVideoInfo::kPictureRateNumAt), word(QMCIVideoInfo::kPictureRateDenAt)};
}

void QMVideoInfoNoXml::setPictureRate(Fraction rate) noexcept {
  const Fraction least = reduced(rate);
  setWord(QMCIVideoInfo::kPictureRateNumAt, least.uNumerator);
  setWord(QMCIVideoInfo::kPictureRateDenAt, least.uDenominator);
}

bool QMVideoInfoNoXml::setPictureRate(double value, double tolerance) noexcept {
  const std::optional<Fraction> rate = findFraction(value, tolerance);
  if (rate) {
    setPictureRate(*rate);
  }
  return rate.has_value();
}

unsigned QMVideoInfoNoXml::getFieldsPerPicture() const {
  const unsigned uFields = qm_ci::getFieldsPerPicture(getInterlace());
  if (uFields == 0 && getInterlace() != QMCI_NOT_INITIALIZED_INTERLACE) {
    JASSERT(false);
  }
  return uFields;
}

Fraction QMVideoInfoNoXml::getPixelAspectRatio() const noexcept {
  return {word(QMCIVideoInfo::kPixelAspectRatioNumAt), word(QMCIVideoInfo::kPixelAspectRatioDenAt)};
}

void QMVideoInfoNoXml::setPixelAspectRatio(Fraction ratio) noexcept {
  setWord(QMCIVideoInfo::kPixelAspectRatioNumAt, ratio.uNumerator);
  setWord(QMCIVideoInfo::kPixelAspectRatioDenAt, ratio.uDenominator);
}

VisibleRegion QMVideoInfoNoXml::getVisibleRegion() const noexcept {
  return {word(QMCIVideoInfo::kVisibleLeftAt), word(QMCIVideoInfo::kVisibleTopAt),
          word(QMCIVideoInfo::kVisibleWidthAt), word(QMCIVideoInfo::kVisibleHeightAt)};
}

void QMVideoInfoNoXml::setVisibleRegion(const VisibleRegion& region) noexcept {
  setWord(QMCIVideoInfo::kVisibleLeftAt, region.uLeft);
  setWord(QMCIVideoInfo::kVisibleTopAt, region.uTop);
  setWord(QMCIVideoInfo::kVisibleWidthAt, region.uWidth);
  setWord(QMCIVideoInfo::kVisibleHeightAt, region.uHeight);
}

bool QMVideoInfoNoXml::isSameStream(const QMVideoInfoNoXml& other, bool bCompareSize) const {
  return isSameBase(other, bCompareSize) && getWidth() == other.getWidth() &&
         getHeight() == other.getHeight() && getInterlace() == other.getInterlace() &&
         getVisibleRegion() == other.getVisibleRegion() &&
         getMaxNonDisposableAccLvl() == other.getMaxNonDisposableAccLvl() &&
         getGDRPeriod() == other.getGDRPeriod() && getDecoderPipe() == other.getDecoderPipe() &&
         word(QMCIVideoInfo::kTimeReversedAt) == other.word(QMCIVideoInfo::kTimeReversedAt) &&
         sameRatio(getPictureRate(), other.getPictureRate()) &&
         sameRatio(getPixelAspectRatio(), other.getPixelAspectRatio());
}

std::string QMVideoInfoNoXml::getXML() const {
  const Fraction rate = getPictureRate();
  const Fraction aspect = getPixelAspectRatio();
  const VisibleRegion region = getVisibleRegion();
  std::string sXML = qm_utils::format(
      "<?xml version=\"1.0\"?>\n<VideoInfo version=\"1.0\">\n"
      "<FrameSize>\n\t<Width>%u</Width>\n\t<Height>%u</Height>\n</FrameSize>\n"
      "<PictureRate>\n\t<Num>%u</Num>\n\t<Den>%u</Den>\n</PictureRate>\n",
      getWidth(), getHeight(), rate.uNumerator, rate.uDenominator);
  if (getStreamIndexStep() != 0) {
    sXML += qm_utils::format("<StreamIndexStep>%u</StreamIndexStep>\n", getStreamIndexStep());
  }
  sXML += qm_utils::format(
      "<NomMaxBitstreamSize>%u</NomMaxBitstreamSize>\n<Interlace>%s</Interlace>\n"
      "<PixelAspectRatio>\n\t<Num>%u</Num>\n\t<Den>%u</Den>\n</PixelAspectRatio>\n"
      "<VisibleRegion>\n\t<Left>%u</Left>\n\t<Top>%u</Top>\n\t<Width>%u</Width>\n"
      "\t<Height>%u</Height>\n</VisibleRegion>\n"
      "<AccessInfo>\n\t<MaxNonDisposableAccLvl>%u</MaxNonDisposableAccLvl>\n"
      "\t<GDRPeriod>%d</GDRPeriod>\n\t<DecoderPipe>%u</DecoderPipe>\n",
      getNomMaxBitstreamSize(), std::string(interlaceToString(getInterlace())).c_str(), aspect.uNumerator,
      aspect.uDenominator, region.uLeft, region.uTop, region.uWidth, region.uHeight,
      getMaxNonDisposableAccLvl(), getGDRPeriod(), getDecoderPipe());
  if (getTimeReversed()) {
    sXML += "\t<TimeReversed>1</TimeReversed>\n";
  }
  return sXML + "</AccessInfo>\n" + getXMLTail();
}

BitmapInfoHeader QMVideoInfoNoXml::bitmapHeader() const {
  constexpr std::uint32_t kLargest = std::numeric_limits<std::int32_t>::max();
  if (getWidth() > kLargest || getHeight() > kLargest) {
    QM_THROW(JTextError, "a bitmap header can't hold a picture of %u x %u", getWidth(), getHeight());
  }
  BitmapInfoHeader header;
  header.biWidth = static_cast<std::int32_t>(getWidth());
  header.biHeight = static_cast<std::int32_t>(getHeight());
  return header;
}

std::vector<std::uint8_t> QMVideoInfoNoXml::createBMI() const {
  if (getMIMEType().starts_with(kVfwType)) {
    return createBMInotQMCI();
  }
  const std::string sXML = getXML();
  BitmapInfoHeader header = bitmapHeader();
  if (sXML.size() > std::numeric_limits<std::uint32_t>::max() - kBitmapHeaderSize) {
    QM_THROW(JBufferSizeError);
  }
  header.biSize = static_cast<std::uint32_t>(kBitmapHeaderSize + sXML.size());
  header.biCompression = fourcc("QMCI");
  std::vector<std::uint8_t> block(header.biSize);
  writeBitmapHeader(header, block.data());
  std::copy(sXML.begin(), sXML.end(), block.begin() + kBitmapHeaderSize);
  return block;
}

std::vector<std::uint8_t> QMVideoInfoNoXml::createBMInotQMCI() const {
  BitmapInfoHeader header = bitmapHeader();
  const std::string& sType = getMIMEType();
  const std::uint64_t ullPixels = std::uint64_t{getWidth()} * getHeight();
  const bool bTopDown = sType.starts_with(kVfwTopDownRgbType);
  if (bTopDown || sType.starts_with(kVfwRgbType)) {
    const std::string_view prefix = bTopDown ? kVfwTopDownRgbType : kVfwRgbType;
    header.biBitCount = bitsBehind(sType, prefix.size());
    if (header.biBitCount == 0) {
      QM_THROW(JTextError, "invalid %s MIME type", std::string(prefix).c_str());
    }
    header.biHeight = bTopDown ? -header.biHeight : header.biHeight;
    header.biSizeImage = imageSize(ullPixels, header.biBitCount);
  } else {
    char code[4] = {};
    sType.copy(code, sizeof code, kVfwType.size());
    header.biCompression = qm_platform::readLE32(code);
    header.biSizeImage = getNomMaxBitstreamSize() > kSizeMargin ? getNomMaxBitstreamSize() - kSizeMargin : 0;
    const std::uint64_t ullBits = std::uint64_t{header.biSizeImage} * 8;
    if (ullPixels != 0 && ullBits % ullPixels == 0 && isBitCount(ullBits / ullPixels)) {
      header.biBitCount = static_cast<std::uint16_t>(ullBits / ullPixels);
    }
  }
  std::vector<std::uint8_t> block(kBitmapHeaderSize);
  writeBitmapHeader(header, block.data());
  return block;
}

}  // namespace qm_ci
