#pragma once

#include <cstdint>
#include <limits>

#include "coreapi/qmutils/thread/namedassert.h"

/// A place in a result set, for reading: the set and the index of an item, or the set and no index, which is
/// the end. It stays good when items are added, and means another item when one before it is erased.
///
/// `Set` has `at` and `size`, `Item` is what `at` gives. Only places of one set may be compared.
template <class Set, class Item>
class Cstit {
 public:
  /// A place in no set.
  Cstit() noexcept = default;

  /// The place of an index, or the end when there is no such item.
  Cstit(const Set& set, std::uint32_t uIndex) : m_pSet(&set), m_uIndex(uIndex < set.size() ? uIndex : kEnd) {}

  /// The item, or null at the end.
  const Item* get() const { return isEnd() ? nullptr : m_pSet->at(m_uIndex); }
  const Item& operator*() const { return *get(); }
  const Item* operator->() const { return get(); }

  /// The end stays the end.
  Cstit& operator++() {
    advance();
    return *this;
  }

  bool isEnd() const noexcept { return m_uIndex == kEnd; }

  /// From the start of the set, in items; all ones at the end.
  std::uint32_t getIndex() const noexcept { return m_uIndex; }
  const Set* getSet() const noexcept { return m_pSet; }

  bool operator==(const Cstit& it) const noexcept {
    QM_ASSERT_AS(it.m_pSet == m_pSet, "it.m_pSet==m_pSet");
    return it.m_pSet == m_pSet && it.m_uIndex == m_uIndex;
  }

 protected:
  static constexpr std::uint32_t kEnd = std::numeric_limits<std::uint32_t>::max();

  void advance() {
    if (!isEnd()) {
      *this = Cstit(*m_pSet, m_uIndex + 1);
    }
  }

  const Set* m_pSet = nullptr;
  std::uint32_t m_uIndex = kEnd;
};

/// A place in a result set, for changing items.
template <class Set, class Item>
class Stit : public Cstit<Set, Item> {
  using Base = Cstit<Set, Item>;

 public:
  Stit() noexcept = default;
  Stit(Set& set, std::uint32_t uIndex) : Base(set, uIndex), m_pChangeable(&set) {}

  Item* get() const { return this->isEnd() ? nullptr : m_pChangeable->at(this->m_uIndex); }
  Item& operator*() const { return *get(); }
  Item* operator->() const { return get(); }

  Stit& operator++() {
    this->advance();
    return *this;
  }

  bool operator==(const Stit& it) const noexcept {
    QM_ASSERT_AS(it.Base::m_pSet == Base::m_pSet, "it.Cstit::m_pSet==Cstit::m_pSet");
    return it.Base::m_pSet == Base::m_pSet && it.m_uIndex == this->m_uIndex;
  }

 private:
  Set* m_pChangeable = nullptr;
};
