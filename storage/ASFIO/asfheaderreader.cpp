#include "storage/ASFIO/asfheaderreader.h"

#include <algorithm>
#include <cstring>

#include "coreapi/platform/byteorder.h"

using namespace asf_layout;
using qm_platform::readLE16;
using qm_platform::readLE32;
using qm_platform::readLE64;

namespace {

constexpr int kOtherObject = -1;
constexpr int kTooShort = -2;
constexpr int kTooManyStreams = -6;
constexpr int kUnknownObject = -8;
constexpr int kWrongLength = -9;

/// A header without its sub-objects but the file properties.
constexpr std::size_t kLeastSize = kObjectHeadSize + file_properties::kSize;

/// The published objects of the early form that nothing is read from: the header's identifier with another
/// first byte.
constexpr std::uint8_t kFirstIgnored = 0xD5;
constexpr std::uint8_t kLastIgnored = 0xE0;

bool isIgnored(const Guid& id) noexcept {
  Guid like = kHeaderObject;
  like[0] = id[0];
  return id == like && id[0] >= kFirstIgnored && id[0] <= kLastIgnored;
}

bool isKnown(const Guid& id) noexcept {
  return id == kStreamPropertiesObject || id == kFilePropertiesObject || id == kLanguageListObject ||
         id == kParameters || isIgnored(id);
}

std::string_view asText(std::span<const std::uint8_t> bytes) noexcept {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

}  // namespace

Guid readAsfGuid(const std::uint8_t* pFrom) noexcept {
  Guid id;
  std::memcpy(id.data(), pFrom, id.size());
  return id;
}

std::string_view AsfExtension::text() const noexcept {
  const std::string_view sAll = asText(content);
  return sAll.substr(0, sAll.find('\0'));
}

const AsfExtension* AsfStreamProperties::find(const Guid& id) const noexcept {
  const auto found =
      std::find_if(extensions.begin(), extensions.end(), [&](const AsfExtension& e) { return e.id == id; });
  return found != extensions.end() ? &*found : nullptr;
}

/// Walks the fields of the header from a place to an end. What lies beyond the end reads as nothing and is
/// remembered.
class AsfHeaderReader::Cursor {
 public:
  Cursor(std::span<const std::uint8_t> bytes, std::size_t at) noexcept : m_bytes(bytes), m_at(at) {}

  std::span<const std::uint8_t> take(std::size_t uSize) noexcept {
    if (!m_bGood || uSize > m_bytes.size() - m_at) {
      m_bGood = false;
      return {};
    }
    m_at += uSize;
    return m_bytes.subspan(m_at - uSize, uSize);
  }
  std::uint8_t byte() noexcept {
    const auto taken = take(1);
    return taken.empty() ? std::uint8_t{0} : taken[0];
  }
  std::uint16_t half() noexcept {
    const auto taken = take(2);
    return taken.empty() ? std::uint16_t{0} : readLE16(taken.data());
  }
  std::uint32_t word() noexcept {
    const auto taken = take(4);
    return taken.empty() ? 0U : readLE32(taken.data());
  }

  std::size_t at() const noexcept { return m_at; }
  bool good() const noexcept { return m_bGood; }

 private:
  std::span<const std::uint8_t> m_bytes;
  std::size_t m_at;
  bool m_bGood = true;
};

int AsfHeaderReader::parse(std::vector<std::uint8_t> bytes) {
  m_bytes = std::move(bytes);
  m_filePropertiesAt.reset();
  m_uStreamCount = 0;
  m_streams.clear();
  m_sFileParameters.reset();
  if (m_bytes.size() < kObjectHeadSize || readAsfGuid(m_bytes.data()) != kHeaderObject) {
    return kOtherObject;
  }
  if (m_bytes.size() < kLeastSize) {
    return kTooShort;
  }
  std::size_t at = kObjectHeadSize;
  while (at < m_bytes.size()) {
    const int iResult = parseObject(at);
    if (iResult != kWhole) {
      return iResult;
    }
  }
  return kWhole;
}

/// Takes one object apart and moves `at` behind it.
int AsfHeaderReader::parseObject(std::size_t& at) {
  const std::size_t uLeft = m_bytes.size() - at;
  if (uLeft < kObjectHeadSize) {
    return kWrongLength;
  }
  const Guid id = readAsfGuid(m_bytes.data() + at);
  const std::uint64_t ullSize = readLE64(m_bytes.data() + at + kObjectSizeAt);
  if (!isKnown(id)) {
    return kUnknownObject;
  }
  if (id == kStreamPropertiesObject && m_streams.size() >= m_uStreamCount) {
    return kTooManyStreams;
  }
  if (ullSize < kObjectHeadSize || ullSize > uLeft) {
    return kWrongLength;
  }
  const auto uSize = static_cast<std::size_t>(ullSize);
  if (id == kStreamPropertiesObject) {
    return parseStream(at, uSize) ? kWhole : kWrongLength;
  }
  if (id == kFilePropertiesObject) {
    if (uSize != file_properties::kSize) {
      return kWrongLength;
    }
    m_filePropertiesAt = at;
    m_uStreamCount = readLE16(m_bytes.data() + at + file_properties::kStreamCountAt);
  } else if (id == kLanguageListObject) {
    if (!parseLanguages(at, uSize)) {
      return kWrongLength;
    }
  } else if (id == kParameters) {
    m_sFileParameters = asText(std::span(m_bytes).subspan(at + kObjectHeadSize, uSize - kObjectHeadSize));
  }
  at += uSize;
  return kWhole;
}

/// A count, and texts with a length byte each. False when they don't fill the object.
bool AsfHeaderReader::parseLanguages(std::size_t at, std::size_t uSize) const {
  Cursor cursor(getBytes().first(at + uSize), at + language_list::kCountAt);
  for (unsigned uCount = cursor.half(); uCount > 0 && cursor.good(); --uCount) {
    cursor.take(cursor.byte());
  }
  return cursor.good() && cursor.at() == at + uSize;
}

/// A stream, and the extensions that follow it, which its size counts or leaves to themselves. False when the
/// fields don't make up the size.
bool AsfHeaderReader::parseStream(std::size_t& at, std::size_t uSize) {
  using namespace stream_properties;
  Cursor cursor(m_bytes, at);
  AsfStreamProperties stream;
  stream.at = at;
  const auto fixed = cursor.take(kNumberAt);
  if (fixed.empty()) {
    return false;
  }
  stream.type = readAsfGuid(fixed.data() + kTypeAt);
  stream.ullFirstDate = readLE64(fixed.data() + kFirstDateAt);
  stream.ullLastDate = readLE64(fixed.data() + kLastDateAt);
  const std::uint32_t uExtra = readLE32(fixed.data() + kFlagsAt) & kExtraMask;
  if (uExtra != 0) {
    cursor.take(uExtra == kLongExtra ? kLongExtraSize : kShortExtraSize);
  }
  stream.wNumber = cursor.half();
  cursor.half();
  for (unsigned uNames = cursor.half(); uNames > 0 && cursor.good(); --uNames) {
    cursor.half();
    cursor.take(std::size_t{cursor.half()} * 2);
  }
  const std::string_view sMIMEType = asText(cursor.take(cursor.byte()));
  stream.sMIMEType = sMIMEType.substr(0, sMIMEType.find('\0'));
  stream.data = cursor.take(cursor.half());
  const std::size_t uWithoutExtensions = cursor.at() - at;
  while (cursor.good() && m_bytes.size() - cursor.at() >= stream_extension::kContentAt &&
         readAsfGuid(m_bytes.data() + cursor.at()) == kStreamExtensionObject) {
    const auto head = cursor.take(stream_extension::kContentSizeAt);
    AsfExtension extension;
    extension.id = readAsfGuid(head.data() + stream_extension::kIdAt);
    extension.content = cursor.take(cursor.word());
    if (readLE64(head.data() + kObjectSizeAt) != stream_extension::kContentAt + extension.content.size()) {
      return false;
    }
    stream.extensions.push_back(extension);
  }
  if (!cursor.good() || (uSize != uWithoutExtensions && uSize != cursor.at() - at)) {
    return false;
  }
  at = cursor.at();
  m_streams.push_back(std::move(stream));
  return true;
}
