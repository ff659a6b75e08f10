#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace qm_test {

/// A zone as a record of a pack holds it.
struct PackZone {
  struct Type {
    std::int32_t iOffset = 0;
    bool bDaylight = false;
    unsigned uAbbreviation = 0;
    bool bStandard = false;
    bool bUT = false;
  };
  std::string sName;
  std::vector<std::int32_t> times;
  std::vector<std::uint8_t> indices;
  std::vector<Type> types;
  std::string sCharacters;
  bool bLeapSeconds = false;
};

/// The zone of a name with one type, such as an offset that never changes.
PackZone fixedZone(const std::string& sName, std::int32_t iOffset, const std::string& sAbbreviation);

/// The record of a zone.
std::vector<std::uint8_t> packRecord(const PackZone& zone);

/// The records of zones one after the other.
std::vector<std::uint8_t> pack(const std::vector<PackZone>& zones);

/// A zone of the machine's own database: the 32-bit times of its TZif file. Throws `std::runtime_error`
/// without one.
PackZone machineZone(const std::string& sName);

/// The bytes of a file of the machine's own zone database.
std::string machineZoneFile(const std::string& sName);

}  // namespace qm_test
