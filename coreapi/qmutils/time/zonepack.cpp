#include "coreapi/qmutils/time/zonepack.h"

#include <algorithm>
#include <array>
#include <cstddef>

#include "coreapi/platform/byteorder.h"

namespace qm_utils {

namespace {

constexpr std::size_t kWordSize = 4;
constexpr std::size_t kPackTypeSize = 4;

/// Seconds since 1970 at which each leap second up to 1999 was over, leap seconds not counted: the list of
/// the International Earth Rotation and Reference Systems Service. Packs hold no others.
constexpr std::array<std::int32_t, 22> kLeapSecondsOver = {
    78796800,  94694400,  126230400, 157766400, 189302400, 220924800, 252460800, 283996800,
    315532800, 362793600, 394329600, 425865600, 489024000, 567993600, 631152000, 662688000,
    709948800, 741484800, 773020800, 820454400, 867715200, 915148800};

/// The first word of a record and where its parts stand.
class Record {
 public:
  /// `rest` is the pack from the record's start, at least one word.
  explicit Record(std::span<const std::uint8_t> rest)
      : m_rest(rest), m_uWord(qm_platform::readLE32(rest.data())) {}

  std::size_t transitions() const noexcept { return bits(6, 9); }
  std::size_t types() const noexcept { return bits(15, 8); }
  std::size_t characters() const noexcept { return bits(23, 8); }
  bool countsLeapSeconds() const noexcept { return bits(31, 1) != 0; }

  std::size_t size() const noexcept { return charactersAt() + characters(); }
  bool isWhole() const noexcept { return size() <= m_rest.size(); }

  bool hasName(std::string_view sName) const noexcept {
    const auto name = m_rest.subspan(kWordSize, nameLength());
    return std::equal(name.begin(), name.end(), sName.begin(), sName.end(),
                      [](std::uint8_t byte, char c) { return byte == static_cast<std::uint8_t>(c); });
  }

  std::uint32_t transitionDifference(std::size_t i) const noexcept {
    return qm_platform::readLE32(m_rest.data() + timesAt() + 4 * i);
  }
  std::uint8_t transitionType(std::size_t i) const noexcept { return m_rest[indicesAt() + i]; }
  std::uint32_t type(std::size_t i) const noexcept {
    return qm_platform::readLE32(m_rest.data() + typesAt() + kPackTypeSize * i);
  }
  std::span<const std::uint8_t> abbreviations() const noexcept {
    return m_rest.subspan(charactersAt(), characters());
  }

 private:
  std::size_t bits(unsigned first, unsigned count) const noexcept {
    return m_uWord >> first & ((std::uint32_t{1} << count) - 1);
  }
  std::size_t nameLength() const noexcept { return bits(0, 6); }
  std::size_t timesAt() const noexcept { return kWordSize + nameLength(); }
  std::size_t indicesAt() const noexcept { return timesAt() + 4 * transitions(); }
  std::size_t typesAt() const noexcept { return indicesAt() + transitions(); }
  std::size_t charactersAt() const noexcept { return typesAt() + kPackTypeSize * types(); }

  std::span<const std::uint8_t> m_rest;
  std::uint32_t m_uWord;
};

/// Appends to an image.
class ImageWriter {
 public:
  void byte(std::uint32_t uByte) { m_bytes.push_back(static_cast<std::uint8_t>(uByte)); }
  void number(std::uint32_t uNumber) {
    std::uint8_t bytes[4];
    qm_platform::writeBE32(bytes, uNumber);
    append(bytes);
  }
  void append(std::span<const std::uint8_t> bytes) {
    m_bytes.insert(m_bytes.end(), bytes.begin(), bytes.end());
  }
  std::vector<std::uint8_t> take() { return std::move(m_bytes); }

 private:
  std::vector<std::uint8_t> m_bytes;
};

// Parts of a local time type's word.
constexpr std::uint32_t offsetOf(std::uint32_t uType) noexcept {
  return (uType & 0x7FFFF) - (uType & 0x80000);  // 20 bits, signed
}
constexpr std::uint32_t abbreviationOf(std::uint32_t uType) noexcept {
  return std::min<std::uint32_t>(uType >> 20 & 0x1FF, 0xFF);
}
constexpr std::uint32_t daylightOf(std::uint32_t uType) noexcept {
  return uType >> 29 & 1;
}
constexpr std::uint32_t standardOf(std::uint32_t uType) noexcept {
  return uType >> 30 & 1;
}
constexpr std::uint32_t utOf(std::uint32_t uType) noexcept {
  return uType >> 31;
}

std::vector<std::uint8_t> buildImage(const Record& record) {
  static constexpr std::uint8_t kStart[20] = {'T', 'Z', 'i', 'f'};
  const auto types = static_cast<std::uint32_t>(record.types());
  const auto transitions = static_cast<std::uint32_t>(record.transitions());

  ImageWriter image;
  image.append(kStart);
  image.number(types);
  image.number(types);
  image.number(record.countsLeapSeconds() ? kLeapSecondsOver.size() : 0);
  image.number(transitions);
  image.number(types);
  image.number(static_cast<std::uint32_t>(record.characters()));

  std::uint32_t uTime = 0;
  for (std::size_t i = 0; i < transitions; ++i) {
    uTime += record.transitionDifference(i);
    image.number(uTime);
  }
  for (std::size_t i = 0; i < transitions; ++i) {
    image.byte(record.transitionType(i));
  }
  for (std::size_t i = 0; i < types; ++i) {
    image.number(offsetOf(record.type(i)));
    image.byte(daylightOf(record.type(i)));
    image.byte(abbreviationOf(record.type(i)));
  }
  image.append(record.abbreviations());
  if (record.countsLeapSeconds()) {
    for (std::uint32_t i = 0; i < kLeapSecondsOver.size(); ++i) {
      image.number(static_cast<std::uint32_t>(kLeapSecondsOver[i]) +
                   i);  // counted with the leap seconds before it
      image.number(i + 1);
    }
  }
  for (std::size_t i = 0; i < types; ++i) {
    image.byte(standardOf(record.type(i)));
  }
  for (std::size_t i = 0; i < types; ++i) {
    image.byte(utOf(record.type(i)));
  }
  return image.take();
}

}  // namespace

std::optional<std::vector<std::uint8_t>> buildTzifImage(std::span<const std::uint8_t> pack,
                                                        std::string_view sName) {
  while (pack.size() >= kWordSize) {
    const Record record(pack);
    if (!record.isWhole()) {
      return std::nullopt;
    }
    if (record.hasName(sName)) {
      return buildImage(record);
    }
    pack = pack.subspan(record.size());
  }
  return std::nullopt;
}

}  // namespace qm_utils
