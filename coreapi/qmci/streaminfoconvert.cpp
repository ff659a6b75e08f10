// Descriptions of one kind made from those of another: what a data stream's XML says as a video description,
// and a data stream's description in the form of the other two.
#include <string>

#include "coreapi/platform/byteorder.h"
#include "coreapi/qmci/asserted.h"
#include "coreapi/qmci/base64.h"
#include "coreapi/qmci/bitmapheader.h"
#include "coreapi/qmci/datainfonoxml.h"
#include "coreapi/qmci/streaminfo.h"
#include "coreapi/qmci/videoinfo.h"
#include "coreapi/qmxml/qmxmlreader.h"
#include "coreapi/qmxml/qmxmltree.h"

namespace qm_ci {

namespace {

/// `biCompression` of pictures whose pixels are split by masks.
constexpr std::uint32_t kBitFields = 3;
constexpr std::size_t kColorEntrySize = 4;
constexpr std::size_t kMaskSize = 4;
constexpr std::size_t kMasks = 3;

/// Bits a pixel up to which colours come from a table.
constexpr std::uint32_t kMaxTableBits = 8;

InfoBlock copyOf(std::span<const std::uint8_t> bytes) {
  return {bytes.begin(), bytes.end()};
}

/// A number that the schema bounds; what wasn't checked against it is cut.
template <typename Int>
Int narrow(const QMXmlTree& node, const char* szName) {
  return static_cast<Int>(node.getUnsigned(szName));
}

BitmapInfoHeader headerFrom(const QMXmlTree& node) {
  BitmapInfoHeader header;
  header.biWidth = node.getInteger("biWidth");
  header.biHeight = node.getInteger("biHeight");
  header.biPlanes = narrow<std::uint16_t>(node, "biPlanes");
  header.biBitCount = narrow<std::uint16_t>(node, "biBitCount");
  header.biCompression = node.getUnsigned("biCompression");
  header.biSizeImage = node.getUnsigned("biSizeImage");
  header.biXPelsPerMeter = node.getInteger("biXPelsPerMeter");
  header.biYPelsPerMeter = node.getInteger("biYPelsPerMeter");
  header.biClrUsed = node.getUnsigned("biClrUsed");
  header.biClrImportant = node.getUnsigned("biClrImportant");
  return header;
}

/// The entries of the colour table: blue, green, red and a zero each.
InfoBlock colorTableFrom(const QMXmlTree& node) {
  InfoBlock table;
  if (!node.has("colorTable")) {
    return table;
  }
  for (const auto& pColor : node.get("colorTable").getChildren()) {
    if (pColor->getKind() == QMXmlTree::kElement && pColor->getValue() == "color") {
      for (const char* szPart : {"blue", "green", "red"}) {
        table.push_back(narrow<std::uint8_t>(*pColor, szPart));
      }
      table.push_back(0);
    }
  }
  return table;
}

InfoBlock colorMasksFrom(const QMXmlTree& node) {
  InfoBlock masks(kMasks * kMaskSize);
  std::uint8_t* pTo = masks.data();
  for (const char* szMask : {"colorMasks\\red", "colorMasks\\green", "colorMasks\\blue"}) {
    qm_platform::writeLE32(pTo, node.getUnsigned(szMask));
    pTo += kMaskSize;
  }
  return masks;
}

InfoBlock extraInformationFrom(const QMXmlTree& node) {
  std::string sText;
  if (!node.getRawString("extraInformation", sText)) {
    return {};
  }
  std::optional<InfoBlock> extra = decodeBase64(sText);
  if (!extra) {
    QM_THROW(JTextError, "invalid extraInformation");
  }
  return std::move(*extra);
}

/// The bitmap header that an XML description tells, with masks, table and extra bytes behind it; none, with
/// the reason in the log, when the table isn't of the size that the header asks for.
std::optional<InfoBlock> bitmapFrom(const QMXmlTree& node) {
  BitmapInfoHeader header = headerFrom(node);
  const InfoBlock table = colorTableFrom(node);
  const bool bFullTable =
      header.biClrUsed == 0 && header.biBitCount >= 1 && header.biBitCount <= kMaxTableBits;
  const std::uint32_t uExpected = bFullTable ? 1U << header.biBitCount : header.biClrUsed;
  const std::size_t nColors = table.size() / kColorEntrySize;
  if (nColors != uExpected) {
    qm_err::log(qm_err::kLogError,
                "Invalid color table size! Found %u entries whereas there should be %u entries",
                static_cast<unsigned>(nColors), static_cast<unsigned>(uExpected));
    return std::nullopt;
  }
  const InfoBlock masks = header.biCompression == kBitFields ? colorMasksFrom(node) : InfoBlock{};
  const InfoBlock extra = extraInformationFrom(node);
  InfoBlock block(kBitmapHeaderSize);
  block.insert(block.end(), masks.begin(), masks.end());
  block.insert(block.end(), table.begin(), table.end());
  block.insert(block.end(), extra.begin(), extra.end());
  header.biSize = static_cast<std::uint32_t>(block.size());
  writeBitmapHeader(header, block.data());
  return block;
}

std::optional<InfoBlock> videoInfoFromXML(std::string_view sDescription) {
  try {
    QMXmlReader reader(sDescription.data(), sDescription.size());
    if (!reader.findElement("BITMAPINFOHEADER")) {
      QM_THROW(JTextError, "no BITMAPINFOHEADER");
    }
    QMXmlTree node;
    node.parse(&reader);
    const std::optional<InfoBlock> bitmap = bitmapFrom(node);
    QMVideoInfo info;
    if (!bitmap || !info.updateFromBMI(*bitmap, 0)) {
      return std::nullopt;
    }
    return copyOf(info.getCIInfo());
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    qm_err::log(qm_err::kLogError, "An error occured during the parsing of the data description: %s",
                error->getMessage().c_str());
    return std::nullopt;
  }
}

}  // namespace

std::optional<InfoBlock> StreamInfo::getVideoInfo() const {
  if (!isVideo()) {
    qm_err::logText(qm_err::kLogError, "Content is not video");
    return std::nullopt;
  }
  return isData() ? videoInfoFromXML(StreamDataInfo(description()).getDescription())
                  : copyOf(QMCIVideoInfo(description()).getBytes());
}

std::optional<InfoBlock> StreamInfo::getAudioInfo() const {
  if (!isAudio()) {
    qm_err::logText(qm_err::kLogError, "Content is not audio");
    return std::nullopt;
  }
  if (isData()) {
    asserted(false, "");
    return std::nullopt;
  }
  return copyOf(QMCIAudioInfo(description()).getBytes());
}

std::optional<InfoBlock> StreamInfo::getDataInfo() const {
  if (!isData()) {
    qm_err::logText(qm_err::kLogError, "Content is not data");
    return std::nullopt;
  }
  const StreamDataInfo from(description());
  QMDataInfoNoXml info;
  info.setMIMEType(from.getMIMEType());
  info.setNomMaxBitstreamSize(from.getFrameSize());
  info.setStreamParams(from.getDescription());
  return copyOf(info.getCIInfo());
}

std::optional<InfoBlock> StreamInfo::getStreamDataInfo() const {
  const std::uint32_t uType = getType();
  if (uType == kData) {
    return copyOf(StreamDataInfo(description()).getBytes());
  }
  if (uType == kVideo || uType == kAudio) {
    JASSERT(uType == kData);
  } else {
    qm_err::logText(qm_err::kLogError, "Unknown type");
  }
  return std::nullopt;
}

}  // namespace qm_ci
