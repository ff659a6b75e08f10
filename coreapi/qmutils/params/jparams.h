#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "coreapi/qmutils/params/jvariant.h"
#include "coreapi/qmutils/params/paramstore.h"

/// A set of named, typed values, in the byte-wise order of their names: the argument list of a remote call,
/// its answer, and the stored form of settings.
///
/// A list of a search answer has a million entries whose names of 75 bytes differ in the last few. So entries
/// aren't kept as objects: `ParamStore` packs them, names without what they share, in the order of the names.
/// Building a list in the order of its names, or in several ascending runs, and reading it row by row cost no
/// search: the store goes on from where it was last. A `JVariant` exists only for entries that were handed in
/// as one, or asked for through `find`.
///
/// One object belongs to one thread at a time, for reading too: reading moves the place where the store
/// looks first, and `find` makes objects.
class JParams {
 public:
  JParams() = default;

  /// Deep copies of all entries.
  JParams(const JParams& other) = default;

  /// Drops every entry, then takes deep copies of the other's. A list assigned to itself stays as it is.
  JParams& operator=(const JParams& other) = default;

  /// The other list is empty then.
  JParams(JParams&& other) noexcept = default;
  JParams& operator=(JParams&& other) noexcept = default;

  virtual ~JParams() = default;

  /// Keeps what is here, and replaces entries of the same name by deep copies of the other's.
  void merge(const JParams& other);

  /// Adds a deep copy of every entry of another list; null adds nothing.
  void add(const JParams* pOther);

  /// Takes a variant over and sets its `next` to null. An entry of the same name is deleted. `find` gives
  /// this very object until the entry is replaced or removed. Null fails an assertion; a variant without name
  /// stands under the empty name.
  void add(std::unique_ptr<JVariant> pVariant);

  // Each of these makes an entry; one of the same name is replaced.

  void add(std::string_view sName, double dValue);
  void add(std::string_view sName, std::string_view sText);

  /// Null counts as the empty text.
  void add(std::string_view sName, const char* szText);

  /// Bytes: `T_BLOB` when that is the type, else `T_BINARY`.
  void add(std::string_view sName, const std::uint8_t* pBytes, std::uint32_t uSize, JVariant::Type eType);

  template <std::same_as<bool> Bool>
  void add(std::string_view sName, Bool bValue) {
    addInteger(sName, bValue ? 1 : 0, JVariant::T_BOOL);
  }

  /// Any integer: a signed one is sign-extended to 64 bits, an unsigned 64-bit one keeps its bits.
  template <std::integral Int>
  requires(!std::same_as<Int, bool> && !std::same_as<Int, char>) void add(std::string_view sName,
                                                                          Int iValue) {
    addInteger(sName, static_cast<std::int64_t>(iValue), JVariant::T_INT);
  }

  /// Deletes an entry; whether there was one.
  bool remove(std::string_view sName);

  /// Deletes all entries.
  void clear() noexcept;

  /// The entry of a name, or null. It stays valid, at this address, until the entry is replaced or removed
  /// or the list goes. With `bRequired` a missing name throws MissingParameterError.
  const JVariant* find(std::string_view sName, bool bRequired = false) const;

  // Reads of an entry with the conversions of JVariant. Each returns true and sets the out value, or returns
  // false with the out value untouched when there is no such entry. With `bRequired` a missing name throws
  // MissingParameterError instead. A value with no conversion throws TypeMismatchError, the out value
  // untouched.

  bool get(std::string_view sName, double& dValue, bool bRequired = false) const;
  bool get(std::string_view sName, std::int32_t& iValue, bool bRequired = false) const;
  bool get(std::string_view sName, std::int64_t& iValue, bool bRequired = false) const;
  bool get(std::string_view sName, bool& bValue, bool bRequired = false) const;

  /// A new copy of the text.
  bool get(std::string_view sName, std::unique_ptr<char[]>& szText, bool bRequired = false) const;
  bool get(std::string_view sName, std::string& sText, bool bRequired = false) const;

  /// A new copy of the bytes, and their count.
  bool get(std::string_view sName, std::unique_ptr<std::uint8_t[]>& pBytes, std::uint32_t& uSize,
           bool bRequired = false) const;

  /// Adds the parameters of a text, a later one of the same name replacing an earlier one. An empty text, or
  /// one that starts with ")", blanks aside, adds nothing. Reading ends behind the first value that no comma
  /// follows. Returns the number of characters consumed.
  ///
  /// Throws JVariant::SyntaxError, after logging it; the list is then as it was.
  ///
  /// Time and memory grow in step with the text that is read, whatever it holds.
  std::size_t parse(std::string_view sText);

  /// A bound of what toText writes with a separator character, in bytes.
  std::size_t getMaxLength() const noexcept;

  /// Writes all entries, the separator character and a blank between two, into a buffer of at least
  /// getMaxLength() bytes. Returns the number of characters; there is no NUL behind them.
  std::size_t toText(char* szBuf, char cSeparator = ',') const;

  /// Puts the text of all entries, the separator character and a blank between two, in the place of what the
  /// string held.
  void toText(std::string& sText, char cSeparator = ',') const;

  /// As toText, with exactly this text between two entries.
  void toTextSeparatedBy(std::string& sText, std::string_view sSeparator) const;

  std::size_t getCount() const noexcept { return m_entries.count(); }
  bool isEmpty() const noexcept { return getCount() == 0; }

  /// All names, in order.
  std::vector<std::string> getNames() const;

  /// The type of each entry.
  std::map<std::string, JVariant::Type> getTypes() const;

 private:
  void addInteger(std::string_view sName, std::int64_t iValue, JVariant::Type eType);

  template <class T>
  std::optional<T> read(std::string_view sName, bool bRequired, JVariant::Type eWanted,
                        std::optional<T> (*convert)(const qm_utils::ParamValue&)) const;

  std::size_t write(qm_utils::ParamWriter& writer, std::string_view sSeparator) const;

  qm_utils::ParamStore m_entries;
};
