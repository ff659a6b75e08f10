#include "storage/riff.h"

#include "coreapi/platform/byteorder.h"

using namespace riff_layout;

void writeChunkHead(std::uint32_t uCode, std::uint32_t uSize, std::uint8_t* pTo) noexcept {
  qm_platform::writeLE32(pTo + kCodeAt, uCode);
  qm_platform::writeLE32(pTo + kSizeAt, uSize);
}

void appendChunk(std::vector<std::uint8_t>& to, std::uint32_t uCode, std::span<const std::uint8_t> body) {
  const std::size_t place = to.size();
  to.resize(place + kChunkHeadSize);
  writeChunkHead(uCode, static_cast<std::uint32_t>(body.size()), to.data() + place);
  to.insert(to.end(), body.begin(), body.end());
  to.resize(place + kChunkHeadSize + padded(body.size()));
}

void appendList(std::vector<std::uint8_t>& to, std::uint32_t uType, std::span<const std::uint8_t> content) {
  std::vector<std::uint8_t> body(sizeof uType);
  qm_platform::writeLE32(body.data(), uType);
  body.insert(body.end(), content.begin(), content.end());
  appendChunk(to, kList, body);
}
