#include "tests/coreapi/qmutils/time/zonepackwriter.h"

#include <fstream>
#include <iterator>
#include <stdexcept>

#include "coreapi/platform/byteorder.h"

namespace qm_test {

namespace {

void putLE32(std::vector<std::uint8_t>& bytes, std::uint32_t uNumber) {
  bytes.resize(bytes.size() + 4);
  qm_platform::writeLE32(bytes.data() + bytes.size() - 4, uNumber);
}

}  // namespace

PackZone fixedZone(const std::string& sName, std::int32_t iOffset, const std::string& sAbbreviation) {
  PackZone zone;
  zone.sName = sName;
  zone.types = {{iOffset, false, 0, false, false}};
  zone.sCharacters = sAbbreviation + '\0';
  return zone;
}

std::vector<std::uint8_t> packRecord(const PackZone& zone) {
  std::vector<std::uint8_t> bytes;
  putLE32(bytes, static_cast<std::uint32_t>(zone.sName.size() | zone.times.size() << 6 |
                                            zone.types.size() << 15 | zone.sCharacters.size() << 23) |
                     (zone.bLeapSeconds ? 0x80000000U : 0U));
  bytes.insert(bytes.end(), zone.sName.begin(), zone.sName.end());
  std::uint32_t uBefore = 0;
  for (const std::int32_t iTime : zone.times) {
    putLE32(bytes, static_cast<std::uint32_t>(iTime) - uBefore);
    uBefore = static_cast<std::uint32_t>(iTime);
  }
  bytes.insert(bytes.end(), zone.indices.begin(), zone.indices.end());
  for (const PackZone::Type& type : zone.types) {
    putLE32(bytes, (static_cast<std::uint32_t>(type.iOffset) & 0xFFFFF) | type.uAbbreviation << 20 |
                       (type.bDaylight ? 1U << 29 : 0U) | (type.bStandard ? 1U << 30 : 0U) |
                       (type.bUT ? 1U << 31 : 0U));
  }
  bytes.insert(bytes.end(), zone.sCharacters.begin(), zone.sCharacters.end());
  return bytes;
}

std::vector<std::uint8_t> pack(const std::vector<PackZone>& zones) {
  std::vector<std::uint8_t> bytes;
  for (const PackZone& zone : zones) {
    const std::vector<std::uint8_t> record = packRecord(zone);
    bytes.insert(bytes.end(), record.begin(), record.end());
  }
  return bytes;
}

std::string machineZoneFile(const std::string& sName) {
  std::ifstream file("/usr/share/zoneinfo/" + sName, std::ios::binary);
  std::string sBytes{std::istreambuf_iterator<char>(file), {}};
  if (sBytes.size() < 44) {
    throw std::runtime_error("the machine has no zone " + sName);
  }
  return sBytes;
}

PackZone machineZone(const std::string& sName) {
  const std::string sBytes = machineZoneFile(sName);
  const auto number = [&sBytes](std::size_t at) { return qm_platform::readBE32(sBytes.data() + at); };
  const std::size_t uts = number(20), standards = number(24), leaps = number(28), times = number(32),
                    types = number(36), characters = number(40);
  const std::size_t indicesAt = 44 + 4 * times;
  const std::size_t typesAt = indicesAt + times;
  const std::size_t charactersAt = typesAt + 6 * types;
  const std::size_t standardsAt = charactersAt + characters + 8 * leaps;

  PackZone zone;
  zone.sName = sName;
  zone.sCharacters = sBytes.substr(charactersAt, characters);
  zone.bLeapSeconds = leaps != 0;
  for (std::size_t i = 0; i < times; ++i) {
    zone.times.push_back(static_cast<std::int32_t>(number(44 + 4 * i)));
    zone.indices.push_back(static_cast<std::uint8_t>(sBytes[indicesAt + i]));
  }
  for (std::size_t i = 0; i < types; ++i) {
    const std::size_t at = typesAt + 6 * i;
    zone.types.push_back({static_cast<std::int32_t>(number(at)), sBytes[at + 4] != 0,
                          static_cast<unsigned char>(sBytes[at + 5]),
                          standards != 0 && sBytes[standardsAt + i] != 0,
                          uts != 0 && sBytes[standardsAt + standards + i] != 0});
  }
  return zone;
}

}  // namespace qm_test
