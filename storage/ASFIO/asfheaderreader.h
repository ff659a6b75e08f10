#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "storage/ASFIO/asfformat.h"

/// What goes with a stream beside its properties. The content lies in the header's bytes.
struct AsfExtension {
  asf_layout::Guid id{};
  std::span<const std::uint8_t> content;

  /// The content as a text, which ends at its zero.
  std::string_view text() const noexcept;
};

/// A stream properties object. MIME type, data and extensions lie in the header's bytes.
struct AsfStreamProperties {
  std::size_t at = 0;  ///< place of the object in the header
  asf_layout::Guid type{};
  std::uint64_t ullFirstDate = 0;
  std::uint64_t ullLastDate = 0;
  std::uint16_t wNumber = 0;
  std::string_view sMIMEType;
  std::span<const std::uint8_t> data;  ///< type-specific
  std::vector<AsfExtension> extensions;

  /// The content of an extension; null when there is none.
  const AsfExtension* find(const asf_layout::Guid& id) const noexcept;
};

/// A header object, taken apart. It keeps the bytes that it was read from: numbers that become known later
/// are put into them, so that a header never changes its length.
class AsfHeaderReader {
 public:
  /// What `parse` gives for a header that is whole.
  static constexpr int kWhole = 1;

  /// Takes a header object apart: `kWhole`, or what is wrong with it: -1 another object, -2 too short, -6
  /// more streams than it says, -8 an object that isn't known, -9 an object of another length than it says.
  /// What was parsed before is forgotten.
  int parse(std::vector<std::uint8_t> bytes);

  std::span<const std::uint8_t> getBytes() const noexcept { return m_bytes; }

  /// The object's bytes, to put numbers into.
  std::uint8_t* getObject(std::size_t at) noexcept { return m_bytes.data() + at; }

  /// Place of the file properties object; nothing when the header has none.
  std::optional<std::size_t> getFileProperties() const noexcept { return m_filePropertiesAt; }

  const std::vector<AsfStreamProperties>& getStreams() const noexcept { return m_streams; }

  /// The file's parameters as text; nothing when the header has none.
  std::optional<std::string_view> getFileParameters() const noexcept { return m_sFileParameters; }

 private:
  class Cursor;

  int parseObject(std::size_t& at);
  bool parseStream(std::size_t& at, std::size_t uSize);
  bool parseLanguages(std::size_t at, std::size_t uSize) const;

  std::vector<std::uint8_t> m_bytes;
  std::optional<std::size_t> m_filePropertiesAt;
  std::size_t m_uStreamCount = 0;
  std::vector<AsfStreamProperties> m_streams;
  std::optional<std::string_view> m_sFileParameters;
};

/// Identifier at a place of some bytes.
asf_layout::Guid readAsfGuid(const std::uint8_t* pFrom) noexcept;
