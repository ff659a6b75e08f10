#include "coreapi/qmci/qmcibitstream.h"

#include <algorithm>

#include "coreapi/platform/byteorder.h"

namespace qm_ci {

namespace {

namespace layout = bitstream_layout;

/// `dwVersion` as this code writes it, or 0 when a record of that version can't be read.
std::uint32_t knownVersion(std::uint32_t dwVersion) noexcept {
  return (dwVersion & ~0xFFFFU) == kBitstreamVersion ? std::min(dwVersion, kBitstreamVersion) : 0;
}

/// Reverses every field but `dwAllocatedSize`.
void swapHeader(QMCIBitstream* psRecord) noexcept {
  for (const std::uint32_t at : {layout::kTimeStamp, layout::kFrameNumber}) {
    qm_platform::swap64InPlace(psRecord + at);
  }
  for (const std::uint32_t at : {layout::kPictureType, layout::kAccessFlags}) {
    qm_platform::swap16InPlace(psRecord + at);
  }
  for (const std::uint32_t at : {layout::kFormat, layout::kVersion, layout::kFormatVersion,
                                 layout::kHeaderLength, layout::kDecoderPipe, layout::kFrameExtra}) {
    qm_platform::swap32InPlace(psRecord + at);
  }
}

}  // namespace

std::string pictureTypeToString(std::uint16_t wPictureType) {
  static constexpr char kLetters[16] = {0, 'D', 'N', 'V', 'C', 0, 'A', 'F', 'S', 'T'};
  const char letter = kLetters[getFrameKind(wPictureType)];
  return letter != 0 ? std::string(1, letter) : std::string();
}

bool hton(QMCIBitstream* psRecord) noexcept {
  const std::uint32_t dwVersion = knownVersion(qm_platform::readLE32(psRecord + layout::kVersion));
  if (dwVersion == 0) {
    return false;
  }
  qm_platform::writeLE32(psRecord + layout::kVersion, dwVersion);
  swapHeader(psRecord);
  return true;
}

bool ntoh(QMCIBitstream* psRecord) noexcept {
  const std::uint32_t dwVersion = knownVersion(qm_platform::readBE32(psRecord + layout::kVersion));
  if (dwVersion == 0) {
    return false;
  }
  swapHeader(psRecord);
  qm_platform::writeLE32(psRecord + layout::kVersion, dwVersion);
  return true;
}

}  // namespace qm_ci
