#include "coreapi/qmci/inforecord.h"

#include <cstring>

#include "coreapi/platform/byteorder.h"
#include "coreapi/qmci/asserted.h"
#include "coreapi/qmutils/error/jerror.h"

namespace qm_ci {

namespace {

using qm_platform::readLE32;

/// Whether the text that an offset names starts at `min` or behind it and ends inside the block.
bool holdsText(std::span<const std::uint8_t> block, std::size_t offsetAt, std::size_t min) noexcept {
  const std::uint32_t uOffset = readLE32(block.data() + offsetAt);
  return uOffset >= min && uOffset < block.size() &&
         std::memchr(block.data() + uOffset, 0, block.size() - uOffset) != nullptr;
}

}  // namespace

InfoRecord::InfoRecord(const InfoLayout& layout, std::span<const std::uint8_t> bytes) : m_pLayout(&layout) {
  const std::uint32_t uSize = bytes.size() >= layout.fixedSize ? readLE32(bytes.data() + kInfoSizeAt) : 0;
  bool bValid = JASSERTED(uSize >= layout.fixedSize && uSize <= bytes.size());
  if (bValid) {
    m_bytes = bytes.first(uSize);
    const bool bPacketized = layout.packetizedFormatOffAt != 0;
    bValid = JASSERTED(holdsText(m_bytes, layout.mimeTypeOffAt, layout.fixedSize)) &&
             JASSERTED(!bPacketized || holdsText(m_bytes, layout.packetizedFormatOffAt, layout.fixedSize)) &&
             JASSERTED(holdsText(m_bytes, layout.streamParamsOffAt, layout.streamParamsOffMin));
  }
  if (!bValid) {
    QM_THROW(JTextError, "invalid %s record", layout.szName);
  }
}

std::uint32_t InfoRecord::word(std::size_t at) const noexcept {
  return readLE32(m_bytes.data() + at);
}

std::uint16_t InfoRecord::half(std::size_t at) const noexcept {
  return qm_platform::readLE16(m_bytes.data() + at);
}

std::string_view InfoRecord::text(std::size_t offsetAt) const noexcept {
  if (offsetAt == 0) {
    return {};
  }
  return reinterpret_cast<const char*>(m_bytes.data() + word(offsetAt));
}

}  // namespace qm_ci
