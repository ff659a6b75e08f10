#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "coreapi/qmutils/params/jvariant.h"

namespace qm_utils {

/// The value of a parameter as seen by readers and writers: a number, or a text or bytes that lie elsewhere.
/// Owns nothing; it is good as long as what it points at.
struct ParamValue {
  static ParamValue ofBool(bool bValue) noexcept { return ofInteger(bValue ? 1 : 0, JVariant::T_BOOL); }
  static ParamValue ofInteger(std::int64_t iValue, JVariant::Type eType = JVariant::T_INT) noexcept {
    ParamValue value;
    value.type = eType;
    value.integer = iValue;
    return value;
  }
  static ParamValue ofDouble(double dValue) noexcept {
    ParamValue value;
    value.type = JVariant::T_DOUBLE;
    value.number = dValue;
    return value;
  }
  /// A text without NUL.
  static ParamValue ofText(std::string_view sText) noexcept {
    return ofBytes(sText.data(), sText.size(), JVariant::T_STRING);
  }
  static ParamValue ofBytes(const void* pBytes, std::size_t size, JVariant::Type eType) noexcept {
    ParamValue value;
    value.type = eType;
    value.data = static_cast<const char*>(pBytes);
    value.size = size;
    return value;
  }

  /// The text of a `T_STRING`, the bytes of a `T_BINARY` or `T_BLOB`.
  std::string_view bytes() const noexcept { return {data, size}; }

  /// Whether the value lies elsewhere.
  bool hasBytes() const noexcept {
    return type == JVariant::T_STRING || type == JVariant::T_BINARY || type == JVariant::T_BLOB;
  }

  JVariant::Type type = JVariant::T_EMPTY;
  union {
    std::int64_t integer = 0;  ///< `T_INT`; `T_BOOL` as 0 or 1
    double number;             ///< `T_DOUBLE`
    const char* data;          ///< all that has bytes
  };
  std::size_t size = 0;  ///< of the bytes
};

/// Equal type and equal value; doubles numerically.
bool operator==(const ParamValue& left, const ParamValue& right) noexcept;

// The conversions of the typed reads: nothing when a type has no conversion, or its text none.

std::optional<double> toDouble(const ParamValue& value);
std::optional<std::int64_t> toInt64(const ParamValue& value);
std::optional<std::int32_t> toInt32(const ParamValue& value);
std::optional<bool> toBool(const ParamValue& value);
std::optional<std::string> toString(const ParamValue& value);

/// The bytes of a block, where they lie.
std::optional<std::string_view> toBytes(const ParamValue& value);

/// Digits that "%g" needs at most: sign, six digits, point, exponent of three digits with "e" and sign.
inline constexpr std::size_t kMaxDoubleText = 13;

/// Digits that a 64-bit integer needs at most, its sign included.
inline constexpr std::size_t kMaxIntegerText = 20;

/// Writes a double as "%g" does; returns the end. The buffer takes kMaxDoubleText bytes.
char* writeDouble(char* szBuf, double dValue) noexcept;

/// Writes an integer in decimal; returns the end. The buffer takes kMaxIntegerText bytes.
char* writeInteger(char* szBuf, std::int64_t iValue) noexcept;

/// What of a text stands before its first NUL.
inline std::string_view upToNul(std::string_view sText) noexcept {
  return sText.substr(0, sText.find('\0'));
}

/// A new copy of what stands before the first NUL, with a NUL behind it.
std::unique_ptr<char[]> newText(std::string_view sText);

/// A new copy of some bytes.
std::unique_ptr<std::uint8_t[]> newBytes(std::string_view sBytes);

}  // namespace qm_utils
