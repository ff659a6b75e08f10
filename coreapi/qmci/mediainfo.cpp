#include "coreapi/qmci/mediainfo.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include "coreapi/platform/byteorder.h"
#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/text/jtext.h"
#include "coreapi/qmxml/qmxml.h"

namespace qm_ci {

namespace {

/// Room that a block gets beyond its need when its texts outgrow it.
constexpr std::size_t kGrowth = 20;

/// What a text of a block can hold: all up to its first zero.
std::string upToZero(std::string_view text) {
  return std::string(text.substr(0, text.find('\0')));
}

std::string trimmed(std::string sText) {
  qm_utils::trimSpace(sText);
  return sText;
}

/// How much longer a text is than the one that it replaces.
std::size_t growth(const char* szNew, std::string_view old) noexcept {
  const std::size_t length = szNew != nullptr ? std::strlen(szNew) : 0;
  return length > old.size() ? length - old.size() : 0;
}

std::string_view orElse(const char* szNew, std::string_view old) noexcept {
  return szNew != nullptr ? std::string_view(szNew) : old;
}

char lowered(char c) noexcept {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool sameButForCase(std::string_view one, std::string_view other) noexcept {
  return std::equal(one.begin(), one.end(), other.begin(), other.end(),
                    [](char a, char b) { return lowered(a) == lowered(b); });
}

}  // namespace

MediaInfo::MediaInfo(const InfoLayout& layout) : m_pLayout(&layout), m_block(layout.defaultSize) {
  setWord(kInfoSizeAt, static_cast<std::uint32_t>(layout.defaultSize));
  setWord(kInfoVersionAt, kInfoVersion);
  setWord(layout.mimeTypeOffAt, static_cast<std::uint32_t>(layout.fixedSize));
  if (layout.packetizedFormatOffAt != 0) {
    setWord(layout.packetizedFormatOffAt, static_cast<std::uint32_t>(layout.defaultPacketizedFormat));
  }
  setWord(layout.streamParamsOffAt, static_cast<std::uint32_t>(layout.defaultSize - 1));
}

void MediaInfo::init(std::span<const std::uint8_t> record, const char* szMIMEType,
                     const char* szPacketizedFormat, std::size_t minSize) {
  const InfoRecord source(*m_pLayout, record);
  const std::size_t size = source.getSize() + growth(szMIMEType, source.getMIMEType()) +
                           growth(szPacketizedFormat, source.getPacketizedFormat());
  // The record may be the block of this very object: its texts are copied first.
  keepTexts(std::string(orElse(szMIMEType, source.getMIMEType())),
            m_pLayout->packetizedFormatOffAt != 0
                ? std::string(orElse(szPacketizedFormat, source.getPacketizedFormat()))
                : std::string(),
            trimmed(std::string(source.getStreamParams())));
  std::vector<std::uint8_t> block(source.getBytes().begin(),
                                  source.getBytes().begin() + m_pLayout->fixedSize);
  m_block.swap(block);
  m_codingParams.clear();
  writeTexts(std::max({size, minSize, neededSize()}));
}

void MediaInfo::reset() {
  keepTexts({}, {}, {});
  m_codingParams.clear();
  setNomMaxBitstreamSize(0);
  updateBlock();
}

void MediaInfo::setCodingParams(std::span<const std::uint8_t> params) {
  m_codingParams.assign(params.begin(), params.end());
}

void MediaInfo::setMIMEType(std::string_view sMIMEType) {
  keepTexts(std::string(sMIMEType), std::move(m_sPacketizedFormat), std::move(m_sStreamParams));
  updateBlock();
}

void MediaInfo::setPacketizedFormat(std::string_view sPacketizedFormat) {
  m_sPacketizedFormat = upToZero(sPacketizedFormat);
  updateBlock();
}

void MediaInfo::setStreamParams(std::string_view sStreamParams) {
  m_sStreamParams = trimmed(upToZero(sStreamParams));
  updateBlock();
}

void MediaInfo::updateBlock() {
  const std::size_t needed = neededSize();
  writeTexts(m_block.size() < needed ? needed + kGrowth : m_block.size());
}

void MediaInfo::setTexts(std::string sMIMEType, std::string sPacketizedFormat, std::string sStreamParams) {
  keepTexts(std::move(sMIMEType), std::move(sPacketizedFormat), trimmed(std::move(sStreamParams)));
  writeTexts(neededSize());
}

void MediaInfo::keepTexts(std::string sMIMEType, std::string sPacketizedFormat, std::string sStreamParams) {
  m_sMIMEType = upToZero(sMIMEType);
  m_sPacketizedFormat = upToZero(sPacketizedFormat);
  m_sStreamParams = upToZero(sStreamParams);
  const std::size_t slash = m_sMIMEType.find('/');
  m_sCodingName = slash != std::string::npos ? m_sMIMEType.substr(slash + 1) : m_sMIMEType;
}

std::size_t MediaInfo::neededSize() const noexcept {
  const bool bPacketized = m_pLayout->packetizedFormatOffAt != 0;
  return m_pLayout->fixedSize + m_sMIMEType.size() + 1 + (bPacketized ? m_sPacketizedFormat.size() + 1 : 0) +
         m_sStreamParams.size() + 1;
}

void MediaInfo::writeTexts(std::size_t size) {
  if (size > std::numeric_limits<std::uint32_t>::max()) {
    QM_THROW(JBufferSizeError);
  }
  m_block.resize(m_pLayout->fixedSize);
  m_block.resize(size);  // what is left of former texts is cleared
  setWord(kInfoSizeAt, static_cast<std::uint32_t>(size));
  std::size_t at = m_pLayout->fixedSize;
  const auto append = [&](std::size_t offsetAt, const std::string& sText) {
    setWord(offsetAt, static_cast<std::uint32_t>(at));
    std::memcpy(m_block.data() + at, sText.c_str(), sText.size() + 1);
    at += sText.size() + 1;
  };
  append(m_pLayout->mimeTypeOffAt, m_sMIMEType);
  if (m_pLayout->packetizedFormatOffAt != 0) {
    append(m_pLayout->packetizedFormatOffAt, m_sPacketizedFormat);
  }
  append(m_pLayout->streamParamsOffAt, m_sStreamParams);
}

std::uint32_t MediaInfo::word(std::size_t at) const noexcept {
  return qm_platform::readLE32(m_block.data() + at);
}

void MediaInfo::setWord(std::size_t at, std::uint32_t uValue) noexcept {
  qm_platform::writeLE32(m_block.data() + at, uValue);
}

std::uint16_t MediaInfo::half(std::size_t at) const noexcept {
  return qm_platform::readLE16(m_block.data() + at);
}

void MediaInfo::setHalf(std::size_t at, std::uint16_t wValue) noexcept {
  qm_platform::writeLE16(m_block.data() + at, wValue);
}

std::string MediaInfo::getXMLTail() const {
  std::string sXML;
  if (!m_sMIMEType.empty()) {
    sXML += "<MIMEType>" + QMXml::escapeText(m_sMIMEType) + "</MIMEType>\n";
  }
  if (!m_sPacketizedFormat.empty()) {
    sXML += "<PacketizedFormat>" + QMXml::escapeText(m_sPacketizedFormat) + "</PacketizedFormat>\n";
  }
  if (!m_sStreamParams.empty()) {
    sXML += "<StreamParams>\n\t" + m_sStreamParams + "\n</StreamParams>\n";
  }
  return sXML + "</" + m_pLayout->szElement + ">";
}

bool MediaInfo::isSameBase(const MediaInfo& other, bool bCompareSize) const {
  return (!bCompareSize || getSize() == other.getSize()) && getVersion() == other.getVersion() &&
         getNomMaxBitstreamSize() == other.getNomMaxBitstreamSize() &&
         sameButForCase(m_sMIMEType, other.m_sMIMEType) && m_sPacketizedFormat == other.m_sPacketizedFormat;
}

}  // namespace qm_ci
