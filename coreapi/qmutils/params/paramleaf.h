#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "coreapi/qmutils/params/jvariant.h"
#include "coreapi/qmutils/params/paramvalue.h"

namespace qm_utils {

/// Up to 256 consecutive entries of a parameter list, packed: the unit that `ParamStore` is made of.
///
/// A leaf has an anchor, a text that is at or below every name in it. Of each name only what follows the part
/// that it shares with the anchor is kept. That also makes comparing cheap: of two names at or above the
/// anchor, the one that shares more with it is the smaller one; only where both share the same length do the
/// rests have to be looked at.
///
///     anchor  Item_vec41__Start
///     slot 0  shares 13, rest "Title"     ->  Item_vec41__Title
///     slot 1  shares  9, rest "2__End"    ->  Item_vec42__End
///
/// A slot is 16 bytes: the value, which of a text or a block is the size; the length of the shared part; and
/// where in the byte area of the leaf the record of the entry stands:
///
///     length of the name's rest   1 byte, or 255 and 8 bytes more
///     rest of the name
///     bytes of the value          of a text or a block
///
/// An entry can also be held: a `JVariant` of its own then carries the value.
class ParamLeaf {
 public:
  /// More entries make insertion slower, fewer make the names' shared part count less.
  static constexpr std::size_t kMaxCount = 256;

  /// A name as it is looked up in one leaf: how much of it is shared with this leaf's anchor.
  struct Key {
    std::string_view name;
    std::size_t shared;
  };

  /// Where a name stands, or would have to be put.
  struct Place {
    std::size_t slot;
    bool found;
  };

  explicit ParamLeaf(std::string sAnchor) noexcept : m_sAnchor(std::move(sAnchor)) {}
  ~ParamLeaf();
  ParamLeaf(const ParamLeaf&) = delete;
  ParamLeaf& operator=(const ParamLeaf&) = delete;

  /// A copy with no held entries: what was held is packed.
  std::unique_ptr<ParamLeaf> clone() const;

  std::size_t count() const noexcept { return m_slots.size(); }

  /// Whether an entry more would exceed the count, or the byte area has grown large.
  bool isFull() const noexcept { return count() >= kMaxCount || m_sBytes.size() >= kMaxBytes; }

  /// Whether a name is at or above the anchor, so that this leaf can take it.
  bool canTake(std::string_view sName) const noexcept;

  /// The key of a name that this leaf can take.
  Key keyOf(std::string_view sName) const noexcept;

  /// Below, at or above 0 as the name of a slot is below, at or above a key.
  int compare(std::size_t slot, const Key& key) const noexcept;

  /// Looks a name up, next to a slot at first. The leaf can take the name.
  Place find(const Key& key, std::size_t hint) const noexcept;

  // The name of a slot comes in two parts.

  std::string_view nameStart(std::size_t slot) const noexcept {
    return std::string_view(m_sAnchor).substr(0, m_slots[slot].shared);
  }
  std::string_view nameEnd(std::size_t slot) const noexcept;
  std::string name(std::size_t slot) const;

  /// The value of a slot, good until the leaf changes.
  ParamValue value(std::size_t slot) const noexcept;

  /// Puts a new entry in front of a slot. The value must not lie in this leaf.
  void insert(std::size_t slot, const Key& key, const ParamValue& value);
  void insert(std::size_t slot, const Key& key, std::unique_ptr<JVariant> pHeld);

  /// Gives a slot another value; a variant that it held is deleted. The value must not lie in this leaf,
  /// but may lie in that variant.
  void replace(std::size_t slot, const ParamValue& value);
  void replace(std::size_t slot, std::unique_ptr<JVariant> pHeld);

  /// The variant of a slot, made now if the slot has held none.
  const JVariant* hold(std::size_t slot);

  void erase(std::size_t slot);

  /// Moves the entries [first, last) to the end of another leaf that can take them and stands next to this
  /// one in order.
  void moveTo(ParamLeaf& target, std::size_t first, std::size_t last);

  /// Gives back memory that was taken in advance.
  void trim();

 private:
  /// A leaf is full when its byte area has grown to this.
  static constexpr std::size_t kMaxBytes = 256 * 1024;

  /// The largest part of a name that counts as shared.
  static constexpr std::size_t kMaxShared = 0xFFFF;

  static constexpr std::uint64_t kMaxOffset = 0xFF'FFFF'FFFF;

  /// A slot's kind is the type of its value, or this.
  static constexpr std::uint64_t kHeld = 7;

  union Content {
    std::int64_t integer;
    double number;
    std::uint64_t size;
    JVariant* held;  ///< owned
  };

  struct Slot {
    Content content;
    std::uint64_t offset : 40;
    std::uint64_t kind : 8;
    std::uint64_t shared : 16;
  };
  static_assert(sizeof(Slot) == 16);

  /// What a slot has in the byte area.
  struct Record {
    std::string_view rest;
    std::string_view bytes;
    std::size_t size;
  };

  static bool hasBytes(const Slot& slot) noexcept {
    return slot.kind == JVariant::T_STRING || slot.kind == JVariant::T_BINARY ||
           slot.kind == JVariant::T_BLOB;
  }

  Record recordOf(const Slot& slot) const noexcept;
  void writeRecord(Slot& slot, std::string_view sRest, std::string_view sBytes);
  void insertSlot(std::size_t slot, const Key& key, Slot filled, std::string_view sBytes);
  void setValue(Slot& slot, const ParamValue& value) noexcept;
  void dropValue(Slot& slot) noexcept;
  void compactIfWorthwhile();

  std::string m_sAnchor;
  std::vector<Slot> m_slots;
  std::string m_sBytes;
  std::size_t m_dead = 0;  ///< bytes of the byte area that no slot uses
  std::size_t m_held = 0;  ///< slots that hold a variant
};

}  // namespace qm_utils
