#include "coreapi/qmutils/params/paramleaf.h"

#include <algorithm>
#include <utility>

namespace qm_utils {

namespace {

/// Dead bytes that aren't worth a compaction.
constexpr std::size_t kToleratedDead = 4096;

}  // namespace

ParamLeaf::~ParamLeaf() {
  for (std::size_t slot = 0; m_held > 0; ++slot) {
    dropValue(m_slots[slot]);
  }
}

std::unique_ptr<ParamLeaf> ParamLeaf::clone() const {
  auto pClone = std::make_unique<ParamLeaf>(m_sAnchor);
  pClone->m_sLow = m_sLow;
  if (m_held == 0) {
    pClone->m_slots = m_slots;
    pClone->m_bytes = GrowingBytes(m_bytes.size());
    pClone->m_bytes.append(m_bytes.view());
    pClone->m_dead = m_dead;
    return pClone;
  }
  pClone->m_slots.reserve(count());
  for (std::size_t slot = 0; slot < count(); ++slot) {
    const std::string sName = name(slot);
    pClone->insert(slot, *pClone->keyOf(sName), value(slot));
  }
  return pClone;
}

bool ParamLeaf::isNamed(std::size_t slot, std::string_view sName) const noexcept {
  const std::size_t shared = m_slots[slot].shared;
  const std::string_view sEnd = nameEnd(slot);
  return sName.size() == shared + sEnd.size() && sName.substr(shared) == sEnd &&
         sName.substr(0, shared) == nameStart(slot);
}

/// Steps away from the hint in growing steps, then halves what is left.
ParamLeaf::Place ParamLeaf::find(const Key& key, std::size_t hint) const noexcept {
  std::size_t low = 0;
  std::size_t high = count();
  std::size_t probe = std::min(hint, high - 1);
  std::size_t step = 1;
  bool bStepping = true;
  bool bUp = false;
  while (low < high) {
    const int iOrder = compare(probe, key);
    if (iOrder == 0) {
      return {probe, true};
    }
    const bool bBelow = iOrder < 0;
    bStepping = bStepping && (step == 1 || bUp == bBelow);
    bUp = bBelow;
    if (bBelow) {
      low = probe + 1;
    } else {
      high = probe;
    }
    if (!bStepping) {
      probe = low + (high - low) / 2;
    } else if (bUp) {
      probe = std::min(low + step - 1, high - 1);
    } else {
      probe = high - std::min(step, high - low);
    }
    step *= 2;
  }
  return {low, false};
}

std::string ParamLeaf::name(std::size_t slot) const {
  return std::string(nameStart(slot)).append(nameEnd(slot));
}

ParamValue ParamLeaf::value(std::size_t slot) const noexcept {
  const Slot& from = m_slots[slot];
  if (from.kind == kHeld) {
    return from.content.held->value();
  }
  const auto eType = static_cast<JVariant::Type>(from.kind);
  if (hasBytes(from)) {
    const std::string_view sBytes = recordOf(from).bytes;
    return ParamValue::ofBytes(sBytes.data(), sBytes.size(), eType);
  }
  return eType == JVariant::T_DOUBLE ? ParamValue::ofDouble(from.content.number)
                                     : ParamValue::ofInteger(from.content.integer, eType);
}

/// Leaves the name of a slot and an empty value.
void ParamLeaf::dropValue(Slot& slot) noexcept {
  if (slot.kind == kHeld) {
    delete slot.content.held;
    --m_held;
  } else if (hasBytes(slot)) {
    m_dead += slot.content.size;
  }
  setValue(slot, {});
}

void ParamLeaf::insert(std::size_t slot, const Key& key, const ParamValue& value) {
  m_slots.insert(m_slots.begin() + static_cast<std::ptrdiff_t>(slot),
                 makeSlot(key.shared, key.name.substr(key.shared), value));
}

void ParamLeaf::insert(std::size_t slot, const Key& key, std::unique_ptr<JVariant> pHeld) {
  insert(slot, key, ParamValue());
  replace(slot, std::move(pHeld));
}

void ParamLeaf::replace(std::size_t slot, const ParamValue& value) {
  Slot& to = m_slots[slot];
  if (value.hasBytes()) {
    // The name is written once more, in front of the bytes of the value.
    const Slot filled = makeSlot(to.shared, std::string(nameEnd(slot)), value);
    const Record old = recordOf(to);
    m_dead += old.size - old.bytes.size();
    dropValue(to);
    to = filled;
  } else {
    dropValue(to);
    setValue(to, value);
  }
  compactIfWorthwhile();
}

void ParamLeaf::replace(std::size_t slot, std::unique_ptr<JVariant> pHeld) {
  Slot& to = m_slots[slot];
  dropValue(to);
  to.kind = kHeld;
  to.content.held = pHeld.release();
  ++m_held;
  compactIfWorthwhile();
}

const JVariant* ParamLeaf::hold(std::size_t slot) {
  if (m_slots[slot].kind != kHeld) {
    replace(slot, std::make_unique<JVariant>(name(slot), value(slot)));
  }
  return m_slots[slot].content.held;
}

void ParamLeaf::erase(std::size_t slot) {
  const Record gone = recordOf(m_slots[slot]);
  m_dead += gone.size - gone.bytes.size();
  dropValue(m_slots[slot]);
  m_slots.erase(m_slots.begin() + static_cast<std::ptrdiff_t>(slot));
  compactIfWorthwhile();
  if (m_slots.size() < m_slots.capacity() / 4) {
    m_slots.shrink_to_fit();
  }
}

void ParamLeaf::moveTo(ParamLeaf& target, std::size_t first, std::size_t last) {
  std::string sName;
  for (std::size_t slot = first; slot < last; ++slot) {
    sName.assign(nameStart(slot)).append(nameEnd(slot));
    const Key key = *target.keyOf(sName);
    Slot& from = m_slots[slot];
    if (from.kind == kHeld) {
      target.insert(target.count(), key, std::unique_ptr<JVariant>(from.content.held));
      setValue(from, {});
      --m_held;
    } else {
      target.insert(target.count(), key, value(slot));
    }
    m_dead += recordOf(from).size;
  }
  m_slots.erase(m_slots.begin() + static_cast<std::ptrdiff_t>(first),
                m_slots.begin() + static_cast<std::ptrdiff_t>(last));
  compactIfWorthwhile();
}

void ParamLeaf::reserveLike(const ParamLeaf& full) {
  m_slots.reserve(full.count());
  const std::size_t size = std::min(full.m_bytes.size(), kMaxBytes);
  m_bytes = GrowingBytes(size + size / 16);
}

void ParamLeaf::compactIfWorthwhile() {
  if (m_dead <= kToleratedDead || m_dead <= m_bytes.size() / 2) {
    return;
  }
  GrowingBytes live(m_bytes.size() - m_dead);
  for (Slot& slot : m_slots) {
    const std::string_view sRecord = m_bytes.view().substr(slot.offset, recordOf(slot).size);
    slot.offset = live.size() & kMaxOffset;
    live.append(sRecord);
  }
  m_bytes = std::move(live);
  m_dead = 0;
}

}  // namespace qm_utils
