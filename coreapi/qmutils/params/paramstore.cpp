#include "coreapi/qmutils/params/paramstore.h"

#include <algorithm>
#include <utility>

namespace qm_utils {

ParamStore::ParamStore(const ParamStore& other) : m_count(other.m_count) {
  m_leaves.reserve(other.m_leaves.size());
  for (const auto& pLeaf : other.m_leaves) {
    m_leaves.push_back(pLeaf->clone());
  }
}

ParamStore& ParamStore::operator=(const ParamStore& other) {
  if (this != &other) {
    *this = ParamStore(other);
  }
  return *this;
}

ParamStore::ParamStore(ParamStore&& other) noexcept
    : m_leaves(std::move(other.m_leaves)), m_count(std::exchange(other.m_count, 0)) {
  other.m_leaves.clear();
}

ParamStore& ParamStore::operator=(ParamStore&& other) noexcept {
  if (this != &other) {
    m_leaves = std::move(other.m_leaves);
    m_count = std::exchange(other.m_count, 0);
    other.m_leaves.clear();
  }
  return *this;
}

void ParamStore::clear() noexcept {
  m_leaves.clear();
  m_count = 0;
}

/// Whether a leaf is the one in which a name stands or belongs.
bool ParamStore::belongsIn(std::size_t leaf, std::string_view sName) const noexcept {
  return m_leaves[leaf]->low() <= sName && (leaf + 1 == m_leaves.size() || sName < m_leaves[leaf + 1]->low());
}

/// The leaf in which a name stands or belongs.
std::size_t ParamStore::leafOf(std::string_view sName) const noexcept {
  std::size_t low = 0;
  std::size_t high = m_leaves.size();
  while (high - low > 1) {
    const std::size_t middle = low + (high - low) / 2;
    (m_leaves[middle]->low() <= sName ? low : high) = middle;
  }
  return low;
}

ParamStore::Spot ParamStore::locate(std::string_view sName) const noexcept {
  if (m_leaves.empty()) {
    return {};
  }
  Spot spot = m_next;
  if (spot.leaf < m_leaves.size() && spot.slot >= m_leaves[spot.leaf]->count()) {
    spot = {spot.leaf + 1, 0};
  }
  if (spot.leaf < m_leaves.size() && m_leaves[spot.leaf]->isNamed(spot.slot, sName)) {
    spot.found = true;
    return spot;
  }
  spot = m_next;
  if (spot.leaf >= m_leaves.size() || !belongsIn(spot.leaf, sName)) {
    ++spot.leaf;
    if (spot.leaf >= m_leaves.size() || !belongsIn(spot.leaf, sName)) {
      spot.leaf = leafOf(sName);
    }
    spot.slot = 0;
  }
  const ParamLeaf& leaf = *m_leaves[spot.leaf];
  const ParamLeaf::Place place = leaf.find(*leaf.keyOf(sName), spot.slot);
  return {spot.leaf, place.slot, place.found};
}

std::optional<ParamValue> ParamStore::get(std::string_view sName) const noexcept {
  const Spot spot = locate(sName);
  if (!spot.found) {
    return std::nullopt;
  }
  m_next = {spot.leaf, spot.slot + 1};
  return m_leaves[spot.leaf]->value(spot.slot);
}

const JVariant* ParamStore::hold(std::string_view sName) const {
  const Spot spot = locate(sName);
  if (!spot.found) {
    return nullptr;
  }
  m_next = {spot.leaf, spot.slot + 1};
  return m_leaves[spot.leaf]->hold(spot.slot);
}

template <class Value>
void ParamStore::putValue(std::string_view sName, Value&& value) {
  Spot spot = locate(sName);
  if (spot.found) {
    m_leaves[spot.leaf]->replace(spot.slot, std::forward<Value>(value));
  } else {
    spot = makeRoom(spot, sName);
    ParamLeaf& leaf = *m_leaves[spot.leaf];
    leaf.insert(spot.slot, *leaf.keyOf(sName), std::forward<Value>(value));
    ++m_count;
  }
  m_next = {spot.leaf, spot.slot + 1};
}

void ParamStore::put(std::string_view sName, const ParamValue& value) {
  putValue(sName, value);
}

void ParamStore::put(std::string_view sName, std::unique_ptr<JVariant> pHeld) {
  putValue(sName, std::move(pHeld));
}

void ParamStore::putAll(const ParamStore& other) {
  std::string sName;
  other.forEach([&](std::string_view sStart, std::string_view sEnd, const ParamValue& value) {
    put(sName.assign(sStart).append(sEnd), value);
  });
}

bool ParamStore::erase(std::string_view sName) {
  const Spot spot = locate(sName);
  if (!spot.found) {
    return false;
  }
  ParamLeaf& leaf = *m_leaves[spot.leaf];
  leaf.erase(spot.slot);
  --m_count;
  if (leaf.count() == 0) {
    m_leaves.erase(m_leaves.begin() + static_cast<std::ptrdiff_t>(spot.leaf));
    if (spot.leaf == 0 && !m_leaves.empty()) {
      auto pFirst = std::make_unique<ParamLeaf>("");
      m_leaves[0]->moveTo(*pFirst, 0, m_leaves[0]->count());
      m_leaves[0] = std::move(pFirst);
    }
  }
  m_next = spot;
  return true;
}

ParamLeaf& ParamStore::insertLeaf(std::size_t leaf, std::string sAnchor) {
  const auto at = m_leaves.begin() + static_cast<std::ptrdiff_t>(leaf);
  return **m_leaves.insert(at, std::make_unique<ParamLeaf>(std::move(sAnchor)));
}

/// Whether what was put last stands at the end of a leaf, or nearly.
bool ParamStore::growsAtEndOf(std::size_t leaf) const noexcept {
  return m_next.leaf == leaf && m_next.slot + kRunDisorder >= m_leaves[leaf]->count();
}

/// Moves the entries from a slot on to a new leaf behind. Its anchor is the last name that stays: so it can
/// take whatever may have to stand between the two.
void ParamStore::split(std::size_t leaf, std::size_t slot) {
  ParamLeaf& left = *m_leaves[leaf];
  ParamLeaf& right = insertLeaf(leaf + 1, left.name(slot - 1));
  right.setLow(left.name(slot));
  left.moveTo(right, slot, left.count());
}

/// Where a new entry goes in that belongs at a spot.
ParamStore::Spot ParamStore::makeRoom(Spot spot, std::string_view sName) {
  if (m_leaves.empty()) {
    insertLeaf(0, "");
    return {};
  }
  ParamLeaf& leaf = *m_leaves[spot.leaf];
  if (spot.leaf > 0 && spot.slot < leaf.count() && spot.slot <= kRunDisorder && growsAtEndOf(spot.leaf - 1) &&
      m_leaves[spot.leaf - 1]->count() + spot.slot < ParamLeaf::kMaxCount) {
    // A run grows at the end of the leaf before, and has just passed by the first entries of this one.
    ParamLeaf& run = *m_leaves[spot.leaf - 1];
    leaf.moveTo(run, 0, spot.slot);
    leaf.setLow(leaf.name(0));
    return {spot.leaf - 1, run.count()};
  }
  if (!leaf.isFull() || leaf.count() == 1) {
    return spot;  // one large value can fill a leaf, and what stands alone can't be cut
  }
  if (spot.slot == leaf.count()) {
    return makeRoomBehind(spot.leaf, sName);
  }
  const bool bRun = m_next.leaf == spot.leaf && m_next.slot == spot.slot && spot.slot > 0;
  const bool bEndOfRun = growsAtEndOf(spot.leaf) && leaf.count() > 2 * kEndOfRun;
  const std::size_t cut = bRun ? spot.slot : bEndOfRun ? leaf.count() - kEndOfRun : leaf.count() / 2;
  split(spot.leaf, cut);
  return spot.slot <= cut ? spot : Spot{spot.leaf + 1, spot.slot - cut};
}

/// Where a new entry goes in that belongs behind the last one of a full leaf.
ParamStore::Spot ParamStore::makeRoomBehind(std::size_t leaf, std::string_view sName) {
  const std::size_t next = leaf + 1;
  const bool bRun = growsAtEndOf(leaf);
  if (bRun || next == m_leaves.size() || m_leaves[next]->isFull() || !m_leaves[next]->keyOf(sName)) {
    const ParamLeaf& full = *m_leaves[leaf];
    insertLeaf(next, full.name(full.count() - 1)).reserveLike(full);
  }
  m_leaves[next]->setLow(std::string(sName));
  return {next, 0};
}

/// Puts an entry among the last ones of the leaf that grows; whether it belongs there.
bool ParamStore::Feed::putNearEnd(std::string_view sName, const ParamValue& value) {
  if (m_pLeaf == nullptr || m_pLeaf->isFull()) {
    return false;
  }
  const std::optional<ParamLeaf::Key> key = m_pLeaf->keyOf(sName);
  if (!key) {
    return false;
  }
  const std::size_t end = m_pLeaf->count();
  std::size_t slot = end;
  int iOrder = 1;
  while (slot > 0 && end - slot < kRunDisorder && (iOrder = m_pLeaf->compare(slot - 1, *key)) > 0) {
    --slot;
  }
  if (iOrder >= 0 || (slot == end && m_bLimit && sName >= m_sLimit)) {
    return false;  // further to the front, there already, or in the next leaf
  }
  m_pLeaf->insert(slot, *key, value);
  ++m_store.m_count;
  m_slot = slot + 1;
  m_bAtEnd = slot == end;
  noteShared(*key);
  return true;
}

void ParamStore::Feed::putElsewhere(std::string_view sName, const ParamValue& value) {
  if (m_pLeaf != nullptr) {
    m_store.m_next = {m_leaf, m_bAtEnd ? m_pLeaf->count() : m_slot};
  }
  m_store.put(sName, value);
  m_leaf = m_store.m_next.leaf;
  m_slot = m_store.m_next.slot;
  m_pLeaf = m_store.growsAtEndOf(m_leaf) ? m_store.m_leaves[m_leaf].get() : nullptr;
  m_bAtEnd = m_pLeaf != nullptr && m_slot == m_pLeaf->count();
  if (m_pLeaf != nullptr) {
    m_bLimit = m_leaf + 1 < m_store.m_leaves.size();
    m_sLimit = m_bLimit ? m_store.m_leaves[m_leaf + 1]->low() : std::string_view();
    noteShared(*m_pLeaf->keyOf(sName));
  }
}

void ParamStore::Feed::noteShared(const ParamLeaf::Key& key) {
  if (m_bAtEnd) {
    m_shared = key.shared;
    m_sharedWithLimit = sharedLength(key.name, m_sLimit);
  }
}

}  // namespace qm_utils
