#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

namespace qm_ci {

/// A description of a stream as one block of memory, owned by value.
using InfoBlock = std::vector<std::uint8_t>;

/// The description of a data stream, which lies in memory of someone else's:
///
///     offset  width  field
///          0      4  ledwFPSNum     frames a second, numerator
///          4      4  ledwFPSDen     denominator
///          8      4  ledwFrameSize  largest frame in bytes
///         12      4  ledwSize       bytes of this description
///         16         MIME type, zero-terminated
///                    XML description, zero-terminated
///
/// All numbers are little-endian, and aren't swapped for the network either. Both texts end inside the
/// description.
class StreamDataInfo {
 public:
  static constexpr std::size_t kFPSNumAt = 0;
  static constexpr std::size_t kFPSDenAt = 4;
  static constexpr std::size_t kFrameSizeAt = 8;
  static constexpr std::size_t kSizeAt = 12;
  static constexpr std::size_t kTextsAt = 16;

  /// The description at the start of `bytes`, checked. Throws JTextError, after the assertion that says what
  /// is wrong.
  explicit StreamDataInfo(std::span<const std::uint8_t> bytes);

  /// A description from its fields; the texts end at their first NUL.
  static InfoBlock make(std::string_view sMIMEType, std::string_view sDescription, std::uint32_t uFPSNum,
                        std::uint32_t uFPSDen, std::uint32_t uFrameSize);

  std::span<const std::uint8_t> getBytes() const noexcept { return m_bytes; }

  /// Both texts with their zeros.
  std::span<const std::uint8_t> getTexts() const noexcept { return m_bytes.subspan(kTextsAt); }

  std::uint32_t getFPSNum() const noexcept;
  std::uint32_t getFPSDen() const noexcept;
  std::uint32_t getFrameSize() const noexcept;
  std::uint32_t getSize() const noexcept { return static_cast<std::uint32_t>(m_bytes.size()); }
  std::string_view getMIMEType() const noexcept { return m_sMIMEType; }
  std::string_view getDescription() const noexcept { return m_sDescription; }

 private:
  std::span<const std::uint8_t> m_bytes;
  std::string_view m_sMIMEType;
  std::string_view m_sDescription;
};

/// Makes the description of a data stream. The capitals among the first 255 characters of the MIME type
/// become small letters. The XML of a video or audio type is checked against the schema of its kind, for
/// which `QMXml::initialize` comes first; XML that fails is told in the log, and nothing comes back.
std::optional<InfoBlock> makeDataInfo(std::string_view sMIMEType, std::string_view sXMLDescription,
                                      std::uint32_t uFPSNum, std::uint32_t uFPSDen, std::uint32_t uFrameSize);

/// W3C XML Schemas of the XML description of a video and of an audio data stream.
extern const std::string_view kBitmapInfoHeaderSchema;
extern const std::string_view kWaveFormatExSchema;

}  // namespace qm_ci
