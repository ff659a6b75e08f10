#pragma once

#include <cstdint>
#include <string>
#include <string_view>

/// How an archive's directories are named, and the inverse. An archive is a directory with a marker file:
///
///     qmarchive                 the marker
///     SOURCE/FPS/               one unit: the recordings of a source at a rate (see ArchiveUnit)
///     quarantine/               files that couldn't be recovered
///
/// SOURCE is the source's name with every byte but A to Z, a to z, 0 to 9, "-" and "_" as "%" and two capital
/// hexadecimal digits, as in RFC 3986; where the result would be a name of the archive's own, its first
/// letter is coded too. FPS is the rate in decimal, without a sign or leading zeros. So no name leaves the
/// archive, and every source has one directory only. Any thread.
namespace qm_manager {

constexpr std::string_view kMarkerName = "qmarchive";
constexpr std::string_view kQuarantineName = "quarantine";

/// The longest name of a directory, bytes.
constexpr std::size_t kMaxDirectoryName = 255;

/// The directory of a source. Throws JTextError for an empty name and for one whose directory would need a
/// name longer than `kMaxDirectoryName`.
std::string encodeSourceName(std::string_view sSource);

/// The source that a directory belongs to. False when it isn't just what `encodeSourceName` gives.
bool decodeSourceName(std::string_view sDirectory, std::string& sSource);

/// The rate that a directory belongs to. False when it isn't a rate's, or more than 32 bits hold.
bool decodeFps(std::string_view sDirectory, std::int32_t& iFps);

/// The directory of a unit under an archive's root. Throws as `encodeSourceName`, and JTextError for a rate
/// below 0.
std::string unitDirectory(const std::string& sRoot, std::string_view sSource, std::int32_t iFps);

}  // namespace qm_manager
