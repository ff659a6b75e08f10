#include "qmactivexctrl/common/qmvariant.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>

#include "coreapi/qmutils/text/jtext.h"
#include "coreapi/qmutils/text/jutf8codec.h"

namespace {

struct TypeName {
  QMVarType eType;
  const char* szName;
  bool bShown;
};

using enum QMVarType;

constexpr std::array<TypeName, 34> kTypes{{
    {VT_EMPTY, "VT_EMPTY", false},
    {VT_I2, "VT_I2", true},
    {VT_I4, "VT_I4", true},
    {VT_R4, "VT_R4", true},
    {VT_R8, "VT_R8", true},
    {VT_CY, "VT_CY", false},
    {VT_DATE, "VT_DATE", true},
    {VT_BSTR, "VT_BSTR", true},
    {VT_BOOL, "VT_BOOL", true},
    {VT_VARIANT, "VT_VARIANT", false},
    {VT_UNKNOWN, "VT_UNKNOWN", false},
    {VT_DECIMAL, "VT_DECIMAL", true},
    {VT_I1, "VT_I1", true},
    {VT_UI1, "VT_UI1", true},
    {VT_UI2, "VT_UI2", true},
    {VT_UI4, "VT_UI4", true},
    {VT_I8, "VT_I8", true},
    {VT_UI8, "VT_UI8", true},
    {VT_INT, "VT_INT", true},
    {VT_UINT, "VT_UINT", true},
    {VT_VOID, "VT_VOID", false},
    {VT_HRESULT, "VT_HRESULT", true},
    {VT_PTR, "VT_PTR", false},
    {VT_SAFEARRAY, "VT_SAFEARRAY", false},
    {VT_CARRAY, "VT_CARRAY", false},
    {VT_LPSTR, "VT_LPSTR", true},
    {VT_LPWSTR, "VT_LPWSTR", true},
    {VT_INT_PTR, "VT_INT_PTR", false},
    {VT_UINT_PTR, "VT_UINT_PTR", false},
    {VT_FILETIME, "VT_FILETIME", false},
    {VT_BLOB, "VT_BLOB", false},
    {VT_CF, "VT_CF", false},
    {VT_CLSID, "VT_CLSID", true},
    {VT_BSTR_BLOB, "VT_BSTR_BLOB", false},
}};

const TypeName* findType(QMVarType eType) noexcept {
  const auto* const pFound = std::ranges::find(kTypes, eType, &TypeName::eType);
  return pFound != kTypes.end() ? pFound : nullptr;
}

template <typename Number>
bool parseNumber(const std::u16string& sText, Number& number) {
  const std::string sBytes = JUTF8Codec::toUtf8(sText.c_str());
  Number read{};
  const auto [pEnd, error] = std::from_chars(sBytes.data(), sBytes.data() + sBytes.size(), read);
  if (error != std::errc() || pEnd != sBytes.data() + sBytes.size()) {
    return false;
  }
  number = read;
  return true;
}

}  // namespace

const char* getVarTypeName(QMVarType eType) noexcept {
  const TypeName* const pType = findType(eType);
  return pType != nullptr ? pType->szName : "Unknown";
}

bool isVarTypeShown(QMVarType eType) noexcept {
  const TypeName* const pType = findType(eType);
  return pType != nullptr && pType->bShown;
}

std::string QMVariant::toText() const {
  if (const auto* const pText = std::get_if<std::u16string>(&m_value)) {
    return JUTF8Codec::toUtf8(pText->c_str());
  }
  if (const auto* const pInteger = std::get_if<std::int32_t>(&m_value)) {
    return std::to_string(*pInteger);
  }
  if (const auto* const pFloat = std::get_if<float>(&m_value)) {
    return qm_utils::format("%.7G", static_cast<double>(*pFloat));
  }
  return {};
}

bool QMVariant::get(std::int32_t& iValue) const {
  if (const auto* const pText = std::get_if<std::u16string>(&m_value)) {
    return parseNumber(*pText, iValue);
  }
  if (const auto* const pFloat = std::get_if<float>(&m_value)) {
    const double dRounded = std::nearbyint(static_cast<double>(*pFloat));
    if (!(dRounded >= INT32_MIN && dRounded <= INT32_MAX)) {
      return false;
    }
    iValue = static_cast<std::int32_t>(dRounded);
    return true;
  }
  const auto* const pInteger = std::get_if<std::int32_t>(&m_value);
  if (pInteger != nullptr) {
    iValue = *pInteger;
  }
  return pInteger != nullptr;
}

bool QMVariant::get(float& fValue) const {
  if (const auto* const pText = std::get_if<std::u16string>(&m_value)) {
    return parseNumber(*pText, fValue);
  }
  if (const auto* const pInteger = std::get_if<std::int32_t>(&m_value)) {
    fValue = static_cast<float>(*pInteger);
    return true;
  }
  const auto* const pFloat = std::get_if<float>(&m_value);
  if (pFloat != nullptr) {
    fValue = *pFloat;
  }
  return pFloat != nullptr;
}

bool QMVariant::get(std::u16string& sText) const {
  if (std::holds_alternative<std::monostate>(m_value)) {
    return false;
  }
  const auto* const pText = std::get_if<std::u16string>(&m_value);
  sText = pText != nullptr ? *pText : JUTF8Codec::toWide(toText().c_str());
  return true;
}
