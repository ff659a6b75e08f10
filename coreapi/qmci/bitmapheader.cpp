#include "coreapi/qmci/bitmapheader.h"

#include "coreapi/platform/byteorder.h"

namespace qm_ci {

namespace {

using qm_platform::readLE16;
using qm_platform::readLE32;
using qm_platform::writeLE16;
using qm_platform::writeLE32;

constexpr std::size_t kSizeAt = 0;
constexpr std::size_t kWidthAt = 4;
constexpr std::size_t kHeightAt = 8;
constexpr std::size_t kPlanesAt = 12;
constexpr std::size_t kBitCountAt = 14;
constexpr std::size_t kCompressionAt = 16;
constexpr std::size_t kSizeImageAt = 20;
constexpr std::size_t kXPelsPerMeterAt = 24;
constexpr std::size_t kYPelsPerMeterAt = 28;
constexpr std::size_t kClrUsedAt = 32;
constexpr std::size_t kClrImportantAt = 36;

std::int32_t readSigned(const std::uint8_t* pFrom) noexcept {
  return static_cast<std::int32_t>(readLE32(pFrom));
}

void writeSigned(std::uint8_t* pTo, std::int32_t iValue) noexcept {
  writeLE32(pTo, static_cast<std::uint32_t>(iValue));
}

}  // namespace

BitmapInfoHeader readBitmapHeader(const std::uint8_t* pFrom) noexcept {
  BitmapInfoHeader header;
  header.biSize = readLE32(pFrom + kSizeAt);
  header.biWidth = readSigned(pFrom + kWidthAt);
  header.biHeight = readSigned(pFrom + kHeightAt);
  header.biPlanes = readLE16(pFrom + kPlanesAt);
  header.biBitCount = readLE16(pFrom + kBitCountAt);
  header.biCompression = readLE32(pFrom + kCompressionAt);
  header.biSizeImage = readLE32(pFrom + kSizeImageAt);
  header.biXPelsPerMeter = readSigned(pFrom + kXPelsPerMeterAt);
  header.biYPelsPerMeter = readSigned(pFrom + kYPelsPerMeterAt);
  header.biClrUsed = readLE32(pFrom + kClrUsedAt);
  header.biClrImportant = readLE32(pFrom + kClrImportantAt);
  return header;
}

void writeBitmapHeader(const BitmapInfoHeader& header, std::uint8_t* pTo) noexcept {
  writeLE32(pTo + kSizeAt, header.biSize);
  writeSigned(pTo + kWidthAt, header.biWidth);
  writeSigned(pTo + kHeightAt, header.biHeight);
  writeLE16(pTo + kPlanesAt, header.biPlanes);
  writeLE16(pTo + kBitCountAt, header.biBitCount);
  writeLE32(pTo + kCompressionAt, header.biCompression);
  writeLE32(pTo + kSizeImageAt, header.biSizeImage);
  writeSigned(pTo + kXPelsPerMeterAt, header.biXPelsPerMeter);
  writeSigned(pTo + kYPelsPerMeterAt, header.biYPelsPerMeter);
  writeLE32(pTo + kClrUsedAt, header.biClrUsed);
  writeLE32(pTo + kClrImportantAt, header.biClrImportant);
}

}  // namespace qm_ci
