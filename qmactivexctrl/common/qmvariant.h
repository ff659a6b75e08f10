#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <variant>

/// The kinds of value that a call through the dispatch can carry. The numbers are those of the automation
/// platform; never renumber.
enum class QMVarType : std::uint16_t {
  VT_EMPTY = 0,
  VT_I2 = 2,
  VT_I4 = 3,
  VT_R4 = 4,
  VT_R8 = 5,
  VT_CY = 6,
  VT_DATE = 7,
  VT_BSTR = 8,
  VT_BOOL = 11,
  VT_VARIANT = 12,
  VT_UNKNOWN = 13,
  VT_DECIMAL = 14,
  VT_I1 = 16,
  VT_UI1 = 17,
  VT_UI2 = 18,
  VT_UI4 = 19,
  VT_I8 = 20,
  VT_UI8 = 21,
  VT_INT = 22,
  VT_UINT = 23,
  VT_VOID = 24,
  VT_HRESULT = 25,
  VT_PTR = 26,
  VT_SAFEARRAY = 27,
  VT_CARRAY = 28,
  VT_LPSTR = 30,
  VT_LPWSTR = 31,
  VT_INT_PTR = 37,
  VT_UINT_PTR = 38,
  VT_FILETIME = 64,
  VT_BLOB = 65,
  VT_CF = 71,
  VT_CLSID = 72,
  VT_BSTR_BLOB = 4095,
};

/// The name of a type as traces show it; "Unknown" for a number that is none.
const char* getVarTypeName(QMVarType eType) noexcept;

/// Whether a trace shows a result of this type as text, and not as "Binary".
bool isVarTypeShown(QMVarType eType) noexcept;

/// One value of a call through the dispatch. The members take and give 32-bit integers, floats and texts; a
/// variant of any other type has a type and no value. A plain value; any thread.
class QMVariant {
 public:
  /// VT_EMPTY.
  QMVariant() = default;

  /// A type without a value.
  explicit QMVariant(QMVarType eType) : m_eType(eType) {}

  explicit QMVariant(std::int32_t iValue) : m_eType(QMVarType::VT_I4), m_value(iValue) {}
  explicit QMVariant(float fValue) : m_eType(QMVarType::VT_R4), m_value(fValue) {}
  explicit QMVariant(std::u16string sText) : m_eType(QMVarType::VT_BSTR), m_value(std::move(sText)) {}

  QMVarType getType() const noexcept { return m_eType; }

  /// The value as UTF-8 text, a float with seven digits at most; empty without a value.
  std::string toText() const;

  // The value in the form that a member takes. Numbers become texts, and texts numbers when they are nothing
  // else; a float is rounded to the nearest integer, halves to the even one. False, and the out value
  // untouched, when there is no such value.

  bool get(std::int32_t& iValue) const;
  bool get(float& fValue) const;
  bool get(std::u16string& sText) const;

 private:
  QMVarType m_eType = QMVarType::VT_EMPTY;
  std::variant<std::monostate, std::int32_t, float, std::u16string> m_value;
};
