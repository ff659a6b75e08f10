#pragma once

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "coreapi/qmutils/rpc/jrpcserialisation.h"

// Standard containers as objects on the wire. Each writes its number of elements, an unsigned 32-bit integer,
// under "size", and each element under the name of its slot, counted from 0; an element that is a container
// or an object itself is nested under that name:
//
//     class           object name    keys
//     jrpc_set        "jrpc_set"     "size", "set%u"
//     jrpc_map_ref    "jrpc_map"     "size", "map%u_first", "map%u_second"
//     jrpc_vector_ref "jrpc_vector"  "size", "vec%u"
//     jrpc_pair_ref   "jrpc_pair"    "first", "second"
//
// All keys are required when a container is read, and it is cleared first. The `..._ref` classes refer to a
// container, which stays the caller's and outlives them; the `const_..._ref` forms of them can only be
// written.

template <typename A, typename B>
class const_jrpc_pair_ref;
template <typename A, typename B>
class jrpc_pair_ref;
template <typename T>
class const_jrpc_vector_ref;
template <typename T>
class jrpc_vector_ref;

namespace qm_utils {

/// Makes the names of slots, in a buffer of its own.
class RpcSlotName {
 public:
  /// At most 3 bytes, which stand in front of the index.
  explicit RpcSlotName(std::string_view sKind) noexcept : m_uKind(sKind.copy(m_text, kKindSize)) {}

  /// KIND, the index in decimal, and at most 7 bytes more. Good until the next call.
  std::string_view of(std::uint32_t uIndex, std::string_view sSuffix = {}) noexcept {
    char* pEnd = std::to_chars(m_text + m_uKind, m_text + m_uKind + kDigits, uIndex).ptr;
    pEnd += sSuffix.copy(pEnd, kSuffixSize);
    return {m_text, static_cast<std::size_t>(pEnd - m_text)};
  }

 private:
  static constexpr std::size_t kKindSize = 3;
  static constexpr std::size_t kDigits = 10;
  static constexpr std::size_t kSuffixSize = 7;

  char m_text[kKindSize + kDigits + kSuffixSize];
  std::size_t m_uKind;
};

// What stands in a slot: a value, an object, or a container of them.

template <typename T>
void serialiseSlot(JRPCSerialisation& target, std::string_view sName, const T& value) {
  target.serialise(sName, value);
}

template <typename A, typename B>
void serialiseSlot(JRPCSerialisation& target, std::string_view sName, const std::pair<A, B>& value) {
  target.serialise(sName, const_jrpc_pair_ref<A, B>(value));
}

template <typename T>
void serialiseSlot(JRPCSerialisation& target, std::string_view sName, const std::vector<T>& value) {
  target.serialise(sName, const_jrpc_vector_ref<T>(value));
}

template <typename T>
void deserialiseSlot(JRPCDeserialisation& source, std::string_view sName, T& value) {
  source.deserialise(sName, value, true);
}

template <typename A, typename B>
void deserialiseSlot(JRPCDeserialisation& source, std::string_view sName, std::pair<A, B>& value) {
  jrpc_pair_ref<A, B> object(value);
  source.deserialise(sName, object, true);
}

template <typename T>
void deserialiseSlot(JRPCDeserialisation& source, std::string_view sName, std::vector<T>& value) {
  jrpc_vector_ref<T> object(value);
  source.deserialise(sName, object, true);
}

inline std::uint32_t deserialiseSize(JRPCDeserialisation& source) {
  std::uint32_t uSize = 0;
  source.deserialise("size", uSize, true);
  return uSize;
}

}  // namespace qm_utils

/// A set that travels.
template <typename T>
class jrpc_set : public JRPCObject, public std::set<T> {
 public:
  jrpc_set() : JRPCObject("jrpc_set") {}

  void serialise(JRPCSerialisation& target) const override {
    target.serialise("size", static_cast<std::uint32_t>(this->size()));
    qm_utils::RpcSlotName slot("set");
    std::uint32_t uIndex = 0;
    for (const T& element : *this) {
      qm_utils::serialiseSlot(target, slot.of(uIndex++), element);
    }
  }

  void deserialise(JRPCDeserialisation& source, bool /*bRequired*/) override {
    this->clear();
    const std::uint32_t uSize = qm_utils::deserialiseSize(source);
    qm_utils::RpcSlotName slot("set");
    for (std::uint32_t uIndex = 0; uIndex < uSize; ++uIndex) {
      T element{};
      qm_utils::deserialiseSlot(source, slot.of(uIndex), element);
      this->insert(this->end(), std::move(element));
    }
  }
};

/// A pair, to be written.
template <typename A, typename B>
class const_jrpc_pair_ref : public JRPCObject {
 public:
  explicit const_jrpc_pair_ref(const std::pair<A, B>& pair) : JRPCObject("jrpc_pair"), m_pair(pair) {}

  void serialise(JRPCSerialisation& target) const override {
    qm_utils::serialiseSlot(target, "first", m_pair.first);
    qm_utils::serialiseSlot(target, "second", m_pair.second);
  }

 private:
  const std::pair<A, B>& m_pair;
};

/// A pair, to be written or read.
template <typename A, typename B>
class jrpc_pair_ref : public const_jrpc_pair_ref<A, B> {
 public:
  explicit jrpc_pair_ref(std::pair<A, B>& pair) : const_jrpc_pair_ref<A, B>(pair), m_target(pair) {}

  void deserialise(JRPCDeserialisation& source, bool /*bRequired*/) override {
    qm_utils::deserialiseSlot(source, "first", m_target.first);
    qm_utils::deserialiseSlot(source, "second", m_target.second);
  }

 private:
  std::pair<A, B>& m_target;
};

/// A vector, to be written.
template <typename T>
class const_jrpc_vector_ref : public JRPCObject {
 public:
  explicit const_jrpc_vector_ref(const std::vector<T>& vector)
      : JRPCObject("jrpc_vector"), m_vector(vector) {}

  void serialise(JRPCSerialisation& target) const override {
    target.serialise("size", static_cast<std::uint32_t>(m_vector.size()));
    qm_utils::RpcSlotName slot("vec");
    std::uint32_t uIndex = 0;
    for (const T& element : m_vector) {
      qm_utils::serialiseSlot(target, slot.of(uIndex++), element);
    }
  }

 private:
  const std::vector<T>& m_vector;
};

/// A vector, to be written or read.
template <typename T>
class jrpc_vector_ref : public const_jrpc_vector_ref<T> {
 public:
  explicit jrpc_vector_ref(std::vector<T>& vector) : const_jrpc_vector_ref<T>(vector), m_target(vector) {}

  void deserialise(JRPCDeserialisation& source, bool /*bRequired*/) override {
    m_target.clear();
    const std::uint32_t uSize = qm_utils::deserialiseSize(source);
    m_target.reserve(std::min<std::size_t>(uSize, source.getEntryCount()));
    qm_utils::RpcSlotName slot("vec");
    for (std::uint32_t uIndex = 0; uIndex < uSize; ++uIndex) {
      qm_utils::deserialiseSlot(source, slot.of(uIndex), m_target.emplace_back());
    }
  }

 private:
  std::vector<T>& m_target;
};

/// A map, to be written.
template <typename K, typename V>
class const_jrpc_map_ref : public JRPCObject {
 public:
  explicit const_jrpc_map_ref(const std::map<K, V>& map) : JRPCObject("jrpc_map"), m_map(map) {}

  void serialise(JRPCSerialisation& target) const override {
    target.serialise("size", static_cast<std::uint32_t>(m_map.size()));
    qm_utils::RpcSlotName slot("map");
    std::uint32_t uIndex = 0;
    for (const auto& [key, value] : m_map) {
      qm_utils::serialiseSlot(target, slot.of(uIndex, "_first"), key);
      qm_utils::serialiseSlot(target, slot.of(uIndex, "_second"), value);
      ++uIndex;
    }
  }

 private:
  const std::map<K, V>& m_map;
};

/// A map, to be written or read.
template <typename K, typename V>
class jrpc_map_ref : public const_jrpc_map_ref<K, V> {
 public:
  explicit jrpc_map_ref(std::map<K, V>& map) : const_jrpc_map_ref<K, V>(map), m_target(map) {}

  void deserialise(JRPCDeserialisation& source, bool /*bRequired*/) override {
    m_target.clear();
    const std::uint32_t uSize = qm_utils::deserialiseSize(source);
    qm_utils::RpcSlotName slot("map");
    for (std::uint32_t uIndex = 0; uIndex < uSize; ++uIndex) {
      K key{};
      qm_utils::deserialiseSlot(source, slot.of(uIndex, "_first"), key);
      V value{};
      qm_utils::deserialiseSlot(source, slot.of(uIndex, "_second"), value);
      m_target.insert_or_assign(std::move(key), std::move(value));
    }
  }

 private:
  std::map<K, V>& m_target;
};
