#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "coreapi/qmutils/params/jparams.h"
#include "coreapi/qmutils/thread/jmutex.h"

class JRPCDeserialisation;
class JRPCSerialisation;

/// Base of every object that travels as a parameter list. A plain value as far as this base goes.
class JRPCObject {
 public:
  /// The object name is the class's own; a literal, for it isn't copied.
  explicit constexpr JRPCObject(const char* szObjectName) noexcept : m_szObjectName(szObjectName) {}
  virtual ~JRPCObject() = default;

  /// Writes every member under its name.
  virtual void serialise(JRPCSerialisation& target) const;

  /// Reads every member. `bRequired` is true when a deserialiser calls this; a class passes it on to its
  /// reads as it sees fit. What was read before an error stays read.
  virtual void deserialise(JRPCDeserialisation& source, bool bRequired);

  const char* getObjectName() const noexcept { return m_szObjectName; }

 protected:
  JRPCObject(const JRPCObject&) = default;
  JRPCObject& operator=(const JRPCObject&) noexcept { return *this; }

 private:
  const char* m_szObjectName;
};

namespace qm_utils {

/// What stands for one member in a parameter list.
template <typename T>
concept RpcNumber = std::is_arithmetic_v<T> && !std::same_as<T, char>;

/// The prefix under which nested objects put the names of their members, and the key made of it and a name.
/// Keeps one string for all, so that no key costs an allocation.
class RpcKey {
 public:
  /// Prefix and name. The view is good until the next call of any operation.
  std::string_view of(std::string_view sName) {
    m_sText.resize(m_uPrefix);
    m_sText.append(sName);
    return m_sText;
  }

  /// Goes into a nested object: appends its object name, cut at the first "<" and with "00" in the place of
  /// "::", then "_", the member's name and "__". Returns what `leave` wants to come back.
  std::size_t enter(std::string_view sObjectName, std::string_view sName);
  void leave(std::size_t uOuter) noexcept { m_uPrefix = uOuter; }

  void clear() noexcept { m_uPrefix = 0; }
  std::string_view prefix() const noexcept { return std::string_view(m_sText).substr(0, m_uPrefix); }

 private:
  std::string m_sText;  ///< the prefix, and the name last asked for behind it
  std::size_t m_uPrefix = 0;
};

}  // namespace qm_utils

/// Writes an object as one flat parameter list. Nesting is carried by prefixes of the names alone: the member
/// "A" of an object named "Item" that is written under the name "X" has the key `Item_X__A`.
///
/// Any thread; one at a time goes through, for a whole object at once. After an error the serialiser isn't
/// used any more.
class JRPCSerialisation {
 public:
  /// Into a list, which stays the caller's and outlives this; or, with null, into variants of its own.
  explicit JRPCSerialisation(JParams* pParams = nullptr) : m_pjparams(pParams) {}
  virtual ~JRPCSerialisation() = default;
  JRPCSerialisation(const JRPCSerialisation&) = delete;
  JRPCSerialisation& operator=(const JRPCSerialisation&) = delete;

  // Each stores one value under the current prefix and the name; a value that stood there is replaced. Signed
  // integers are sign-extended to 64 bits, a float is widened. A null text counts as the empty one.

  template <qm_utils::RpcNumber T>
  void serialise(std::string_view sName, T value) {
    if constexpr (std::floating_point<T>) {
      store(sName, static_cast<double>(value));
    } else {
      store(sName, value);
    }
  }
  void serialise(std::string_view sName, const std::string& sValue) {
    store(sName, std::string_view(sValue));
  }
  void serialise(std::string_view sName, const char* szValue) { store(sName, szValue); }

  /// A nested object.
  void serialise(std::string_view sName, const JRPCObject& object);

  /// Bytes. Throws JNullPointerError for a null pointer, JSerialisationError for a size of 0.
  void serialise(std::string_view sName, const std::uint8_t* pblob, std::uint32_t uSize);

  /// Links the variants in the order of their keys and returns the first; they stay this object's. Throws
  /// JSerialisationError when there are none.
  JVariant* linkVar();

  /// `linkVar`, and a copy of the first for a call. The rest of the chain stays here, so this object must
  /// outlive the call.
  void toChain(JVariant& head);

  /// The text of what was written, as a request takes it. Throws JSerialisationError when there are only
  /// variants to be written and none is there; an empty list gives the empty text.
  void raw_serialisation(std::string& sText);

 private:
  template <typename T>
  void store(std::string_view sName, const T& value) {
    const JAutoLock lock(m_mutex);
    const std::string_view sKey = m_key.of(sName);
    if (m_pjparams != nullptr) {
      m_pjparams->add(sKey, value);
    } else {
      m_variants.insert_or_assign(std::string(sKey), JVariant(sKey, value));
    }
  }

  JMutex m_mutex;
  qm_utils::RpcKey m_key;
  std::map<std::string, JVariant> m_variants;
  JParams* m_pjparams;
};

/// Reads objects from a parameter list, by the keys that JRPCSerialisation gives them.
///
/// Each read is told whether the value is required. A value that isn't there throws JDeserialisationError
/// when it is, and else gives false with the out value untouched. A value that has no conversion throws
/// JVariant::TypeMismatchError in any case.
///
/// Any thread; one at a time goes through, for a whole object at once.
class JRPCDeserialisation {
 public:
  /// Parses a text. Throws JVariant::SyntaxError; JNullPointerError when there is no memory.
  explicit JRPCDeserialisation(std::string_view sText);

  /// Reads a list, which stays the caller's and outlives this, or is deleted with this. Throws
  /// JNullPointerError for a null pointer.
  JRPCDeserialisation(const JParams* pParams, bool bTakeOwnership);
  explicit JRPCDeserialisation(std::unique_ptr<const JParams> pParams);
  virtual ~JRPCDeserialisation() = default;
  JRPCDeserialisation(const JRPCDeserialisation&) = delete;
  JRPCDeserialisation& operator=(const JRPCDeserialisation&) = delete;

  /// Starts anew with an empty list of its own.
  void reset();

  /// Numbers. Those of 8 and 16 bits are read as 32-bit integers and cut.
  template <qm_utils::RpcNumber T>
  bool deserialise(std::string_view sName, T& value, bool bRequired) {
    std::conditional_t<std::same_as<T, bool>, bool,
                       std::conditional_t<std::floating_point<T>, double,
                                          std::conditional_t<(sizeof(T) < 4 || std::same_as<T, std::int32_t>),
                                                             std::int32_t, std::int64_t>>>
        wide{};
    if (!read(sName, wide, bRequired)) {
      return false;
    }
    value = static_cast<T>(wide);
    return true;
  }
  bool deserialise(std::string_view sName, std::string& sValue, bool bRequired);

  /// A new copy of a text.
  bool deserialise(std::string_view sName, std::unique_ptr<char[]>& szValue, bool bRequired);

  /// A nested object. A JDeserialisationError on the way is logged; it is thrown on when the object is
  /// required, and gives false when it isn't.
  bool deserialise(std::string_view sName, JRPCObject& object, bool bRequired);

  /// A new copy of a block. Null and 0 when there is none. Throws JNullPointerError for a null `pblob`.
  bool deserialise(std::string_view sName, std::unique_ptr<std::uint8_t[]>* pblob, std::uint32_t& uSize,
                   bool bRequired);

  /// The text of the whole list.
  void raw_deserialisation(std::string& sText) const;

  /// Entries of the whole list: no count that stands in it can be right when it is larger.
  std::size_t getEntryCount() const;

 private:
  template <typename T>
  bool read(std::string_view sName, T& value, bool bRequired);
  static bool check(bool bFound, std::string_view sName, bool bRequired);

  mutable JMutex m_mutex;
  qm_utils::RpcKey m_key;
  std::unique_ptr<const JParams> m_pOwned;
  const JParams* m_pjparams;
};

extern template bool JRPCDeserialisation::read(std::string_view, bool&, bool);
extern template bool JRPCDeserialisation::read(std::string_view, double&, bool);
extern template bool JRPCDeserialisation::read(std::string_view, std::int32_t&, bool);
extern template bool JRPCDeserialisation::read(std::string_view, std::int64_t&, bool);
