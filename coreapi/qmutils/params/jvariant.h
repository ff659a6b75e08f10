#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "coreapi/qmutils/error/jerror.h"

namespace qm_utils {
class ParamWriter;
struct ParamValue;
}  // namespace qm_utils

/// One named, typed value, and its text form: `name=value`.
///
/// A variant owns its name and its text or bytes; nothing that it was made from has to outlive it. Several
/// variants can be linked to a chain, which is how the arguments of a remote call are put together; a chain
/// owns nothing, its variants stay with whoever made them.
///
/// Names and texts are NUL-terminated: what is given with a NUL inside ends there. A name isn't checked; one
/// with other characters than letters, digits, "_", "[", "]", ".", "-" and bytes from 0x80 up can be written
/// but not read back.
///
/// Numbers are printed and scanned in the "C" locale. One object belongs to one thread at a time.
class JVariant {
 public:
  /// Never renumber: these codes stand in error texts and go to hosts.
  enum Type : std::int32_t {
    T_EMPTY = 0,
    T_BINARY = 1,  ///< bytes, written as hexadecimal digits
    T_BOOL = 2,
    T_INT = 3,  ///< signed, 64 bits
    T_DOUBLE = 4,
    T_STRING = 5,
    T_BLOB = 6,  ///< bytes, written as an escaped copy; the compact form
  };

  /// Whether a pointer is copied or taken over. What is taken over must have been made by `new char[]`, or
  /// `new std::uint8_t[]` for bytes: it is freed by `delete[]`.
  enum class Adopt : bool { No, Yes };

  class SyntaxError;
  class TypeMismatchError;
  class MissingParameterError;

  /// Empty, without name.
  JVariant() noexcept = default;

  JVariant(std::string_view sName, double dValue, JVariant* pNext = nullptr);
  JVariant(std::string_view sName, std::string_view sText, JVariant* pNext = nullptr);

  /// A null text counts as the empty one.
  JVariant(std::string_view sName, const char* szText, Adopt eAdopt = Adopt::No, JVariant* pNext = nullptr);

  /// Bytes: `T_BLOB` when that is the type, else `T_BINARY`. Null bytes count as no bytes.
  JVariant(std::string_view sName, const std::uint8_t* pBytes, std::uint32_t uSize, Type eType,
           Adopt eAdopt = Adopt::No, JVariant* pNext = nullptr);

  /// A template, so that no pointer turns into a boolean on its way here.
  template <std::same_as<bool> Bool>
  JVariant(std::string_view sName, Bool bValue, JVariant* pNext = nullptr)
      : JVariant(T_BOOL, sName, bValue ? 1 : 0, pNext) {}

  /// Any integer: a signed one is sign-extended to 64 bits, an unsigned 64-bit one keeps its bits.
  template <std::integral Int>
  requires(!std::same_as<Int, bool> && !std::same_as<Int, char>)
      JVariant(std::string_view sName, Int iValue, JVariant* pNext = nullptr)
      : JVariant(T_INT, sName, static_cast<std::int64_t>(iValue), pNext) {}

  /// A copy of a value that lies elsewhere.
  JVariant(std::string_view sName, const qm_utils::ParamValue& value, JVariant* pNext = nullptr);

  /// Copies name and value; `next` is copied as a pointer.
  JVariant(const JVariant& other);

  /// As the copy, under another name.
  JVariant(const JVariant& other, std::string_view sNewName);

  /// Takes name and value over, and copies `next`; the other is empty then.
  JVariant(JVariant&& other) noexcept;

  /// Clears, then copies; `next` is copied as a pointer. Assigning a variant to itself changes nothing.
  JVariant& operator=(const JVariant& other);
  JVariant& operator=(JVariant&& other) noexcept;

  ~JVariant() { clear(); }

  /// Frees name and value, which leaves an empty variant. `next` stays.
  void clear() noexcept;

  /// The name, or null when there is none. Valid until the variant changes.
  const char* getName() const noexcept { return m_szName.get(); }
  Type getType() const noexcept { return m_eType; }

  JVariant* getNext() const noexcept { return m_pNext; }
  void setNext(JVariant* pNext) noexcept { m_pNext = pNext; }

  /// Puts this variant behind another one and returns that one, the new head: who starts with W and links X,
  /// Y and Z in turn holds Z, Y, X, W.
  JVariant& link(JVariant& head) noexcept {
    head.m_pNext = this;
    return head;
  }

  /// Frees every variant behind this one with `delete`, as they stand behind the head that `parse` has
  /// filled.
  void deleteSuccessors() noexcept;

  /// The value where it lies, for reading without a copy. Valid until the variant changes.
  qm_utils::ParamValue value() const noexcept;

  /// Equal type and equal value, whatever the names: texts by content, doubles numerically, blocks by size
  /// and content.
  bool operator==(const JVariant& other) const noexcept;

  // Typed reads. Each converts where the table of conversions allows it, and throws TypeMismatchError where
  // it doesn't. A text is scanned as the scanf family does, from its start and as far as it matches; at
  // least one item must match.

  double asDouble() const;

  /// A double is cut toward zero. What lies outside the integer's range, in a double or in digits, gives the
  /// nearest end of the range; not-a-number gives 0.
  std::int64_t asInt64() const;

  /// As asInt64, for 32 bits; but of an integer the low 32 bits are taken.
  std::int32_t asInt32() const;

  /// A new copy of the text.
  std::unique_ptr<char[]> asText() const;
  void asText(std::string& sText) const;

  /// Texts: "true", "on", "ok" in any letter case and "1"; "false", "off", "failed" in any letter case and
  /// "0".
  bool asBool() const;

  /// A new copy of the bytes of a `T_BINARY` or `T_BLOB`, and their count.
  std::unique_ptr<std::uint8_t[]> asBytes(std::uint32_t* puSize = nullptr) const;

  /// A bound of what toText writes for the whole chain from here on, in bytes.
  std::size_t getMaxLength() const noexcept;

  /// Writes the chain from here on, joined by ", ", into a buffer of at least getMaxLength() bytes. Returns
  /// the number of characters; there is no NUL behind them.
  std::size_t toText(char* szBuf) const;

  /// Puts the text of the chain from here on in the place of what the string held.
  void toText(std::string& sText) const;

  /// Reads a list, up to the first value that no comma follows. This variant takes the first parameter; each
  /// further one is a new variant behind it, owned by the caller (see deleteSuccessors). What stood behind
  /// this variant before is no longer linked to it. Returns the number of characters consumed, blanks behind
  /// the last value included.
  ///
  /// Throws SyntaxError, with nothing left allocated and this variant as it was. An empty text is an error
  /// here: a chain has at least one parameter.
  std::size_t parse(std::string_view sText);

  /// Reads one parameter out of a longer list: walks the list as parse does, with the same failures, and
  /// takes the last one of that name; `next` stays. Returns whether there is one; when there is none, and
  /// after a failure, this variant is as it was.
  bool parse(std::string_view sText, std::string_view sWantedName);

 private:
  /// A `T_BOOL` or a `T_INT`.
  JVariant(Type eType, std::string_view sName, std::int64_t iValue, JVariant* pNext);

  void swapContent(JVariant& other) noexcept;
  std::size_t writeChain(qm_utils::ParamWriter& writer) const;

  std::unique_ptr<char[]> m_szName;
  union Value {
    std::int64_t integer = 0;  ///< a boolean too, as 0 or 1
    double number;
    char* text;           ///< owned, ends in a NUL
    std::uint8_t* bytes;  ///< owned
  } m_value;
  std::uint32_t m_uBinarySize = 0;
  Type m_eType = T_EMPTY;
  JVariant* m_pNext = nullptr;
};

/// A text isn't a parameter list. The parameter is the name whose value is wrong, or the whole rest of the
/// text where no name and "=" stand.
class JVariant::SyntaxError : public JError {
 public:
  SyntaxError(std::string sParameter, std::string sMessage)
      : m_sParameter(std::move(sParameter)), m_sMessage(std::move(sMessage)) {}

  using JError::getMessage;
  void getMessage(char* szBuf, std::size_t iBufLen) const override;

  const std::string& getParameter() const noexcept { return m_sParameter; }
  const std::string& getReason() const noexcept { return m_sMessage; }

 private:
  std::string m_sParameter;
  std::string m_sMessage;
};

/// A value has no conversion to the type that it is read as.
class JVariant::TypeMismatchError : public JError {
 public:
  TypeMismatchError(std::string sParameter, Type eWanted, Type eActual)
      : m_sParameter(std::move(sParameter)), m_eWanted(eWanted), m_eActual(eActual) {}

  using JError::getMessage;
  void getMessage(char* szBuf, std::size_t iBufLen) const override;

  const std::string& getParameter() const noexcept { return m_sParameter; }
  Type getWanted() const noexcept { return m_eWanted; }
  Type getActual() const noexcept { return m_eActual; }

 private:
  std::string m_sParameter;
  Type m_eWanted;
  Type m_eActual;
};

/// A parameter that must be there isn't.
class JVariant::MissingParameterError : public JError {
 public:
  explicit MissingParameterError(std::string sParameter) : m_sParameter(std::move(sParameter)) {}

  using JError::getMessage;
  void getMessage(char* szBuf, std::size_t iBufLen) const override;

  const std::string& getParameter() const noexcept { return m_sParameter; }

 private:
  std::string m_sParameter;
};
