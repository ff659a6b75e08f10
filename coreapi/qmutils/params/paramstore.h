#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "coreapi/qmutils/params/jvariant.h"
#include "coreapi/qmutils/params/paramleaf.h"
#include "coreapi/qmutils/params/paramvalue.h"

namespace qm_utils {

/// The entries of a parameter list in the byte-wise order of their names: a row of leaves.
///
/// A name is looked up where the last one was found or put, and only if it isn't near there by halving the
/// row. Entries that come in order go to the end of the leaf that the last one went to. A run that comes
/// later and belongs in between grows leaves of its own there: a full leaf is cut where the run stands, and
/// the few entries that the run passes by are moved over to its leaf. So a list whose rows come in the order
/// of their numbers, row 2 before row 10, is built about as fast as one in the order of its names.
///
/// One object belongs to one thread at a time; reading counts.
class ParamStore {
 public:
  ParamStore() = default;

  /// A copy holds no variants: they are packed.
  ParamStore(const ParamStore& other);
  ParamStore& operator=(const ParamStore& other);
  ParamStore(ParamStore&& other) noexcept;
  ParamStore& operator=(ParamStore&& other) noexcept;
  ~ParamStore() = default;

  std::size_t count() const noexcept { return m_count; }

  void clear() noexcept;

  /// Adds an entry, or gives the one of that name another value. The value must not lie in this store's
  /// leaves; it may lie in a variant that the entry holds.
  void put(std::string_view sName, const ParamValue& value);

  /// Adds an entry that holds a variant, which is not null.
  void put(std::string_view sName, std::unique_ptr<JVariant> pHeld);

  /// Puts packed copies of all entries of another store.
  void putAll(const ParamStore& other);

  /// Whether there was an entry to erase.
  bool erase(std::string_view sName);

  /// The value of an entry. What it points at is good until the store changes.
  std::optional<ParamValue> get(std::string_view sName) const noexcept;

  /// The variant of an entry, made now if none is held, or null. Good until the entry is changed or erased.
  const JVariant* hold(std::string_view sName) const;

  /// Calls `visit(start of the name, end of the name, value)` for every entry, in order.
  template <class Visit>
  void forEach(Visit&& visit) const {
    for (const auto& pLeaf : m_leaves) {
      for (std::size_t slot = 0; slot < pLeaf->count(); ++slot) {
        visit(pLeaf->nameStart(slot), pLeaf->nameEnd(slot), pLeaf->value(slot));
      }
    }
  }

 private:
  /// Where a name stands, or where it belongs.
  struct Spot {
    std::size_t leaf = 0;
    std::size_t slot = 0;
    bool found = false;
  };

  /// Entries at the end of a leaf that a growing run may still be mixed up with: the members of a row needn't
  /// come in order.
  static constexpr std::size_t kRunDisorder = 16;

  Spot locate(std::string_view sName) const noexcept;
  bool locateIn(std::size_t leaf, std::string_view sName, Spot& spot) const noexcept;
  std::size_t leafOf(std::string_view sName) const noexcept;
  bool startsAtOrBelow(std::size_t leaf, std::string_view sName) const noexcept;
  bool growsAtEndOf(std::size_t leaf) const noexcept;
  Spot makeRoom(Spot spot, std::string_view sName);
  Spot makeRoomBehind(std::size_t leaf, std::string_view sName);
  void split(std::size_t leaf, std::size_t slot);
  ParamLeaf& insertLeaf(std::size_t leaf, std::string sAnchor);

  template <class Value>
  void putValue(std::string_view sName, Value&& value);

  /// Never empty ones. The anchor of the first leaf is the empty text, so that it can take every name.
  std::vector<std::unique_ptr<ParamLeaf>> m_leaves;
  std::size_t m_count = 0;

  /// Behind the entry that was found or put last: what comes next is looked for here first.
  mutable Spot m_next;
};

}  // namespace qm_utils
