#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "coreapi/qmci/inforecord.h"

namespace qm_ci {

/// What the classes of all three kinds of description share: a block of the layout of its kind, whose texts
/// are held beside it too, so that reading them needs no search.
///
/// Belongs to one thread at a time.
class MediaInfo {
 public:
  virtual ~MediaInfo() = default;

  /// Takes over a copy of the block at the start of `record`, with other texts where they aren't null. The
  /// block keeps at least its size, grows with longer texts, and has at least `minSize` bytes. Throws
  /// JTextError when the block's size or an offset is wrong; this object then stays as it was.
  virtual void init(std::span<const std::uint8_t> record, const char* szMIMEType = nullptr,
                    const char* szPacketizedFormat = nullptr, std::size_t minSize = 0);

  /// Clears all texts, the coding parameters and the nominal size.
  virtual void reset();

  /// Sets the bytes that a coder of this stream needs.
  virtual void setCodingParams(std::span<const std::uint8_t> params);

  const std::vector<std::uint8_t>& getCodingParams() const noexcept { return m_codingParams; }

  /// The block. Valid until the next change of this object.
  std::span<const std::uint8_t> getCIInfo() const noexcept { return m_block; }

  /// First word of the block: its bytes.
  std::uint32_t getSize() const noexcept { return word(kInfoSizeAt); }
  std::size_t getAllocatedSize() const noexcept { return m_block.size(); }

  std::uint32_t getVersion() const noexcept { return word(kInfoVersionAt); }
  std::uint32_t getNomMaxBitstreamSize() const noexcept { return word(m_pLayout->nomMaxBitstreamSizeAt); }
  void setNomMaxBitstreamSize(std::uint32_t uSize) noexcept {
    setWord(m_pLayout->nomMaxBitstreamSizeAt, uSize);
  }

  const std::string& getMIMEType() const noexcept { return m_sMIMEType; }
  void setMIMEType(std::string_view sMIMEType);

  /// What stands behind the first "/" of the MIME type, or all of it when it has none.
  const std::string& getCodingName() const noexcept { return m_sCodingName; }

  const std::string& getStreamParams() const noexcept { return m_sStreamParams; }

  /// Sets the text of the stream's additional parameters: XML elements, without an element around them.
  void setStreamParams(std::string_view sStreamParams);

  /// Writes the texts into the block again; one that is too small grows to 20 bytes more than they need.
  void updateBlock();

 protected:
  explicit MediaInfo(const InfoLayout& layout);
  MediaInfo(const MediaInfo&) = default;
  MediaInfo(MediaInfo&&) noexcept = default;
  MediaInfo& operator=(const MediaInfo&) = default;
  MediaInfo& operator=(MediaInfo&&) noexcept = default;

  const InfoLayout& getLayout() const noexcept { return *m_pLayout; }

  std::uint32_t word(std::size_t at) const noexcept;
  void setWord(std::size_t at, std::uint32_t uValue) noexcept;
  std::uint16_t half(std::size_t at) const noexcept;
  void setHalf(std::size_t at, std::uint16_t wValue) noexcept;

  const std::string& getPacketizedFormat() const noexcept { return m_sPacketizedFormat; }
  void setPacketizedFormat(std::string_view sPacketizedFormat);

  /// Sets the three texts at once, in a block of exactly the size that they need.
  void setTexts(std::string sMIMEType, std::string sPacketizedFormat, std::string sStreamParams);

  /// Ends of the XML form that all kinds have: texts that aren't empty, and the end of the root element.
  std::string getXMLTail() const;

  /// Whether version, nominal size, MIME type (without regard to case) and packetized format are the same,
  /// and with `bCompareSize` the sizes of the blocks.
  bool isSameBase(const MediaInfo& other, bool bCompareSize) const;

 private:
  /// Writes the texts behind the fixed part of a block of `size` bytes, which they fit into.
  void writeTexts(std::size_t size);
  void keepTexts(std::string sMIMEType, std::string sPacketizedFormat, std::string sStreamParams);
  std::size_t neededSize() const noexcept;

  const InfoLayout* m_pLayout;
  std::vector<std::uint8_t> m_block;
  std::string m_sMIMEType;
  std::string m_sPacketizedFormat;
  std::string m_sStreamParams;
  std::string m_sCodingName;
  std::vector<std::uint8_t> m_codingParams;
};

}  // namespace qm_ci
