#include "coreapi/qmutils/params/paramvalue.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <limits>

#include "coreapi/platform/clocale.h"

namespace qm_utils {

namespace {

/// The white space that the scanf family skips.
constexpr std::string_view kSpace = " \t\n\v\f\r";

/// As scanf reads "%d": white space, a sign, digits. What lies outside `Int` gives the end of its range.
template <class Int>
std::optional<Int> scanInteger(std::string_view sText) noexcept {
  sText.remove_prefix(std::min(sText.find_first_not_of(kSpace), sText.size()));
  if (!sText.empty() && sText[0] == '+') {
    sText.remove_prefix(1);
    if (!sText.empty() && sText[0] == '-') {
      return std::nullopt;
    }
  }
  Int iValue = 0;
  const auto result = std::from_chars(sText.data(), sText.data() + sText.size(), iValue);
  if (result.ec == std::errc::result_out_of_range) {
    return sText[0] == '-' ? std::numeric_limits<Int>::min() : std::numeric_limits<Int>::max();
  }
  if (result.ec != std::errc()) {
    return std::nullopt;
  }
  return iValue;
}

/// Cuts toward zero; what lies outside `Int` gives the end of its range, and not-a-number gives 0.
template <class Int>
Int cutDouble(double dValue) noexcept {
  // The ends of a range as doubles: the lower one is exact, the upper one is the first value beyond it.
  constexpr double kLowest = static_cast<double>(std::numeric_limits<Int>::min());
  constexpr double kBeyond = -kLowest;
  if (std::isnan(dValue)) {
    return 0;
  }
  if (dValue <= kLowest) {
    return std::numeric_limits<Int>::min();
  }
  return dValue >= kBeyond ? std::numeric_limits<Int>::max() : static_cast<Int>(dValue);
}

/// Of an integer the low bits that `Int` holds.
template <class Int>
std::optional<Int> toInteger(const ParamValue& value) noexcept {
  switch (value.type) {
    case JVariant::T_BOOL:
    case JVariant::T_INT:
      return static_cast<Int>(value.integer);
    case JVariant::T_DOUBLE:
      return cutDouble<Int>(value.number);
    case JVariant::T_STRING:
      return scanInteger<Int>(value.bytes());
    default:
      return std::nullopt;
  }
}

char lowered(char c) noexcept {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool equalsInAnyCase(std::string_view sText, std::string_view sLowerCase) noexcept {
  return std::equal(sText.begin(), sText.end(), sLowerCase.begin(), sLowerCase.end(),
                    [](char c, char lower) { return lowered(c) == lower; });
}

struct BoolText {
  std::string_view text;
  bool value;
};

constexpr std::array kBoolTexts = {
    BoolText{"true", true},   BoolText{"on", true},   BoolText{"ok", true},      BoolText{"1", true},
    BoolText{"false", false}, BoolText{"off", false}, BoolText{"failed", false}, BoolText{"0", false}};

}  // namespace

bool operator==(const ParamValue& left, const ParamValue& right) noexcept {
  if (left.type != right.type) {
    return false;
  }
  if (left.type == JVariant::T_DOUBLE) {
    return left.number == right.number;
  }
  return left.hasBytes() ? left.bytes() == right.bytes() : left.integer == right.integer;
}

std::optional<double> toDouble(const ParamValue& value) {
  switch (value.type) {
    case JVariant::T_BOOL:
    case JVariant::T_INT:
      return static_cast<double>(value.integer);
    case JVariant::T_DOUBLE:
      return value.number;
    case JVariant::T_STRING: {
      double dValue = 0.0;
      const std::string sText(value.bytes());  // scanning wants a NUL behind it
      return qm_platform::scanC(sText.c_str(), "%lg", &dValue) == 1 ? std::optional(dValue) : std::nullopt;
    }
    default:
      return std::nullopt;
  }
}

std::optional<std::int64_t> toInt64(const ParamValue& value) {
  return toInteger<std::int64_t>(value);
}

std::optional<std::int32_t> toInt32(const ParamValue& value) {
  return toInteger<std::int32_t>(value);
}

std::optional<bool> toBool(const ParamValue& value) {
  switch (value.type) {
    case JVariant::T_BOOL:
    case JVariant::T_INT:
      return value.integer != 0;
    case JVariant::T_DOUBLE:
      return value.number != 0.0;
    case JVariant::T_STRING:
      for (const BoolText& known : kBoolTexts) {
        if (equalsInAnyCase(value.bytes(), known.text)) {
          return known.value;
        }
      }
      return std::nullopt;
    default:
      return std::nullopt;
  }
}

std::optional<std::string> toString(const ParamValue& value) {
  char szNumber[kMaxIntegerText];
  switch (value.type) {
    case JVariant::T_BOOL:
      return value.integer != 0 ? "true" : "false";
    case JVariant::T_INT:
      return std::string(szNumber, writeInteger(szNumber, value.integer));
    case JVariant::T_DOUBLE:
      return std::string(szNumber, writeDouble(szNumber, value.number));
    case JVariant::T_STRING:
      return std::string(value.bytes());
    default:
      return std::nullopt;
  }
}

std::optional<std::string_view> toBytes(const ParamValue& value) {
  const bool bBlock = value.type == JVariant::T_BINARY || value.type == JVariant::T_BLOB;
  return bBlock ? std::optional(value.bytes()) : std::nullopt;
}

char* writeDouble(char* szBuf, double dValue) noexcept {
  constexpr int kSignificantDigits = 6;
  return std::to_chars(szBuf, szBuf + kMaxDoubleText, dValue, std::chars_format::general, kSignificantDigits)
      .ptr;
}

char* writeInteger(char* szBuf, std::int64_t iValue) noexcept {
  return std::to_chars(szBuf, szBuf + kMaxIntegerText, iValue).ptr;
}

std::unique_ptr<char[]> newText(std::string_view sText) {
  sText = qm_utils::upToNul(sText);
  std::unique_ptr<char[]> szCopy(new char[sText.size() + 1]);
  *std::copy(sText.begin(), sText.end(), szCopy.get()) = '\0';
  return szCopy;
}

std::unique_ptr<std::uint8_t[]> newBytes(std::string_view sBytes) {
  std::unique_ptr<std::uint8_t[]> pCopy(new std::uint8_t[sBytes.size()]);
  std::copy(sBytes.begin(), sBytes.end(), pCopy.get());
  return pCopy;
}

}  // namespace qm_utils
