#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "qmactivexctrl/common/iqmstorageaccessctrl.h"

/// A place with named streams of bytes, such as a host's document, in which a control keeps its properties.
class IQMPropertyStorage {
 public:
  IQMPropertyStorage() = default;
  IQMPropertyStorage(const IQMPropertyStorage&) = delete;
  IQMPropertyStorage& operator=(const IQMPropertyStorage&) = delete;
  virtual ~IQMPropertyStorage() = default;

  /// Puts the bytes in the place of what the stream held. Whether they are stored.
  virtual bool writeStream(const std::string& sName, std::span<const std::uint8_t> bytes) = 0;

  /// The bytes of a stream. False when there is none or it can't be read.
  virtual bool readStream(const std::string& sName, std::vector<std::uint8_t>& bytes) = 0;
};

/// The stored properties of a control. All numbers are little-endian; the properties have no names in the
/// stream, their order tells them apart:
///
///     property      form
///     _cx           u32
///     _cy           u32
///     Server        u16 8 (VT_BSTR), u32 count of 16-bit units, the units
///     Port          u16 3 (VT_I4), s32
///     TimeOut       u16 3, s32
///     Blocking      u16 3, s32
///     TunnelPort    u16 3, s32
///
/// Never reorder: hosts keep these streams.
namespace qm_control {

/// The name of the stream in a storage.
constexpr const char* kPropertyStream = "Contents";

struct Extent {
  std::uint32_t uWidth = 0;   ///< hundredths of a millimetre
  std::uint32_t uHeight = 0;  ///< hundredths of a millimetre
};

/// The bytes of a control's properties, each taken through its own member.
std::vector<std::uint8_t> writeProperties(IQMStorageAccessCtrl& control, const Extent& extent);

/// Puts the properties of a stream through their own members, and returns the extent. A stream that is cut or
/// holds other types gives nothing, and no property is put. What stands behind the last one isn't read.
std::optional<Extent> readProperties(IQMStorageAccessCtrl& control, std::span<const std::uint8_t> bytes);

}  // namespace qm_control
