#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

/// What the blocks that describe a stream have in common: 32-bit and 16-bit little-endian fields, among them
/// the offsets of zero-terminated texts inside the block, then the texts. The first word is the block's size.
namespace qm_ci {

/// Where a kind of block has its fields.
struct InfoLayout {
  const char* szName;                   ///< of the record
  const char* szClass;                  ///< of the class that adds the XML form
  const char* szElement;                ///< root of the XML form
  std::size_t fixedSize;                ///< the first text may start here
  std::size_t defaultSize;              ///< of a block that nothing was put into
  std::size_t defaultPacketizedFormat;  ///< where such a block has this text
  std::size_t nomMaxBitstreamSizeAt;
  std::size_t mimeTypeOffAt;
  std::size_t packetizedFormatOffAt;  ///< 0: blocks of this kind have no such text
  std::size_t streamParamsOffAt;
  std::size_t streamParamsOffMin;  ///< smallest offset of the stream parameters
};

inline constexpr std::uint32_t kInfoVersion = 0x10000;
inline constexpr std::size_t kInfoSizeAt = 0;
inline constexpr std::size_t kInfoVersionAt = 4;

/// A block whose size and offsets have been checked, at the start of memory that belongs to someone else. All
/// texts end inside the block; they may overlap.
class InfoRecord {
 public:
  /// Bytes of the block.
  std::uint32_t getSize() const noexcept { return static_cast<std::uint32_t>(m_bytes.size()); }
  std::span<const std::uint8_t> getBytes() const noexcept { return m_bytes; }

  std::uint32_t getVersion() const noexcept { return word(kInfoVersionAt); }
  std::uint32_t getNomMaxBitstreamSize() const noexcept { return word(m_pLayout->nomMaxBitstreamSizeAt); }
  std::string_view getMIMEType() const noexcept { return text(m_pLayout->mimeTypeOffAt); }
  std::string_view getStreamParams() const noexcept { return text(m_pLayout->streamParamsOffAt); }

  /// Empty for a kind of block without it.
  std::string_view getPacketizedFormat() const noexcept { return text(m_pLayout->packetizedFormatOffAt); }

 protected:
  /// Takes the block at the start of `bytes`. Throws JTextError, after the assertion that says what is wrong
  /// with it.
  InfoRecord(const InfoLayout& layout, std::span<const std::uint8_t> bytes);

  std::uint32_t word(std::size_t at) const noexcept;
  std::uint16_t half(std::size_t at) const noexcept;

 private:
  friend class MediaInfo;

  std::string_view text(std::size_t offsetAt) const noexcept;

  const InfoLayout* m_pLayout;
  std::span<const std::uint8_t> m_bytes;
};

}  // namespace qm_ci
