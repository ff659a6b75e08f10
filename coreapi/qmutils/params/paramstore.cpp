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

bool ParamStore::startsAtOrBelow(std::size_t leaf, std::string_view sName) const noexcept {
  const ParamLeaf& first = *m_leaves[leaf];
  return first.canTake(sName) && first.compare(0, first.keyOf(sName)) <= 0;
}

/// The last leaf that starts at or below a name; the first leaf when all start above it.
std::size_t ParamStore::leafOf(std::string_view sName) const noexcept {
  std::size_t low = 0;
  std::size_t high = m_leaves.size();
  while (high - low > 1) {
    const std::size_t middle = low + (high - low) / 2;
    (startsAtOrBelow(middle, sName) ? low : high) = middle;
  }
  return low;
}

/// Whether a name stands or belongs in a leaf, and where.
bool ParamStore::locateIn(std::size_t leaf, std::string_view sName, Spot& spot) const noexcept {
  const ParamLeaf& here = *m_leaves[leaf];
  if (!here.canTake(sName)) {
    return false;
  }
  const ParamLeaf::Place place = here.find(here.keyOf(sName), leaf == m_next.leaf ? m_next.slot : 0);
  spot = {leaf, place.slot, place.found};
  if (place.found || (place.slot > 0 && place.slot < here.count())) {
    return true;
  }
  return place.slot == 0 ? leaf == 0 : leaf + 1 == m_leaves.size() || !startsAtOrBelow(leaf + 1, sName);
}

ParamStore::Spot ParamStore::locate(std::string_view sName) const noexcept {
  Spot spot;
  if (m_leaves.empty()) {
    return spot;
  }
  const std::size_t leaf = std::min(m_next.leaf, m_leaves.size() - 1);
  if (!locateIn(leaf, sName, spot) && (leaf + 1 == m_leaves.size() || !locateIn(leaf + 1, sName, spot))) {
    locateIn(leafOf(sName), sName, spot);
  }
  return spot;
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
    leaf.insert(spot.slot, leaf.keyOf(sName), std::forward<Value>(value));
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
  left.moveTo(right, slot, left.count());
}

/// Where a new entry goes in that belongs at a spot.
ParamStore::Spot ParamStore::makeRoom(Spot spot, std::string_view sName) {
  if (m_leaves.empty()) {
    insertLeaf(0, "");
    return spot;
  }
  ParamLeaf& leaf = *m_leaves[spot.leaf];
  if (spot.slot == leaf.count()) {
    return makeRoomBehind(spot.leaf, sName);
  }
  if (spot.leaf > 0 && spot.slot <= kRunDisorder && growsAtEndOf(spot.leaf - 1) &&
      m_leaves[spot.leaf - 1]->count() + spot.slot < ParamLeaf::kMaxCount) {
    // A run grows at the end of the leaf before, and has just passed by the first entries of this one.
    ParamLeaf& run = *m_leaves[spot.leaf - 1];
    leaf.moveTo(run, 0, spot.slot);
    return {spot.leaf - 1, run.count(), false};
  }
  if (!leaf.isFull() || leaf.count() == 1) {
    return spot;  // one large value can fill a leaf, and what stands alone can't be cut
  }
  const bool bRun = m_next.leaf == spot.leaf && m_next.slot == spot.slot && spot.slot > 0;
  const std::size_t cut = bRun ? spot.slot : leaf.count() / 2;
  split(spot.leaf, cut);
  return spot.slot <= cut ? spot : Spot{spot.leaf + 1, spot.slot - cut, false};
}

/// As makeRoom, for an entry that belongs behind the last one of a leaf.
ParamStore::Spot ParamStore::makeRoomBehind(std::size_t leaf, std::string_view sName) {
  const Spot end{leaf, m_leaves[leaf]->count(), false};
  if (!m_leaves[leaf]->isFull()) {
    return end;
  }
  const bool bRun = growsAtEndOf(leaf);
  const bool bLast = leaf + 1 == m_leaves.size();
  if (!bRun && !bLast && !m_leaves[leaf + 1]->isFull() && m_leaves[leaf + 1]->canTake(sName)) {
    return {leaf + 1, 0, false};
  }
  m_leaves[leaf]->trim();
  insertLeaf(leaf + 1, m_leaves[leaf]->name(end.slot - 1));
  return {leaf + 1, 0, false};
}

}  // namespace qm_utils
